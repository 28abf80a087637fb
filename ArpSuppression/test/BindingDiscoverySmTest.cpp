#include "ArpSuppression/test/BindingDiscoverySmFixture.h"

namespace ArpSuppression {

namespace {

using Bridging::VlanId;
using Testing::TraceCapture;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;

/// What is learnt from requests, and what is not; and what remote bindings take away.
using BindingDiscoverySmTest = BindingDiscoverySmFixture;

// Learning

TEST_F(BindingDiscoverySmTest, theSenderOfATrappedFrameIsLearnt) {
    ports.inject(arpsnoop, Testing::TrapFrame{}.bytes());
    runUntilIdle();
    EXPECT_EQ(macOf("10.0.0.1"), "02:00:00:00:00:01");
    EXPECT_EQ(macOf("10.0.0.2"), "-") << "the target";
    EXPECT_EQ(record().bindings(), 1u);
    EXPECT_EQ(moved(), once(Id::bindingCreated));
}

TEST_F(BindingDiscoverySmTest, bothTrapsAreListenedTo) {
    EXPECT_EQ(movedBy({.senderIp = "10.0.0.1"}), once(Id::bindingCreated));
    EXPECT_EQ(movedBy({.senderIp = "2001:db8::1"}), once(Id::bindingCreated));
    EXPECT_EQ(movedBy({.senderIp = "fe80::1"}), once(Id::bindingCreated));
    EXPECT_EQ(record().bindings(), 3u);
    EXPECT_EQ(record().macToIps(), 1u);
    EXPECT_TRUE(posted.empty());
    root().receivedRequestTrapV4()->lastTrappedMessageIs(nullptr);
    root().receivedRequestTrapV6()->lastTrappedMessageIs(nullptr);
    EXPECT_EQ(moved(), Moved());
    EXPECT_EQ(record().bindings(), 3u);
}

TEST_F(BindingDiscoverySmTest, aKnownBindingStaysAndItsAddressIsPosted) {
    movedBy({});
    auto known = binding("10.0.0.1");
    known->arpStatusHasDynamicEntryIs(true);
    unsigned announced = 0;
    auto reaction =
        record().bindingCollection().react(nullptr, [&](const VrfIpAddress&) { ++announced; });
    EXPECT_EQ(movedBy({}), once(Id::bindingRefreshed));
    EXPECT_EQ(binding("10.0.0.1"), known);
    EXPECT_TRUE(known->arpStatusHasDynamicEntry());
    EXPECT_EQ(announced, 0u);
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].vrfIpAddress, address("10.0.0.1"));
    EXPECT_FALSE(posted[0].suppressionEvent);
    EXPECT_EQ(movedBy({}), once(Id::bindingRefreshed));
    EXPECT_EQ(posted.size(), 2u);
}

TEST_F(BindingDiscoverySmTest, anotherMacAddressReplacesTheBinding) {
    movedBy({});
    auto before = binding("10.0.0.1");
    EXPECT_EQ(movedBy({.senderMac = macB}), once(Id::bindingCreated));
    EXPECT_TRUE(before->destroyed());
    EXPECT_EQ(macOf("10.0.0.1"), macB);
    EXPECT_EQ(record().bindings(), 1u);
    EXPECT_FALSE(record().macToIpHas({VlanId(10), EthAddr(macA)}));
    EXPECT_TRUE(posted.empty());
}

