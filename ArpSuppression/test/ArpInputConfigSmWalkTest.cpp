#include "ArpSuppression/ArpInputConfigSm.h"

#include "ArpSuppression/test/ArpInputConfigSmFixture.h"

#include <set>
#include <vector>

namespace ArpSuppression {
namespace {

using Testing::TraceCapture;
using WalkStage = ArpInputConfigSm::WalkStage;

class ArpInputConfigSmWalkTest : public ArpInputConfigSmFixture {
  protected:
    /// Walks until the machine is in that stage.
    void walkTo(WalkStage stage) {
        while (sm->walkStage() != stage) {
            ASSERT_TRUE(slice());
        }
    }
    static std::string ip(unsigned i) { return "10.0.0." + std::to_string(i); }
    static std::string ip6(unsigned i) { return "2001:db8::" + std::to_string(i); }
    std::vector<std::string> order(const Arp::InputConfigVrf::EntryCollection& collection) {
        std::vector<std::string> ips;
        for (auto entry = collection.first(); entry; ++entry) {
            ips.push_back(entry.key().ipAddress().toStrep());
        }
        return ips;
    }
    std::vector<std::string> ipv4Order() {
        return order(config().vrf("default")->ipv4EntryCollection());
    }
};
using ArpInputConfigSmWalkDeathTest = ArpInputConfigSmWalkTest;

// Stages

TEST_F(ArpInputConfigSmWalkTest, goesOverLocalBindingsThenRemoteOnes) {
    kernelIs(ip(1), macA);
    localIs(ip(1), macA);
    localIs(ip(2), macA);
    quietRemoteIs(ip(3), macB);
    quietRemoteIs(ip6(3), macB);
    TraceCapture capture("ArpSuppression=8");
    machineIs();
    EXPECT_TRUE(sm->walkScheduled());
    EXPECT_EQ(sm->walkStage(), WalkStage::walkLocalBindingRecord);
    slice();
    EXPECT_EQ(sm->walkStage(), WalkStage::walkLocalBindingRecord);
    EXPECT_TRUE(sm->localBindingRecordBookmark());
    EXPECT_EQ(capture.count(" finished processed=1 done=no\n"), 1u) << capture.text();
    slice();
    EXPECT_EQ(sm->walkStage(), WalkStage::walkRemoteBindingStatus);
    EXPECT_FALSE(sm->localBindingRecordBookmark());
    EXPECT_EQ(entries(), (Entries{{at1, dynamic(macA)}}));
    slice();
    EXPECT_TRUE(sm->remoteBindingStatusBookmark());
    EXPECT_EQ(entries().size(), 2u);
    slice();
    EXPECT_EQ(sm->walkStage(), WalkStage::walkArpInputConfig);
    EXPECT_FALSE(sm->remoteBindingStatusBookmark());
    EXPECT_EQ(entries(), (Entries{{at1, dynamic(macA)},
                                  {"default 10.0.0.3 Vlan10", permanent(macB)},
                                  {"default 2001:db8::3 ", permanent(macB)}}));
    EXPECT_EQ(capture.count(" finished processed=1 done=yes\n"), 2u) << capture.text();
    EXPECT_EQ(capture.count(" walkStage=walkLocalBindingRecord\n"), 2u);
    EXPECT_EQ(capture.count(" walkStage=walkRemoteBindingStatus\n"), 2u);
    EXPECT_EQ(capture.count(" traceEvent=started\n"), 1u);
}

TEST_F(ArpInputConfigSmWalkTest, waitsForBothConditions) {
    permanentIs(ip(1), macA);
    machineIs();
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(walkToTheEnd(), 3u);
    EXPECT_EQ(sm->walkStage(), WalkStage::walkArpInputConfig);
    EXPECT_FALSE(sm->walkScheduled());
    EXPECT_EQ(capture.count(" finished processed="), 2u) << "the bindings";
    vlans->initialArpSuppressionStatusSyncIs(true);
    EXPECT_TRUE(sm->walkScheduled());
    EXPECT_EQ(walkToTheEnd(), 1u);
    EXPECT_EQ(sm->walkStage(), WalkStage::walkArpInputConfig);
    EXPECT_EQ(entries().size(), 1u);
    remote->initialPopulationCompleteIs(true);
    walkToTheEnd();
    EXPECT_EQ(sm->walkStage(), WalkStage::walkComplete);
    EXPECT_EQ(entries(), Entries{});
}

TEST_F(ArpInputConfigSmWalkTest, theConditionsMayComeInTheOtherOrder) {
    permanentIs(ip(1), macA);
    machineIs();
    remote->initialPopulationCompleteIs(true);
    walkToTheEnd();
    EXPECT_EQ(entries().size(), 1u);
    vlans->initialArpSuppressionStatusSyncIs(true);
    walkToTheEnd();
    EXPECT_EQ(entries(), Entries{});
}

TEST_F(ArpInputConfigSmWalkTest, theConditionsMayComeInTheMiddle) {
    localIs(ip(1), macA);
    localIs(ip(2), macA);
    permanentIs(ip(1), macA);
    machineIs();
    slice();
    completeIs();
    walkToTheEnd();
    EXPECT_EQ(sm->walkStage(), WalkStage::walkComplete);
    EXPECT_EQ(entries(), Entries{});
}

TEST_F(ArpInputConfigSmWalkTest, whenItIsCompleteThereIsNothingToDo) {
    startComplete();
    permanentIs(ip(1), macA);
    vlans->initialArpSuppressionStatusSyncIs(false);
    EXPECT_EQ(walkToTheEnd(), 1u);
    EXPECT_EQ(entries().size(), 1u);
    EXPECT_EQ(sm->walkStage(), WalkStage::walkComplete);
}

TEST_F(ArpInputConfigSmWalkDeathTest, thereAreFourStages) {
    machineIs();
    sm->walkStageIs(WalkStage(4));
    EXPECT_STREQ(stringValue(WalkStage(4)), "?");
    EXPECT_DEATH(slice(), "ArpInputConfigSm.* walk: .*\"false\"");
    sm->walkStageIs(WalkStage::walkComplete);
}

TEST_F(ArpInputConfigSmWalkTest, aTableEmptiedBetweenTwoSlicesIsDone) {
    localIs(ip(1), macA);
    localIs(ip(2), macA);
    quietRemoteIs(ip(3), macA);
    quietRemoteIs(ip(4), macA);
    machineIs();
    slice();
    TraceCapture capture("ArpSuppression=8");
    localDel(ip(1));
    localDel(ip(2));
    slice();
    EXPECT_EQ(sm->walkStage(), WalkStage::walkRemoteBindingStatus);
    EXPECT_EQ(capture.count(" finished processed=0 done=yes\n"), 1u) << capture.text();
    slice();
    remoteDel(ip(3));
    remoteDel(ip(4));
    slice();
    EXPECT_EQ(sm->walkStage(), WalkStage::walkArpInputConfig);
    EXPECT_EQ(capture.count(" finished processed=0 done=yes\n"), 2u) << capture.text();
}

TEST_F(ArpInputConfigSmWalkTest, bindingsMayComeAndGoOnBothSides) {
    for (unsigned i = 1; i <= 6; ++i) {
        quietRemoteIs(ip(i), macA);
    }
    machineIs();
    slice();
    slice();
    slice();
    auto bookmark = sm->remoteBindingStatusBookmark();
    ASSERT_TRUE(bookmark);
    quietRemoteDel(bookmark);
    for (unsigned i = 7; i <= 12; ++i) {
        quietRemoteIs(ip(i), macB);
    }
    Entries wanted;
    for (auto entry = remote->ipToMacCollection().atOrAfter(bookmark); entry; ++entry) {
        wanted["default " + entry.key().ipAddress().toStrep() + " Vlan10"];
    }
    auto before = entries();
    EXPECT_EQ(before.size(), 2u);
    walkToTheEnd();
    auto after = entries();
    EXPECT_EQ(after.size(), before.size() + wanted.size());
    for (const auto& [name, entry] : wanted) {
        EXPECT_TRUE(after.contains(name)) << name;
    }
}

// What an earlier run left

TEST_F(ArpInputConfigSmWalkTest, whatNothingSupportsGoesAndWhatIsSupportedStays) {
    permanentIs(ip(1), macA);
    permanentIs(ip(2), macB); // whose MAC address has changed
    permanentIs(ip(3), macA);
    permanentIs(ip6(1), macA, "");
    permanentIs(ip6(2), macA, "");
    permanentIs("fe80::1", macA, "Vlan20");
    permanentIs("fe80::2", macA, "Vlan20");
    permanentIs(ip6(3), macA, "Vlan10"); // an interface where there is to be none
    permanentIs("10.0.0.3", macA, "Vlan30", "red");
    quietRemoteIs(ip(1), macA);
    quietRemoteIs(ip(2), macA);
    quietRemoteIs(ip6(1), macA);
    quietRemoteIs(ip6(3), macA);
    quietRemoteIs("fe80::1", macA, 20);
    std::set<Arp::InputConfigKey> told;
    auto vrf = config().vrf("default");
    auto supported = [&](const Arp::InputConfigKey& which) {
        told.insert(which);
        for (const auto& always :
             {key(ip(1)), key(ip(2)), key(ip6(1), ""), key("fe80::1", "Vlan20")}) {
            EXPECT_TRUE(vrf->afEntry(always)) << always;
        }
    };
    auto reaction4 = vrf->ipv4EntryCollection().react(nullptr, supported);
    auto reaction6 = vrf->ipv6EntryCollection().react(nullptr, supported);
    completeIs();
    machineIs();
    walkToTheEnd();
    EXPECT_EQ(entries(), (Entries{{"default 10.0.0.1 Vlan10", permanent(macA)},
                                  {"default 10.0.0.2 Vlan10", permanent(macA)},
                                  {"default 2001:db8::1 ", permanent(macA)},
                                  {"default 2001:db8::3 ", permanent(macA)},
                                  {"default fe80::1 Vlan20", permanent(macA)}}));
    EXPECT_EQ(told, (std::set<Arp::InputConfigKey>{key(ip(2)), key(ip(3)), key(ip6(2), ""),
                                                   key("fe80::2", "Vlan20"), key(ip6(3), ""),
                                                   key(ip6(3), "Vlan10")}));
    EXPECT_EQ(config().vrf("default"), vrf);
    EXPECT_FALSE(config().vrf("red"));
    expectShadowsOfEntries();
    EXPECT_EQ(moved(), (Moved{{Id::inputPermanentAdded, 1},
                              {Id::inputPermanentRewritten, 9},
                              {Id::inputDeleted, 5}}));
}

TEST_F(ArpInputConfigSmWalkTest, whatIsSupportedIsKeptWhereOnlyUpdatesAreWanted) {
    permanentIs(ip(1), macB);
    quietRemoteIs(ip(1), macA);
    quietRemoteIs(ip(2), macA);
    selectiveIs(true);
    completeIs();
    machineIs();
    walkToTheEnd();
    EXPECT_EQ(entries(), (Entries{{at1, permanent(macA)}}));
    EXPECT_EQ(moved(), (Moved{{Id::inputPermanentRewritten, 2}}));
}

TEST_F(ArpInputConfigSmWalkTest, anEntryOfAHostThatMovedMeanwhileGoes) {
    permanentIs(ip(1), macA, "Vlan20");
    quietRemoteIs(ip(1), macA, 10);
    completeIs();
    machineIs();
    walkTo(WalkStage::walkArpInputConfig);
    EXPECT_EQ(entries(),
              (Entries{{at1, permanent(macA)}, {"default 10.0.0.1 Vlan20", permanent(macA)}}));
    walkToTheEnd();
    EXPECT_EQ(entries(), (Entries{{at1, permanent(macA)}}));
    expectShadowsOfEntries();
}

TEST_F(ArpInputConfigSmWalkTest, anEntryOnSeveralInterfacesGoesFromAllOfThem) {
    for (unsigned vlan = 10; vlan <= 17; ++vlan) {
        permanentIs(ip(1), macA, "Vlan" + std::to_string(vlan));
    }
    completeIs();
    machineIs();
    walkToTheEnd();
    EXPECT_EQ(entries(), Entries{});
    expectShadowsOfEntries();
}

TEST_F(ArpInputConfigSmWalkTest, aLocalBindingKeepsAnEntryToo) {
    permanentIs(ip(1), macA);
    kernelIs(ip(1), macA, true, Arp::ArpSource::arpSuppression);
    localIs(ip(1), macA);
    completeIs();
    machineIs();
    walkToTheEnd();
    EXPECT_EQ(entries(), (Entries{{at1, dynamic(macA)}}));
}

TEST_F(ArpInputConfigSmWalkTest, entriesOfAVrfThatIsNotThereGoOneByOne) {
    for (unsigned i = 1; i <= 3; ++i) {
        permanentIs(ip(i), macA, "Vlan99", "blue");
        permanentIs(ip6(i), macA, "", "blue");
    }
    config().vrfIs("empty");
    permanentIs(ip(1), macA);
    quietRemoteIs(ip(1), macA);
    completeIs();
    machineIs();
    walkTo(WalkStage::walkArpInputConfig);
    TraceCapture capture("ArpSuppression=8");
    moved();
    for (unsigned left = 5; left > 0; --left) {
        slice();
        auto blue = config().vrf("blue");
        EXPECT_EQ(blue->ipv4Entries() + blue->ipv6Entries(), left);
        EXPECT_EQ(sm->arpInputConfigBookmark().vrfName(), "blue");
    }
    slice();
    EXPECT_FALSE(config().vrf("blue"));
    EXPECT_EQ(capture.count(" ipv4 walk suspended\n"), 2u) << capture.text();
    EXPECT_EQ(capture.count(" ipv6 walk suspended\n"), 3u) << capture.text();
    walkToTheEnd();
    EXPECT_EQ(capture.count(" Cleaned up VRF vrfName=blue\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count(" Cleaned up VRF vrfName=empty\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count("Cleaned up"), 2u);
    EXPECT_EQ(entries(), (Entries{{at1, permanent(macA)}}));
    EXPECT_EQ(moved(), (Moved{{Id::inputPermanentRewritten, 1}, {Id::inputDeleted, 6}}));
    EXPECT_EQ(capture.count(" done=yes\n"), 1u);
}

TEST_F(ArpInputConfigSmWalkTest, aLongSliceDoesTheSame) {
    for (unsigned i = 1; i <= 50; ++i) {
        permanentIs(ip(i), macA);
        permanentIs(ip6(i), macA, "");
        permanentIs(ip(i), macA, "Vlan30", "red");
        permanentIs(ip(i), macA, "Vlan99", "blue");
    }
    quietRemoteIs(ip(7), macA);
    quietRemoteIs(ip6(8), macA);
    completeIs();
    sm = Vela::make<ArpInputConfigSm>(scheduler(), state().l2VpnConfig, record, remote, trigger,
                                      vlans, state().arpStatus, state().arpInputConfig, counters);
    runUntilIdle();
    EXPECT_EQ(sm->walkStage(), WalkStage::walkComplete);
    EXPECT_EQ(entries(), (Entries{{"default 10.0.0.7 Vlan10", permanent(macA)},
                                  {"default 2001:db8::8 ", permanent(macA)}}));
    expectShadowsOfEntries();
}

// The entries change between slices

class EntryWalk : public ArpInputConfigSmWalkTest {
  protected:
    /// Of six IPv4 entries without support the walk has been over three; `ips` is their order.
    EntryWalk() {
        for (unsigned i = 1; i <= 6; ++i) {
            permanentIs(ip(i), macA);
        }
        for (unsigned i = 1; i <= 2; ++i) {
            permanentIs(ip6(i), macA, "");
        }
        ips = ipv4Order();
        completeIs();
        machineIs();
        walkTo(WalkStage::walkArpInputConfig);
        for (unsigned i = 0; i < 3; ++i) {
            slice();
        }
        EXPECT_EQ(
            sm->arpInputConfigBookmark(),
            ArpInputConfigBookmark("default", Zinc::IpGenAddr(ips[3]), Zinc::IntfId("Vlan10")));
        EXPECT_EQ(ipv4Order(), (std::vector<std::string>{ips[3], ips[4], ips[5]}));
    }
    Vela::Ptr<Arp::InputConfigVrf> vrf() { return config().vrf("default"); }
    std::vector<std::string> ips;
};

TEST_F(EntryWalk, goesOnToTheIpv6Entries) {
    slice();
    slice();
    slice();
    EXPECT_EQ(vrf()->ipv4Entries(), 0u);
    EXPECT_EQ(vrf()->ipv6Entries(), 2u);
    EXPECT_EQ(sm->arpInputConfigBookmark().ipAddress().af(), Zinc::ipv6());
    slice();
    EXPECT_EQ(vrf()->ipv6Entries(), 1u);
    EXPECT_EQ(sm->arpInputConfigBookmark().ipAddress().af(), Zinc::ipv6());
    slice();
    EXPECT_EQ(entries(), Entries{});
    EXPECT_EQ(sm->walkStage(), WalkStage::walkComplete);
    EXPECT_FALSE(sm->arpInputConfigBookmark());
    EXPECT_TRUE(slice());
    EXPECT_FALSE(slice());
}
TEST_F(EntryWalk, theBookmarkedEntryMayGo) {
    vrf()->afEntryDel(key(ips[3]));
    slice();
    EXPECT_EQ(ipv4Order(), (std::vector<std::string>{ips[5]}));
    walkToTheEnd();
    EXPECT_EQ(entries(), Entries{});
}
TEST_F(EntryWalk, theRestMayGo) {
    for (unsigned i = 3; i < 6; ++i) {
        vrf()->afEntryDel(key(ips[i]));
    }
    slice();
    EXPECT_EQ(vrf()->ipv6Entries(), 1u) << "it goes straight on";
    walkToTheEnd();
    EXPECT_EQ(entries(), Entries{});
}
TEST_F(EntryWalk, theVrfMayGo) {
    config().vrfDel("default");
    permanentIs(ip(9), macA, "Vlan30", "red");
    TraceCapture capture("ArpSuppression=8");
    walkToTheEnd();
    EXPECT_EQ(entries(), Entries{});
    EXPECT_EQ(sm->walkStage(), WalkStage::walkComplete);
}
TEST_F(EntryWalk, everythingMayGo) {
    config().vrfDelAll();
    TraceCapture capture("ArpSuppression=8");
    slice();
    EXPECT_EQ(capture.count(" finished processed=0 done=yes\n"), 1u) << capture.text();
    EXPECT_EQ(sm->walkStage(), WalkStage::walkComplete);
}
TEST_F(EntryWalk, whatIsAddedWithSupportStays) {
    remoteIs(ips[0], macB);
    remoteIs(ips[5], macB);
    remoteIs(ip(99), macB);
    walkToTheEnd();
    EXPECT_EQ(entries(), (Entries{{"default " + ips[0] + " Vlan10", permanent(macB)},
                                  {"default " + ips[5] + " Vlan10", permanent(macB)},
                                  {"default 10.0.0.99 Vlan10", permanent(macB)}}));
    expectShadowsOfEntries();
}
TEST_F(EntryWalk, whatIsAddedBehindItStaysUntilItsAddressIsLookedAt) {
    permanentIs(ips[0], macA);
    walkToTheEnd();
    EXPECT_EQ(entries().size(), 1u);
}
TEST_F(EntryWalk, aConditionThatIsTakenBackHoldsIt) {
    remote->initialPopulationCompleteIs(false);
    walkToTheEnd();
    EXPECT_EQ(entries().size(), 5u);
    remote->initialPopulationCompleteIs(true);
    walkToTheEnd();
    EXPECT_EQ(entries(), Entries{});
}
TEST_F(EntryWalk, itsEndCancelsIt) {
    sm->destroy();
    EXPECT_FALSE(slice());
    EXPECT_EQ(config().vrfs(), 0u);
}
TEST_F(EntryWalk, whoIsToldMayEndIt) {
    auto reaction = vrf()->ipv4EntryCollection().react(
        nullptr, [&](const Arp::InputConfigKey&) { sm->destroy(); });
    slice();
    EXPECT_FALSE(slice());
    EXPECT_EQ(config().vrfs(), 0u);
}

// A VRF ends while an address of it still has an entry: one that is being verified

class VrfEnds : public ArpInputConfigSmWalkTest {
  protected:
    VrfEnds() {
        startComplete();
        remoteIs("10.0.0.3", macA, 30);
        remoteIs(ip(1), macA);
        remoteDel("10.0.0.3", 30);
        EXPECT_EQ(entries()["red 10.0.0.3 Vlan30"], refreshed(macA));
        EXPECT_FALSE(sm->walkScheduled());
    }
};

TEST_F(VrfEnds, andItsEntriesWithIt) {
    vlanDel(30);
    EXPECT_TRUE(sm->walkScheduled());
    walkToTheEnd();
    EXPECT_EQ(entries(), (Entries{{at1, permanent(macA)}}));
    expectShadowsOfEntries();
    EXPECT_EQ(sm->walkStage(), WalkStage::walkComplete);
}
TEST_F(VrfEnds, alsoWhereItComesBackAtOnce) {
    vlanDel(30);
    vlanIs(30, "red", 2);
    walkToTheEnd();
    EXPECT_EQ(entries(), (Entries{{at1, permanent(macA)}}));
    expectShadowsOfEntries();
}
TEST_F(VrfEnds, alsoWhereItsHostIsBackFirst) {
    vlanDel(30);
    vlanIs(30, "red", 2);
    remoteIs("10.0.0.3", macB, 30);
    walkToTheEnd();
    EXPECT_EQ(entries(),
              (Entries{{at1, permanent(macA)}, {"red 10.0.0.3 Vlan30", permanent(macB)}}));
    expectShadowsOfEntries();
}
TEST_F(VrfEnds, theShadowsAreWalkedOverInSlicesToo) {
    for (unsigned i = 2; i <= 9; ++i) {
        remoteIs(ip(i), macA);
    }
    vlanDel(30);
    slice();
    vlanIs(40, "blue", 3);
    vlanDel(40); // which starts it over
    unsigned slices = walkToTheEnd();
    EXPECT_GT(slices, 9u + 9u);
    EXPECT_EQ(entries().size(), 9u);
    expectShadowsOfEntries();
}
TEST_F(VrfEnds, aVrfThatIsNewIsNoReasonToWalk) {
    vlanIs(40, "blue", 3);
    EXPECT_FALSE(sm->walkScheduled());
}

} // namespace
} // namespace ArpSuppression
