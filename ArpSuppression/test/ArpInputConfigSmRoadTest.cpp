#include "ArpSuppression/ArpInputConfigSm.h"

#include "ArpSuppression/test/BindingDiscoverySmFixture.h"

#include <map>
#include <string>

namespace ArpSuppression {
namespace {

using Entries = std::map<std::string, std::string>;

/// "default 10.0.0.1 Vlan10" to "permanent ...:0a".
Entries entriesOf(const Arp::InputConfig& config) {
    Entries seen;
    for (auto vrf = config.vrfCollection().first(); vrf; ++vrf) {
        for (const auto* entries :
             {&vrf.value()->ipv4EntryCollection(), &vrf.value()->ipv6EntryCollection()}) {
            for (auto entry = entries->first(); entry; ++entry) {
                seen[vrf.key().bytes() + " " + entry.key().ipAddress().toStrep() + " " +
                     entry.key().intfId().toStrep()] =
                    std::string(Arp::ArpType::toStrep(entry.value().type())) + " " +
                    entry.value().macAddress().toStrep();
            }
        }
    }
    return seen;
}

std::string permanent(const std::string& mac) {
    return "permanent " + mac;
}
std::string dynamic(const std::string& mac) {
    return "dynamic " + mac;
}

// An agent that starts where an earlier one died

class ArpInputConfigSmRestartTest : public RoadFixture {
  protected:
    static constexpr const char* macA = "02:00:00:00:00:0a";
    static constexpr const char* macB = "02:00:00:00:00:0b";

