#include "DesktopScreens.h"

#include "AdminScreens.h"
#include "ScreenRegistry.h"
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
