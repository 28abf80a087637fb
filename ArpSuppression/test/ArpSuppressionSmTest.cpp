#include "ArpSuppression/ArpStatusHelper.h"
#include "ArpSuppression/test/ArpSuppressionSmFixture.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Swiftlog.h"
#include "Platform/Trace/SwiftlogReader.h"
#include "Testing/TraceCapture.h"

#include <cerrno>
#include <sstream>
#include <system_error>

namespace ArpSuppression {

namespace {

using Bridging::EntryType;
using Bridging::VlanId;
using Testing::TraceCapture;
using Vela::Ptr;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;

/// What is decided, and on what it rests.
class ArpSuppressionSmTest : public ArpSuppressionSmFixture {};
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
    auto entry = [&](const Arp::Table::ArpKey& key) {
        auto lookup = ArpStatusHelper::lookup(*state().arpStatus, key);
        bool found = lookup.find();
        EXPECT_EQ(found, lookup.record() != Arp::Table::ArpEntry());
        return lookup.record();
    };
    EXPECT_EQ(entry(v4).macAddress, EthAddr(localMac));
    EXPECT_EQ(entry(v6).macAddress, EthAddr(remoteMac));
    state().arpStatus->entryDel(v4);
    EXPECT_EQ(entry(v4), Arp::Table::ArpEntry());
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