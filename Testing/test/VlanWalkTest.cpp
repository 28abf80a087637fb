#include "Platform/Base/Errors.h"
#include "Platform/Scheduler/WalkSmBase.h"
#include "Platform/State/CaughtErrors.h"
#include "Platform/State/Collection.h"
#include "Platform/Value/VlanId.h"
#include "Testing/CoreFixture.h"

#include <bit>
#include <vector>

namespace Testing {
namespace {

using namespace std::chrono_literals;
using Bridging::VlanId;
using Bridging::VlanIdOrNone;

using Vlans = Vela::Set<VlanId>;

/// Walks over VLANs and remembers the next one as people see it in a dump: 0 is none.
class VlanSm final : public Vela::WalkSmBase {
  public:
    VlanSm(Vela::Ptr<Vela::TaskScheduler> scheduler, const Vlans& vlans, SimulatedClock& clock)
        : WalkSmBase(std::move(scheduler), 3, "VlanSm"), vlans_(vlans), clock_(clock) {}
    const char* typeName() const noexcept override { return "VlanSm"; }

    using WalkSmBase::scheduleWalk;

    VlanIdOrNone bookmark;
    std::vector<unsigned> visited;

  private:
    Vela::WalkRet walk() override {
        uint32_t count = walkCollection(vlans_, bookmark, [this](VlanId vlanId, Vela::Present) {
            visited.push_back(vlanId.value());
            clock_.advance(500us);
        });
        return {bookmark ? 1u : 0u, count};
    }

    const Vlans& vlans_;
    SimulatedClock& clock_;
};

class VlanWalkTest : public CoreFixture {
  protected:
    VlanWalkTest() {
        for (unsigned vlan : {1u, 10u, 20u, 30u, 4094u}) {
            vlans.set(VlanId(vlan), {});
        }
    }

    Vlans vlans;
    Vela::Ptr<VlanSm> sm = Vela::make<VlanSm>(scheduler(), vlans, clock());
};

TEST_F(VlanWalkTest, AVlanIsABookmark) {
    turn();
    EXPECT_EQ(sm->bookmark, VlanIdOrNone(alwaysYield() ? 10u : 20u));
    runUntilIdle();
    EXPECT_EQ(sm->visited, (std::vector<unsigned>{1, 10, 20, 30, 4094}));
    EXPECT_FALSE(sm->bookmark);
}

TEST_F(VlanWalkTest, NoneStartsAtTheFirst) {
    sm->bookmark = VlanIdOrNone();
    runUntilIdle();
    EXPECT_EQ(sm->visited, (std::vector<unsigned>{1, 10, 20, 30, 4094}));
}

TEST_F(VlanWalkTest, AVlanThatIsGoneResumesAtTheNext) {
    sm->bookmark = VlanId(15);
    runUntilIdle();
    EXPECT_EQ(sm->visited, (std::vector<unsigned>{20, 30, 4094}));
}

TEST_F(VlanWalkTest, AValueThatIsNoVlanAbortsTheWalk) {
    uint64_t before = Vela::caughtRangeErrors();
    sm->bookmark = std::bit_cast<VlanIdOrNone>(uint16_t{4095}); // it cannot be made otherwise
    runUntilIdle();
    EXPECT_EQ(sm->visited, std::vector<unsigned>());
    EXPECT_EQ(Vela::caughtRangeErrors(), before + 1);
    EXPECT_FALSE(sm->walkScheduled());

    // The next one starts at the beginning.
    EXPECT_FALSE(sm->bookmark);
    sm->scheduleWalk();
    runUntilIdle();
    EXPECT_EQ(sm->visited, (std::vector<unsigned>{1, 10, 20, 30, 4094}));
    EXPECT_EQ(Vela::caughtRangeErrors(), before + 1);
}

} // namespace
} // namespace Testing
