#include "ArpSuppression/ArpSuppressionAgent.h"
#include "Platform/Trace/Swiftlog.h"
#include "Testing/PacketPorts.h"
#include "Testing/SwitchDevices.h"
#include "Testing/SwitchFixture.h"

#include <gtest/gtest.h>

#include <ostream>

namespace ArpSuppression {
namespace {

using Bridging::VlanId;
using Zinc::IntfId;

/// The machine that publishes what is active reacts to VLAN L3 information, and the machine that
/// keeps this reacts to what is active. Here the whole agent runs, and what the two tell each other
/// is counted.
class SuppressionLoopTest : public Testing::SwitchFixture {
  protected:
    /// How often each was announced.
    struct Told {
        unsigned enabled = 0;
        unsigned active = 0;
        unsigned record = 0;
        unsigned updated = 0; // to a VLAN, not to none

        friend bool operator==(const Told&, const Told&) = default;
        friend std::ostream& operator<<(std::ostream& out, const Told& v) {
            return out << "enabled " << v.enabled << " active " << v.active << " record "
                       << v.record << " updated " << v.updated;
        }
    };

    SuppressionLoopTest() {
        Vela::Swiftlog::defaultDirectoryIs(directory() + "/log");
        state().tablesCompleteIs();
        for (auto [vrf, id] : {std::pair("default", 0u), {"red", 7u}}) {
            state().vrfIdMap->vrfIs(Vrf::VrfId(id), vrf);
        }
        state().evpnStatus->mplsConfiguredIs(true);
        start(*agent);
        runUntilIdle();
        auto& root = *agent->rootSm()->root();
        l3 = root.vlanL3InfoStatus();
        enabled_ = root.enabledVlans()->vlanIdCollection().react(
            nullptr, [this](VlanId) { ++told_.enabled; });
        active_ = state().arpSuppressionStatus->vlanIdCollection().react(
            nullptr, [this](VlanId) { ++told_.active; });
        record_ = l3->vlanL3InfoCollection().react(nullptr, [this](VlanId) { ++told_.record; });
        updated_ = l3->updatedVlanIdAttribute().react(nullptr, [this] {
            if (l3->updatedVlanId()) {
                ++told_.updated;
            }
        });
    }
    ~SuppressionLoopTest() override {
        agent->destroy();
        Vela::Swiftlog::close();
    }

    /// What was told until nothing was to be done any more.
    Told told() {
        runUntilIdle();
        return std::exchange(told_, {});
    }
    bool isActive(unsigned vlan) { return state().arpSuppressionStatus->vlanIdHas(VlanId(vlan)); }
    std::string vrfOf(unsigned vlan) {
        auto vlanL3Info = l3->vlanL3Info(VlanId(vlan));
        return vlanL3Info ? vlanL3Info->vrfInfo()->vrfName() : "none";
    }
    void bindingIs() {
        state().remoteBindingConfig->remoteBindingIs(
            {{VlanId(10), Zinc::IpGenAddr("10.0.0.1")}, Zinc::EthAddr("02:00:00:00:00:0a")});
    }
    void bindingDel() {
        state().remoteBindingConfig->remoteBindingDel({VlanId(10), Zinc::IpGenAddr("10.0.0.1")});
    }

    Testing::PacketPorts ports;
    Vela::Ptr<ArpSuppressionAgent> agent = arpSuppressionAgentFactory("ArpSuppression");
    Vela::Ptr<VlanL3InfoStatus> l3;

