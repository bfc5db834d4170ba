#include "DesktopScreens.h"

#include "ScreenRegistry.h"
#include "frmsend.h"

void registerDesktopScreens(ScreenRegistry& registry)
{
    (void)registry;
    registry.add(Screen::Send, [](AppContext& ctx) -> QWidget* { return new frmsend(ctx); });
}
