#include "ArpSuppression/ArpSuppressionSm.h"

#include "ArpSuppression/ArpStatusHelper.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Swiftlog.h"
#include "Platform/Trace/SwiftlogReader.h"
#include "Testing/PacketPorts.h"
#include "Testing/SwitchFixture.h"
#include "Testing/TraceCapture.h"
#include "Testing/TrapFrame.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace ArpSuppression {

namespace {

using Bridging::EntryType;
using Bridging::VlanId;
using Testing::Frame;
using Testing::fromHex;
using Testing::TraceCapture;
using Vela::make;
using Vela::Ptr;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;
using Id = ArpSuppressionCounterId;

/// A request of the host 10.0.0.1 behind Ethernet1 for 10.0.0.2, unless said otherwise.
struct Request {
    unsigned vlan = 10;
    IntfId srcIntf{"Ethernet1"};
    std::string senderIp = "10.0.0.1";
    std::string senderMac = "02:00:00:00:00:01";
    std::string targetIp = "10.0.0.2";

    Ptr<const TrappedMessage> message() const {
        return trappedMessageFactory(VlanId(vlan), MessageType::request, srcIntf, false,
                                     IpGenAddr(senderIp), EthAddr(senderMac), IpGenAddr(targetIp),
                                     nullptr);
    }
};

/// Everything that a decision can do.
struct Outcome {
    std::map<Id, uint64_t> counters = {};
    std::vector<Frame> sent = {};
    size_t queued = 0;
    uint32_t triggered = 0;

    friend bool operator==(const Outcome&, const Outcome&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Outcome& v) {
        for (auto [id, count] : v.counters) {
            out << toStrep(id) << '+' << count << ' ';
        }
        return out << "sent " << testing::PrintToString(v.sent) << " queued " << v.queued
                   << " triggered " << v.triggered;
    }
};

class ArpSuppressionSmTest : public Testing::SwitchFixture {
  protected:
    static constexpr uint32_t fabric = 100;

    ArpSuppressionSmTest() {
        tables->mount<ArpSuppressionCounterStatus>("arpSuppression/counter",
                                                   Quarry::MountType::writer,
                                                   {{"counter", arpSuppressionCounters, false}});
        counters = tables->entity<ArpSuppressionCounterStatus>("arpSuppression/counter");
        state().bridgingConfig->bridgeMacAddrIs(EthAddr("02:00:00:00:0b:0b"));
        state().fhrpVrMacStatus->varpVirtualMacIs(EthAddr("02:00:5e:00:01:01"));
        vrfNameToIdMap->vrfIdIs("default", Vrf::VrfId(0));
        vrfNameToIdMap->vrfIdIs("red", Vrf::VrfId(7));
        sm = machine(state().evpnStatus, state().fhrpVrMacStatus);
        vrfIs("default");
        vlanIs(10);
        fabricWatch()->kniIntfIfIndexIs(fabric);
    }
    ~ArpSuppressionSmTest() override {
        sm->destroy();
        trap->destroy();
        queue->destroy();
        record->destroy();
        trigger->destroy();
        vlanL3InfoStatus->destroy();
        tables->destroy();
        Vela::Swiftlog::close();
    }

    Ptr<ArpSuppressionSm> machine(Ptr<const Evpn::EvpnStatus> evpnStatus,
                                  Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpStatus) {
        return arpSuppressionSmFactory(trap, queue, counters, record, state().remoteBindingConfig,
                                       vlanL3InfoStatus, state().arpStatus, state().bridgingConfig,
                                       state().bridgingStatus, std::move(evpnStatus),
                                       std::move(fhrpStatus), vrfNameToIdMap, trigger);
    }
    /// The same machine, but these two were not to be had.
    void machineIs(Ptr<const Evpn::EvpnStatus> evpnStatus,
                   Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpStatus) {
        sm->destroy();
        sm = machine(std::move(evpnStatus), std::move(fhrpStatus));
    }

    void vrfIs(const char* name) {
        auto vrfInfo = vlanL3InfoStatus->vrfInfoIs(name);
        vrfInfo->netNsIs(name);
        vrfInfo->netlinkSocketIs(7);
    }
    Ptr<VlanL3Info> vlanIs(unsigned vlan, const char* vrf = "default") {
        auto vlanL3Info =
            vlanL3InfoStatus->vlanL3InfoIs(vlanL3InfoStatus->vrfInfoIs(vrf), VlanId(vlan));
        vlanL3InfoStatus->addVrfInterfaceWatch(vlanL3Info);
        vlanL3Info->kniIntfIfIndexIs(1000 + vlan);
        return vlanL3Info;
    }
    Ptr<VrfInterfaceWatch> fabricWatch() const {
        return vlanL3InfoStatus->vrfInterfaceWatch("fabric");
    }
    void neighborIs(const std::string& mac, const std::string& ip = "10.0.0.2",
                    bool isStatic = false, const char* intf = "Vlan10", uint32_t vrfId = 0) {
        state().arpStatus->entryIs(
            {{Vrf::VrfId(vrfId), IntfId(intf), IpGenAddr(ip)}, EthAddr(mac), isStatic});
    }
    void remoteBindingIs(const std::string& mac, uint8_t vxlan = 0, unsigned vlan = 10) {
        state().remoteBindingConfig->remoteBindingIs(
            {{VlanId(vlan), IpGenAddr("10.0.0.2")}, EthAddr(mac), vxlan, 0});
    }
    void fdbIs(const std::string& mac, EntryType type, IntfId intf = IntfId("Ethernet2"),
               unsigned fid = 10) {
        state().bridgingStatus->quarryFdbStatusIs({{Bridging::Fid(fid), EthAddr(mac)}, intf, type});
    }
    /// Ethernet2 is on a segment, which has a forwarder or not.
    void segmentIs(bool hasForwarder) {
        auto segment = state().evpnStatus->segmentStatusIs(IntfId("Ethernet2"));
        if (hasForwarder) {
            segment->dfTepIs(VlanId(10), IntfId("Mpls1"));
        }
    }