TEST_F(BindingDiscoverySmTest, anAddressBelongsToTheVrfAndALinkLocalOneToTheVlan) {
    routedVlanIs(20);
    for (unsigned vlan : {10u, 20u}) {
        EXPECT_EQ(movedBy({.senderIp = "10.0.0.1", .vlan = vlan}), once(Id::bindingCreated));
        EXPECT_EQ(movedBy({.senderIp = "fe80::1", .vlan = vlan}), once(Id::bindingCreated));
    }
    EXPECT_EQ(record().bindings(), 3u);
    EXPECT_EQ(binding("10.0.0.1")->vlanIdMacAddress().vlanId(), VlanId(20)) << "it has moved";
    EXPECT_EQ(binding("fe80::1", 10)->vlanIdMacAddress().vlanId(), VlanId(10));
    EXPECT_EQ(binding("fe80::1", 20)->vlanIdMacAddress().vlanId(), VlanId(20));
    EXPECT_EQ(record().macToIp({VlanId(10), EthAddr(macA)})->bindings(), 1u);
    EXPECT_EQ(record().macToIp({VlanId(20), EthAddr(macA)})->bindings(), 2u);
}

TEST_F(BindingDiscoverySmTest, theFlagOfTheEventChangesNothing) {
    for (bool event : {true, false}) {
        TraceCapture capture("ArpSuppression=8");
        sm().createLocalBinding(VlanId(10), IpGenAddr("10.0.0.1"), EthAddr(macA), event);
        EXPECT_EQ(capture.count(" vlanId=10 ipAddress=10.0.0.1 macAddress=02:00:00:00:00:0a "
                                "bindingDiscoveryEvent=" +
                                std::string(event ? "yes" : "no") + "\n"),
                  1u)
            << capture.text();
        EXPECT_EQ(moved(), once(Id::bindingCreated));
        sm().deleteLocalBinding(binding("10.0.0.1"));
        EXPECT_EQ(moved(), once(Id::bindingDeleted));
        EXPECT_EQ(record().bindings(), 0u);
    }
}

TEST_F(BindingDiscoverySmTest, aMachineThatHasEndedLearnsNothing) {
    auto ended = rootSm().bindingDiscoverySm();
    ended->destroy();
    EXPECT_EQ(movedBy({}), Moved());
    remoteIs("10.0.0.1", macA);
    EXPECT_EQ(movedByFdb(macA, ethernet1, Bridging::EntryType::learnedDynamic), Moved());
    EXPECT_EQ(record().bindings(), 0u);
}

// Refusing

TEST_F(BindingDiscoverySmTest, aMacAddressThatIsNoHostsIsRefused) {
    for (const char* mac : {"00:00:00:00:00:00", "ff:ff:ff:ff:ff:ff", "01:00:5e:00:00:01"}) {
        EXPECT_EQ(movedBy({.senderMac = mac}), once(Id::bindingBadMac)) << mac;
        EXPECT_EQ(movedBy({.senderIp = "0.0.0.0", .senderMac = mac, .vlan = 99}),
                  once(Id::bindingBadMac))
            << mac;
    }
    EXPECT_EQ(record().bindings(), 0u);
    EXPECT_TRUE(posted.empty());
}

TEST_F(BindingDiscoverySmTest, anIpAddressThatIsNoHostsIsRefused) {
    for (const char* ip : {"0.0.0.0", "::", "224.0.0.1", "239.255.255.255", "ff02::1"}) {
        EXPECT_EQ(movedBy({.senderIp = ip}), once(Id::bindingBadIp)) << ip;
        EXPECT_EQ(movedBy({.senderIp = ip, .senderMac = bridgeMac.toStrep(), .vlan = 99}),
                  once(Id::bindingBadIp))
            << ip;
    }
    requestFrom(IpGenAddr(), {});
    EXPECT_EQ(moved(), once(Id::bindingBadIp)) << "of no family";
    EXPECT_EQ(record().bindings(), 0u);
}