    static Arp::InputConfigKey key(const std::string& ip, const std::string& intf) {
        return {Zinc::IpGenAddr(ip), Zinc::IntfId(intf)};
    }
    void leftBehind(const std::string& ip, const std::string& intf = "Vlan10",
                    const char* vrf = "default") {
        state().arpInputConfig->vrfIs(vrf)->afEntryPermanentIs(key(ip, intf), Zinc::EthAddr(macA),
                                                               Arp::ArpSource::arpSuppression);
    }
};

TEST_F(ArpInputConfigSmRestartTest, keepsWhatIsSupportedAndRemovesTheRest) {
    for (unsigned i = 1; i <= 20; ++i) {
        leftBehind("10.0.1." + std::to_string(i));
        leftBehind("10.0.2." + std::to_string(i));
        remoteBindingIs("10.0.2." + std::to_string(i), i % 2 ? macA : macB);
    }
    leftBehind("2001:db8::1", "");
    leftBehind("2001:db8::2", "");
    remoteBindingIs("2001:db8::2", macA);
    leftBehind("10.0.0.1", "Vlan30", "nobody's");
    auto vrf = state().arpInputConfig->vrf("default");
    auto supported = [&](const Arp::InputConfigKey&) {
        EXPECT_TRUE(vrf->afEntry(key("2001:db8::2", "")));
        for (unsigned i = 1; i <= 20; ++i) {
            EXPECT_TRUE(vrf->afEntry(key("10.0.2." + std::to_string(i), "Vlan10"))) << i;
        }
    };
    auto reaction4 = vrf->ipv4EntryCollection().react(nullptr, supported);
    auto reaction6 = vrf->ipv6EntryCollection().react(nullptr, supported);
    state().arpSuppressionStatus->runnableIs(true);
    state().vrfIdMap->vrfIs(Vrf::VrfId(0), "default");
    Testing::routedVlanIs(state(), Bridging::VlanId(10), 1010); // as it was all the time
    startRoad();
    Entries wanted = {{"default 2001:db8::2 ", permanent(macA)}};
    for (unsigned i = 1; i <= 20; ++i) {
        wanted["default 10.0.2." + std::to_string(i) + " Vlan10"] = permanent(i % 2 ? macA : macB);
    }
    EXPECT_EQ(entriesOf(*state().arpInputConfig), wanted);
    EXPECT_EQ(state().arpInputConfig->vrf("default"), vrf);
    EXPECT_EQ(rootSm().arpInputConfigSm()->walkStage(), ArpInputConfigSm::WalkStage::walkComplete);
    reaction4.clear();
    reaction6.clear();
    stop();
    EXPECT_EQ(state().arpInputConfig->vrfs(), 0u);
}

/// The same, where the control plane takes its time to publish what it knows.
class ArpInputConfigSmLateTest : public ArpInputConfigSmRestartTest {
  protected:
    void startWithoutBindings() {
        leftBehind("10.0.0.1");
        leftBehind("10.0.0.2");
        leftBehind("10.0.0.1", "Vlan30", "nobody's");
        state().arpSuppressionStatus->runnableIs(true);
        state().vrfIdMap->vrfIs(Vrf::VrfId(0), "default");
        state().tablesCompleteIs();
        state().remoteBindingConfig->completeIs(false);
        state().evpnStatus->mplsConfiguredIs(true);
        start(*agent);
        Testing::routedVlanIs(state(), Bridging::VlanId(10), 1010);
        runUntilIdle();
    }
};

TEST_F(ArpInputConfigSmLateTest, whatWasLeftStaysUntilAllBindingsAreThere) {
    startWithoutBindings();
    const Entries left = entriesOf(*state().arpInputConfig);
    EXPECT_EQ(left.size(), 3u);
    EXPECT_TRUE(state().arpSuppressionStatus->vlanIdHas(Bridging::VlanId(10)));
    remoteBindingIs("10.0.0.2", macA);
    runUntilIdle();
    EXPECT_EQ(entriesOf(*state().arpInputConfig), left) << "half of the table may be missing";
    bool absent = false;
    auto vrf = state().arpInputConfig->vrf("default");
    auto reaction = vrf->ipv4EntryCollection().react(nullptr, [&](const Arp::InputConfigKey&) {
        absent = absent || !vrf->afEntry(key("10.0.0.2", "Vlan10"));
    });
    state().remoteBindingConfig->completeIs(true);
    runUntilIdle();
    EXPECT_EQ(entriesOf(*state().arpInputConfig),
              (Entries{{"default 10.0.0.2 Vlan10", permanent(macA)}}));
    EXPECT_FALSE(absent);
}

TEST_F(ArpInputConfigSmLateTest, aStopBeforeThatWithdrawsItAndTheNextStartWaitsAnew) {
    startWithoutBindings();
    stop();
    EXPECT_EQ(state().arpInputConfig->vrfs(), 0u);
    EXPECT_EQ(state().arpSuppressionStatus->vlanIds(), 0u);
    state().evpnStatus->mplsConfiguredIs(true);
    remoteBindingIs("10.0.0.2", macA);
    runUntilIdle();
    EXPECT_FALSE(root().remoteBindingStatus()->initialPopulationComplete());
    EXPECT_EQ(entriesOf(*state().arpInputConfig), Entries{});
    state().remoteBindingConfig->completeIs(true);
    runUntilIdle();
    EXPECT_TRUE(root().remoteBindingStatus()->initialPopulationComplete());
    EXPECT_EQ(entriesOf(*state().arpInputConfig),
              (Entries{{"default 10.0.0.2 Vlan10", permanent(macA)}}));
}

// In the agent that runs

class ArpInputConfigSmRoadTest : public BindingDiscoverySmFixture {
  protected:
    Entries entries() { return entriesOf(*state().arpInputConfig); }
    const std::string at1 = "default 10.0.0.1 Vlan10";
};

TEST_F(ArpInputConfigSmRoadTest, followsARemoteHost) {
    remoteIs("10.0.0.1", macA);
    EXPECT_EQ(entries(), (Entries{{at1, permanent(macA)}}));
    remoteIs("10.0.0.1", macB);
    EXPECT_EQ(entries(), (Entries{{at1, permanent(macB)}}));
    remoteDel("10.0.0.1");
    EXPECT_EQ(entries(), (Entries{{at1, dynamic(macB)}}));
    EXPECT_EQ(state()
                  .arpInputConfig->vrf("default")
                  ->ipv4EntryCollection()
                  .first()
                  .value()
                  .quickRefresh(),
              Arp::QuickRefresh::immediate);
    remoteIs("10.0.0.1", macA);
    EXPECT_EQ(entries(), (Entries{{at1, permanent(macA)}}));
}

TEST_F(ArpInputConfigSmRoadTest, followsARemoteHostToAnotherVlan) {
    routedVlanIs(20);
    remoteIs("10.0.0.1", macA, false, 10);
    remoteIs("10.0.0.1", macA, false, 20);
    EXPECT_EQ(entries(), (Entries{{at1, permanent(macA)}})) << "the first one, until it goes";
    remoteDel("10.0.0.1", 10);
    EXPECT_EQ(entries(), (Entries{{"default 10.0.0.1 Vlan20", permanent(macA)}}));
}

TEST_F(ArpInputConfigSmRoadTest, followsAHostFromHereToThereAndBack) {
    movedBy({});
    EXPECT_EQ(entries(), Entries{}) << "the kernel does not know it yet";
    neighborIs("10.0.0.1", macA);
    runUntilIdle();
    EXPECT_EQ(entries(), Entries{}) << "the kernel has learnt it by itself";
    EXPECT_TRUE(binding("10.0.0.1")->arpStatusHasDynamicEntry());
    remoteIs("10.0.0.1", macA);
    EXPECT_FALSE(binding("10.0.0.1"));
    EXPECT_EQ(entries(), (Entries{{at1, permanent(macA)}}));
    movedBy({});
    EXPECT_EQ(entries(), (Entries{{at1, dynamic(macA)}}));
    remoteDel("10.0.0.1");
    EXPECT_EQ(entries(), (Entries{{at1, dynamic(macA)}}));
    state().arpStatus->entryDel(
        {Vrf::VrfId(0), Zinc::IntfId("Vlan10"), Zinc::IpGenAddr("10.0.0.1")});
    runUntilIdle();
    EXPECT_FALSE(binding("10.0.0.1"));
    EXPECT_EQ(entries(), Entries{});
}

TEST_F(ArpInputConfigSmRoadTest, aBindingSeenAgainIsLookedAtAgain) {
    movedBy({});
    neighborIs("10.0.0.1", macA, true);
    state().arpStatus->entryIs(
        {{Vrf::VrfId(0), Zinc::IntfId("Vlan10"), Zinc::IpGenAddr("10.0.0.1")},
         Zinc::EthAddr(macA),
         true,
         Arp::ArpSource::arpSuppression});
    runUntilIdle();
    EXPECT_EQ(entries(), Entries{});
    movedBy({});
    EXPECT_EQ(entries(), (Entries{{at1, dynamic(macA)}}));
}

TEST_F(ArpInputConfigSmRoadTest, aVlanThatLosesItsInterfaceLosesItsEntries) {
    remoteIs("10.0.0.1", macA);
    remoteIs("2001:db8::1", macA);
    remoteIs("fe80::1", macA);
    EXPECT_EQ(entries().size(), 3u);
    state().ipStatus->ipIntfStatusDel(Zinc::IntfId("Vlan10"));
    runUntilIdle();
    EXPECT_EQ(entries(), Entries{});
    EXPECT_EQ(rootSm().arpInputConfigSm()->ipv4VlanIntfIdShadowCollection().size(), 0u);
    Testing::routedVlanIs(state(), Bridging::VlanId(10), 1010);
    runUntilIdle();
    EXPECT_EQ(entries().size(), 3u);
}

TEST_F(ArpInputConfigSmRoadTest, aStopAndAStartBringTheSameEntries) {
    remoteIs("10.0.0.1", macA);
    remoteIs("fe80::1", macB);
    auto before = entries();
    EXPECT_EQ(before.size(), 2u);
    stop();
    EXPECT_EQ(entries(), Entries{});
    state().evpnStatus->mplsConfiguredIs(true);
    runUntilIdle();
    EXPECT_EQ(entries(), before);
}

} // namespace
} // namespace ArpSuppression
