#include "Platform/Base/Assert.h"
#include "Platform/Base/Hash.h"
#include "Platform/Scheduler/WalkSmBase.h"
#include "Platform/State/Attribute.h"
#include "Platform/State/Collection.h"
#include "Testing/CoreFixture.h"
#include "Testing/TraceCapture.h"

#include <csignal>
#include <string>
#include <vector>

namespace Vela {
namespace {

using namespace std::chrono_literals;

const TraceHandle stagesTrace("WalkStagesTest");

using Numbers = Map<uint32_t, Present>;

enum class WalkStage : uint8_t { config, waitingForStatus, status, complete };

std::ostream& operator<<(std::ostream& out, WalkStage stage) {
    constexpr const char* names[] = {"config", "waitingForStatus", "status", "complete"};
    return stage <= WalkStage::complete ? out << names[static_cast<size_t>(stage)]
                                        : out << static_cast<int>(stage);
}

/// A machine as the agent has them: one collection is walked, then an input is awaited, then
/// another collection is walked.
class StagedSm final : public WalkSmBase {
  public:
    StagedSm(Ptr<TaskScheduler> scheduler, const Numbers& config, const Numbers& status,
             const Attribute<bool>& statusReady)
        : WalkSmBase(std::move(scheduler), 3, "StagedSm"), config_(config), status_(status),
          statusReady_(statusReady) {
        statusReadyReaction_ = statusReady_.react(this, [this] { scheduleWalk(); });
    }
    const char* typeName() const noexcept override { return "StagedSm"; }

    WalkStage walkStage() const { return walkStage_; }
    void walkStageIs(WalkStage stage) { walkStage_ = stage; }

    using WalkSmBase::scheduleWalk;

    std::function<void()> item = [] {};
    std::vector<uint32_t> visited;
    std::vector<WalkRet> slices;

  private:
    WalkRet walk() override {
        TRACE(stagesTrace, 8, this, "walkStage=" << walkStage_);
        slices.push_back(walkOfStage());
        return slices.back();
    }

    WalkRet walkOfStage() {
        switch (walkStage_) {
        case WalkStage::config:
            return subWalk(config_, configBookmark_, WalkStage::waitingForStatus);
        case WalkStage::waitingForStatus:
            if (!statusReady_.get()) {
                return {0, 0};
            }
            walkStage_ = WalkStage::status;
            return {1, 0};
        case WalkStage::status:
            return subWalk(status_, statusBookmark_, WalkStage::complete);
        case WalkStage::complete:
            return {0, 0};
        }
        failAssertion("false");
    }

    WalkRet subWalk(const Numbers& numbers, std::optional<uint32_t>& bookmark, WalkStage next) {
        uint32_t count = walkCollection(numbers, bookmark, [this](uint32_t number, Present) {
            visited.push_back(number);
            item();
        });
        TRACE(stagesTrace, 8, this,
              "finished processed=" << count << " done=" << !bookmark.has_value());
        if (!bookmark) {
            walkStage_ = next;
        }
        return {1, count};
    }

    void traceEvent(TraceEvent event) override {
        TRACE(stagesTrace, 8, this, "traceEvent=" << toString(event));
    }

    const Numbers& config_;
    const Numbers& status_;
    const Attribute<bool>& statusReady_;
    Reaction statusReadyReaction_;
    WalkStage walkStage_ = WalkStage::config;
    std::optional<uint32_t> configBookmark_;
    std::optional<uint32_t> statusBookmark_;
};

class WalkStagesTest : public Testing::CoreFixture {
  protected:
    static void fill(Numbers& numbers, uint32_t first, uint32_t last) {
        for (uint32_t i = first; i <= last; ++i) {
            numbers.set(i, Present());
        }
    }
    void makeMachine() { sm = make<StagedSm>(scheduler(), config, status, statusReady); }

