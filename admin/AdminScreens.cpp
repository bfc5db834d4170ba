#include "admin/AdminScreens.h"

#include "admin/frmConfigure.h"
#include "admin/frmDrive.h"
#include "admin/frmPassword.h"
#include "widgets/ScreenRegistry.h"

void registerAdminScreens(ScreenRegistry& registry)
{
    registry.add(Screen::Configure, [](AppContext& ctx) { return new frmConfigure(ctx); });
    registry.add(Screen::Drive, [](AppContext& ctx) { return new frmDrive(ctx); });
    registry.add(Screen::Password, [](AppContext& ctx) { return new frmPassword(ctx); });
}