TEST_F(BindingDiscoverySmTest, theSwitchItselfIsNoHost) {
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(movedBy({.senderMac = bridgeMac.toStrep()}), once(Id::bindingBridgeMac));
    EXPECT_EQ(movedBy({.senderMac = bridgeMac.toStrep(), .vlan = 99}), once(Id::bindingBridgeMac));
    EXPECT_EQ(capture.count(" Not adding binding for bridgeMacAddr\n"), 2u) << capture.text();
    EXPECT_EQ(movedBy({.senderMac = varpMac.toStrep()}), once(Id::bindingVarpMac));
    EXPECT_EQ(movedBy({.senderMac = varpMac.toStrep(), .vlan = 99}), once(Id::bindingVarpMac));
    EXPECT_EQ(capture.count(" Not adding binding for varpVirtualMac\n"), 2u) << capture.text();
    state().fhrpVrMacStatus->varpVirtualMacIs(bridgeMac);
    EXPECT_EQ(movedBy({.senderMac = bridgeMac.toStrep()}), once(Id::bindingBridgeMac));
    EXPECT_EQ(record().bindings(), 0u);
    EXPECT_EQ(movedBy({.senderMac = varpMac.toStrep()}), once(Id::bindingCreated))
        << "not any more the virtual router's";
}

TEST_F(BindingDiscoverySmTest, withoutAUsableVlanNothingIsLearnt) {
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(movedBy({.vlan = 99}), once(Id::bindingNoVlanL3Info));
    EXPECT_EQ(capture.count(" No vlanL3Info vlanId=99\n"), 1u) << capture.text();
    Testing::deviceIs(state(), "Vlan10", 0);
    runUntilIdle();
    EXPECT_EQ(movedBy({}), once(Id::bindingNoVlanL3Info));
    EXPECT_EQ(capture.count(" No vlanL3Info vlanId=10\n"), 1u) << capture.text();
    EXPECT_EQ(record().bindings(), 0u);
    Testing::deviceIs(state(), "Vlan10", 1011);
    runUntilIdle();
    EXPECT_EQ(movedBy({}), once(Id::bindingCreated));
    Testing::deviceIs(state(), "Vlan10", 0);
    runUntilIdle();
    EXPECT_EQ(movedBy({.senderMac = macB}), once(Id::bindingNoVlanL3Info));
    EXPECT_EQ(macOf("10.0.0.1"), macA) << "what is known stays";
}

// Hosts on Ethernet segments

TEST_F(BindingDiscoverySmToggleTest, byDefaultAHostOnASharedSegmentIsLeftToItsRemoteBinding) {
    segmentIs(ethernet1);
    remoteIs("10.0.0.1", macA, true);
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(movedBy({}), once(Id::bindingLocalMultihomedHost));
    EXPECT_EQ(record().bindings(), 0u);
    EXPECT_EQ(capture.count(" Not adding binding for locally multihomed host trappedRequest="
                            "<request vlanId=10 if=Ethernet1 cpuPort=no sIp=10.0.0.1 "
                            "sMac=02:00:00:00:00:0a tIp=10.0.0.99>\n"),
              1u)
        << capture.text();
    toggleIs(false); // too late
    EXPECT_EQ(movedBy({}), once(Id::bindingLocalMultihomedHost));
}

TEST_F(BindingDiscoverySmToggleTest, withTheToggleOffItIsLearnt) {
    toggleIs(false);
    segmentIs(ethernet1);
    remoteIs("10.0.0.1", macA, true);
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(movedBy({}), once(Id::bindingCreated));
    EXPECT_EQ(macOf("10.0.0.1"), macA);
    EXPECT_FALSE(capture.contains("locally multihomed host"));
    toggleIs(true);
    EXPECT_EQ(movedBy({}), once(Id::bindingRefreshed));
}

TEST_F(BindingDiscoverySmToggleTest, withTheToggleOnItStaysOn) {
    toggleIs(true);
    segmentIs(ethernet1);
    remoteIs("10.0.0.1", macA, true);
    EXPECT_EQ(movedBy({}), once(Id::bindingLocalMultihomedHost));
    toggleIs(false);
    EXPECT_EQ(movedBy({}), once(Id::bindingLocalMultihomedHost));
}

TEST_F(BindingDiscoverySmToggleTest, isReadWhenTheFirstRequestComes) {
    root().receivedRequestTrapV4()->lastTrappedMessageIs(nullptr);
    segmentIs(ethernet1);
    remoteIs("10.0.0.1", macA, true);
    movedByFdb(macB, ethernet1, Bridging::EntryType::learnedDynamic);
    toggleIs(false);
    EXPECT_EQ(movedBy({}), once(Id::bindingCreated));
}

