#include "DesktopScreens.h"

#include "AdminScreens.h"
#include "ScreenRegistry.h"
#include "frmsend.h"

void registerDesktopScreens(ScreenRegistry& registry)
{
    registerAdminScreens(registry);
    (void)registry;
    registry.add(Screen::Send, [](AppContext& ctx) -> QWidget* { return new frmsend(ctx); });
}
