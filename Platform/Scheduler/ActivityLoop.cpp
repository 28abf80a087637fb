#include "Platform/Scheduler/ActivityLoop.h"

namespace Vela {

void ActivityLoop::run() {
    for (stopped_ = false; !stopped_;) {
        scheduler_->turn(longestSleep);
        turns_.setAlways(turns_.get() + 1);
    }
}

} // namespace Vela
