#include "ArpSuppression/ArpSuppressionStatusSm.h"

#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Swiftlog.h"
#include "Platform/Trace/SwiftlogReader.h"
#include "Testing/CoreFixture.h"
#include "Testing/TemporaryDirectory.h"
#include "Testing/TraceCapture.h"

#include <map>
#include <set>
#include <sstream>
#include <vector>

namespace ArpSuppression {
namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Testing::TraceCapture;
using Vela::make;
using Vela::Ptr;
using Stage = ArpSuppressionStatusSm::InitializationStage;
using Active = std::map<unsigned, bool>;
using Vlans = std::set<unsigned>;

/// The machine with what it reads and writes, on a scheduler whose every slice is one VLAN.
class ArpSuppressionStatusSmTest : public Testing::CoreFixture {
  protected:
    ~ArpSuppressionStatusSmTest() override {
        if (sm) {
            sm->destroy();
        }
        bindings->destroy();
        l3->destroy();
        evpn->destroy();
    }

    void machineIs() {
        sm = make<ArpSuppressionStatusSm>(walks, evpn, bindings, l3, status, enabled);
    }
    bool slice() { return walks->turn(Vela::MonotonicTime(0)); }
    unsigned walkToTheEnd() {
        unsigned slices = 0;
        while (slice() && slices < 10'000) {
            ++slices;
        }
        return slices;
    }
    /// A machine that has done its walks over what there is.
    void startComplete() {
        machineIs();
        bindings->initialPopulationCompleteIs(true);
        walkToTheEnd();
        ASSERT_EQ(sm->initializationStage(), Stage::complete);
    }

    void evpnIs(unsigned vlan) { evpn->vlanToDot1qIs(VlanId(vlan), {}); }
    void evpnDel(unsigned vlan) { evpn->vlanToDot1qDel(VlanId(vlan)); }
    void bindingsAre(unsigned vlan) { bindings->vlanIdIs(VlanId(vlan)); }
    void bindingsDel(unsigned vlan) { bindings->vlanIdDel(VlanId(vlan)); }
    Ptr<VlanL3Info> l3InfoIs(unsigned vlan) {
        auto vrfInfo = l3->vrfInfoIs("default");
        vrfInfo->netNsIs("default");
        vrfInfo->netlinkSocketIs(7);
        auto vlanL3Info = l3->vlanL3InfoIs(vrfInfo, VlanId(vlan));
        l3->addVrfInterfaceWatch(vlanL3Info);
        return vlanL3Info;
    }
    void l3InfoDel(unsigned vlan) {
        l3->delVrfInterfaceWatch(l3->vlanL3Info(VlanId(vlan)));
        l3->vlanL3InfoDel(VlanId(vlan));
    }
    void ifIndexIs(unsigned vlan, uint32_t ifIndex) {
        auto vlanL3Info = l3->vlanL3Info(VlanId(vlan));
        vlanL3Info->kniIntfIfIndexIs(ifIndex);
        l3->vlanUpdated(vlanL3Info);
    }
    void usableIs(unsigned vlan) {
        l3InfoIs(vlan);
        ifIndexIs(vlan, 1000 + vlan);
    }

    Active active() const {
        Active seen;
        for (auto vlan = status->vlanIdCollection().first(); vlan; ++vlan) {
            seen[vlan.key().value()] = vlan.value();
        }
        return seen;
    }
    Vlans enabledVlans() const {
        Vlans seen;
        for (auto vlan = enabled->vlanIdCollection().first(); vlan; ++vlan) {
            seen.insert(vlan.key().value());
        }
        return seen;
    }

