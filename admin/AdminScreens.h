#pragma once

class ScreenRegistry;

// Registers configuration, folder selection and password management with the
// main menu.
void registerAdminScreens(ScreenRegistry& registry);
