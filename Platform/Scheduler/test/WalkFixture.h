#pragma once

#include "Platform/Scheduler/test/SpecimenSm.h"
#include "Testing/CoreFixture.h"

#include <string>
#include <utility>

namespace Vela {

/// A test with one specimen.
class WalkFixture : public Testing::CoreFixture {
  protected:
    /// Made, and its first walk still to come.
    void makeMachine() { sm = make<SpecimenSm>(scheduler(), log, behavior); }

    /// Made, and its first walk over and forgotten.
    void makeIdleMachine() {
        makeMachine();
        runUntilIdle();
        EXPECT_FALSE(sm->walkScheduled());
        taken();
    }

    /// Lets each walk take so many calls of one item.
    void callsPerWalk(int calls) {
        behavior.walk = [this, calls] {
            call_ = call_ % calls + 1;
            return WalkRet{call_ < calls, 1};
        };
    }

    /// The log since the last call.
    std::string taken() { return std::exchange(log, ""); }

    std::string log;
    SpecimenBehavior behavior;
    Ptr<SpecimenSm> sm;

  private:
    int call_ = 0;
};

} // namespace Vela
