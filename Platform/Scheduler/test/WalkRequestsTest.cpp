#include "Platform/Scheduler/test/WalkFixture.h"

#include "Platform/Base/Errors.h"

#include <random>

namespace Vela {
namespace {

using namespace std::chrono_literals;

// When a walk is asked for: before, between the slices of one, and from within a slice.
class WalkRequestsTest : public WalkFixture {
  protected:
    /// Does something once, within the first call of `walk` from now on.
    void inNextCall(std::function<void()> what) {
        behavior.walk = [this, what = std::move(what), then = behavior.walk] {
            behavior.walk = then;
            what();
            return then();
        };
    }
};

TEST_F(WalkRequestsTest, SeveralBeforeAWalkAreOneWalk) {
    makeIdleMachine();
    sm->scheduleWalk();
    sm->scheduleWalk();
    sm->scheduleWalkDelay(5);
    EXPECT_EQ(taken(), "<scheduled> scheduled ");
    EXPECT_EQ(runUntilIdle(), 1u);
    EXPECT_EQ(taken(), "started <started> walk <finished> finished ");
    runFor(10);
    EXPECT_EQ(log, "");
}

TEST_F(WalkRequestsTest, TheEarliestCounts) {
    makeIdleMachine();
    sm->scheduleWalkDelay(8);
    sm->scheduleWalkDelay(3);
    sm->scheduleWalkDelay(5);
    EXPECT_EQ(taken(), "<scheduled> scheduled ");
    runFor(2.9);
    EXPECT_EQ(log, "");
    EXPECT_TRUE(sm->walkScheduled());
    runFor(0.1);
    EXPECT_EQ(taken(), "started <started> walk <finished> finished ");
    EXPECT_FALSE(sm->walkScheduled());
    runFor(10);
    EXPECT_EQ(log, "");
}

TEST_F(WalkRequestsTest, OneToRunSoonOvertakesADelay) {
    makeIdleMachine();
    sm->scheduleWalkDelay(8);
    sm->scheduleWalk();
    EXPECT_EQ(runUntilIdle(), 1u);
    taken();
    runFor(10);
    EXPECT_EQ(log, "");
}

TEST_F(WalkRequestsTest, BetweenSlicesItStartsTheWalkOverWhereThatIsAllowed) {
    behavior.allowWalkRestarts = true;
    callsPerWalk(2);
    makeMachine();
    turn();
    taken();
    sm->scheduleWalk();
    sm->scheduleWalk();
    EXPECT_EQ(taken(), "<scheduled> scheduled ");
    EXPECT_TRUE(turn());
    // The machine starts over and its first call ends here, as before.
    EXPECT_TRUE(taken().starts_with("<aborted> aborted started <started> walk "));
    runUntilIdle();
    EXPECT_FALSE(sm->walkScheduled());
}

TEST_F(WalkRequestsTest, BetweenSlicesItIsFollowedByAnotherWalkElsewhere) {
    callsPerWalk(2);
    makeMachine();
    turn();
    taken();
    sm->scheduleWalk();
    sm->scheduleWalk();
    EXPECT_EQ(taken(), "<scheduled> scheduled ");
    runUntilIdle();
    EXPECT_EQ(taken(), "walk <finished> finished started <started> walk <yielded> "
                       "walk <finished> finished ");
}

TEST_F(WalkRequestsTest, WithinASliceThatHasMoreWorkItStartsOverAtTheNextSlice) {
    behavior.allowWalkRestarts = true;
    makeIdleMachine();
    int calls = 0;
    behavior.walk = [&] {
        if (++calls == 1) {
            EXPECT_FALSE(sm->walkScheduled());
            sm->scheduleWalk();
            EXPECT_TRUE(sm->walkScheduled());
        }
        return WalkRet{calls == 1, 1};
    };
    sm->scheduleWalk();
    EXPECT_EQ(runUntilIdle(), 2u);
    EXPECT_EQ(taken(), "<scheduled> scheduled started <started> walk <scheduled> scheduled "
                       "<yielded> <aborted> aborted started <started> walk <finished> finished ");
}

TEST_F(WalkRequestsTest, WithinTheLastSliceAnotherWalkFollows) {
    for (bool restarts : {false, true}) {
        behavior = {};
        behavior.allowWalkRestarts = restarts;
        makeIdleMachine();
        inNextCall([&] { sm->scheduleWalk(); });
        sm->scheduleWalk();
        EXPECT_EQ(runUntilIdle(), 2u);
        EXPECT_EQ(taken(), "<scheduled> scheduled started <started> walk <scheduled> scheduled "
                           "<finished> finished started <started> walk <finished> finished ");
    }
}

TEST_F(WalkRequestsTest, WhenAWalkHasFinishedAnotherFollows) {
    makeIdleMachine();
    behavior.finished = [&] {
        behavior.finished = nullptr;
        sm->scheduleWalk();
    };
    sm->scheduleWalk();
    EXPECT_EQ(runUntilIdle(), 2u);
    EXPECT_EQ(taken(), "<scheduled> scheduled started <started> walk <finished> finished "
                       "<scheduled> scheduled started <started> walk <finished> finished ");
}

TEST_F(WalkRequestsTest, OneThatIsPendingIsAnnouncedOnceThoughTheWalkEndsInBetween) {
    makeIdleMachine();
    inNextCall([&] { sm->scheduleWalkDelay(5); });
    behavior.finished = [&] {
        behavior.finished = nullptr;
        sm->scheduleWalk();
    };
    sm->scheduleWalk();
    EXPECT_EQ(runUntilIdle(), 2u);
    EXPECT_EQ(taken(), "<scheduled> scheduled started <started> walk <scheduled> scheduled "
                       "<finished> finished started <started> walk <finished> finished ");
    runFor(10);
    EXPECT_EQ(log, "");
}

TEST_F(WalkRequestsTest, WhenAWalkStartsAnotherFollowsIt) {
    makeIdleMachine();
    behavior.started = [&] {
        behavior.started = nullptr;
        sm->scheduleWalk();
    };
    sm->scheduleWalk();
    EXPECT_EQ(runUntilIdle(), 2u);
    EXPECT_EQ(taken(), "<scheduled> scheduled started <scheduled> scheduled <started> walk "
                       "<finished> finished started <started> walk <finished> finished ");
}

TEST_F(WalkRequestsTest, WhenAWalkIsAbortedTheNewOneServesIt) {
    behavior.allowWalkRestarts = true;
    callsPerWalk(2);
    makeMachine();
    turn();
    behavior.aborted = [&] { sm->scheduleWalk(); };
    sm->scheduleWalk();
    callsPerWalk(1);
    taken();
    EXPECT_EQ(runUntilIdle(), 1u);
    EXPECT_TRUE(taken().ends_with("started <started> walk <finished> finished "));
    EXPECT_FALSE(sm->walkScheduled());
}

TEST_F(WalkRequestsTest, ADelayAskedForWithinASliceCountsFromThen) {
    makeIdleMachine();
    inNextCall([&] {
        sm->scheduleWalkDelay(240);
        sm->scheduleWalkDelay(60);
        sm->scheduleWalkDelay(120);
    });
    sm->scheduleWalk();
    EXPECT_EQ(runUntilIdle(), 1u);
    EXPECT_EQ(taken(), "<scheduled> scheduled started <started> walk <scheduled> scheduled "
                       "<finished> finished ");
    EXPECT_TRUE(sm->walkScheduled());
    runFor(59.9);
    EXPECT_EQ(taken(), "");
    runFor(0.1);
    EXPECT_EQ(taken(), "started <started> walk <finished> finished ");
    runFor(1000);
    EXPECT_EQ(log, "");
}

TEST_F(WalkRequestsTest, ADelayDisturbsAWalkOnlyOnceItHasEnded) {
    for (bool restarts : {false, true}) {
        behavior = {};
        behavior.allowWalkRestarts = restarts;
        makeIdleMachine();
        int calls = 0;
        behavior.walk = [&] { return WalkRet{++calls < 5, 1}; };
        sm->scheduleWalk();
        turn();
        sm->scheduleWalkDelay(1);
        taken();
        turn();
        EXPECT_EQ(taken(), "walk <yielded> ");
        clock().advance(1s);
        turn();
        EXPECT_EQ(taken(), restarts ? "<aborted> aborted started <started> walk <yielded> "
                                    : "walk <yielded> ");
        runUntilIdle();
        EXPECT_EQ(taken(), restarts ? "walk <yielded> walk <finished> finished "
                                    : "walk <yielded> walk <finished> finished "
                                      "started <started> walk <finished> finished ");
        EXPECT_FALSE(sm->walkScheduled());
    }
}

TEST_F(WalkRequestsTest, ThePastIsNow) {
    makeIdleMachine();
    sm->scheduleWalkDelay(-5);
    EXPECT_EQ(runUntilIdle(), 1u);
    EXPECT_EQ(taken(), "<scheduled> scheduled started <started> walk <finished> finished ");
}

// Whatever happens when: a walk begins after the last request, and then nothing is left pending.
TEST_F(WalkRequestsTest, NoneIsEverLost) {
    for (uint32_t seed = 1; seed <= 400; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        auto oneIn = [&](uint32_t n) { return random() % n == 0; };

        behavior = {};
        behavior.allowWalkRestarts = oneIn(2);
        behavior.untilNoMoreWork = oneIn(2);
        int step = 0;
        int lastRequest = 0;
        int lastStart = 0;
        bool calm = false;
        auto request = [&] {
            sm->scheduleWalkDelay(oneIn(2) ? 0 : static_cast<double>(random() % 4));
            lastRequest = ++step;
        };
        auto perhaps = [&] {
            if (!calm && oneIn(4)) {
                request();
            }
            if (!calm && oneIn(8)) {
                throw RangeError("by chance");
            }
        };
        makeMachine();
        behavior.scheduled = [&] { EXPECT_TRUE(sm->walkScheduled()); };
        behavior.started = [&] {
            lastStart = ++step;
            perhaps();
        };
        behavior.aborted = perhaps;
        behavior.finished = perhaps;
        behavior.walk = [&] {
            clock().advance(std::chrono::microseconds(random() % 700));
            perhaps();
            return WalkRet{!oneIn(3), 1};
        };
        for (int i = 0; i < 60; ++i) {
            switch (random() % 5) {
            case 0:
                request();
                EXPECT_TRUE(sm->walkScheduled());
                break;
            case 1:
                clock().advance(std::chrono::milliseconds(random() % 2000));
                break;
            case 2:
                sm->hasNotificationActiveIs(oneIn(2));
                break;
            default:
                turn();
            }
        }
        calm = true;
        sm->hasNotificationActiveIs(true);
        runFor(10);
        EXPECT_GT(lastStart, lastRequest);
        EXPECT_FALSE(sm->walkScheduled());
        taken();
    }
}

} // namespace
} // namespace Vela
