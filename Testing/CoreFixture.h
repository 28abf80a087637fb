#pragma once

#include "Platform/Scheduler/TaskScheduler.h"
#include "Testing/SimulatedClock.h"

#include <gtest/gtest.h>

namespace Testing {

/// A test on the real scheduler under a simulated clock. The test ends with an error if anything
/// that it made still lives. With VELA_ALWAYS_YIELD=1 in the environment every slice is told to
/// yield at every check.
class CoreFixture : public ::testing::Test {
  protected:
    CoreFixture();
    ~CoreFixture() override;

    const Vela::Ptr<Vela::TaskScheduler>& scheduler() const { return scheduler_; }
    SimulatedClock& clock() { return clock_; }
    static bool alwaysYield();

    /// One turn of the loop; false when there was nothing to do.
    bool turn() { return scheduler_->turn(Vela::MonotonicTime(0)); }

    /// Turns until nothing is ready; fails with a dump if that takes too many. Returns the number
    /// of slices.
    uint64_t runUntilIdle(uint64_t mostTurns = 1'000'000);

    /// Lets time pass, stopping at each delay that ends on the way and running what is ready. Time
    /// that slices take themselves (by advancing the clock) counts.
    void runFor(double seconds);

  private:
    const uint64_t entitiesBefore_;
    SimulatedClock clock_;
    Vela::Ptr<Vela::TaskScheduler> scheduler_;
};

} // namespace Testing
