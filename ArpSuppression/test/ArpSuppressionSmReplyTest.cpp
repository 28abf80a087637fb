#include "ArpSuppression/test/ArpSuppressionSmFixture.h"
#include "Testing/TraceCapture.h"

#include <cerrno>

namespace ArpSuppression {

namespace {

using Bridging::EntryType;
using Bridging::VlanId;
using Testing::fromHex;
using Testing::TraceCapture;
using Vela::Ptr;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;

/// What a decision leads to: replies, requests that go on, bindings.
class ArpSuppressionSmReplyTest : public ArpSuppressionSmFixture {};
using ArpSuppressionSmReplyDeathTest = ArpSuppressionSmReplyTest;

// Replies, and what is refused

TEST_F(ArpSuppressionSmReplyTest, withoutASourcePortThereIsNoReply) {
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

TEST_F(ArpSuppressionSmReplyTest, aTargetOnTheRequestersPortAnswersItself) {
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

TEST_F(ArpSuppressionSmReplyTest, theSwitchsOwnRequestIsNeverAnsweredWhateverItsPort) {
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

TEST_F(ArpSuppressionSmReplyTest, aBindingOfTheSwitchItselfIsNotInstalled) {
    remoteBindingIs("02:00:00:00:0b:0b");
    EXPECT_EQ(outcomeOf(ofSwitch), (Outcome{.counters = {{Id::answeredFromRemoteBinding, 1},
                                                         {Id::staticBindingBridgeMac, 1}}}));
    remoteBindingIs("02:00:5e:00:01:01");
    EXPECT_EQ(outcomeOf(ofSwitch), (Outcome{.counters = {{Id::answeredFromRemoteBinding, 1},
                                                         {Id::staticBindingVarpMac, 1}}}));
}

TEST_F(ArpSuppressionSmReplyTest, tracesTheReply) {
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

TEST_F(ArpSuppressionSmReplyTest, theReplyIs46BytesWithTheVlanInItsTag) {
    sm->sendArpReply(VlanId(4094), IpGenAddr("192.0.2.254"), EthAddr("f2:34:56:78:9a:bc"),
                     IpGenAddr("203.0.113.9"), EthAddr("e2:11:22:33:44:55"));
    auto seen = outcome();
    EXPECT_EQ(seen, (Outcome{.sent = {fromHex("e21122334455 f23456789abc 8100 0ffe 0806"
                                              "0001 0800 06 04 0002"
                                              "f23456789abc c00002fe e21122334455 cb007109")}}));
    ASSERT_EQ(seen.sent.size(), 1u);
    EXPECT_EQ(seen.sent[0].size(), 46u);
}

TEST_F(ArpSuppressionSmReplyTest, withoutTheFabricDeviceThereIsNoReply) {
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

TEST_F(ArpSuppressionSmReplyTest, theReplyFollowsTheFabricDeviceToItsIndex) {
    remoteBindingIs(remoteMac);
    fabricWatch()->kniIntfIfIndexIs(200);
    EXPECT_EQ(outcomeOf({}), counted(Id::answeredFromRemoteBinding)); // not on the old one
    EXPECT_EQ(ports.sent(200), answered(Id::answeredFromRemoteBinding, remoteHex).sent);
}

TEST_F(ArpSuppressionSmReplyTest, aReplyThatCannotBeSentIsCountedAndGone) {
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

// Replies to requests that come together go together.

TEST_F(ArpSuppressionSmReplyTest, repliesWaitForTheRequestsThatFollowAtOnce) {
    remoteBindingIs(remoteMac);
    trap->moreFollowsIs(true);
    EXPECT_EQ(outcomeOf({}), counted(Id::answeredFromRemoteBinding)); // not sent yet
    EXPECT_EQ(outcomeOf({}), counted(Id::answeredFromRemoteBinding));
    trap->moreFollowsIs(false);
    std::vector<Testing::Frame> both = outcome().sent;
    ASSERT_EQ(both.size(), 2u);
    EXPECT_EQ(both[0], both[1]);
    EXPECT_EQ(outcomeOf({}), answered(Id::answeredFromRemoteBinding, remoteHex));
    trap->moreFollowsIs(true);
    trap->moreFollowsIs(false);
    EXPECT_EQ(outcome(), Outcome()); // nothing twice
}

TEST_F(ArpSuppressionSmReplyTest, eachOfSeveralRepliesThatCannotBeSentIsCounted) {
    remoteBindingIs(remoteMac);
    trap->moreFollowsIs(true);
    outcomeOf({});
    outcomeOf({});
    outcomeOf({});
    ports.sendError = ENOBUFS;
    TraceCapture capture("ArpSuppression=8");
    trap->moreFollowsIs(false);
    EXPECT_EQ(outcome(), (Outcome{.counters = {{Id::replyTransmitFailed, 3}}}));
    EXPECT_EQ(capture.count("errno=No buffer space available\n"), 3u) << capture.text();
    ports.sendError = 0;
    EXPECT_EQ(outcomeOf({}), answered(Id::answeredFromRemoteBinding, remoteHex));
}

TEST_F(ArpSuppressionSmReplyTest, repliesThatWaitAreSentAtItsEnd) {
    remoteBindingIs(remoteMac);
    trap->moreFollowsIs(true);
    outcomeOf({});
    sm->destroy();
    EXPECT_EQ(outcome().sent.size(), 1u);
}

TEST_F(ArpSuppressionSmReplyDeathTest, repliesAreForIpv4Alone) {
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

TEST_F(ArpSuppressionSmReplyTest, aFullQueueDropsItsOldestWhichIsCounted) {
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

TEST_F(ArpSuppressionSmReplyTest, tracesWhatGoesToTheRemoteEnds) {
    TraceCapture capture("ArpSuppression=8");
    outcomeOf({});
    EXPECT_EQ(capture.count(" trappedRequest=" + Request().message()->toStrep() + "\n"), 1u)
        << capture.text();
}

// Bindings for the ARP input configuration

TEST_F(ArpSuppressionSmReplyTest, aBindingIsHandedOnUnderItsVrfAndAddress) {
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

TEST_F(ArpSuppressionSmReplyTest, theSameBindingTwiceIsHandedOnTwiceAndOnlyUpdateChangesNothing) {
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

TEST_F(ArpSuppressionSmReplyTest, aMacAddressOfNoHostMakesNoBinding) {
    for (const char* mac : {"00:00:00:00:00:00", "ff:ff:ff:ff:ff:ff", "01:00:5e:00:00:01"}) {
        EXPECT_EQ(bindingOutcome("10.0.0.2", mac), counted(Id::staticBindingBadMac)) << mac;
    }
    EXPECT_EQ(bindingOutcome("0.0.0.0", "00:00:00:00:00:00"), counted(Id::staticBindingBadMac));
}

TEST_F(ArpSuppressionSmReplyTest, anAddressOfNoHostMakesNoBinding) {
    for (const char* ip : {"0.0.0.0", "::", "", "224.0.0.1", "239.255.255.255", "ff02::1"}) {
        EXPECT_EQ(bindingOutcome(ip, remoteMac), counted(Id::staticBindingBadIp)) << ip;
    }
    EXPECT_EQ(bindingOutcome("0.0.0.0", "02:00:00:00:0b:0b"), counted(Id::staticBindingBadIp));
}

TEST_F(ArpSuppressionSmReplyTest, theSwitchsOwnMacAddressesMakeNoBinding) {
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

TEST_F(ArpSuppressionSmReplyTest, withoutAUsableVlanInterfaceThereIsNoBinding) {
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

} // namespace

} // namespace ArpSuppression