TEST_F(BindingDiscoverySmToggleTest, theToggleIsOfNoConcernToTheMacTable) {
    toggleIs(false);
    EXPECT_EQ(movedBy({.senderIp = "10.0.0.9"}), once(Id::bindingCreated)); // it is read
    segmentIs(ethernet1);
    remoteIs("10.0.0.1", macB, true);
    EXPECT_EQ(movedByFdb(macB, ethernet1, Bridging::EntryType::learnedDynamic),
              once(Id::bindingLocalMultihomedMac));
}

TEST_F(BindingDiscoverySmTest, ofAHostOnASegmentOnlyTheVeryBindingThatIsSharedIsLeft) {
    segmentIs(ethernet1);
    const std::string adding = " Adding binding for locally multihomed host  trappedRequest=";
    auto learns = [&](const Request& request, bool onSegment) {
        TraceCapture capture("ArpSuppression=8");
        EXPECT_EQ(movedBy(request), once(Id::bindingCreated));
        EXPECT_EQ(capture.count(adding), onSegment ? 1u : 0u) << capture.text();
        EXPECT_FALSE(capture.contains("Not adding binding for locally"));
        sm().deleteLocalBinding(binding(request.senderIp));
    };
    learns({}, true); // no remote binding at all
    remoteIs("10.0.0.1", macA, false);
    learns({}, true); // the remote host is elsewhere
    remoteIs("10.0.0.1", macB, true);
    learns({}, true); // the address is another host's there
    remoteIs("10.0.0.1", macA, true);
    learns({.srcIntf = ethernet2}, false); // on no segment
    learns({.srcIntf = IntfId()}, false);  // nobody knows where
    learns({.senderIp = "10.0.0.2"}, true);
    EXPECT_EQ(movedBy({}), once(Id::bindingLocalMultihomedHost));
    state().evpnStatus->segmentStatusDel(ethernet1);
    learns({}, false);
}

TEST_F(BindingDiscoverySmTest, theVlanOfTheSharedBindingDoesNotMatter) {
    routedVlanIs(20);
    segmentIs(ethernet1);
    remoteIs("10.0.0.1", macA, true, 20);
    EXPECT_EQ(movedBy({.vlan = 10}), once(Id::bindingLocalMultihomedHost));
}

TEST_F(BindingDiscoverySmTest, onlyTheFirstRemoteBindingOfAnAddressCounts) {
    routedVlanIs(20);
    segmentIs(ethernet1);
    remoteIs("10.0.0.1", macB, true, 20);
    remoteIs("10.0.0.1", macA, true, 10);
    ASSERT_EQ(remote().ipToMac(address("10.0.0.1"))->vlanIdMacAddresses(), 2u);
    EXPECT_EQ(movedBy({}), once(Id::bindingCreated));
    EXPECT_EQ(movedBy({.senderMac = macB}), once(Id::bindingLocalMultihomedHost));
    EXPECT_EQ(macOf("10.0.0.1"), macA);
}

TEST_F(BindingDiscoverySmTest, onAVlanWithoutL3InformationNoSegmentIsLookedAt) {
    segmentIs(ethernet1);
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(movedBy({.vlan = 99}), once(Id::bindingNoVlanL3Info));
    EXPECT_FALSE(capture.contains("locally multihomed"));
}

TEST_F(BindingDiscoverySmTest, aSharedHostIsLeftAlsoWhereTheVlanIsNotUsable) {
    segmentIs(ethernet1);
    remoteIs("10.0.0.1", macA, true);
    Testing::deviceIs(state(), "Vlan10", 0);
    runUntilIdle();
    EXPECT_EQ(movedBy({}), once(Id::bindingLocalMultihomedHost));
}

// Remote bindings