    /// What came of it since the last call.
    Outcome outcome() {
        Outcome seen;
        for (uint32_t number = 0; number < arpSuppressionCounters; ++number) {
            uint64_t count = counters->count(Id(number));
            if (count != counted_[Id(number)]) {
                seen.counters[Id(number)] = count - std::exchange(counted_[Id(number)], count);
            }
        }
        seen.sent = ports.sent(fabric);
        queued.clear();
        while (auto message = queue->messageDeq()) {
            queued.push_back(message);
        }
        seen.queued = queued.size();
        seen.triggered = trigger->trigger() - std::exchange(triggered_, trigger->trigger());
        return seen;
    }
    Outcome outcomeOf(const Request& request) {
        auto message = request.message();
        trap->lastTrappedMessageIs(message);
        auto seen = outcome();
        for (const auto& other : queued) {
            EXPECT_EQ(other, message);
        }
        return seen;
    }
    static Outcome counted(Id id) { return {.counters = {{id, 1}}}; }
    /// Answered to 10.0.0.1, that 10.0.0.2 is at that address.
    static Outcome answered(Id why, const std::string& mac) {
        return {.counters = {{why, 1}},
                .sent = {fromHex("020000000001" + mac +
                                 "8100 000a 0806"
                                 "0001 0800 06 04 0002" +
                                 mac + "0a000002 020000000001 0a000001")}};
    }
    static Outcome flooded() { return {.counters = {{Id::sentToRemoteTeps, 1}}, .queued = 1}; }
    static Outcome bound(Id why) {
        return {.counters = {{why, 1}, {Id::staticBindingTriggered, 1}}, .triggered = 1};
    }
    Outcome bindingOutcome(const std::string& ip, const std::string& mac, bool onlyUpdate = false,
                           unsigned vlan = 10) {
        sm->maybeCreateStaticBinding(VlanId(vlan), IpGenAddr(ip), EthAddr(mac), onlyUpdate);
        return outcome();
    }

    /// Of the target: as the kernel learnt it, and as EVPN says. Sender: the switch itself.
    const std::string localMac = "02:00:00:00:00:0a";
    const std::string remoteMac = "02:00:00:00:00:0b";
    const std::string localHex = "02000000000a";
    const std::string remoteHex = "02000000000b";
    const Request ofSwitch{.senderMac = "02:00:00:00:0b:0b"};
    const Request ofVirtualRouter{.senderMac = "02:00:5e:00:01:01"};

    Testing::PacketPorts ports;
    const Ptr<Quarry::MountGroup> tables = tableService()->mountGroup();
    Ptr<ArpSuppressionCounterStatus> counters;
    const Ptr<MessageTrap> trap = make<MessageTrap>();
    const Ptr<MessageQueue> queue = make<MessageQueue>();
    const Ptr<LocalRequestRecord> record = make<LocalRequestRecord>(clock());
    const Ptr<VlanL3InfoStatus> vlanL3InfoStatus = make<VlanL3InfoStatus>();
    const Ptr<Vrf::VrfIdMap::NameToIdMap> vrfNameToIdMap = make<Vrf::VrfIdMap::NameToIdMap>();
    const Ptr<ArpInputConfigTrigger> trigger = arpInputConfigTriggerFactory();
    Ptr<ArpSuppressionSm> sm;
    /// What outcome() took out of the queue.
    std::vector<Ptr<const TrappedMessage>> queued;