    const Ptr<Vela::TaskScheduler> walks =
        make<Vela::TaskScheduler>(clock(), Vela::TaskScheduler::Settings{.alwaysYield = true});
    const Ptr<Evpn::EvpnStatus> evpn = make<Evpn::EvpnStatus>();
    const Ptr<VlanL3InfoStatus> l3 = make<VlanL3InfoStatus>();
    const Ptr<RemoteBindingStatus> bindings = make<RemoteBindingStatus>(l3);
    const Ptr<ArpSuppressionStatus> status = make<ArpSuppressionStatus>();
    const Ptr<EnabledVlans> enabled = make<EnabledVlans>();
    Ptr<ArpSuppressionStatusSm> sm;
};
using ArpSuppressionStatusSmDeathTest = ArpSuppressionStatusSmTest;

// What makes a VLAN active

TEST_F(ArpSuppressionStatusSmTest, followsFromEvpnBindingsAndL3Info) {
    startComplete();
    for (unsigned facts = 0; facts < 8; ++facts) {
        SCOPED_TRACE(facts);
        bool inEvpn = facts & 1;
        bool inBindings = facts & 2;
        bool usable = facts & 4;
        if (usable) {
            usableIs(10);
        }
        if (inEvpn) {
            evpnIs(10);
        }
        if (inBindings) {
            bindingsAre(10);
        }
        EXPECT_EQ(enabledVlans(), inEvpn || inBindings ? Vlans{10} : Vlans{});
        EXPECT_EQ(active(), (inEvpn && usable) || inBindings ? (Active{{10, true}}) : Active{});
        evpnDel(10);
        bindingsDel(10);
        if (usable) {
            l3InfoDel(10);
        }
        EXPECT_EQ(enabledVlans(), Vlans{});
        EXPECT_EQ(active(), Active{});
    }
}

TEST_F(ArpSuppressionStatusSmTest, aVlanOfEvpnBecomesActiveWhenItIsSaidToBeUsable) {
    startComplete();
    evpnIs(10);
    EXPECT_EQ(enabledVlans(), Vlans{10});
    EXPECT_EQ(active(), Active{});
    auto vlanL3Info = l3InfoIs(10);
    EXPECT_EQ(active(), Active{}) << "there is no index yet";
    vlanL3Info->kniIntfIfIndexIs(1010);
    EXPECT_EQ(active(), Active{}) << "nobody has said so";
    l3->vlanUpdated(vlanL3Info);
    EXPECT_EQ(active(), (Active{{10, true}}));
    ifIndexIs(10, 0);
    EXPECT_EQ(active(), Active{});
    EXPECT_EQ(enabledVlans(), Vlans{10});
}

TEST_F(ArpSuppressionStatusSmTest, aVlanThatLosesItsLastBindingStaysActiveWhereEvpnCanServeIt) {
    startComplete();
    usableIs(10);
    evpnIs(10);
    bindingsAre(10);
    unsigned told = 0;
    auto reaction = status->vlanIdCollection().react(nullptr, [&](VlanId) { ++told; });
    bindingsDel(10);
    EXPECT_EQ(active(), (Active{{10, true}}));
    EXPECT_EQ(told, 0u);
    evpnDel(10);
    EXPECT_EQ(active(), Active{});
    EXPECT_EQ(told, 1u);
}

TEST_F(ArpSuppressionStatusSmTest, aVlanWithBindingsNeedsNoL3Info) {
    startComplete();
    bindingsAre(10);
    EXPECT_EQ(active(), (Active{{10, true}}));
    usableIs(10);
    l3InfoDel(10);
    EXPECT_EQ(active(), (Active{{10, true}}));
    bindingsDel(10);
    EXPECT_EQ(active(), Active{});
}

TEST_F(ArpSuppressionStatusSmTest, aVlanThatLosesItsRecordIsNotUsable) {
    startComplete();
    evpnIs(10);
    usableIs(10);
    EXPECT_EQ(active(), (Active{{10, true}}));
    l3InfoDel(10);
    EXPECT_EQ(active(), Active{});
    EXPECT_EQ(enabledVlans(), Vlans{10});
}

TEST_F(ArpSuppressionStatusSmTest, whatWasPublishedAsInactiveBecomesActive) {
    status->vlanIdIs(VlanId(10), false);
    bindingsAre(10);
    bindingsDel(10);
    startComplete();
    EXPECT_EQ(active(), Active{});
    status->vlanIdIs(VlanId(20), false);
    bindingsAre(20);
    EXPECT_EQ(active(), (Active{{20, true}}));
}

TEST_F(ArpSuppressionStatusSmTest, noVlanAnnouncedIsNone) {
    startComplete();
    evpnIs(1);
    TraceCapture capture("ArpSuppression=8");
    l3->updatedVlanIdIs(VlanIdOrNone());
    EXPECT_EQ(capture.text(), "");
    l3->updatedVlanIdIs(VlanIdOrNone(4094));
    EXPECT_EQ(capture.count(" vlanId4094 inEvpnStatus=no "), 1u) << capture.text();
    EXPECT_EQ(active(), Active{});
}

// Announcements within announcements

TEST_F(ArpSuppressionStatusSmTest, aVlanAnnouncedInTheMiddleOfAnotherIsHandledToo) {
    startComplete();
    for (unsigned vlan : {10u, 20u}) {
        evpnIs(vlan);
        l3InfoIs(vlan);
    }
    bool once = true;
    auto reaction = l3->updatedVlanIdAttribute().react(nullptr, [&] {
        if (l3->updatedVlanId() == VlanIdOrNone(10) && std::exchange(once, false)) {
            ifIndexIs(20, 1020);
        }
    });
    ifIndexIs(10, 1010);
    EXPECT_FALSE(once);
    EXPECT_EQ(active(), (Active{{10, true}, {20, true}}));
}

TEST_F(ArpSuppressionStatusSmTest, whoIsToldOfAnEnabledVlanMayGiveItL3Info) {
    startComplete();
    auto reaction = enabled->vlanIdCollection().react(nullptr, [&](VlanId vlanId) {
        if (enabled->vlanIdHas(vlanId)) {
            usableIs(vlanId.value());
        } else {
            l3InfoDel(vlanId.value());
        }
    });
    std::vector<bool> told;
    auto published = status->vlanIdCollection().react(
        nullptr, [&](VlanId vlanId) { told.push_back(status->vlanIdHas(vlanId)); });
    evpnIs(10);
    EXPECT_EQ(active(), (Active{{10, true}}));
    evpnDel(10);
    EXPECT_EQ(active(), Active{});
    EXPECT_EQ(told, (std::vector<bool>{true, false})) << "each once";
}

TEST_F(ArpSuppressionStatusSmTest, whoIsToldOfAnActiveVlanMayTakeItsL3InfoAway) {
    startComplete();
    usableIs(10);
    auto reaction = status->vlanIdCollection().react(nullptr, [&](VlanId vlanId) {
        if (status->vlanIdHas(vlanId)) {
            l3InfoDel(10);
        }
    });
    evpnIs(10);
    EXPECT_EQ(active(), Active{});
    EXPECT_EQ(enabledVlans(), Vlans{10});
}

TEST_F(ArpSuppressionStatusSmTest, whoIsToldOfAnEnabledVlanMayEndTheMachine) {
    startComplete();
    bindingsAre(20);
    auto reaction = enabled->vlanIdCollection().react(nullptr, [&](VlanId) { sm->destroy(); });
    bindingsAre(10);
    EXPECT_EQ(active(), Active{}) << "nothing is published after the end";
}

// Stages

TEST_F(ArpSuppressionStatusSmTest, walksOverEvpnWaitsAndWalksOverItsOwn) {
    for (unsigned vlan : {10u, 20u, 30u}) {
        evpnIs(vlan);
    }
    usableIs(20);
    machineIs();
    EXPECT_EQ(enabledVlans(), Vlans{});
    EXPECT_EQ(sm->initializationStage(), Stage::evpnStatusWalk);
    slice();
    EXPECT_EQ(enabledVlans(), Vlans{10});
    EXPECT_EQ(sm->bookmark(), VlanIdOrNone(20));
    slice();
    EXPECT_EQ(active(), (Active{{20, true}}));
    EXPECT_EQ(sm->initializationStage(), Stage::evpnStatusWalk);
    slice();
    EXPECT_EQ(enabledVlans(), (Vlans{10, 20, 30}));
    EXPECT_EQ(sm->bookmark(), VlanIdOrNone());
    EXPECT_EQ(sm->initializationStage(), Stage::remoteBindingStatusWait);
    EXPECT_EQ(walkToTheEnd(), 1u);
    EXPECT_EQ(sm->initializationStage(), Stage::remoteBindingStatusWait);
    EXPECT_FALSE(sm->walkScheduled()) << "it waits";
    bindings->initialPopulationCompleteIs(true);
    EXPECT_TRUE(sm->walkScheduled());
    EXPECT_EQ(walkToTheEnd(), 1u);
    EXPECT_EQ(sm->initializationStage(), Stage::complete);
    EXPECT_FALSE(sm->walkScheduled());
    EXPECT_EQ(active(), (Active{{20, true}}));
}

TEST_F(ArpSuppressionStatusSmTest, bindingsThatAreThereEarlyAreNotWaitedFor) {
    evpnIs(10);
    evpnIs(20);
    machineIs();
    slice();
    bindings->initialPopulationCompleteIs(true);
    EXPECT_EQ(sm->bookmark(), VlanIdOrNone(20));
    slice();
    EXPECT_EQ(enabledVlans(), (Vlans{10, 20})) << "goes on, and does not start over";
    EXPECT_EQ(walkToTheEnd(), 1u);
    EXPECT_EQ(sm->initializationStage(), Stage::complete);
}

TEST_F(ArpSuppressionStatusSmTest, whatAnEarlierRunLeftStaysUntilTheBindingsAreThere) {
    for (unsigned vlan : {10u, 20u, 30u, 40u}) {
        status->vlanIdIs(VlanId(vlan), true);
    }
    evpnIs(20);
    machineIs();
    Active all = {{10, true}, {20, true}, {30, true}, {40, true}};
    EXPECT_EQ(active(), all);
    walkToTheEnd();
    EXPECT_EQ(sm->initializationStage(), Stage::remoteBindingStatusWait);
    bindingsAre(30);
    bindingsAre(40);
    bindingsDel(40); // gone again, and may not be removed yet
    evpnDel(20);
    EXPECT_EQ(active(), all);
    EXPECT_EQ(enabledVlans(), Vlans{30});
    bindings->initialPopulationCompleteIs(true);
    EXPECT_EQ(active(), all);
    slice();
    EXPECT_EQ(sm->initializationStage(), Stage::arpSuppressionStatusWalk);
    EXPECT_EQ(active(), (Active{{20, true}, {30, true}, {40, true}}));
    EXPECT_EQ(sm->bookmark(), VlanIdOrNone(20));
    walkToTheEnd();
    EXPECT_EQ(active(), (Active{{30, true}}));
    EXPECT_EQ(sm->initializationStage(), Stage::complete);
}

TEST_F(ArpSuppressionStatusSmTest, reactionsRunInEveryStage) {
    evpnIs(10);
    evpnIs(20);
    machineIs();
    slice();
    ASSERT_EQ(sm->initializationStage(), Stage::evpnStatusWalk);
    bindingsAre(30);
    evpnDel(10); // behind the bookmark
    evpnDel(20); // at it
    evpnIs(40);  // before it
    evpnIs(5);   // behind it
    EXPECT_EQ(enabledVlans(), (Vlans{5, 30, 40}));
    EXPECT_EQ(active(), (Active{{30, true}}));
    slice();
    EXPECT_EQ(sm->initializationStage(), Stage::remoteBindingStatusWait);
    EXPECT_EQ(enabledVlans(), (Vlans{5, 30, 40}));
}

TEST_F(ArpSuppressionStatusSmTest, whatComesAndGoesDuringTheLastWalk) {
    for (unsigned vlan : {10u, 20u, 30u, 40u}) {
        status->vlanIdIs(VlanId(vlan), true);
    }
    machineIs();
    bindings->initialPopulationCompleteIs(true);
    slice(); // EVPN has nothing
    slice(); // VLAN 10
    ASSERT_EQ(sm->initializationStage(), Stage::arpSuppressionStatusWalk);
    ASSERT_EQ(sm->bookmark(), VlanIdOrNone(20));
    bindingsAre(5);
    bindingsAre(30);
    bindingsAre(50);
    bindingsAre(20);
    bindingsDel(20);
    EXPECT_EQ(active(), (Active{{5, true}, {30, true}, {40, true}, {50, true}}));
    walkToTheEnd();
    EXPECT_EQ(active(), (Active{{5, true}, {30, true}, {50, true}}));
    EXPECT_EQ(sm->initializationStage(), Stage::complete);
}

TEST_F(ArpSuppressionStatusSmTest, aStatusEmptiedBetweenTwoSlicesIsDone) {
    status->vlanIdIs(VlanId(10), true);
    status->vlanIdIs(VlanId(20), true);
    machineIs();
    bindings->initialPopulationCompleteIs(true);
    slice();
    slice();
    ASSERT_EQ(sm->bookmark(), VlanIdOrNone(20));
    status->vlanIdDelAll();
    TraceCapture capture("ArpSuppression=8");
    slice();
    EXPECT_EQ(capture.count(" finished processed=0 done=yes\n"), 1u) << capture.text();
    EXPECT_EQ(sm->initializationStage(), Stage::complete);
}

TEST_F(ArpSuppressionStatusSmTest, severalVlansInASliceThatMay) {
    for (unsigned vlan = 1; vlan <= 100; ++vlan) {
        evpnIs(vlan);
    }
    TraceCapture capture("ArpSuppression=8");
    sm = make<ArpSuppressionStatusSm>(scheduler(), evpn, bindings, l3, status, enabled);
    runUntilIdle();
    EXPECT_EQ(enabled->vlanIds(), 100u);
    EXPECT_EQ(capture.count(" finished processed=100 done=yes\n"), alwaysYield() ? 0u : 1u);
    EXPECT_EQ(capture.count(" finished processed=1 done=no\n"), alwaysYield() ? 99u : 0u);
}

TEST_F(ArpSuppressionStatusSmTest, aVlanOutOfRangeIsNoBookmark) {
    evpnIs(10);
    evpnIs(20);
    machineIs();
    auto textOf = [](auto callable) -> std::string {
        try {
            callable();
        } catch (const Vela::RangeError& error) {
            return error.what();
        }
        return "none";
    };
    EXPECT_EQ(textOf([&] { sm->bookmarkIs(VlanIdOrNone(4095)); }),
              "Bridging::VlanIdOrNone::value > 4094 not allowed");
    EXPECT_EQ(textOf([&] { (void)sm->bookmark().vlanId(); }),
              "Bridging::VlanId::value < 1 or > 4094 not allowed");
    sm->bookmarkIs(VlanId(15));
    slice();
    EXPECT_EQ(enabledVlans(), Vlans{20});
}

// The end

TEST_F(ArpSuppressionStatusSmTest, itsEndWithdrawsWhatIsPublished) {
    startComplete();
    bindingsAre(10);
    bindingsAre(20);
    sm->destroy();
    EXPECT_EQ(active(), Active{});
    EXPECT_EQ(enabledVlans(), (Vlans{10, 20}));
    bindingsAre(30);
    evpnIs(40);
    EXPECT_EQ(active(), Active{});
    EXPECT_EQ(enabledVlans(), (Vlans{10, 20}));
}

TEST_F(ArpSuppressionStatusSmTest, itsEndMayLeaveItForATest) {
    startComplete();
    EXPECT_FALSE(sm->skipVlanIdCleanupForTest());
    sm->skipVlanIdCleanupForTestIs(true);
    EXPECT_TRUE(sm->skipVlanIdCleanupForTest());
    bindingsAre(10);
    sm->destroy();
    EXPECT_EQ(active(), (Active{{10, true}}));
}

TEST_F(ArpSuppressionStatusSmTest, itsEndCancelsAWalk) {
    evpnIs(10);
    evpnIs(20);
    machineIs();
    slice();
    sm->destroy();
    EXPECT_FALSE(slice());
    EXPECT_EQ(enabledVlans(), Vlans{10});
}

// Our own errors

TEST_F(ArpSuppressionStatusSmDeathTest, startsBeforeThereAreBindings) {
    bindingsAre(10);
    EXPECT_DEATH(machineIs(), "ArpSuppressionStatusSm.* handleInitialized: .*"
                              "\"0 == remoteBindingStatus\\(\\)->vlanIds\\(\\)\"");
}

TEST_F(ArpSuppressionStatusSmDeathTest, aCompleteMachineDoesNotWalk) {
    startComplete();
    bindings->initialPopulationCompleteIs(false);
    EXPECT_DEATH(slice(), "ArpSuppressionStatusSm.* walk: .*\"false\"");
}

TEST_F(ArpSuppressionStatusSmDeathTest, thereAreFourStages) {
    machineIs();
    sm->initializationStageIs(Stage(4));
    EXPECT_DEATH(slice(), "ArpSuppressionStatusSm.* walk: .*\"false\"");
    sm->initializationStageIs(Stage::complete);
    evpnIs(10);
    sm->initializationStageIs(Stage(4));
    EXPECT_DEATH(evpnDel(10), "ArpSuppressionStatusSm.* mayRemove: .*\"false\"");
    bindingsAre(10); // an active VLAN asks for no stage
    EXPECT_EQ(active(), (Active{{10, true}}));
}

// Text forms

TEST_F(ArpSuppressionStatusSmTest, stagesHaveTheirNames) {
    std::ostringstream out;
    for (unsigned stage = 0; stage < 4; ++stage) {
        out << Stage(stage) << ' ';
    }
    EXPECT_EQ(out.str(),
              "evpnStatusWalk remoteBindingStatusWait arpSuppressionStatusWalk complete ");
}

TEST_F(ArpSuppressionStatusSmTest, dumps) {
    evpnIs(10);
    evpnIs(4094);
    machineIs();
    slice();
    Vela::DumpContext dump;
    sm->dumpState(dump, 0);
    EXPECT_EQ(dump.text(), "ArpSuppressionStatusSm\n"
                           "  initializationStage=evpnStatusWalk\n"
                           "  bookmark=4094\n");
    walkToTheEnd();
    Vela::DumpContext inner;
    sm->dumpState(inner, 2);
    EXPECT_EQ(inner.text(), "  ArpSuppressionStatusSm\n"
                            "    initializationStage=remoteBindingStatusWait\n"
                            "    bookmark=0\n");
}

TEST_F(ArpSuppressionStatusSmTest, traces) {
    TraceCapture capture("ArpSuppression=8");
    machineIs();
    EXPECT_EQ(capture.count(" handleInitialized\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count(" traceEvent=scheduled\n"), 1u) << capture.text();
    walkToTheEnd();
    EXPECT_EQ(capture.count(" initializationStage=evpnStatusWalk\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count(" initializationStage=remoteBindingStatusWait\n"), 1u);
    EXPECT_EQ(capture.count(" finished processed=0 done=yes\n"), 1u) << capture.text();
    bindings->initialPopulationCompleteIs(true);
    walkToTheEnd();
    EXPECT_EQ(capture.count(" traceEvent=finished\n"), 2u) << capture.text();
    evpnIs(10);
    EXPECT_EQ(capture.count(" vlanId10 inEvpnStatus=yes inRemoteBindingStatus=no vlanUsable=no "
                            "inArpSuppressionStatus=no\n"),
              1u)
        << capture.text();
    sm->destroy();
    EXPECT_EQ(capture.count(" handleDestroy\n"), 1u) << capture.text();
}

TEST_F(ArpSuppressionStatusSmTest, recordsEachVlanInTheRingBufferFile) {
    Testing::TemporaryDirectory directory;
    Vela::Swiftlog::defaultDirectoryIs(directory.path());
    Vela::SwiftlogConfig config;
    config.fileName = "Vlans.sl";
    Vela::Swiftlog::initialize(config);
    startComplete();
    usableIs(10); // its record, and then its index
    evpnIs(10);
    bindingsAre(4094);
    Vela::SwiftlogReader reader(Vela::Swiftlog::fileName());
    EXPECT_TRUE(reader.problems().empty());
    std::vector<std::string> texts;
    for (const auto& record : reader.records()) {
        EXPECT_EQ(record.type->unit, "ArpSuppression/ArpSuppressionStatusSm");
        EXPECT_EQ(record.type->title, "handleVlan");
        texts.push_back(record.text());
    }
    EXPECT_EQ(texts, (std::vector<std::string>{
                         "vlanId=10 inEvpnStatus=0 inRemoteBindingStatus=0 vlanUsable=0 "
                         "inArpSuppressionStatus=0",
                         "vlanId=10 inEvpnStatus=0 inRemoteBindingStatus=0 vlanUsable=1 "
                         "inArpSuppressionStatus=0",
                         "vlanId=10 inEvpnStatus=1 inRemoteBindingStatus=0 vlanUsable=1 "
                         "inArpSuppressionStatus=0",
                         "vlanId=4094 inEvpnStatus=0 inRemoteBindingStatus=1 vlanUsable=0 "
                         "inArpSuppressionStatus=0"}));
    Vela::Swiftlog::close();
}

TEST_F(ArpSuppressionStatusSmTest, runsAtPriority3UnderItsName) {
    machineIs();
    Vela::DumpContext context;
    walks->dumpState(context, 0);
    EXPECT_NE(context.text().find("ArpSuppressionStatusSm priority=3"), std::string::npos)
        << context.text();
}

} // namespace
} // namespace ArpSuppression