TEST_F(BindingDiscoverySmTest, aRemoteBindingWinsAndBringsNothingBackWhenItGoes) {
    movedBy({});
    movedBy({.senderIp = "10.0.0.2"});
    TraceCapture capture("ArpSuppression=8");
    const std::string vrf = "<<vrfName=default vrfId=0>;10.0.0.1;>";
    remoteIs("10.0.0.1", macB);
    EXPECT_EQ(moved(), once(Id::bindingDeleted));
    EXPECT_EQ(macOf("10.0.0.1"), "-");
    EXPECT_EQ(macOf("10.0.0.2"), macA);
    EXPECT_EQ(capture.count(" vrfIpAddress=" + vrf + " localBinding=<" + vrf +
                            ";<vlanId=10 macAddress=02:00:00:00:00:0a>;dynSt=no >\n"),
              1u)
        << capture.text();
    remoteDel("10.0.0.1");
    EXPECT_EQ(moved(), Moved());
    EXPECT_EQ(record().bindings(), 1u);
}

TEST_F(BindingDiscoverySmTest, aRemoteBindingOfTheSameHostWinsToo) {
    movedBy({});
    remoteIs("10.0.0.1", macA);
    EXPECT_EQ(moved(), once(Id::bindingDeleted));
    EXPECT_EQ(movedBy({}), once(Id::bindingCreated)) << "until the host speaks again";
    remoteIs("10.0.0.1", macA, true);
    EXPECT_EQ(moved(), once(Id::bindingDeleted)) << "and the binding changes again";
}

TEST_F(BindingDiscoverySmTest, aRemoteBindingThatGoesTakesNoLocalOneAlong) {
    remoteIs("10.0.0.1", macB);
    movedBy({});
    remoteDel("10.0.0.1");
    EXPECT_EQ(moved(), Moved());
    EXPECT_EQ(macOf("10.0.0.1"), macA);
}

TEST_F(BindingDiscoverySmTest, noAddressIsNoChange) {
    movedBy({});
    remote().lastVrfIpAddressChangeIs(address("10.0.0.1"));
    remote().lastVrfIpAddressChangeIs(VrfIpAddress());
    EXPECT_EQ(moved(), Moved());
    EXPECT_EQ(macOf("10.0.0.1"), macA) << "no remote binding has it";
    remote().ipToMacIs(address("10.0.0.1"));
    EXPECT_EQ(moved(), Moved()) << "nobody said so";
    remote().lastVrfIpAddressChangeIs(address("10.0.0.1"));
    EXPECT_EQ(moved(), once(Id::bindingDeleted));
    remote().lastVrfIpAddressChangeIs(VrfIpAddress());
    remote().lastVrfIpAddressChangeIs(address("10.0.0.1"));
    EXPECT_EQ(moved(), Moved());
    remote().ipToMacDel(address("10.0.0.1"));
}

TEST_F(BindingDiscoverySmTest, theRemoteBindingOfAnotherVlansLinkLocalAddressIsAnother) {
    routedVlanIs(20);
    movedBy({.senderIp = "fe80::1"});
    remoteIs("fe80::1", macB, false, 20);
    EXPECT_EQ(moved(), Moved());
    EXPECT_EQ(macOf("fe80::1"), macA);
}

TEST_F(BindingDiscoverySmTest, aRequestTraces) {
    TraceCapture capture("ArpSuppression=8");
    movedBy({});
    EXPECT_EQ(capture.count("handleTrappedRequest BindingDiscoverySm("), 1u) << capture.text();
    EXPECT_EQ(capture.count(" trappedRequest=<request vlanId=10 if=Ethernet1 cpuPort=no "
                            "sIp=10.0.0.1 sMac=02:00:00:00:00:0a tIp=10.0.0.99>\n"),
              3u) // the machines that decide and that remember say the same
        << capture.text();
    EXPECT_EQ(capture.count("bindingDiscoveryEvent=yes"), 1u);
}

} // namespace

} // namespace ArpSuppression
