#include "Platform/Scheduler/WalkSmBase.h"

#include "Platform/Base/Errors.h"
#include "Platform/Scheduler/test/WalkFixture.h"
#include "Platform/State/CaughtErrors.h"
#include "Platform/State/DumpContext.h"
#include "Testing/TraceCapture.h"

#include <csignal>
#include <stdexcept>

namespace Vela {
namespace {

using namespace std::chrono_literals;

static_assert(sizeof(WalkRet) == 8);

class WalkSmBaseTest : public WalkFixture {
  protected:
    static bool isOneOf(const std::string& text, std::initializer_list<const char*> texts) {
        for (const char* each : texts) {
            if (text == each) {
                return true;
            }
        }
        return false;
    }
};

using WalkSmBaseDeathTest = WalkSmBaseTest;

/// Overrides nothing that it need not.
class PlainSm final : public WalkSmBase {
  public:
    explicit PlainSm(Ptr<TaskScheduler> scheduler)
        : WalkSmBase(std::move(scheduler), 3, "PlainSm") {}
    const char* typeName() const noexcept override { return "PlainSm"; }

    void expectDefaults() {
        EXPECT_EQ(initialScheduleDelay(), 0);
        EXPECT_FALSE(untilNoMoreWork());
        EXPECT_FALSE(allowWalkRestarts());
        EXPECT_TRUE(walkStartedNotification());
    }

    int walks = 0;

  private:
    WalkRet walk() override {
        ++walks;
        return {0, 0};
    }
};

TEST_F(WalkSmBaseTest, OnlyTheWalkHasToBeWritten) {
    auto plain = make<PlainSm>(scheduler());
    plain->expectDefaults();
    EXPECT_TRUE(plain->walkScheduled());
    EXPECT_EQ(runUntilIdle(), 1u);
    EXPECT_EQ(plain->walks, 1);
    EXPECT_FALSE(plain->walkScheduled());
}

TEST_F(WalkSmBaseTest, CreationSchedulesTheFirstWalk) {
    makeMachine();
    EXPECT_EQ(taken(), "<scheduled> scheduled ");
    EXPECT_TRUE(sm->walkScheduled());
    EXPECT_EQ(runUntilIdle(), 1u);
    EXPECT_EQ(taken(), "started <started> walk <finished> finished ");
    EXPECT_FALSE(sm->walkScheduled());
    runFor(1000);
    EXPECT_EQ(log, "");
}

TEST_F(WalkSmBaseTest, TheFirstWalkWaitsForItsDelay) {
    behavior.initialScheduleDelay = 30;
    makeMachine();
    EXPECT_EQ(taken(), "<scheduled> scheduled ");
    runFor(29.9);
    EXPECT_TRUE(sm->walkScheduled());
    EXPECT_EQ(taken(), "");
    runFor(0.1);
    EXPECT_EQ(taken(), "started <started> walk <finished> finished ");
}

/// Schedules its walk itself, once its input is there.
class WaitingSm final : public WalkSmBase {
  public:
    explicit WaitingSm(Ptr<TaskScheduler> scheduler)
        : WalkSmBase(std::move(scheduler), 3, "WaitingSm") {}
    const char* typeName() const noexcept override { return "WaitingSm"; }
    void inputIsReady() { scheduleWalk(); }
    int walks = 0;

