#include "upload/StartupOutputs.h"

#include "base/Messenger.h"
#include "store/StoreError.h"
#include "upload/PendingOutputs.h"

namespace Startup {

bool completePendingOutputs(AppContext& ctx, Messenger& messenger)
{
    try {
        const PendingOutputs::Completion done = PendingOutputs::complete(ctx);
        if (done.complete())
            return true;
        messenger.critical(done.problems.join(QLatin1Char('\n')));
    } catch (const StoreError& e) {
        messenger.critical(e.message());
    }
    return false;
}

} // namespace Startup
