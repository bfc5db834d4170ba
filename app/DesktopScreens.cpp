#include "DesktopScreens.h"

#include "ScreenRegistry.h"

void registerDesktopScreens(ScreenRegistry& registry)
{
    (void)registry;
}