    Testing::TraceCapture trace{"WalkStagesTest=8"};
    Numbers config;
    Numbers status;
    Attribute<bool> statusReady{false};
    Ptr<StagedSm> sm;
};

using WalkStagesDeathTest = WalkStagesTest;

TEST_F(WalkStagesTest, EachStageHasSlicesOfItsOwn) {
    fill(config, 1, 3);
    fill(status, 11, 12);
    statusReady.set(true);
    makeMachine();
    runUntilIdle();
    EXPECT_EQ(sm->visited, (std::vector<uint32_t>{1, 2, 3, 11, 12}));
    EXPECT_EQ(sm->walkStage(), WalkStage::complete);
    std::vector<uint32_t> counts;
    for (const WalkRet& slice : sm->slices) {
        counts.push_back(slice.count);
    }
    EXPECT_EQ(counts, alwaysYield() ? (std::vector<uint32_t>{1, 1, 1, 0, 1, 1, 0})
                                    : (std::vector<uint32_t>{3, 0, 2, 0}));
    EXPECT_EQ(sm->slices.back().moreWork, 0u);
    EXPECT_FALSE(sm->walkScheduled());
}

TEST_F(WalkStagesTest, AStageWhoseInputIsNotReadyDoesNothingUntilItIs) {
    fill(config, 1, 2);
    fill(status, 11, 12);
    makeMachine();
    runFor(1000);
    EXPECT_EQ(sm->walkStage(), WalkStage::waitingForStatus);
    EXPECT_EQ(sm->slices.back().moreWork, 0u);
    EXPECT_EQ(sm->slices.back().count, 0u);
    EXPECT_FALSE(sm->walkScheduled());
    EXPECT_EQ(sm->visited, (std::vector<uint32_t>{1, 2}));

    // Asked again too early, it waits on.
    size_t before = sm->slices.size();
    sm->scheduleWalk();
    runFor(1000);
    EXPECT_EQ(sm->slices.size(), before + 1);
    EXPECT_EQ(sm->walkStage(), WalkStage::waitingForStatus);

    statusReady.set(true);
    runUntilIdle();
    EXPECT_EQ(sm->walkStage(), WalkStage::complete);
    EXPECT_EQ(sm->visited, (std::vector<uint32_t>{1, 2, 11, 12}));
}

TEST_F(WalkStagesTest, ACollectionEmptiedBetweenTwoSlicesEndsItsStage) {
    fill(config, 1, 10);
    makeMachine();
    sm->item = [this] { clock().advance(1ms); };
    turn();
    EXPECT_EQ(trace.count("finished processed=1 done=no"), 1u);
    EXPECT_EQ(sm->walkStage(), WalkStage::config);
    trace.clear();
    config.delAll();
    turn();
    EXPECT_EQ(trace.count("finished processed=0 done=yes"), 1u);
    EXPECT_EQ(sm->walkStage(), WalkStage::waitingForStatus);
    EXPECT_EQ(sm->visited, std::vector<uint32_t>{1});
}

TEST_F(WalkStagesDeathTest, AStageThatNobodyKnowsIsAnErrorOfOurs) {
    makeMachine();
    sm->walkStageIs(static_cast<WalkStage>(17));
    EXPECT_EXIT(turn(), testing::KilledBySignal(SIGABRT),
                "Platform/Scheduler/test/WalkStagesTest:[0-9]+ walkOfStage: "
                "assertion failed \"false\"");
}

TEST_F(WalkStagesTest, TracesStagesAndEventsAtLevelEight) {
    makeMachine();
    runUntilIdle();
    EXPECT_EQ(trace.count("walkStage=config"), 1u);
    EXPECT_EQ(trace.count("walkStage=waitingForStatus"), 1u);
    EXPECT_EQ(trace.count("finished processed=0 done=yes"), 1u);
    EXPECT_EQ(trace.count("traceEvent=scheduled"), 1u);
    EXPECT_EQ(trace.count("traceEvent=started"), 1u);
    EXPECT_EQ(trace.count("traceEvent=yielded"), 1u);
    EXPECT_EQ(trace.count("traceEvent=finished"), 1u);
    EXPECT_EQ(trace.count("traceEvent="), 4u);
    EXPECT_EQ(trace.count("StagedSm("), trace.count("\n"));
}

} // namespace
} // namespace Vela
