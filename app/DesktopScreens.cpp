#include "DesktopScreens.h"

#include "AdminScreens.h"
#include "AppContext.h"
#include "ScreenRegistry.h"
#include "StartupOutputs.h"
#include "frmMain.h"
#include "frmReceive.h"
#include "frmReport.h"
#include "frmsend.h"

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
