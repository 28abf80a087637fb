#include "Testing/CoreFixture.h"

#include "Platform/State/DumpContext.h"

#include <cstdlib>
#include <string_view>

namespace Testing {

bool CoreFixture::alwaysYield() {
    const char* setting = std::getenv("VELA_ALWAYS_YIELD");
    return setting && std::string_view(setting) == "1";
}

CoreFixture::CoreFixture()
    : entitiesBefore_(Vela::Entity::liveCount()),
      scheduler_(Vela::make<Vela::TaskScheduler>(
          clock_, Vela::TaskScheduler::Settings{.alwaysYield = alwaysYield()})) {}

CoreFixture::~CoreFixture() {
    scheduler_.reset();
    EXPECT_EQ(Vela::Entity::liveCount(), entitiesBefore_) << "the test left entities behind";
}

uint64_t CoreFixture::runUntilIdle(uint64_t mostTurns) {
    uint64_t before = scheduler_->slices();
    for (uint64_t turns = 0; turn(); ++turns) {
        if (turns == mostTurns) {
            Vela::DumpContext dump;
            scheduler_->dumpState(dump, 0);
            ADD_FAILURE() << "still busy after " << mostTurns << " turns\n" << dump.text();
            break;
        }
    }
    return scheduler_->slices() - before;
}

void CoreFixture::runFor(double seconds) {
    Vela::MonotonicTime end = clock_.now() + Vela::nanosecondsFromSeconds(seconds);
    runUntilIdle();
    while (auto due = scheduler_->nextDue()) {
        if (*due > end) {
            break;
        }
        clock_.advanceTo(*due);
        runUntilIdle();
    }
    clock_.advanceTo(end);
}

} // namespace Testing
