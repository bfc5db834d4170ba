#pragma once

class ScreenRegistry;

// Registers every work screen of the desktop program with the main menu.
void registerDesktopScreens(ScreenRegistry& registry);
