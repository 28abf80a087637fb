#include "ArpSuppression/RemoteBindingStatusSm.h"

#include "ArpSuppression/test/RemoteBindingStatusSmFixture.h"
#include "Testing/TraceCapture.h"

#include <algorithm>
#include <random>

namespace ArpSuppression {
namespace {

using Bridging::VlanId;
using Testing::TraceCapture;
using WalkStage = RemoteBindingStatusSm::WalkStage;

/// The machine has a scheduler of its own, whose every slice is one item: the test says when it
/// goes on, and the other one, which announces the changes of tables, runs apart from it.
class RemoteBindingStatusSmWalkTest : public RemoteBindingStatusSmFixture {
  protected:
    ~RemoteBindingStatusSmWalkTest() override {
        if (sm) {
            sm->destroy();
        }
    }

    bool slice() { return walks->turn(Vela::MonotonicTime(0)); }
    unsigned walkToTheEnd() {
        unsigned slices = 0;
        while (slice()) {
            ++slices;
            if (slices > 100'000) {
                ADD_FAILURE() << "the walk has no end";
                break;
            }
        }
        return slices;
    }
    /// Tells the machine of what changed in the table.
    void announce() { runUntilIdle(); }

    static std::string ip(unsigned i) { return "10.0.0." + std::to_string(i); }
    void bindingsAre(unsigned count) {
        for (unsigned i = 1; i <= count; ++i) {
            bindingIs(ip(i), macA);
        }
    }
    /// The addresses on VLAN 10 in the order of the table.
    std::vector<std::string> order() {
        std::vector<std::string> ips;
        for (auto entry = config()->remoteBindingCollection().first(); entry; ++entry) {
            ips.push_back(entry.key().ipAddress().toStrep());
        }
        return ips;
    }
    bool filed(const std::string& ipText) { return ipToMac(ipText) != nullptr; }