  private:
    std::map<Id, uint64_t> counted_;
    uint32_t triggered_ = 0;
};
using ArpSuppressionSmDeathTest = ArpSuppressionSmTest;

// The road to a decision

TEST_F(ArpSuppressionSmTest, anEmptyTrapIsNothingToDecide) {
    trap->lastTrappedMessageIs(nullptr);
    EXPECT_EQ(outcome(), Outcome());
}

TEST_F(ArpSuppressionSmTest, eachMessageIsDecidedAlsoTheSameOneAgain) {
    auto message = Request().message();
    trap->lastTrappedMessageIs(message);
    trap->lastTrappedMessageIs(message);
    EXPECT_EQ(outcome(), (Outcome{.counters = {{Id::sentToRemoteTeps, 2}}, .queued = 2}));
    EXPECT_EQ(queued, (std::vector<Ptr<const TrappedMessage>>{message, message}));
}

TEST_F(ArpSuppressionSmTest, aMachineThatHasEndedDecidesNothing) {
    sm->destroy();
    EXPECT_EQ(outcomeOf({}), Outcome());
}

TEST_F(ArpSuppressionSmTest, decidesAtOnceWithoutTheScheduler) {
    EXPECT_EQ(runUntilIdle(), 0u);
    EXPECT_EQ(outcomeOf({}), flooded());
    EXPECT_EQ(runUntilIdle(), 0u);
}

TEST_F(ArpSuppressionSmTest, requestsAreNotWrittenToTheLocalRequestRecord) {
    outcomeOf({});
    EXPECT_EQ(record->entries(), 0u);
}

// The target is the switch itself

TEST_F(ArpSuppressionSmTest, theSwitchsOwnAddressIsOnlyCountedWhateverTheBindings) {
    vlanL3InfoStatus->vlanL3Info(VlanId(10))->ipAddressIs(IpGenAddr("10.0.0.2"), true);
    EXPECT_EQ(outcomeOf({}), counted(Id::targetIsMine));
    remoteBindingIs(remoteMac);
    EXPECT_EQ(outcomeOf({}), counted(Id::targetIsMine));
    neighborIs(localMac);
    fdbIs(localMac, EntryType::learnedDynamic);
    segmentIs(false);
    EXPECT_EQ(outcomeOf({}), counted(Id::targetIsMine));
    EXPECT_EQ(outcomeOf(ofSwitch), counted(Id::targetIsMine));
    EXPECT_EQ(outcomeOf({.senderIp = "10.0.0.2"}), counted(Id::targetIsMine)); // announced
    EXPECT_EQ(outcomeOf({.senderIp = "0.0.0.0"}), counted(Id::targetIsMine));  // probed for
}

TEST_F(ArpSuppressionSmTest, anAddressThatIsOffOrOfAnotherVlanIsNotTheSwitchs) {
    auto vlan10 = vlanL3InfoStatus->vlanL3Info(VlanId(10));
    vlan10->ipAddressIs(IpGenAddr("10.0.0.2"), false);
    vlan10->ipAddressIs(IpGenAddr("10.0.0.3"), true);
    vlanIs(20)->ipAddressIs(IpGenAddr("10.0.0.2"), true);
    EXPECT_EQ(outcomeOf({}), flooded());
    EXPECT_EQ(outcomeOf({.vlan = 30}), flooded());
}

// Announcements and probes

TEST_F(ArpSuppressionSmTest, announcementsAndProbesGoToTheRemoteEndsWhateverTheBindings) {
    const Request announcement{.senderIp = "10.0.0.2"};
    const Request probe{.senderIp = "0.0.0.0"};
    const Request probeForNothing{.senderIp = "0.0.0.0", .targetIp = "0.0.0.0"};
    const Request ownAnnouncement{.senderIp = "10.0.0.2", .senderMac = "02:00:00:00:0b:0b"};
    auto expectFlooded = [&] {
        for (const Request& request : {announcement, probe, probeForNothing, ownAnnouncement}) {
            EXPECT_EQ(outcomeOf(request), flooded());
        }
    };
    expectFlooded();
    remoteBindingIs(remoteMac);
    expectFlooded();
    fdbIs(remoteMac, EntryType::evpnDynamicRemote);
    expectFlooded();
    neighborIs(localMac);
    fdbIs(localMac, EntryType::learnedDynamic);
    expectFlooded();
    segmentIs(false);
    expectFlooded();
    segmentIs(true);
    expectFlooded();
}

// Bindings of VXLAN

TEST_F(ArpSuppressionSmTest, aRemoteVxlanBindingAloneIsNobodysBusinessHere) {
    remoteBindingIs(remoteMac, 1);
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(outcomeOf({}), Outcome());
    EXPECT_EQ(capture.count(" handleTrappedRequest ignore request for remote VXLAN binding\n"), 1u);
    EXPECT_FALSE(capture.contains("connectionType="));
}

TEST_F(ArpSuppressionSmTest, theVxlanBindingIsLookedAtBeforeEverythingElse) {
    remoteBindingIs(remoteMac, 1);
    vlanL3InfoStatus->vlanL3Info(VlanId(10))->ipAddressIs(IpGenAddr("10.0.0.2"), true);
    EXPECT_EQ(outcomeOf({}), Outcome());
    EXPECT_EQ(outcomeOf({.senderIp = "10.0.0.2"}), Outcome());
    EXPECT_EQ(outcomeOf({.senderIp = "0.0.0.0"}), Outcome());
    EXPECT_EQ(outcomeOf(ofSwitch), Outcome());
}

TEST_F(ArpSuppressionSmTest, aLocalBindingBesideAVxlanBindingDecides) {
    remoteBindingIs(remoteMac, 1);
    neighborIs(localMac);
    fdbIs(localMac, EntryType::learnedDynamic);
    EXPECT_EQ(outcomeOf({}), counted(Id::localTargetNotAnswered));
    neighborIs(localMac, "10.0.0.2", true); // static: none
    EXPECT_EQ(outcomeOf({}), Outcome());
}

TEST_F(ArpSuppressionSmTest, onlyTheFlagsValueOneMeansVxlan) {
    remoteBindingIs(remoteMac, 2);
    EXPECT_EQ(outcomeOf({}), answered(Id::answeredFromRemoteBinding, remoteHex));
}

// The target is unknown or remote

TEST_F(ArpSuppressionSmTest, aTargetThatNobodyKnowsIsAskedForRemotely) {
    EXPECT_EQ(outcomeOf({}), flooded());
    EXPECT_EQ(outcomeOf(ofSwitch), flooded());
}

TEST_F(ArpSuppressionSmTest, aHostThatIsNotInTheMacTableIsAnsweredForIfEvpnKnowsIt) {
    remoteBindingIs(remoteMac);
    EXPECT_EQ(outcomeOf({}), answered(Id::answeredFromRemoteBinding, remoteHex));
}

TEST_F(ArpSuppressionSmTest, aBindingOfAnotherVlanIsNone) {
    remoteBindingIs(remoteMac, 0, 20);
    EXPECT_EQ(outcomeOf({}), flooded());
}

TEST_F(ArpSuppressionSmTest, aLocalBindingThatIsNotInTheMacTableNeedsARemoteOne) {
    neighborIs(localMac);
    EXPECT_EQ(outcomeOf({}), flooded());
    remoteBindingIs(remoteMac);
    EXPECT_EQ(outcomeOf({}), answered(Id::answeredFromRemoteBinding, localHex));
}

TEST_F(ArpSuppressionSmTest, aHostBehindARemoteEndIsAnsweredForFromItsBinding) {
    for (EntryType type : {EntryType::evpnDynamicRemote, EntryType::evpnConfiguredRemote,
                           EntryType::evpnLocalSegment, EntryType::none}) {
        fdbIs(remoteMac, type, IntfId("Mpls1"));
        EXPECT_EQ(outcomeOf({}), flooded()) << type;
        remoteBindingIs(remoteMac);
        EXPECT_EQ(outcomeOf({}), answered(Id::answeredFromRemoteBinding, remoteHex)) << type;
        state().remoteBindingConfig->remoteBindingDel({VlanId(10), IpGenAddr("10.0.0.2")});
    }
}

TEST_F(ArpSuppressionSmTest, aLocalBindingBehindARemoteEndNeedsARemoteOne) {
    neighborIs(localMac);
    fdbIs(localMac, EntryType::evpnDynamicRemote, IntfId("Mpls1"));
    EXPECT_EQ(outcomeOf({}), flooded());
    remoteBindingIs(remoteMac);
    EXPECT_EQ(outcomeOf({}), answered(Id::answeredFromRemoteBinding, localHex));
}

TEST_F(ArpSuppressionSmTest, aBindingWithoutAMacAddressIsABindingStill) {
    remoteBindingIs("00:00:00:00:00:00");
    EXPECT_EQ(outcomeOf({}), answered(Id::answeredFromRemoteBinding, "000000000000"));
}

TEST_F(ArpSuppressionSmTest, aStaticKernelEntryIsNoLocalBinding) {
    neighborIs(localMac, "10.0.0.2", true);
    fdbIs(localMac, EntryType::learnedDynamic);
    EXPECT_EQ(outcomeOf({}), flooded());
    remoteBindingIs(remoteMac);
    EXPECT_EQ(outcomeOf({}), answered(Id::answeredFromRemoteBinding, remoteHex));
}

TEST_F(ArpSuppressionSmTest, withoutL3InformationOnlyTheRemoteBindingCounts) {
    vlanL3InfoStatus->delVrfInterfaceWatch(vlanL3InfoStatus->vlanL3Info(VlanId(10)));
    vlanL3InfoStatus->vlanL3InfoDel(VlanId(10));
    neighborIs(localMac);
    fdbIs(localMac, EntryType::learnedDynamic);
    EXPECT_EQ(outcomeOf({}), flooded());
    remoteBindingIs(remoteMac);
    EXPECT_EQ(outcomeOf({}), answered(Id::answeredFromRemoteBinding, remoteHex));
}

// The target is here

TEST_F(ArpSuppressionSmTest, aHostOnAPortOfOursAnswersForItself) {
    neighborIs(localMac);
    for (EntryType type : {EntryType::learnedDynamic, EntryType::configuredStatic}) {
        fdbIs(localMac, type);
        EXPECT_EQ(outcomeOf({}), counted(Id::localTargetNotAnswered));
        EXPECT_EQ(outcomeOf(ofSwitch), counted(Id::localTargetNotAnswered));
    }
    remoteBindingIs(remoteMac);
    EXPECT_EQ(outcomeOf({}), counted(Id::localTargetNotAnswered));
    EXPECT_EQ(outcomeOf(ofSwitch), counted(Id::localTargetNotAnswered));
}

TEST_F(ArpSuppressionSmTest, aRemoteBindingWhoseHostIsOnAPortOfOursIsNotAnsweredFor) {
    remoteBindingIs(remoteMac);
    fdbIs(remoteMac, EntryType::learnedDynamic);
    EXPECT_EQ(outcomeOf({}), counted(Id::localTargetNotAnswered));
}

TEST_F(ArpSuppressionSmTest, onASegmentWithAForwarderOnlyTheSwitchItselfIsTold) {
    segmentIs(true);
    neighborIs(localMac);
    fdbIs(localMac, EntryType::learnedDynamic);
    EXPECT_EQ(outcomeOf({}), counted(Id::localTargetNotAnswered));
    EXPECT_EQ(outcomeOf(ofSwitch), counted(Id::localTargetNotAnswered)); // no remote binding
    remoteBindingIs(remoteMac);
    EXPECT_EQ(outcomeOf({}), counted(Id::localTargetNotAnswered));
    for (const Request& request : {ofSwitch, ofVirtualRouter}) {
        TraceCapture capture("ArpSuppression=8");
        EXPECT_EQ(outcomeOf(request), bound(Id::answeredForDesignatedForwarder));
        EXPECT_EQ(capture.count("> macAddress=" + remoteMac + "\n"), 1u) << capture.text();
        EXPECT_EQ(trigger->vrfIpAddress(),
                  VrfIpAddress(vlanL3InfoStatus->vrfInfo("default"), IpGenAddr("10.0.0.2")));
        EXPECT_TRUE(trigger->suppressionEvent());
    }
}

TEST_F(ArpSuppressionSmTest, onASegmentWithoutForwarderEveryoneIsAnswered) {
    segmentIs(false);
    neighborIs(localMac);
    fdbIs(localMac, EntryType::learnedDynamic);
    EXPECT_EQ(outcomeOf({}), answered(Id::answeredForNonDesignatedForwarder, localHex));
    remoteBindingIs(remoteMac); // changes nothing for others than the switch
    EXPECT_EQ(outcomeOf({}), answered(Id::answeredForNonDesignatedForwarder, localHex));
}

TEST_F(ArpSuppressionSmTest, thereTheRemoteBindingAloneIsAnsweredFrom) {
    segmentIs(false);
    remoteBindingIs(remoteMac);
    fdbIs(remoteMac, EntryType::learnedDynamic);
    EXPECT_EQ(outcomeOf({}), answered(Id::answeredForNonDesignatedForwarder, remoteHex));
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(outcomeOf(ofSwitch), bound(Id::answeredForNonDesignatedForwarder));
    EXPECT_EQ(capture.count("> macAddress=" + remoteMac + "\n"), 1u) << capture.text();
}

TEST_F(ArpSuppressionSmTest, thereTheSwitchItselfPrefersTheRemoteBinding) {
    segmentIs(false);
    neighborIs(localMac);
    fdbIs(localMac, EntryType::learnedDynamic);
    EXPECT_EQ(outcomeOf(ofSwitch), flooded()); // there is none
    remoteBindingIs(remoteMac);
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(outcomeOf(ofSwitch), bound(Id::answeredForNonDesignatedForwarder));
    EXPECT_EQ(capture.count("> macAddress=" + remoteMac + "\n"), 1u) << capture.text();
    EXPECT_EQ(outcomeOf(ofVirtualRouter), bound(Id::answeredForNonDesignatedForwarder));
}

TEST_F(ArpSuppressionSmTest, whatTheSwitchAsksAboutARemoteHostBecomesABinding) {
    remoteBindingIs(remoteMac);
    for (const Request& request : {ofSwitch, ofVirtualRouter}) {
        EXPECT_EQ(outcomeOf(request), bound(Id::answeredFromRemoteBinding));
    }
}

// The MAC table's key

TEST_F(ArpSuppressionSmTest, theMacTableIsAskedUnderTheVlansFid) {
    neighborIs(localMac);
    fdbIs(localMac, EntryType::learnedDynamic, IntfId("Ethernet2"), 500);
    EXPECT_EQ(outcomeOf({}), flooded());
    state().bridgingConfig->vlanToFidIs(VlanId(10), Bridging::Fid(500));
    EXPECT_EQ(outcomeOf({}), counted(Id::localTargetNotAnswered));
    state().bridgingConfig->vlanToFidIs(VlanId(10), Bridging::Fid(0)); // as if there were none
    EXPECT_EQ(outcomeOf({}), flooded());
    fdbIs(localMac, EntryType::learnedDynamic);
    EXPECT_EQ(outcomeOf({}), counted(Id::localTargetNotAnswered));
}

// Lookups

TEST_F(ArpSuppressionSmTest, aLocalBindingIsWhatTheKernelHasLearnt) {
    neighborIs(localMac);
    neighborIs("02:00:00:00:00:06", "2001:db8::2");
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(sm->lookupLocalDynamicBinding(VlanId(10), IpGenAddr("10.0.0.2")), EthAddr(localMac));
    EXPECT_EQ(capture.count(" vlanL3Info=<vrfName=default vlanId=10> ipAddress=10.0.0.2 "
                            "arpStatusEntry=[Vlan10,10.0.0.2,02:00:00:00:00:0a,static N,kernel]\n"),
              1u)
        << capture.text();
    EXPECT_EQ(sm->lookupLocalDynamicBinding(VlanId(10), IpGenAddr("2001:db8::2")),
              EthAddr("02:00:00:00:00:06"));
    EXPECT_EQ(sm->lookupLocalDynamicBinding(VlanId(10), IpGenAddr("10.0.0.3")), EthAddr());
    EXPECT_EQ(capture.count(" ipAddress=10.0.0.3 arpStatusEntry=N/A\n"), 1u) << capture.text();
    EXPECT_EQ(sm->lookupLocalDynamicBinding(VlanId(10), IpGenAddr("2001:db8::3")), EthAddr());
}

TEST_F(ArpSuppressionSmTest, aStaticEntryIsSeenButNotUsed) {
    neighborIs(localMac, "10.0.0.2", true);
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(sm->lookupLocalDynamicBinding(VlanId(10), IpGenAddr("10.0.0.2")), EthAddr());
    EXPECT_EQ(capture.count(",02:00:00:00:00:0a,static Y,kernel]\n"), 1u) << capture.text();
}

TEST_F(ArpSuppressionSmTest, theKernelIsAskedInTheVlansVrfAndOnItsInterface) {
    vrfIs("red");
    vlanIs(20, "red");
    neighborIs(localMac, "10.0.0.2", false, "Vlan20", 0);
    neighborIs(localMac, "10.0.0.2", false, "Vlan10", 7);
    EXPECT_EQ(sm->lookupLocalDynamicBinding(VlanId(10), IpGenAddr("10.0.0.2")), EthAddr());
    EXPECT_EQ(sm->lookupLocalDynamicBinding(VlanId(20), IpGenAddr("10.0.0.2")), EthAddr());
    neighborIs(localMac, "10.0.0.2", false, "Vlan20", 7);
    EXPECT_EQ(sm->lookupLocalDynamicBinding(VlanId(20), IpGenAddr("10.0.0.2")), EthAddr(localMac));
    vrfNameToIdMap->vrfIdDel("red");
    EXPECT_EQ(sm->lookupLocalDynamicBinding(VlanId(20), IpGenAddr("10.0.0.2")), EthAddr());
}

TEST_F(ArpSuppressionSmTest, withoutL3InformationThereIsNoLocalBinding) {
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(sm->lookupLocalDynamicBinding(VlanId(30), IpGenAddr("10.0.0.2")), EthAddr());
    EXPECT_EQ(capture.count(" No vlanL3Info, HER vlanId=30\n"), 1u) << capture.text();
}

TEST_F(ArpSuppressionSmDeathTest, anAddressWithoutFamilyIsInNoTable) {
    EXPECT_DEATH(sm->lookupLocalDynamicBinding(VlanId(10), IpGenAddr()),
                 "ArpStatusHelper.*lookup.*false");
}

TEST_F(ArpSuppressionSmTest, theTableIsThatOfTheFamilyAndTheDefaultStandsForNone) {
    neighborIs(localMac);
    neighborIs(remoteMac, "2001:db8::2");
    Arp::Table::ArpKey v4(Vrf::VrfId(0), IntfId("Vlan10"), IpGenAddr("10.0.0.2"));
    Arp::Table::ArpKey v6(Vrf::VrfId(0), IntfId("Vlan10"), IpGenAddr("2001:db8::2"));
    EXPECT_EQ(ArpStatusHelper::lookup(*state().arpStatus, v4).macAddress, EthAddr(localMac));
    EXPECT_EQ(ArpStatusHelper::lookup(*state().arpStatus, v6).macAddress, EthAddr(remoteMac));
    state().arpStatus->entryDel(v4);
    EXPECT_EQ(ArpStatusHelper::lookup(*state().arpStatus, v4), Arp::Table::ArpEntry());
}

TEST_F(ArpSuppressionSmTest, whereAHostIsFollowsFromItsMacTableEntry) {
    const EthAddr mac(localMac);
    auto where = [&](EntryType type, const char* intf) {
        return sm->getMacConnectionType(VlanId(10), mac,
                                        {{Bridging::Fid(10), mac}, IntfId(intf), type});
    };
    EXPECT_EQ(sm->getMacConnectionType(VlanId(10), mac, {}), MacConnectionType::unknown);
    EXPECT_EQ(where(EntryType::none, "Ethernet2"), MacConnectionType::remote);
    EXPECT_EQ(where(EntryType::evpnDynamicRemote, "Ethernet2"), MacConnectionType::remote);
    EXPECT_EQ(where(EntryType::evpnConfiguredRemote, "Ethernet2"), MacConnectionType::remote);
    EXPECT_EQ(where(EntryType::evpnLocalSegment, "Ethernet2"), MacConnectionType::remote);
    EXPECT_EQ(where(EntryType::learnedDynamic, "Ethernet2"), MacConnectionType::localSinglehomed);
    EXPECT_EQ(where(EntryType::configuredStatic, "Ethernet2"), MacConnectionType::localSinglehomed);

    auto segment = state().evpnStatus->segmentStatusIs(IntfId("Ethernet2"));
    EXPECT_EQ(where(EntryType::learnedDynamic, "Ethernet2"),
              MacConnectionType::localMultihomedNonDf);
    segment->dfTepIs(VlanId(20), IntfId("Mpls1")); // of another VLAN
    EXPECT_EQ(where(EntryType::learnedDynamic, "Ethernet2"),
              MacConnectionType::localMultihomedNonDf);
    segment->dfTepIs(VlanId(10), IntfId());
    EXPECT_EQ(where(EntryType::learnedDynamic, "Ethernet2"),
              MacConnectionType::localMultihomedNonDf);
    segment->dfTepIs(VlanId(10), IntfId("Mpls1"));
    EXPECT_EQ(where(EntryType::learnedDynamic, "Ethernet2"), MacConnectionType::localMultihomedDf);
    EXPECT_EQ(where(EntryType::configuredStatic, "Ethernet2"),
              MacConnectionType::localMultihomedDf);
    EXPECT_EQ(where(EntryType::learnedDynamic, "Ethernet3"), MacConnectionType::localSinglehomed);
    EXPECT_EQ(where(EntryType::evpnLocalSegment, "Ethernet2"), MacConnectionType::remote);

    machineIs(nullptr, state().fhrpVrMacStatus);
    EXPECT_EQ(where(EntryType::learnedDynamic, "Ethernet2"), MacConnectionType::localSinglehomed);
}

TEST_F(ArpSuppressionSmTest, tracesWhereAHostIs) {
    const EthAddr mac(localMac);
    TraceCapture capture("ArpSuppression=8");
    sm->getMacConnectionType(VlanId(10), mac, {});
    EXPECT_EQ(capture.count(" No fdb vlanId=10 macAddress=02:00:00:00:00:0a\n"), 1u);
    sm->getMacConnectionType(
        VlanId(10), mac,
        {{Bridging::Fid(10), mac}, IntfId("Ethernet2"), EntryType::evpnLocalSegment});
    EXPECT_EQ(capture.count(" vlanId=10 macAddress=02:00:00:00:00:0a fdbEntryType=evpnLocalSegment "
                            "intfId=Ethernet2 isRemote=yes\n"),
              1u)
        << capture.text();
    sm->getMacConnectionType(
        VlanId(10), mac,
        {{Bridging::Fid(10), mac}, IntfId("Ethernet2"), EntryType::learnedDynamic});
    EXPECT_EQ(capture.count(" isRemote=no\n"), 1u) << capture.text();
}

TEST_F(ArpSuppressionSmTest, theSwitchAndItsVirtualRouterAreKnownByTheirMacAddresses) {
    EXPECT_TRUE(sm->localArpRequest(*ofSwitch.message()));
    EXPECT_TRUE(sm->localArpRequest(*ofVirtualRouter.message()));
    EXPECT_FALSE(sm->localArpRequest(*Request().message()));
    const Request withoutMac{.senderMac = "00:00:00:00:00:00"};
    EXPECT_FALSE(sm->localArpRequest(*withoutMac.message()));
    machineIs(state().evpnStatus, nullptr);
    EXPECT_TRUE(sm->localArpRequest(*ofSwitch.message()));
    EXPECT_FALSE(sm->localArpRequest(*ofVirtualRouter.message()));
    EXPECT_TRUE(sm->localArpRequest(*withoutMac.message())); // none counts as the zero address
}

// Replies, and what is refused

TEST_F(ArpSuppressionSmTest, withoutASourcePortThereIsNoReply) {
    remoteBindingIs(remoteMac);
    TraceCapture capture("ArpSuppression=8");
    const Request request{.srcIntf = {}};
    EXPECT_EQ(outcomeOf(request), (Outcome{.counters = {{Id::answeredFromRemoteBinding, 1},
                                                        {Id::unknownSourcePort, 1}}}));
    EXPECT_EQ(capture.count(" unknown source port trappedRequest=" + request.message()->toStrep() +
                            " macAddress=" + remoteMac + "\n"),
              1u)
        << capture.text();
}

TEST_F(ArpSuppressionSmTest, aTargetOnTheRequestersPortAnswersItself) {
    segmentIs(false);
    neighborIs(localMac);
    fdbIs(localMac, EntryType::learnedDynamic);
    TraceCapture capture("ArpSuppression=8");
    const Request request{.srcIntf = IntfId("Ethernet2")};
    EXPECT_EQ(outcomeOf(request), (Outcome{.counters = {{Id::answeredForNonDesignatedForwarder, 1},
                                                        {Id::sourceAndTargetOnSamePort, 1}}}));
    EXPECT_EQ(capture.count(" source and target on same port trappedRequest=" +
                            request.message()->toStrep() + " macAddress=" + localMac + "\n"),
              1u)
        << capture.text();
}

TEST_F(ArpSuppressionSmTest, theSwitchsOwnRequestIsNeverAnsweredWhateverItsPort) {
    remoteBindingIs(remoteMac);
    fdbIs(remoteMac, EntryType::evpnDynamicRemote, IntfId("Mpls1"));
    for (IntfId intf : {IntfId(), IntfId("Mpls1"), IntfId("Ethernet1")}) {
        Request request = ofSwitch;
        request.srcIntf = intf;
        TraceCapture capture("ArpSuppression=8");
        EXPECT_EQ(outcomeOf(request), bound(Id::answeredFromRemoteBinding));
        EXPECT_EQ(capture.count(" localReq trappedRequest=" + request.message()->toStrep() +
                                " macAddress=" + remoteMac + "\n"),
                  1u)
            << capture.text();
        EXPECT_EQ(capture.count(" vlanId=10 ipAddress=10.0.0.2 macAddress=" + remoteMac +
                                " onlyUpdate=no\n"),
                  1u)
            << capture.text();
    }
}

TEST_F(ArpSuppressionSmTest, aBindingOfTheSwitchItselfIsNotInstalled) {
    remoteBindingIs("02:00:00:00:0b:0b");
    EXPECT_EQ(outcomeOf(ofSwitch), (Outcome{.counters = {{Id::answeredFromRemoteBinding, 1},
                                                         {Id::staticBindingBridgeMac, 1}}}));
    remoteBindingIs("02:00:5e:00:01:01");
    EXPECT_EQ(outcomeOf(ofSwitch), (Outcome{.counters = {{Id::answeredFromRemoteBinding, 1},
                                                         {Id::staticBindingVarpMac, 1}}}));
}

TEST_F(ArpSuppressionSmTest, tracesTheReply) {
    remoteBindingIs(remoteMac);
    TraceCapture capture("ArpSuppression=8");
    outcomeOf({});
    EXPECT_EQ(capture.count(" send reply trappedRequest=" + Request().message()->toStrep() +
                            " macAddress=" + remoteMac + "\n"),
              1u)
        << capture.text();
    EXPECT_EQ(capture.count(" vlanId=10 senderIp=10.0.0.2 senderMac=" + remoteMac +
                            " targetIp=10.0.0.1 targetMac=02:00:00:00:00:01\n"),
              1u)
        << capture.text();
}

TEST_F(ArpSuppressionSmTest, theReplyIs46BytesWithTheVlanInItsTag) {
    sm->sendArpReply(VlanId(4094), IpGenAddr("192.0.2.254"), EthAddr("f2:34:56:78:9a:bc"),
                     IpGenAddr("203.0.113.9"), EthAddr("e2:11:22:33:44:55"));
    auto seen = outcome();
    EXPECT_EQ(seen, (Outcome{.sent = {fromHex("e21122334455 f23456789abc 8100 0ffe 0806"
                                              "0001 0800 06 04 0002"
                                              "f23456789abc c00002fe e21122334455 cb007109")}}));
    ASSERT_EQ(seen.sent.size(), 1u);
    EXPECT_EQ(seen.sent[0].size(), 46u);
}

TEST_F(ArpSuppressionSmTest, withoutTheFabricDeviceThereIsNoReply) {
    remoteBindingIs(remoteMac);
    fabricWatch()->kniIntfIfIndexIs(0);
    const Outcome refused{
        .counters = {{Id::answeredFromRemoteBinding, 1}, {Id::replyFabricNotUsable, 1}}};
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(outcomeOf({}), refused);
    EXPECT_EQ(capture.count(" fabric device not usable fabricInterfaceWatch="
                            "<vrfName=default intfName=fabric usable=no>\n"),
              1u)
        << capture.text();
    fabricWatch()->kniIntfIfIndexIs(fabric);
    auto vrfInfo = vlanL3InfoStatus->vrfInfo("default");
    vrfInfo->netlinkSocketIs(0);
    EXPECT_EQ(outcomeOf({}), refused);
    vrfInfo->netlinkSocketIs(7);
    vrfInfo->netNsIs("");
    EXPECT_EQ(outcomeOf({}), refused);
    vrfInfo->netNsIs("default");
    EXPECT_EQ(outcomeOf({}), answered(Id::answeredFromRemoteBinding, remoteHex));
}

TEST_F(ArpSuppressionSmTest, theReplyFollowsTheFabricDeviceToItsIndex) {
    remoteBindingIs(remoteMac);
    fabricWatch()->kniIntfIfIndexIs(200);
    EXPECT_EQ(outcomeOf({}), counted(Id::answeredFromRemoteBinding)); // not on the old one
    EXPECT_EQ(ports.sent(200), answered(Id::answeredFromRemoteBinding, remoteHex).sent);
}

TEST_F(ArpSuppressionSmTest, aReplyThatCannotBeSentIsCountedAndGone) {
    remoteBindingIs(remoteMac);
    ports.sendError = ENOBUFS;
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(outcomeOf({}), (Outcome{.counters = {{Id::answeredFromRemoteBinding, 1},
                                                   {Id::replyTransmitFailed, 1}}}));
    EXPECT_EQ(capture.count("  fabricInterfaceWatch=<vrfName=default intfName=fabric usable=yes> "
                            "errno=No buffer space available\n"),
              1u)
        << capture.text();
    ports.sendError = 0;
    runUntilIdle();
    EXPECT_EQ(outcome(), Outcome());
    EXPECT_EQ(outcomeOf({}), answered(Id::answeredFromRemoteBinding, remoteHex));
}

TEST_F(ArpSuppressionSmDeathTest, repliesAreForIpv4Alone) {
    const EthAddr mac(remoteMac);
    EXPECT_DEATH(
        sm->sendArpReply(VlanId(10), IpGenAddr("2001:db8::2"), mac, IpGenAddr("2001:db8::1"), mac),
        "sendArpReply.*false");
    EXPECT_DEATH(sm->sendArpReply(VlanId(10), IpGenAddr(), mac, IpGenAddr("10.0.0.1"), mac),
                 "__null != replyPkt");
    fabricWatch()->kniIntfIfIndexIs(0); // looked at first
    sm->sendArpReply(VlanId(10), IpGenAddr("2001:db8::2"), mac, IpGenAddr("2001:db8::1"), mac);
    EXPECT_EQ(outcome(), counted(Id::replyFabricNotUsable));
}

// To the remote ends

TEST_F(ArpSuppressionSmTest, aFullQueueDropsItsOldestWhichIsCounted) {
    queue->queueLimitCurrentIs(2);
    std::vector<Ptr<const TrappedMessage>> messages;
    for (int i = 0; i < 3; ++i) {
        messages.push_back(Request().message());
        trap->lastTrappedMessageIs(messages.back());
    }
    EXPECT_EQ(outcome(),
              (Outcome{.counters = {{Id::sentToRemoteTeps, 3}, {Id::reinjectQueueDroppedOldest, 1}},
                       .queued = 2}));
    EXPECT_EQ(queued, (std::vector<Ptr<const TrappedMessage>>{messages[1], messages[2]}));
}

TEST_F(ArpSuppressionSmTest, tracesWhatGoesToTheRemoteEnds) {
    TraceCapture capture("ArpSuppression=8");
    outcomeOf({});
    EXPECT_EQ(capture.count(" trappedRequest=" + Request().message()->toStrep() + "\n"), 1u)
        << capture.text();
}

// Bindings for the ARP input configuration

TEST_F(ArpSuppressionSmTest, aBindingIsHandedOnUnderItsVrfAndAddress) {
    EXPECT_EQ(bindingOutcome("10.0.0.2", remoteMac),
              (Outcome{.counters = {{Id::staticBindingTriggered, 1}}, .triggered = 1}));
    auto vrfInfo = vlanL3InfoStatus->vrfInfo("default");
    EXPECT_EQ(trigger->vrfIpAddress(), VrfIpAddress(vrfInfo, IpGenAddr("10.0.0.2")));
    EXPECT_TRUE(trigger->suppressionEvent());

    bindingOutcome("fe80::2", remoteMac);
    EXPECT_EQ(trigger->vrfIpAddress(),
              VrfIpAddress(vrfInfo, IpGenAddr("fe80::2"), IntfId("Vlan10")));
    vrfIs("red");
    vlanIs(20, "red");
    bindingOutcome("2001:db8::2", remoteMac, false, 20);
    EXPECT_EQ(trigger->vrfIpAddress(),
              VrfIpAddress(vlanL3InfoStatus->vrfInfo("red"), IpGenAddr("2001:db8::2")));
}

TEST_F(ArpSuppressionSmTest, theSameBindingTwiceIsHandedOnTwiceAndOnlyUpdateChangesNothing) {
    const Outcome handedOn{.counters = {{Id::staticBindingTriggered, 1}}, .triggered = 1};
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(bindingOutcome("10.0.0.2", remoteMac), handedOn);
    EXPECT_EQ(bindingOutcome("10.0.0.2", remoteMac), handedOn);
    EXPECT_EQ(bindingOutcome("10.0.0.2", remoteMac, true), handedOn);
    EXPECT_TRUE(trigger->suppressionEvent());
    EXPECT_EQ(
        capture.count(" vlanId=10 ipAddress=10.0.0.2 macAddress=" + remoteMac + " onlyUpdate=no\n"),
        2u)
        << capture.text();
    EXPECT_EQ(capture.count(" onlyUpdate=yes\n"), 1u) << capture.text();
}

TEST_F(ArpSuppressionSmTest, aMacAddressOfNoHostMakesNoBinding) {
    for (const char* mac : {"00:00:00:00:00:00", "ff:ff:ff:ff:ff:ff", "01:00:5e:00:00:01"}) {
        EXPECT_EQ(bindingOutcome("10.0.0.2", mac), counted(Id::staticBindingBadMac)) << mac;
    }
    EXPECT_EQ(bindingOutcome("0.0.0.0", "00:00:00:00:00:00"), counted(Id::staticBindingBadMac));
}

TEST_F(ArpSuppressionSmTest, anAddressOfNoHostMakesNoBinding) {
    for (const char* ip : {"0.0.0.0", "::", "", "224.0.0.1", "239.255.255.255", "ff02::1"}) {
        EXPECT_EQ(bindingOutcome(ip, remoteMac), counted(Id::staticBindingBadIp)) << ip;
    }
    EXPECT_EQ(bindingOutcome("0.0.0.0", "02:00:00:00:0b:0b"), counted(Id::staticBindingBadIp));
}

TEST_F(ArpSuppressionSmTest, theSwitchsOwnMacAddressesMakeNoBinding) {
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(bindingOutcome("10.0.0.2", "02:00:00:00:0b:0b"), counted(Id::staticBindingBridgeMac));
    EXPECT_EQ(capture.count(" Not adding binding for bridgeMacAddr\n"), 1u);
    EXPECT_EQ(bindingOutcome("10.0.0.2", "02:00:5e:00:01:01"), counted(Id::staticBindingVarpMac));
    EXPECT_EQ(capture.count(" Not adding binding for varpVirtualMac\n"), 1u);
    // Looked at before the VLAN is, and the bridge before the virtual router.
    EXPECT_EQ(bindingOutcome("10.0.0.2", "02:00:5e:00:01:01", false, 30),
              counted(Id::staticBindingVarpMac));
    state().fhrpVrMacStatus->varpVirtualMacIs(EthAddr("02:00:00:00:0b:0b"));
    EXPECT_EQ(bindingOutcome("10.0.0.2", "02:00:00:00:0b:0b"), counted(Id::staticBindingBridgeMac));
    EXPECT_EQ(bindingOutcome("10.0.0.2", "02:00:5e:00:01:01").triggered, 1u);
}

TEST_F(ArpSuppressionSmTest, withoutAUsableVlanInterfaceThereIsNoBinding) {
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(bindingOutcome("10.0.0.2", remoteMac, false, 30),
              counted(Id::staticBindingNoVlanL3Info));
    EXPECT_EQ(capture.count(" No vlanL3Info vlanId=30\n"), 1u) << capture.text();
    vlanL3InfoStatus->vlanL3Info(VlanId(10))->kniIntfIfIndexIs(0);
    EXPECT_EQ(bindingOutcome("10.0.0.2", remoteMac), counted(Id::staticBindingNoVlanL3Info));
    vlanL3InfoStatus->vlanL3Info(VlanId(10))->kniIntfIfIndexIs(1010);
    vlanL3InfoStatus->vrfInfo("default")->netNsIs("");
    EXPECT_EQ(bindingOutcome("10.0.0.2", remoteMac), counted(Id::staticBindingNoVlanL3Info));
}

// Texts

TEST(MacConnectionTypeTest, hasACharacterAndAName) {
    const std::pair<char, std::string> expected[] = {{'U', "unknown"},
                                                     {'R', "remote"},
                                                     {'S', "localSinglehomed"},
                                                     {'D', "localMultihomedDf"},
                                                     {'N', "localMultihomedNonDf"}};
    for (uint8_t value = 0; value < 5; ++value) {
        auto type = static_cast<MacConnectionType>(value);
        EXPECT_EQ(macConnectionTypeChar(type), expected[value].first);
        EXPECT_EQ(stringValue(type), expected[value].second);
        EXPECT_EQ(valueToStrep(type), expected[value].second);
        std::ostringstream text;
        text << type;
        EXPECT_EQ(text.str(), expected[value].second);
    }
}

TEST(MacConnectionTypeDeathTest, noOtherValueIsOne) {
    EXPECT_DEATH(macConnectionTypeChar(MacConnectionType(5)), "macConnectionTypeChar.*false");
    EXPECT_DEATH(macConnectionTypeChar(MacConnectionType(255)), "macConnectionTypeChar.*false");
    EXPECT_DEATH(stringValue(MacConnectionType(5)), "stringValue.*false");
}

TEST_F(ArpSuppressionSmTest, tracesTheDecision) {
    neighborIs(localMac);
    fdbIs(localMac, EntryType::learnedDynamic);
    remoteBindingIs(remoteMac);
    TraceCapture capture("ArpSuppression=8");
    outcomeOf({});
    EXPECT_EQ(capture.count(" trappedRequest=" + Request().message()->toStrep() +
                            " localBindingMacAddress=02:00:00:00:00:0a"
                            " remoteBindingMacAddress=02:00:00:00:00:0b"
                            " connectionType=localSinglehomed localArpReq=no targetIsMine=no"
                            " probe=no announcement=no fdbIntf=Ethernet2\n"),
              1u)
        << capture.text();
    vlanL3InfoStatus->vlanL3Info(VlanId(10))->ipAddressIs(IpGenAddr("10.0.0.2"), true);
    capture.clear();
    Request request = ofSwitch;
    request.senderIp = "0.0.0.0";
    outcomeOf(request);
    EXPECT_EQ(capture.count(" localArpReq=yes targetIsMine=yes probe=yes announcement=no "), 1u)
        << capture.text();
    request.senderIp = "10.0.0.2";
    outcomeOf(request);
    EXPECT_EQ(capture.count(" probe=no announcement=yes "), 1u) << capture.text();
    request = {.senderIp = "0.0.0.0", .targetIp = "0.0.0.0"};
    capture.clear();
    outcomeOf(request);
    EXPECT_EQ(capture.count(" probe=yes announcement=no fdbIntf=\n"), 1u) << capture.text();
}

TEST_F(ArpSuppressionSmTest, recordsTheDecisionInTheRingBufferFile) {
    Vela::Swiftlog::defaultDirectoryIs(directory() + "/log");
    Vela::SwiftlogConfig config;
    config.fileName = "Decisions.sl";
    Vela::Swiftlog::initialize(config);
    neighborIs(localMac);
    fdbIs(localMac, EntryType::learnedDynamic);
    segmentIs(false);
    remoteBindingIs(remoteMac);
    outcomeOf({});
    outcomeOf({.srcIntf = {}, .senderIp = "0.0.0.0", .targetIp = "10.0.0.3"});
    state().remoteBindingConfig->remoteBindingIs(
        {{VlanId(10), IpGenAddr("10.0.0.4")}, EthAddr(remoteMac), 1, 0});
    outcomeOf({.targetIp = "10.0.0.4"}); // ignored: no record

    Vela::SwiftlogReader reader(Vela::Swiftlog::fileName());
    EXPECT_TRUE(reader.problems().empty());
    ASSERT_EQ(reader.records().size(), 2u);
    EXPECT_EQ(reader.records()[0].type->unit, "ArpSuppression/ArpSuppressionSm");
    EXPECT_EQ(reader.records()[0].type->title, "handleTrappedRequest");
    EXPECT_EQ(reader.records()[0].text(),
              "trappedRequest=<vlanId=10;srcIntf=Ethernet1;senderIpAddress=10.0.0.1"
              ";senderMacAddress=02:00:00:00:00:01;targetIpAddress=10.0.0.2>"
              " localBindingMacAddress=02:00:00:00:00:0a remoteBindingMacAddress=02:00:00:00:00:0b"
              " connectionType=N localArpReq=no targetIsMine=no probe=no announcement=no"
              " fdbIntf=Ethernet2");
    EXPECT_EQ(reader.records()[1].text(),
              "trappedRequest=<vlanId=10;srcIntf=;senderIpAddress=0.0.0.0"
              ";senderMacAddress=02:00:00:00:00:01;targetIpAddress=10.0.0.3>"
              " localBindingMacAddress=00:00:00:00:00:00 remoteBindingMacAddress=00:00:00:00:00:00"
              " connectionType=U localArpReq=no targetIsMine=no probe=yes announcement=no"
              " fdbIntf=");
}

TEST_F(ArpSuppressionSmTest, dumpsItsHeaderAndItsChildren) {
    Vela::DumpContext dump;
    sm->dumpState(dump, 2);
    EXPECT_EQ(dump.text().find("  ArpSuppressionSm\n"), 0u) << dump.text();
    size_t at = 0;
    for (const char* child : {"\n    MessageTrap\n", "\n    MessageQueue",
                              "\n    LocalRequestRecord", "\n    VlanL3InfoStatus"}) {
        size_t found = dump.text().find(child, at);
        EXPECT_NE(found, std::string::npos) << child << " in\n" << dump.text();
        at = found;
    }
}

// Life

TEST_F(ArpSuppressionSmTest, hasOneSocketAndOneWatchWhileItLives) {
    EXPECT_EQ(ports.opened(), 1u);
    EXPECT_TRUE(ports.bindings().empty());
    auto watch = fabricWatch();
    ASSERT_TRUE(watch);
    EXPECT_EQ(watch->vrfInfo()->vrfName(), "default");
    TraceCapture capture("ArpSuppression=8");
    machineIs(state().evpnStatus, state().fhrpVrMacStatus);
    EXPECT_EQ(fabricWatch(), watch) << "one watch per device";
    EXPECT_EQ(ports.opened(), 2u);
    EXPECT_EQ(capture.count(" handleDestroy\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count(" handleInitialized\n"), 1u) << capture.text();
    EXPECT_EQ(vlanL3InfoStatus->vrfInterfaceWatchCollection().count(), 2u); // and Vlan10's
}

TEST_F(ArpSuppressionSmTest, withoutASocketEveryReplyFailsAndTheRestGoesOn) {
    remoteBindingIs(remoteMac);
    ports.openError = EPERM;
    TraceCapture capture("ArpSuppression=0");
    machineIs(state().evpnStatus, state().fhrpVrMacStatus);
    EXPECT_EQ(capture.count("what=RawTxPam: packet socket: Operation not permitted\n"), 1u)
        << capture.text();
    EXPECT_EQ(outcomeOf({}), (Outcome{.counters = {{Id::answeredFromRemoteBinding, 1},
                                                   {Id::replyTransmitFailed, 1}}}));
    EXPECT_EQ(outcomeOf({.senderIp = "0.0.0.0"}), flooded());
}

} // namespace

} // namespace ArpSuppression
