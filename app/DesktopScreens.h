#pragma once

class AppContext;
class ScreenRegistry;
class frmMain;

// Registers every work screen of the desktop program with the main menu.
void registerDesktopScreens(ScreenRegistry& registry);

// The desktop program's start once the main menu is shown: the settings are
// read (Form_Load), then the files a receive still owes are written. What
// cannot be written is told in a message box; the menu stays usable.
void startDesktop(frmMain& menu, AppContext& ctx);