  private:
    Told told_;
    Vela::Reaction enabled_;
    Vela::Reaction active_;
    Vela::Reaction record_;
    Vela::Reaction updated_;
};

TEST_F(SuppressionLoopTest, aVlanOfEvpnSettles) {
    Testing::routedVlanIs(state(), VlanId(10), 1010);
    EXPECT_EQ(told(), (Told{.enabled = 1, .active = 1, .record = 1, .updated = 1}));
    EXPECT_TRUE(isActive(10));
    EXPECT_EQ(told(), Told{});
    Testing::deviceIs(state(), "Vlan10", 0);
    EXPECT_EQ(told(), (Told{.active = 1, .updated = 1}));
    EXPECT_FALSE(isActive(10));
    EXPECT_EQ(vrfOf(10), "default") << "enabled still";
    Testing::deviceIs(state(), "Vlan10", 1011);
    EXPECT_EQ(told(), (Told{.active = 1, .updated = 1}));
    EXPECT_TRUE(isActive(10));
    state().evpnStatus->vlanToDot1qDel(VlanId(10));
    EXPECT_EQ(told(), (Told{.enabled = 1, .active = 1, .record = 1}));
    EXPECT_FALSE(isActive(10));
    EXPECT_EQ(vrfOf(10), "none");
    EXPECT_EQ(told(), Told{});
}

TEST_F(SuppressionLoopTest, aVlanWithBindingsSettles) {
    bindingIs();
    EXPECT_EQ(told(), (Told{.enabled = 1, .active = 1}));
    EXPECT_TRUE(isActive(10));
    state().ipStatus->ipIntfStatusIs(IntfId("Vlan10"), "default");
    Testing::deviceIs(state(), "Vlan10", 1010);
    EXPECT_EQ(told(), (Told{.record = 1, .updated = 1}));
    EXPECT_EQ(agent->rootSm()->root()->remoteBindingStatus()->ipToMacs(), 1u);
    bindingDel();
    EXPECT_EQ(told(), (Told{.enabled = 1, .active = 1, .record = 1}));
    EXPECT_FALSE(isActive(10));
    EXPECT_EQ(vrfOf(10), "none");
    EXPECT_EQ(agent->rootSm()->root()->remoteBindingStatus()->ipToMacs(), 0u);
    EXPECT_EQ(told(), Told{});
}

TEST_F(SuppressionLoopTest, aVlanOfEvpnThatMovesSettlesWithOneRecord) {
    Testing::routedVlanIs(state(), VlanId(10), 1010);
    told();
    state().ipStatus->ipIntfStatusDel(IntfId("Vlan10"));
    state().ipStatus->ipIntfStatusIs(IntfId("Vlan10"), "red");
    EXPECT_EQ(told(), (Told{.active = 1, .record = 2}));
    EXPECT_EQ(vrfOf(10), "red");
    EXPECT_FALSE(isActive(10)) << "the VRF has no namespace";
    EXPECT_EQ(told(), Told{});
    state().ipStatus->ipIntfStatusDel(IntfId("Vlan10"));
    state().ipStatus->ipIntfStatusIs(IntfId("Vlan10"), "default");
    EXPECT_EQ(told(), (Told{.active = 1, .record = 2, .updated = 1}));
    EXPECT_EQ(vrfOf(10), "default");
    EXPECT_TRUE(isActive(10));
    EXPECT_EQ(told(), Told{});
}

TEST_F(SuppressionLoopTest, soDoesOneThatMovesInOneStep) {
    Testing::routedVlanIs(state(), VlanId(10), 1010);
    told();
    state().ipStatus->ipIntfStatusIs(IntfId("Vlan10"), "red");
    EXPECT_EQ(told(), (Told{.active = 1, .record = 2}));
    EXPECT_EQ(vrfOf(10), "red");
    EXPECT_FALSE(isActive(10)) << "the VRF has no namespace";
    state().ipStatus->ipIntfStatusIs(IntfId("Vlan10"), "default");
    EXPECT_EQ(told(), (Told{.active = 1, .record = 2, .updated = 1}));
    EXPECT_EQ(vrfOf(10), "default");
    EXPECT_TRUE(isActive(10));
    EXPECT_EQ(told(), Told{});
}

TEST_F(SuppressionLoopTest, aVlanLookedAtWhileItsVrfIsAwayForAMomentBecomesActiveAgain) {
    auto red = state().allVrfStatusLocal->vrfIs("red");
    red->networkNamespaceIs("default");
    red->stateIs(Ip::VrfState::active);
    Testing::routedVlanIs(state(), VlanId(10), 1010);
    state().ipStatus->ipIntfStatusIs(IntfId("Vlan10"), "red");
    told();
    ASSERT_TRUE(isActive(10));
    red->stateIs(Ip::VrfState::deleting);
    state().evpnStatus->vlanToDot1qIs(VlanId(10), Bridging::VlanIdOrNone(VlanId(7)));
    EXPECT_FALSE(isActive(10));
    red->stateIs(Ip::VrfState::active); // before any walk has said that it was not
    told();
    EXPECT_TRUE(isActive(10));
    EXPECT_EQ(told(), Told{});
}

TEST_F(SuppressionLoopTest, aVlanThatLosesItsBindingsToEvpnSettles) {
    Testing::routedVlanIs(state(), VlanId(10), 1010);
    bindingIs();
    told();
    EXPECT_TRUE(isActive(10));
    bindingDel();
    EXPECT_EQ(told(), Told{}) << "nothing about the VLAN changes";
    EXPECT_TRUE(isActive(10));
    EXPECT_EQ(vrfOf(10), "default");
}

TEST_F(SuppressionLoopTest, noVlanIsWithdrawnBeforeAllBindingsAreThere) {
    state().evpnStatus->mplsConfiguredIs(false);
    state().remoteBindingConfig->completeIs(false);
    runUntilIdle();
    state().evpnStatus->mplsConfiguredIs(true);
    l3 = agent->rootSm()->root()->vlanL3InfoStatus();
    Testing::routedVlanIs(state(), VlanId(10), 1010);
    runUntilIdle();
    ASSERT_TRUE(isActive(10));
    state().evpnStatus->vlanToDot1qDel(VlanId(10));
    Testing::routedVlanIs(state(), VlanId(20), 1020);
    runUntilIdle();
    EXPECT_TRUE(isActive(10)) << "a binding may be on its way";
    EXPECT_EQ(vrfOf(10), "default");
    EXPECT_TRUE(isActive(20));
    state().remoteBindingConfig->completeIs(true);
    runUntilIdle();
    EXPECT_FALSE(isActive(10));
    EXPECT_EQ(vrfOf(10), "none");
    EXPECT_TRUE(isActive(20));
}

TEST_F(SuppressionLoopTest, manyVlansAtOnceSettle) {
    for (unsigned vlan = 1; vlan <= 100; ++vlan) {
        Testing::routedVlanIs(state(), VlanId(vlan), 1000 + vlan);
    }
    EXPECT_EQ(told(), (Told{.enabled = 100, .active = 100, .record = 100, .updated = 100}));
    EXPECT_EQ(told(), Told{});
    state().evpnStatus->vlanToDot1qDelAll();
    EXPECT_EQ(told(), (Told{.enabled = 100, .active = 100, .record = 100}));
    EXPECT_EQ(l3->vlanL3InfoCollection().count(), 0u);
    EXPECT_EQ(state().arpSuppressionStatus->vlanIds(), 0u);
    EXPECT_EQ(told(), Told{});
}

} // namespace
} // namespace ArpSuppression