  private:
    void handleInitialized() override {}
    WalkRet walk() override {
        ++walks;
        return {0, 0};
    }
};

TEST_F(WalkSmBaseTest, AMachineMayScheduleItsFirstWalkItself) {
    auto waiting = make<WaitingSm>(scheduler());
    EXPECT_FALSE(waiting->walkScheduled());
    runFor(100);
    EXPECT_EQ(waiting->walks, 0);
    waiting->inputIsReady();
    runUntilIdle();
    EXPECT_EQ(waiting->walks, 1);
}

TEST_F(WalkSmBaseTest, WithMoreWorkTheOthersHaveTheirTurnsInBetween) {
    callsPerWalk(3);
    makeMachine();
    auto other = make<Task>(scheduler(), TaskPriority{3}, "other", nullptr, [&] {
        log += "other ";
        return SliceResult{true, 1};
    });
    other->schedule();
    taken();
    for (int i = 0; i < 6; ++i) {
        turn();
    }
    EXPECT_EQ(taken(), "started <started> walk <yielded> other walk <yielded> other "
                       "walk <finished> finished other ");
    other->destroy();
}

TEST_F(WalkSmBaseTest, UntilNoMoreWorkASliceGoesOnWhileItsBudgetLasts) {
    behavior.untilNoMoreWork = true;
    int calls = 0;
    behavior.walk = [&] {
        clock().advance(400us);
        return WalkRet{++calls < 5, 2};
    };
    makeMachine();
    taken();
    if (alwaysYield()) {
        EXPECT_EQ(runUntilIdle(), 5u);
        EXPECT_EQ(taken(), "started <started> walk <yielded> walk <yielded> walk <yielded> "
                           "walk <yielded> walk <finished> finished ");
    } else {
        EXPECT_EQ(runUntilIdle(), 2u);
        EXPECT_EQ(taken(), "started <started> walk walk walk <yielded> "
                           "walk walk <finished> finished ");
    }
    DumpContext dump;
    scheduler()->dumpState(dump, 0);
    EXPECT_NE(dump.text().find(" items=10 "), dump.text().npos) << dump.text();
}

TEST_F(WalkSmBaseTest, ItsTaskCarriesNamePriorityAndCounts) {
    callsPerWalk(4);
    makeMachine();
    runUntilIdle();
    DumpContext dump;
    scheduler()->dumpState(dump, 0);
    EXPECT_NE(dump.text().find("SpecimenSm priority=3 scheduled=no runs=4 items=4 "),
              dump.text().npos)
        << dump.text();
}

TEST_F(WalkSmBaseTest, AWalkThatIsRefusedDoesNotRun) {
    behavior.runs = false;
    makeMachine();
    taken();
    EXPECT_EQ(runUntilIdle(), 1u);
    EXPECT_EQ(taken(), "started <refused> ");
    EXPECT_FALSE(sm->walkScheduled());

    behavior.runs = true;
    sm->scheduleWalk();
    runUntilIdle();
    EXPECT_EQ(taken(), "<scheduled> scheduled started <started> walk <finished> finished ");
}

TEST_F(WalkSmBaseTest, ARequestMadeWhileAWalkIsRefusedIsNotLost) {
    behavior.runs = false;
    makeMachine();
    behavior.started = [&] {
        sm->scheduleWalkDelay(5);
        behavior.started = nullptr;
    };
    runUntilIdle();
    taken();
    EXPECT_TRUE(sm->walkScheduled());
    behavior.runs = true;
    runFor(5);
    EXPECT_EQ(taken(), "started <started> walk <finished> finished ");
}

TEST_F(WalkSmBaseTest, ARangeErrorAbortsTheWalk) {
    Testing::TraceCapture trace("State=0");
    uint64_t before = caughtRangeErrors();
    int calls = 0;
    behavior.walk = [&] {
        if (++calls == 2) {
            throw RangeError("Bridging::VlanId::value < 1 or > 4094 not allowed");
        }
        return WalkRet{calls == 1, 1};
    };
    makeMachine();
    taken();
    EXPECT_EQ(runUntilIdle(), 2u);
    EXPECT_EQ(taken(), "started <started> walk <yielded> walk <aborted> aborted ");
    EXPECT_FALSE(sm->walkScheduled());
    EXPECT_EQ(caughtRangeErrors(), before + 1);
    EXPECT_EQ(trace.count("SpecimenSm("), 1u);
    EXPECT_EQ(trace.count("range error: Bridging::VlanId::value < 1 or > 4094 not allowed"), 1u);

    sm->scheduleWalk();
    runUntilIdle();
    EXPECT_EQ(taken(), "<scheduled> scheduled started <started> walk <finished> finished ");
}

TEST_F(WalkSmBaseTest, ARangeErrorEndsASliceOfSeveralCallsAndTheWalk) {
    behavior.untilNoMoreWork = true;
    int calls = 0;
    behavior.walk = [&] {
        if (++calls == 3) {
            throw RangeError("Bridging::VlanId::value < 1 or > 4094 not allowed");
        }
        return WalkRet{1, 1};
    };
    makeMachine();
    EXPECT_EQ(runUntilIdle(), alwaysYield() ? 3u : 1u);
    EXPECT_EQ(calls, 3);
    EXPECT_TRUE(taken().ends_with("walk <aborted> aborted "));
    EXPECT_FALSE(sm->walkScheduled());
}

TEST_F(WalkSmBaseTest, ARequestOfTheSliceThatAbortsIsNotLost) {
    behavior.walk = [&] {
        behavior.walk = [] { return WalkRet{0, 0}; };
        sm->scheduleWalk();
        throw RangeError("later");
        return WalkRet{0, 0};
    };
    makeMachine();
    taken();
    EXPECT_EQ(runUntilIdle(), 2u);
    EXPECT_EQ(taken(), "started <started> walk <scheduled> scheduled <aborted> aborted "
                       "started <started> walk <finished> finished ");
}

// A notification that fails must not take a request with it, or the machine would stand still.
TEST_F(WalkSmBaseTest, ARangeErrorInANotificationLosesNoRequest) {
    struct Case {
        const char* name;
        std::function<void()> SpecimenBehavior::*notification;
        bool restarts;
        bool walkFails;
        bool completes;
    };
    for (const Case& each :
         {Case{"finished", &SpecimenBehavior::finished, false, false, true},
          Case{"aborted by a restart", &SpecimenBehavior::aborted, true, false, false},
          Case{"aborted by an error", &SpecimenBehavior::aborted, false, true, false},
          Case{"started", &SpecimenBehavior::started, false, false, false}}) {
        SCOPED_TRACE(each.name);
        uint64_t before = caughtRangeErrors();
        behavior = {};
        behavior.allowWalkRestarts = each.restarts;
        makeIdleMachine();
        int walks = 0;
        int requestedIn = 0;
        behavior.walk = [&] {
            if (++walks == 1) {
                sm->scheduleWalk();
                requestedIn = walks;
                if (each.walkFails) {
                    throw RangeError("walk");
                }
            }
            return WalkRet{walks == 1 && each.restarts, 1};
        };
        behavior.*each.notification = [&] {
            if (each.notification == &SpecimenBehavior::started) {
                sm->scheduleWalk();
            }
            behavior.*each.notification = nullptr;
            throw RangeError("notification");
        };
        sm->scheduleWalk();
        runUntilIdle();
        EXPECT_EQ(caughtRangeErrors(), before + 1 + each.walkFails);
        EXPECT_GT(walks, requestedIn);
        EXPECT_FALSE(sm->walkScheduled());
        // A walk that was complete is not aborted for it.
        EXPECT_EQ(taken().find("aborted") == log.npos, each.completes);

        // And the machine still works.
        sm->scheduleWalk();
        runUntilIdle();
        EXPECT_EQ(taken(), "<scheduled> scheduled started <started> walk <finished> finished ");
    }
}

TEST_F(WalkSmBaseDeathTest, AnyOtherErrorTerminatesWithItsText) {
    behavior.walk = []() -> WalkRet { throw std::runtime_error("the table is gone"); };
    makeMachine();
    EXPECT_EXIT(turn(), testing::KilledBySignal(SIGABRT), "unhandled error \"the table is gone\"");
}

TEST_F(WalkSmBaseTest, DestructionCancelsWhatIsPending) {
    makeMachine();
    taken();
    sm.reset();
    EXPECT_FALSE(turn());
    behavior.initialScheduleDelay = 5;
    makeMachine();
    taken();
    sm->destroy();
    EXPECT_FALSE(sm->walkScheduled());
    EXPECT_FALSE(scheduler()->nextDue());
    runFor(10);
    EXPECT_EQ(log, "");
}

TEST_F(WalkSmBaseTest, DestructionBetweenTwoSlicesAbortsTheWalk) {
    callsPerWalk(3);
    makeMachine();
    turn();
    sm->scheduleWalk();
    taken();
    sm.reset();
    EXPECT_EQ(taken(), "<aborted> aborted ");
    EXPECT_FALSE(turn());
    EXPECT_EQ(log, "");
}

TEST_F(WalkSmBaseTest, DestroyedItLeavesTheSchedulerAndIgnoresRequests) {
    makeIdleMachine();
    sm->destroy();
    sm->scheduleWalk();
    sm->scheduleWalkDelay(1);
    EXPECT_FALSE(sm->walkScheduled());
    runFor(10);
    EXPECT_EQ(log, "");
    DumpContext dump;
    scheduler()->dumpState(dump, 0);
    EXPECT_NE(dump.text().find("task #0"), dump.text().npos) << dump.text();
}

TEST_F(WalkSmBaseTest, ARangeErrorOfItsEndIsCaughtLikeAnyOther) {
    callsPerWalk(2);
    makeMachine();
    behavior.aborted = [] { throw RangeError("at the end"); };
    turn();
    uint64_t before = caughtRangeErrors();
    sm->destroy();
    EXPECT_EQ(caughtRangeErrors(), before + 1);
    EXPECT_FALSE(scheduler()->hasReadyTask());
}

TEST_F(WalkSmBaseTest, MayBeDestroyedInItsSlice) {
    for (uint32_t moreWork : {0u, 1u}) {
        behavior.untilNoMoreWork = true;
        behavior.walk = [&] {
            sm->scheduleWalk();
            sm->destroy();
            sm->scheduleWalk();
            return WalkRet{moreWork, 1};
        };
        makeMachine();
        taken();
        EXPECT_EQ(runUntilIdle(), 1u);
        EXPECT_EQ(taken(), "started <started> walk <scheduled> scheduled <aborted> aborted ");
    }
}

TEST_F(WalkSmBaseTest, ItsLastReferenceMayGoInItsSlice) {
    uint64_t before = Entity::liveCount();
    for (uint32_t moreWork : {0u, 1u}) {
        behavior.walk = [&] {
            sm->scheduleWalk();
            sm.reset();
            return WalkRet{moreWork, 1};
        };
        makeMachine();
        taken();
        EXPECT_EQ(runUntilIdle(), 1u);
        EXPECT_EQ(Entity::liveCount(), before);
        EXPECT_TRUE(
            isOneOf(taken(),
                    {"started <started> walk <scheduled> scheduled <finished> finished ",
                     "started <started> walk <scheduled> scheduled <yielded> <aborted> aborted "}));
    }
}

TEST_F(WalkSmBaseTest, DestroyedByItsNotificationsItDoesNothingMore) {
    auto destroys = [this] { sm->destroy(); };
    callsPerWalk(2);

    behavior.started = destroys;
    makeMachine();
    taken();
    EXPECT_EQ(runUntilIdle(), 1u);
    EXPECT_EQ(taken(), "started <aborted> aborted ");

    behavior.runs = false;
    makeMachine();
    taken();
    runUntilIdle();
    EXPECT_EQ(taken(), "started <aborted> aborted ");
    behavior.runs = true;
    behavior.started = nullptr;

    behavior.finished = destroys;
    makeMachine();
    taken();
    EXPECT_EQ(runUntilIdle(), 2u);
    EXPECT_EQ(taken(), "started <started> walk <yielded> walk <finished> finished ");
    behavior.finished = nullptr;

    behavior.allowWalkRestarts = true;
    behavior.aborted = destroys;
    makeMachine();
    turn();
    sm->scheduleWalk();
    taken();
    runUntilIdle();
    EXPECT_EQ(taken(), "<aborted> aborted ");
    EXPECT_TRUE(sm->destroyed());
}

TEST_F(WalkSmBaseTest, InactiveItHoldsItsWalkUntilItIsActive) {
    makeMachine();
    taken();
    sm->hasNotificationActiveIs(false);
    runFor(100);
    EXPECT_EQ(taken(), "");
    EXPECT_TRUE(sm->walkScheduled());
    sm->scheduleWalk(); // one is pending already
    runFor(100);
    EXPECT_EQ(taken(), "");
    EXPECT_FALSE(turn());

    sm->hasNotificationActiveIs(true);
    EXPECT_EQ(runUntilIdle(), 1u);
    EXPECT_EQ(taken(), "started <started> walk <finished> finished ");
    EXPECT_FALSE(sm->walkScheduled());
}

TEST_F(WalkSmBaseTest, InactiveBetweenTwoSlicesItGoesOnWhereItWas) {
    callsPerWalk(3);
    makeMachine();
    turn();
    sm->hasNotificationActiveIs(false);
    runFor(100);
    EXPECT_EQ(taken(), "<scheduled> scheduled started <started> walk <yielded> ");
    sm->hasNotificationActiveIs(true);
    runUntilIdle();
    EXPECT_EQ(taken(), "walk <yielded> walk <finished> finished ");
}

TEST_F(WalkSmBaseTest, InactiveWithinItsSliceItStopsAfterTheCall) {
    behavior.untilNoMoreWork = true;
    int calls = 0;
    behavior.walk = [&] {
        sm->hasNotificationActiveIs(false);
        return WalkRet{++calls < 3, 1};
    };
    makeMachine();
    taken();
    runUntilIdle();
    EXPECT_EQ(taken(), "started <started> walk <yielded> ");
    EXPECT_TRUE(sm->walkScheduled());
    sm->hasNotificationActiveIs(true);
    runUntilIdle();
    EXPECT_EQ(taken(), "walk <yielded> ");
}

TEST_F(WalkSmBaseTest, ActiveAgainItDoesNotRunBeforeItsDelay) {
    behavior.initialScheduleDelay = 10;
    makeMachine();
    taken();
    sm->hasNotificationActiveIs(false);
    runFor(5);
    sm->hasNotificationActiveIs(true);
    runFor(4.9);
    EXPECT_EQ(taken(), "");
    runFor(0.1);
    EXPECT_EQ(taken(), "started <started> walk <finished> finished ");
}

TEST_F(WalkSmBaseTest, DestroyedWhileHeldItStaysSo) {
    makeMachine();
    sm->hasNotificationActiveIs(false);
    runUntilIdle();
    taken();
    sm->destroy();
    EXPECT_FALSE(sm->walkScheduled());
    sm->hasNotificationActiveIs(true);
    EXPECT_FALSE(turn());
    EXPECT_EQ(log, "");
}

TEST_F(WalkSmBaseTest, EachEventHasAName) {
    EXPECT_STREQ(toString(TraceEvent::scheduled), "scheduled");
    EXPECT_STREQ(toString(TraceEvent::started), "started");
    EXPECT_STREQ(toString(TraceEvent::refused), "refused");
    EXPECT_STREQ(toString(TraceEvent::yielded), "yielded");
    EXPECT_STREQ(toString(TraceEvent::aborted), "aborted");
    EXPECT_STREQ(toString(TraceEvent::finished), "finished");
}

TEST_F(WalkSmBaseDeathTest, AnUnknownEventIsAnErrorOfOurs) {
    EXPECT_EXIT(toString(static_cast<TraceEvent>(99)), testing::KilledBySignal(SIGABRT),
                "assertion failed \"false\"");
}

} // namespace
} // namespace Vela
