#include "app/DesktopScreens.h"

#include "admin/AdminScreens.h"
#include "app/frmMain.h"
#include "core/AppContext.h"
#include "download/frmsend.h"
#include "reports/frmReport.h"
#include "upload/StartupOutputs.h"
#include "upload/frmReceive.h"
#include "widgets/ScreenRegistry.h"

void registerDesktopScreens(ScreenRegistry& registry)
{
    registerAdminScreens(registry);
    (void)registry;
    registry.add(Screen::Receive, [](AppContext& ctx) -> QWidget* { return new frmReceive(ctx); });
    registry.add(Screen::Send, [](AppContext& ctx) -> QWidget* { return new frmsend(ctx); });
    registry.add(Screen::Report, [](AppContext& ctx) -> QWidget* { return new frmReport(ctx); });
}

void startDesktop(frmMain& menu, AppContext& ctx)
{
    menu.Form_Load();
    Startup::completePendingOutputs(ctx, ctx.messenger());
}
