#include "AdminScreens.h"

#include "ScreenRegistry.h"
#include "frmConfigure.h"
#include "frmDrive.h"
#include "frmPassword.h"

void registerAdminScreens(ScreenRegistry& registry)
{
    registry.add(Screen::Configure, [](AppContext& ctx) { return new frmConfigure(ctx); });
    registry.add(Screen::Drive, [](AppContext& ctx) { return new frmDrive(ctx); });
    registry.add(Screen::Password, [](AppContext& ctx) { return new frmPassword(ctx); });
}