    const Vela::Ptr<Vela::TaskScheduler> walks = Vela::make<Vela::TaskScheduler>(
        clock(), Vela::TaskScheduler::Settings{.alwaysYield = true});
};
using RemoteBindingStatusSmWalkDeathTest = RemoteBindingStatusSmWalkTest;

// Start

TEST_F(RemoteBindingStatusSmWalkTest, doesNothingBeforeTheConfigurationIsReady) {
    machineIs(walks);
    EXPECT_FALSE(sm->walkScheduled());
    bindingsAre(2);
    announce();
    EXPECT_FALSE(slice());
    EXPECT_EQ(tables(), Tables{});
    vlanMoves(10, "red");
    EXPECT_FALSE(sm->walkScheduled());
    configReadyIs();
    EXPECT_TRUE(sm->walkScheduled());
    EXPECT_EQ(tables(), Tables{});
    walkToTheEnd();
    expectMirrored();
    EXPECT_EQ(status->ipToMacs(), 2u);
}

TEST_F(RemoteBindingStatusSmWalkTest, startsAtOnceWhereItIsReady) {
    bindingsAre(2);
    configReadyIs();
    machineIs(walks);
    EXPECT_TRUE(sm->walkScheduled());
    walkToTheEnd();
    expectMirrored();
    EXPECT_TRUE(status->initialPopulationComplete());
}

TEST_F(RemoteBindingStatusSmWalkTest, readyAgainIsNothingNew) {
    configReadyIs();
    machineIs(walks);
    walkToTheEnd();
    config()->completeIs(false);
    EXPECT_FALSE(sm->walkScheduled());
    bindingsAre(1);
    announce();
    EXPECT_TRUE(filed(ip(1)));
    config()->completeIs(true);
    EXPECT_FALSE(sm->walkScheduled());
}

TEST_F(RemoteBindingStatusSmWalkTest, thePopulationIsCompleteAfterTheFirstConfigurationStage) {
    bindingsAre(3);
    configReadyIs();
    machineIs(walks);
    unsigned told = 0;
    auto reaction = status->initialPopulationCompleteAttribute().react(nullptr, [&] { ++told; });
    for (unsigned done = 1; done <= 2; ++done) {
        EXPECT_TRUE(slice());
        EXPECT_EQ(status->ipToMacs(), done);
        EXPECT_EQ(sm->walkStage(), WalkStage::remoteBindingConfigWalk);
        EXPECT_TRUE(sm->remoteBindingConfigBookmark());
        EXPECT_FALSE(status->initialPopulationComplete());
    }
    EXPECT_TRUE(slice());
    EXPECT_TRUE(status->initialPopulationComplete());
    EXPECT_EQ(sm->walkStage(), WalkStage::remoteBindingStatusWalk);
    EXPECT_FALSE(sm->remoteBindingConfigBookmark());
    EXPECT_EQ(walkToTheEnd(), 3u) << "the addresses";
    EXPECT_FALSE(sm->walkScheduled());
    vlanMoves(10, "red");
    walkToTheEnd();
    EXPECT_EQ(told, 1u);
}

/// A VLAN may come to L3 information because of its first binding: that binding is filed by the
/// walk that starts over.
TEST_F(RemoteBindingStatusSmWalkTest, thePopulationIsNotCompleteWithoutABindingThatIsToBeFiled) {
    bindingIs("10.0.0.1", macA, 30);
    configReadyIs();
    auto vlan = status->vlanIdCollection().react(nullptr, [this](VlanId) { vlanIs(30); });
    std::vector<bool> filedThen;
    auto complete = status->initialPopulationCompleteAttribute().react(
        nullptr, [&] { filedThen.push_back(ipToMac("10.0.0.1", 30) != nullptr); });
    machineIs(walks);
    walkToTheEnd();
    EXPECT_EQ(filedThen, std::vector<bool>{true});
    expectMirrored();
}

TEST_F(RemoteBindingStatusSmWalkTest, anEmptyConfigurationIsComplete) {
    configReadyIs();
    machineIs(walks);
    EXPECT_EQ(walkToTheEnd(), 2u);
    EXPECT_TRUE(status->initialPopulationComplete());
}

TEST_F(RemoteBindingStatusSmWalkTest, aTableEmptiedBetweenTwoSlicesIsDone) {
    bindingsAre(3);
    configReadyIs();
    machineIs(walks);
    slice();
    for (unsigned i = 1; i <= 3; ++i) {
        bindingDel(ip(i));
    }
    TraceCapture capture("ArpSuppression=8");
    slice();
    EXPECT_EQ(capture.count(" finished processed=0 done=yes\n"), 1u) << capture.text();
    EXPECT_EQ(sm->walkStage(), WalkStage::remoteBindingStatusWalk);
    announce();
    walkToTheEnd();
    expectMirrored();
}

// Many bindings in one slice, where it may be so long

TEST_F(RemoteBindingStatusSmWalkTest, aLongSliceHandlesEveryBinding) {
    for (unsigned i = 1; i <= 100; ++i) {
        bindingIs(ip(i), i % 3 ? macA : macB, 10, i % 2);
    }
    configReadyIs();
    TraceCapture capture("ArpSuppression=8");
    machineIs(scheduler());
    runUntilIdle();
    EXPECT_EQ(capture.count(" finished processed=100 done=yes\n"), alwaysYield() ? 0u : 2u)
        << "the bindings, and the addresses";
    EXPECT_EQ(changes().size(), 100u);
    expectMirrored();
}

TEST_F(RemoteBindingStatusSmWalkTest, aBindingMayGoBeforeALongSliceComesToIt) {
    bindingsAre(40);
    configReadyIs();
    auto reaction = status->lastVrfIpAddressChangeAttribute().react(nullptr, [&] {
        std::string first = status->lastVrfIpAddressChange().ipAddress().toStrep();
        for (unsigned i = 1; i <= 40; ++i) {
            if (ip(i) != first) {
                bindingDel(ip(i));
            }
        }
    });
    machineIs(scheduler());
    runUntilIdle();
    EXPECT_EQ(changes().size(), 1u);
    EXPECT_EQ(status->ipToMacs(), 1u);
    expectMirrored();
}

TEST_F(RemoteBindingStatusSmWalkTest, whoIsToldInALongSliceMayEndIt) {
    bindingsAre(40);
    configReadyIs();
    unsigned told = 0;
    auto reaction = status->lastVrfIpAddressChangeAttribute().react(nullptr, [&] {
        if (++told == 20) {
            sm->destroy();
        }
    });
    machineIs(scheduler());
    runUntilIdle();
    EXPECT_EQ(status->ipToMacs(), 20u);
    EXPECT_FALSE(status->initialPopulationComplete());
}

// The configuration changes between slices

class WalkInTheMiddle : public RemoteBindingStatusSmWalkTest {
  protected:
    /// Of six bindings three have been walked over; `ips` is their order.
    WalkInTheMiddle() {
        bindingsAre(6);
        ips = order();
        configReadyIs();
        machineIs(walks);
        for (unsigned i = 0; i < 3; ++i) {
            slice();
        }
        EXPECT_EQ(sm->remoteBindingConfigBookmark(), key(ips[3]));
    }
    std::vector<std::string> ips;
};

TEST_F(WalkInTheMiddle, whatIsRemovedBehindItIsTheReactorsBusiness) {
    bindingDel(ips[0]);
    walkToTheEnd();
    EXPECT_TRUE(filed(ips[0])) << "not announced yet";
    announce();
    EXPECT_FALSE(filed(ips[0]));
    expectMirrored();
}

TEST_F(WalkInTheMiddle, whatIsRemovedBeforeItIsNeverSeen) {
    bindingDel(ips[4]);
    walkToTheEnd();
    EXPECT_EQ(status->ipToMacs(), 5u);
    announce();
    expectMirrored();
}

TEST_F(WalkInTheMiddle, theBookmarkedEntryMayGo) {
    bindingDel(ips[3]);
    announce();
    slice();
    EXPECT_TRUE(filed(ips[4]));
    EXPECT_EQ(sm->remoteBindingConfigBookmark(), key(ips[5]));
    walkToTheEnd();
    expectMirrored();
}

TEST_F(WalkInTheMiddle, theRestMayGo) {
    for (unsigned i = 3; i < 6; ++i) {
        bindingDel(ips[i]);
    }
    announce();
    slice();
    EXPECT_TRUE(status->initialPopulationComplete());
    walkToTheEnd();
    expectMirrored();
}

TEST_F(WalkInTheMiddle, whatIsAddedBehindItIsTheReactorsBusiness) {
    bindingDel(ips[1]);
    announce();
    bindingIs(ips[1], macB);
    walkToTheEnd();
    EXPECT_FALSE(filed(ips[1]));
    announce();
    EXPECT_TRUE(filed(ips[1]));
    expectMirrored();
}

TEST_F(WalkInTheMiddle, whatIsAddedBeforeItIsMet) {
    bindingDel(ips[4]);
    bindingIs(ips[4], macB);
    walkToTheEnd();
    EXPECT_TRUE(ipToMac(ips[4])->vlanIdMacAddressHas(host(macB)));
    size_t before = changes().size();
    EXPECT_EQ(before, 6u);
    announce();
    EXPECT_EQ(changes(), Changes{}) << "once";
    expectMirrored();
}

TEST_F(WalkInTheMiddle, whatIsAnnouncedBeforeItIsMetOnce) {
    bindingIs(ips[5], macB);
    announce();
    EXPECT_TRUE(filed(ips[5]));
    changes();
    walkToTheEnd();
    EXPECT_EQ(changes().size(), 2u);
    expectMirrored();
}

TEST_F(WalkInTheMiddle, changesOnBothSidesOfIt) {
    bindingIs(ips[0], macB);
    bindingIs(ips[2], macA, 10, true);
    bindingIs(ips[4], macB, 10, true);
    walkToTheEnd();
    announce();
    expectMirrored();
}

TEST_F(WalkInTheMiddle, aVlanThatMovesStartsItOver) {
    vlanMoves(10, "red");
    slice();
    EXPECT_EQ(sm->remoteBindingConfigBookmark(), key(ips[1]));
    EXPECT_EQ(sm->walkStage(), WalkStage::remoteBindingConfigWalk);
    EXPECT_FALSE(status->initialPopulationComplete());
    walkToTheEnd();
    EXPECT_TRUE(status->initialPopulationComplete());
    expectMirrored();
}

TEST_F(WalkInTheMiddle, itsEndCancelsIt) {
    sm->destroy();
    EXPECT_FALSE(slice());
    announce();
    EXPECT_EQ(status->ipToMacs(), 3u);
}

// The stage that goes over the addresses

class AddressWalk : public RemoteBindingStatusSmWalkTest {
  protected:
    /// Six addresses whose VLAN has moved to "red": the configuration stage has filed them there,
    /// and they still are in "default", too.
    AddressWalk() {
        bindingsAre(6);
        configReadyIs();
        machineIs(walks);
        walkToTheEnd();
        vlanMoves(10, "red");
        while (sm->walkStage() == WalkStage::remoteBindingStatusWalk) {
            slice();
        }
        while (sm->walkStage() == WalkStage::remoteBindingConfigWalk) {
            slice();
        }
        EXPECT_EQ(status->ipToMacs(), 12u);
        for (unsigned i = 0; i < 5; ++i) {
            slice();
        }
        EXPECT_TRUE(sm->remoteBindingStatusBookmark());
    }
};

TEST_F(AddressWalk, goesOnWhereItWas) {
    EXPECT_EQ(walkToTheEnd(), 7u);
    expectMirrored();
}

TEST_F(AddressWalk, bindingsMayGoBetweenItsSlices) {
    for (unsigned i = 1; i <= 6; ++i) {
        bindingDel(ip(i));
        announce();
        slice();
    }
    walkToTheEnd();
    EXPECT_EQ(tables(), Tables{});
    expectMirrored();
}

TEST_F(AddressWalk, bindingsMayChangeBetweenItsSlices) {
    for (unsigned i = 1; i <= 6; ++i) {
        bindingIs(ip(i), i % 2 ? macA : macB, 10, i % 3 == 0);
        announce();
        slice();
    }
    walkToTheEnd();
    expectMirrored();
}

TEST_F(AddressWalk, bindingsMayComeBetweenItsSlices) {
    for (unsigned i = 7; i <= 12; ++i) {
        bindingIs(ip(i), macB);
        announce();
        slice();
    }
    walkToTheEnd();
    expectMirrored();
}

TEST_F(AddressWalk, theVlanMayMoveOnAndBack) {
    vlanMoves(10, "blue");
    slice();
    vlanMoves(10, "default");
    slice();
    slice();
    walkToTheEnd();
    expectMirrored();
    EXPECT_EQ(tables().vrfs, (decltype(Tables::vrfs){{"default", 6}}));
}

TEST_F(AddressWalk, whatChangedWhileTheVlanWasElsewhereLeavesNothing) {
    // Back where it was, with a host that has come back as well: what was filed there first is
    // there still.
    bindingIs(ip(1), macB);
    announce();
    vlanMoves(10, "default");
    bindingIs(ip(1), macA);
    announce();
    EXPECT_TRUE(ipToMac(ip(1))->vlanIdMacAddressHas(host(macA)));
    walkToTheEnd();
    expectMirrored();
}

/// Who looked at an address meanwhile found its VLAN without L3 information, and has to look again.
TEST_F(AddressWalk, aVlanThatIsBackBeforeTheWalkIsAnnounced) {
    walkToTheEnd();
    vlanMoves(10, "default");
    walkToTheEnd();
    changes();
    vlanDel(10);
    vlanIs(10);
    walkToTheEnd();
    expectMirrored();
    auto announced = changes();
    for (unsigned i = 1; i <= 6; ++i) {
        EXPECT_EQ(std::count(announced.begin(), announced.end(), "default " + ip(i)), 1) << i;
    }
    vlanIs(20);
    bindingIs(ip(9), macA, 20);
    announce();
    changes();
    vlanMoves(20, "red");
    walkToTheEnd();
    EXPECT_EQ(changes(), (Changes{"red " + ip(9), "default " + ip(9), "red " + ip(9)}))
        << "and VLAN 10 once only";
}

TEST_F(AddressWalk, theVlanMayLoseItsL3Info) {
    vlanDel(10);
    walkToTheEnd();
    EXPECT_EQ(status->ipToMacs(), 0u);
    expectMirrored();
}

TEST_F(AddressWalk, yieldsAtEveryAddress) {
    TraceCapture capture("ArpSuppression=8");
    slice();
    EXPECT_EQ(capture.count(" finished processed=1 done=no\n"), 1u) << capture.text();
    walkToTheEnd();
    EXPECT_EQ(capture.count(" finished processed=1 done=no\n"), 6u) << capture.text();
    EXPECT_EQ(capture.count(" finished processed=1 done=yes\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count(" traceEvent=finished\n"), 1u) << capture.text();
}

// An address with several hosts

TEST_F(RemoteBindingStatusSmWalkTest, ofTheHostsOfAnAddressSomeMayMove) {
    for (unsigned vlan : {20u, 30u, 40u}) {
        vlanIs(vlan);
        bindingIs(ip(1), macA, vlan, vlan == 30);
    }
    bindingIs(ip(1), macB);
    configReadyIs();
    machineIs(walks);
    walkToTheEnd();
    EXPECT_EQ(ipToMac(ip(1))->vlanIdMacAddresses(), 4u);
    changes();
    vlanMoves(20, "red");
    vlanDel(30);
    vlanMoves(40, "red");
    walkToTheEnd();
    expectMirrored();
    EXPECT_EQ(ipToMac(ip(1), 20)->vlanIdMacAddresses(), 2u);
    auto told = changes();
    EXPECT_EQ(std::count(told.begin(), told.end(), "default " + ip(1)), 3) << "each host that left";
    EXPECT_EQ(std::count(told.begin(), told.end(), "red " + ip(1)), 4)
        << "each host that came, by the configuration and by its old address";
}

// The empty key is a key like any other

TEST_F(RemoteBindingStatusSmWalkTest, aBindingUnderTheEmptyKeyEndsNoWalkEarly) {
    config()->remoteBindingIs({RemoteBindingKey(), Zinc::EthAddr(macA)});
    bindingsAre(6);
    configReadyIs();
    machineIs(walks);
    walkToTheEnd();
    EXPECT_EQ(sm->knownBindingCollection().size(), 7u);
    expectMirrored();
}

// Anything at any time

TEST_F(RemoteBindingStatusSmWalkTest, aStormSettles) {
    configReadyIs();
    machineIs(walks);
    std::mt19937 random(4711);
    auto below = [&](unsigned bound) { return static_cast<unsigned>(random() % bound); };
    const char* const vrfs[] = {"default", "red", "blue"};
    for (unsigned round = 0; round < 40; ++round) {
        for (unsigned step = 0; step < 100; ++step) {
            unsigned vlan = 10 + 10 * below(3);
            switch (below(8)) {
            case 0:
            case 1:
            case 2:
                bindingIs(ip(1 + below(8)), below(2) ? macA : macB, vlan, below(2));
                break;
            case 3:
                bindingDel(ip(1 + below(8)), vlan);
                break;
            case 4:
                announce();
                break;
            case 5:
                if (below(4) == 0) {
                    vlanDel(vlan);
                } else if (below(4) == 0) {
                    vlanMoves(vlan, vrfs[below(3)]);
                }
                break;
            default:
                slice();
            }
        }
        announce();
        walkToTheEnd();
        expectMirrored();
        ASSERT_FALSE(HasFailure()) << "in round " << round;
    }
}

// Our own errors

TEST_F(RemoteBindingStatusSmWalkDeathTest, thereAreTwoStages) {
    bindingsAre(2);
    configReadyIs();
    machineIs(walks);
    slice();
    sm->walkStageIs(WalkStage(2));
    EXPECT_DEATH(slice(), "RemoteBindingStatusSm.* walk: .*\"false\"");
}

} // namespace
} // namespace ArpSuppression
