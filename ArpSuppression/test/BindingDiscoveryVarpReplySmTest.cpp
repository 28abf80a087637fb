#include "ArpSuppression/BindingDiscoveryVarpReplySm.h"

#include "ArpSuppression/test/BindingDiscoverySmFixture.h"
#include "Platform/Packet/Headers.h"
#include "Platform/Packet/NeighborDiscovery.h"
#include "Platform/State/DumpContext.h"
#include "Testing/TraceCapture.h"

#include <chrono>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace ArpSuppression {

namespace {

using Bridging::VlanId;
using Testing::Frame;
using Testing::TraceCapture;
using Zinc::EthAddr;
using Zinc::IpGenAddr;

const EthAddr virtualMac("02:00:5e:00:01:01");

struct ArpReply {
    EthAddr frameDst = virtualMac;
    uint16_t operation = Vela::ArpHdr::reply;
    EthAddr senderMac{"02:00:00:00:00:0a"};
    IpGenAddr senderIp{"10.0.0.1"};
    EthAddr targetMac = virtualMac;
    size_t padding = 0;

    Frame bytes() const {
        Frame frame(42 + padding);
        Vela::WireWriter writer(frame);
        Vela::EthHdr{frameDst, EthAddr("02:00:00:00:00:0f"), Vela::EtherType::arp}.write(writer);
        Vela::ArpHdr arp;
        arp.operation = operation;
        arp.senderMac = senderMac;
        arp.senderIp = senderIp.v4();
        arp.targetMac = targetMac;
        arp.targetIp = IpGenAddr("10.0.0.254").v4();
        arp.write(writer);
        return frame;
    }
};

struct Advertisement {
    EthAddr frameDst = virtualMac;
    EthAddr frameSrc{"02:00:00:00:00:0a"};
    IpGenAddr src{"2001:db8::1"};
    IpGenAddr dst{"2001:db8::ff"};
    IpGenAddr target{"2001:db8::2"}; // not what is learnt
    std::optional<EthAddr> option = virtualMac;
    uint32_t flags = 0;

    Frame bytes() const {
        const size_t length = 24 + (option ? 8 : 0);
        Frame message(length);
        Vela::WireWriter body(message);
        Vela::Icmp6Hdr{Vela::Icmp6Hdr::neighborAdvertisement, 0, 0}.write(body);
        body.u32(flags);
        body.bytes(target.bytes());
        if (option) {
            body.u8(Arp::targetLinkLayerAddress);
            body.u8(1);
            body.bytes(option->bytes());
        }
        Vela::Ip6Hdr ip6;
        ip6.payloadLength = static_cast<uint16_t>(length);
        ip6.nextHeader = Vela::Ip6Hdr::icmp6;
        ip6.hopLimit = 255;
        ip6.src = src;
        ip6.dst = dst;
        uint16_t checksum = Arp::icmp6Checksum(ip6, message);
        message[2] = static_cast<uint8_t>(checksum >> 8);
        message[3] = static_cast<uint8_t>(checksum);
        Frame frame(54);
        Vela::WireWriter writer(frame);
        Vela::EthHdr{frameDst, frameSrc, Vela::EtherType::ipv6}.write(writer);
        ip6.write(writer);
        frame.insert(frame.end(), message.begin(), message.end());
        return frame;
    }
};

/// Listeners of the test's own on VLAN 10, in the whole agent, which has none itself: it knows of
/// no virtual router.
class BindingDiscoveryVarpReplySmTest : public BindingDiscoverySmFixture {
  protected:
    static constexpr uint32_t vlan10 = 1010;

    BindingDiscoveryVarpReplySmTest() {
        state().fhrpVrMacStatus->varpVirtualMacIs(EthAddr());
        virtualRouter->varpVirtualMacIs(virtualMac);
        ports.deviceIs("Vlan10", vlan10);
        runUntilIdle();
    }

    template <class Listener>
    Vela::Ptr<Listener> listenerIs(Zinc::AddressFamily af, Vela::Ptr<VlanL3Info> vlanL3Info) {
        return Vela::make<Listener>(scheduler(), af, vlanL3Info,
                                    agent->mounts()->arpSuppressionCounterStatus(), virtualRouter,
                                    sm());
    }
    Vela::Ptr<BindingDiscoveryVarpReplyV4Sm> v4Is() {
        return listenerIs<BindingDiscoveryVarpReplyV4Sm>(Zinc::ipv4(), vlanL3Info());
    }
    Vela::Ptr<BindingDiscoveryVarpReplyV6Sm> v6Is() {
        return listenerIs<BindingDiscoveryVarpReplyV6Sm>(Zinc::ipv6(), vlanL3Info());
    }
    Vela::Ptr<VlanL3Info> vlanL3Info() { return vlanL3InfoStatus().vlanL3Info(VlanId(10)); }

    static Moved handled(BindingDiscoveryVarpReplySmBase& listener, const Frame& frame,
                         BindingDiscoveryVarpReplySmTest& test) {
        test.countersMoved();
        listener.processPacket(*Vela::pktManager().newPkt(frame));
        return test.countersMoved();
    }
    Moved handledV4(const Frame& frame) {
        auto listener = v4Is();
        return handled(*listener, frame, *this);
    }
    Moved handledV6(const Frame& frame) {
        auto listener = v6Is();
        return handled(*listener, frame, *this);
    }
    /// The protocols listened to on the VLAN's interface, or on another device.
    std::vector<uint16_t> listening(uint32_t ifIndex = vlan10) {
        std::vector<uint16_t> protocols;
        for (auto binding : ports.bindings()) {
            if (binding.ifIndex == ifIndex) {
                protocols.push_back(binding.protocol);
            }
        }
        return protocols;
    }

    const Vela::Ptr<Routing::Fhrp::VirtualRouterMacStatus> virtualRouter =
        Vela::make<Routing::Fhrp::VirtualRouterMacStatus>();
};
using BindingDiscoveryVarpReplySmDeathTest = BindingDiscoveryVarpReplySmTest;

// What is learnt from an ARP reply

TEST_F(BindingDiscoveryVarpReplySmTest, anArpReplyToTheVirtualRouterBindsItsSender) {
    EXPECT_EQ(handledV4(ArpReply{}.bytes()),
              (Moved{{Id::varpArpAccepted, 1}, {Id::bindingCreated, 1}}));
    EXPECT_EQ(macOf("10.0.0.1"), "02:00:00:00:00:0a");
    EXPECT_EQ(handledV4(ArpReply{}.bytes()),
              (Moved{{Id::varpArpAccepted, 1}, {Id::bindingRefreshed, 1}}));
}

TEST_F(BindingDiscoveryVarpReplySmTest, aReplyIsAcceptedBeforeItsBindingIsLookedAt) {
    Moved before;
    Vela::Reaction reaction = record().bindingCollection().react(
        nullptr, [&](const VrfIpAddress&) { before = countersMoved(); });
    handledV4(ArpReply{}.bytes());
    EXPECT_EQ(before, once(Id::varpArpAccepted));
    handledV6(Advertisement{}.bytes());
    EXPECT_EQ(before, once(Id::varpNaAccepted));
}

TEST_F(BindingDiscoveryVarpReplySmTest, paddingIsToleratedAndCounted) {
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(
        handledV4(ArpReply{.padding = 18}.bytes()),
        (Moved{{Id::varpArpExtraData, 1}, {Id::varpArpAccepted, 1}, {Id::bindingCreated, 1}}));
    EXPECT_EQ(capture.count("ARP reply has extra data len=60 data=02005e000101"), 1u)
        << capture.text();
    EXPECT_EQ(macOf("10.0.0.1"), "02:00:00:00:00:0a");
    // What is refused next has been counted already.
    EXPECT_EQ(handledV4(ArpReply{.targetMac = EthAddr(macB), .padding = 1}.bytes()),
              (Moved{{Id::varpArpExtraData, 1}, {Id::varpArpNotToVarpMac, 1}}));
}

TEST_F(BindingDiscoveryVarpReplySmTest, everyPrefixOfAnArpReplyIsRefused) {
    const Frame whole = ArpReply{}.bytes();
    TraceCapture capture("ArpSuppression=8");
    for (size_t length = 0; length < whole.size(); ++length) {
        Frame prefix(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
        EXPECT_EQ(handledV4(prefix), once(Id::varpArpMalformed)) << length;
    }
    EXPECT_EQ(capture.count("not enough data for EthHdr data="), 14u);
    EXPECT_EQ(capture.count("not enough data for EthArpIpHdr data="), 28u);
    EXPECT_EQ(record().bindings(), 0u);
}

TEST_F(BindingDiscoveryVarpReplySmTest, whatIsNoArpOfIpv4OverEthernetIsRefused) {
    TraceCapture capture("ArpSuppression=8");
    Frame frame = ArpReply{}.bytes();
    frame[13] = 0x07;
    EXPECT_EQ(handledV4(frame), once(Id::varpArpMalformed));
    EXPECT_EQ(capture.count("not an ARP packet data="), 1u) << capture.text();
    frame.resize(14); // too short, and another protocol: that is said first
    EXPECT_EQ(handledV4(frame), once(Id::varpArpMalformed));
    EXPECT_EQ(capture.count("not an ARP packet data="), 2u) << capture.text();
    for (size_t at : {14u, 15u, 16u, 17u, 18u, 19u}) {
        frame = ArpReply{.operation = 1}.bytes();
        ++frame[at];
        EXPECT_EQ(handledV4(frame), once(Id::varpArpMalformed)) << at;
    }
    EXPECT_EQ(capture.count("invalid ARP header data="), 6u) << capture.text();
    EXPECT_EQ(record().bindings(), 0u);
}

TEST_F(BindingDiscoveryVarpReplySmTest, onlyReplies) {
    TraceCapture capture("ArpSuppression=8");
    for (unsigned operation : {0u, 1u, 3u, 0x0200u}) {
        auto opcode = static_cast<uint16_t>(operation);
        EXPECT_EQ(handledV4(ArpReply{.operation = opcode, .padding = 18}.bytes()),
                  once(Id::varpArpNotReply))
            << operation;
    }
    EXPECT_EQ(capture.count("ARP packet not a reply opcode=1 data=02005e000101"), 1u)
        << capture.text();
    EXPECT_EQ(record().bindings(), 0u);
}

TEST_F(BindingDiscoveryVarpReplySmTest, theArpTargetCountsNotTheFramesDestination) {
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(handledV4(ArpReply{.targetMac = EthAddr(macB)}.bytes()),
              once(Id::varpArpNotToVarpMac));
    EXPECT_EQ(capture.count("ARP reply not destined to VARP MAC targetEthAddr=02:00:00:00:00:0b "
                            "varpVirtualMac=02:00:5e:00:01:01 data=02005e000101"),
              1u)
        << capture.text();
    EXPECT_EQ(handledV4(ArpReply{.frameDst = EthAddr(macB)}.bytes()),
              (Moved{{Id::varpArpAccepted, 1}, {Id::bindingCreated, 1}}));
    // Another virtual router holds at once.
    virtualRouter->varpVirtualMacIs(EthAddr(macB));
    EXPECT_EQ(handledV4(ArpReply{}.bytes()), once(Id::varpArpNotToVarpMac));
}

TEST_F(BindingDiscoveryVarpReplySmTest, aSenderThatCannotBeBoundIsRefusedAfterwards) {
    auto accepted = [](Id refusal) { return Moved{{Id::varpArpAccepted, 1}, {refusal, 1}}; };
    EXPECT_EQ(handledV4(ArpReply{.senderMac = EthAddr()}.bytes()), accepted(Id::bindingBadMac));
    EXPECT_EQ(handledV4(ArpReply{.senderMac = EthAddr("01:00:5e:00:00:01")}.bytes()),
              accepted(Id::bindingBadMac));
    EXPECT_EQ(handledV4(ArpReply{.senderMac = bridgeMac}.bytes()), accepted(Id::bindingBridgeMac));
    EXPECT_EQ(handledV4(ArpReply{.senderIp = IpGenAddr("0.0.0.0")}.bytes()),
              accepted(Id::bindingBadIp));
    EXPECT_EQ(handledV4(ArpReply{.senderIp = IpGenAddr("224.0.0.1")}.bytes()),
              accepted(Id::bindingBadIp));
    auto acceptedNa = [](Id refusal) { return Moved{{Id::varpNaAccepted, 1}, {refusal, 1}}; };
    EXPECT_EQ(handledV6(Advertisement{.frameSrc = EthAddr()}.bytes()),
              acceptedNa(Id::bindingBadMac));
    EXPECT_EQ(handledV6(Advertisement{.frameSrc = EthAddr("33:33:00:00:00:01")}.bytes()),
              acceptedNa(Id::bindingBadMac));
    EXPECT_EQ(handledV6(Advertisement{.frameSrc = bridgeMac}.bytes()),
              acceptedNa(Id::bindingBridgeMac));
    EXPECT_EQ(record().bindings(), 0u);
}

TEST_F(BindingDiscoveryVarpReplySmTest, theVirtualRouterItselfIsNobodysHost) {
    state().fhrpVrMacStatus->varpVirtualMacIs(virtualMac); // the agent listens itself
    auto v4 = sm().varpReplyV4Sm(VlanId(10));
    auto v6 = sm().varpReplyV6Sm(VlanId(10));
    ASSERT_TRUE(v4 && v6);
    runUntilIdle();
    EXPECT_EQ(listening(), (std::vector<uint16_t>{0x0806, 0x86DD}));
    countersMoved();
    ports.inject(vlan10, ArpReply{.senderMac = virtualMac}.bytes());
    ports.inject(vlan10, Advertisement{.frameSrc = virtualMac}.bytes());
    runUntilIdle();
    // Ports know no protocols: each listener refuses the other's frame.
    EXPECT_EQ(countersMoved(), (Moved{{Id::varpArpAccepted, 1},
                                      {Id::varpArpMalformed, 1},
                                      {Id::varpNaAccepted, 1},
                                      {Id::varpNaMalformed, 1},
                                      {Id::bindingVarpMac, 2}}));
    EXPECT_EQ(record().bindings(), 0u);
    stop();
    EXPECT_EQ(listening(), std::vector<uint16_t>());
    EXPECT_TRUE(v4->destroyed() && v6->destroyed());
}

// What is learnt from a Neighbor Advertisement

TEST_F(BindingDiscoveryVarpReplySmTest, anAdvertisementToTheVirtualRouterBindsItsSource) {
    EXPECT_EQ(handledV6(Advertisement{}.bytes()),
              (Moved{{Id::varpNaAccepted, 1}, {Id::bindingCreated, 1}}));
    EXPECT_EQ(macOf("2001:db8::1"), "02:00:00:00:00:0a");
    EXPECT_EQ(macOf("2001:db8::2"), "-") << "the target is another matter";
    // A link-local one, padded.
    Frame frame = Advertisement{.frameSrc = EthAddr(macB), .src = IpGenAddr("fe80::b")}.bytes();
    frame.resize(frame.size() + 4);
    EXPECT_EQ(handledV6(frame), (Moved{{Id::varpNaAccepted, 1}, {Id::bindingCreated, 1}}));
    EXPECT_EQ(macOf("fe80::b"), macB);
}

TEST_F(BindingDiscoveryVarpReplySmTest, withoutTheOptionTheFramesDestinationCounts) {
    EXPECT_EQ(handledV6(Advertisement{.option = {}}.bytes()),
              (Moved{{Id::varpNaAccepted, 1}, {Id::bindingCreated, 1}}));
    EXPECT_EQ(macOf("2001:db8::1"), "02:00:00:00:00:0a");
    EXPECT_EQ(handledV6(Advertisement{.frameDst = EthAddr(macB), .option = {}}.bytes()),
              once(Id::varpNaNotToVarpMac));
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(handledV6(Advertisement{.frameDst = EthAddr("33:33:00:00:00:01"),
                                      .dst = IpGenAddr("ff02::1"),
                                      .option = {}}
                            .bytes()),
              once(Id::varpNaMalformed));
    EXPECT_EQ(capture.count("Failed to get NA pkt sender eth\n"), 1u) << capture.text();
}

TEST_F(BindingDiscoveryVarpReplySmTest, theOptionCountsBeforeTheFramesDestination) {
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(handledV6(Advertisement{.option = EthAddr(macB)}.bytes()),
              once(Id::varpNaNotToVarpMac));
    EXPECT_EQ(capture.count(
                  " Neighbor Advertisement not destined to VARP MAC "
                  "targetEthAddr=02:00:00:00:00:0b varpVirtualMac=02:00:5e:00:01:01 data=02005e"),
              1u)
        << capture.text();
    EXPECT_EQ(record().bindings(), 0u);
    // To all, with the virtual router in its option.
    EXPECT_EQ(handledV6(Advertisement{.frameDst = EthAddr("33:33:00:00:00:01"),
                                      .dst = IpGenAddr("ff02::1")}
                            .bytes()),
              (Moved{{Id::varpNaAccepted, 1}, {Id::bindingCreated, 1}}));
}

TEST_F(BindingDiscoveryVarpReplySmTest, everyPrefixOfAnAdvertisementIsRefused) {
    const Frame whole = Advertisement{}.bytes();
    TraceCapture capture("ArpSuppression=8");
    for (size_t length = 0; length < whole.size(); ++length) {
        Frame prefix(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
        EXPECT_EQ(handledV6(prefix), once(Id::varpNaMalformed)) << length;
    }
    EXPECT_EQ(capture.count("not enough data for EthHdr data="), 14u);
    EXPECT_EQ(capture.count("NA pkt validate error: "), whole.size() - 14);
    EXPECT_EQ(record().bindings(), 0u);
}

TEST_F(BindingDiscoveryVarpReplySmTest, whatIsNoValidAdvertisementIsRefused) {
    TraceCapture capture("ArpSuppression=8");
    Frame frame = Advertisement{}.bytes();
    frame[12] = 0x87;
    EXPECT_EQ(handledV6(frame), once(Id::varpNaMalformed));
    EXPECT_EQ(capture.count("not an IPV6 packet data=02005e000101"), 1u) << capture.text();
    // Hop limit, ICMPv6 type, code, checksum; an option of length zero.
    for (size_t at : {21u, 54u, 55u, 56u, 79u}) {
        frame = Advertisement{}.bytes();
        --frame[at];
        EXPECT_EQ(handledV6(frame), once(Id::varpNaMalformed)) << at;
    }
    EXPECT_EQ(handledV6(Advertisement{.frameDst = EthAddr("33:33:00:00:00:01"),
                                      .dst = IpGenAddr("ff02::1"),
                                      .flags = 0x40000000} // solicited
                            .bytes()),
              once(Id::varpNaMalformed));
    EXPECT_EQ(capture.count("NA pkt validate error: "), 6u) << capture.text();
    EXPECT_EQ(record().bindings(), 0u);
}

// Where it listens

TEST_F(BindingDiscoveryVarpReplySmTest, listensOnTheVlansInterface) {
    auto v4 = v4Is();
    auto v6 = v6Is();
    ASSERT_TRUE(v4->arpReplyRxPam());
    EXPECT_EQ(v4->arpReplyRxPam()->name(), "Vlan10");
    EXPECT_EQ(v4->arpReplyRxPam()->netNs(), "default");
    EXPECT_EQ(v4->arpReplyRxPam()->ethProtocol(), 0x0806);
    EXPECT_EQ(v6->arpReplyRxPam()->ethProtocol(), 0x86DD);
    runUntilIdle();
    EXPECT_EQ(listening(), (std::vector<uint16_t>{0x0806, 0x86DD}));
    v4->destroy();
    EXPECT_FALSE(v4->arpReplyRxPam());
    EXPECT_EQ(listening(), std::vector<uint16_t>{0x86DD});
    v6->arpReplyRxPamDel();
    EXPECT_FALSE(v6->arpReplyRxPam());
    EXPECT_EQ(listening(), std::vector<uint16_t>());
}

TEST_F(BindingDiscoveryVarpReplySmTest, framesAreReadInTheWalkAlone) {
    auto v4 = v4Is();
    runUntilIdle();
    countersMoved();
    TraceCapture capture("ArpSuppression=8");
    for (uint32_t host = 1; host <= 40; ++host) {
        ports.inject(vlan10, ArpReply{.senderIp = IpGenAddr((10u << 24) + host)}.bytes());
    }
    EXPECT_EQ(record().bindings(), 0u);
    runUntilIdle();
    EXPECT_EQ(countersMoved(), (Moved{{Id::varpArpAccepted, 40}, {Id::bindingCreated, 40}}));
    EXPECT_EQ(capture.count("readableCount=16 scheduled=no\n"), 1u) << capture.text();
    EXPECT_GE(capture.count("traceEvent=started\n"), 1u);
    EXPECT_FALSE(v4->walkScheduled());
    ports.inject(vlan10, ArpReply{.senderIp = IpGenAddr("10.0.1.1")}.bytes());
    runUntilIdle();
    EXPECT_EQ(countersMoved(), (Moved{{Id::varpArpAccepted, 1}, {Id::bindingCreated, 1}}));
    EXPECT_EQ(capture.count("readableCount=1 scheduled=no\n"), 1u) << capture.text();
}

TEST_F(BindingDiscoveryVarpReplySmTest, moreFramesDuringAWalkAreReadByIt) {
    auto v4 = v4Is();
    runUntilIdle();
    auto slow = record().bindingCollection().react(nullptr, [this](const VrfIpAddress&) {
        clock().advance(std::chrono::milliseconds(5)); // a slice for each
    });
    for (uint32_t host = 1; host <= 3; ++host) {
        ports.inject(vlan10, ArpReply{.senderIp = IpGenAddr((10u << 24) + host)}.bytes());
    }
    TraceCapture capture("ArpSuppression=8");
    while (record().bindings() == 0) {
        ASSERT_TRUE(turn());
    }
    EXPECT_TRUE(v4->walkScheduled());
    ports.inject(vlan10, ArpReply{.senderIp = IpGenAddr("10.0.0.4")}.bytes());
    runUntilIdle();
    EXPECT_EQ(record().bindings(), 4u);
    EXPECT_EQ(capture.count("scheduled=yes\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count("VarpReplyV4Sm(af=ipv4 vlanId=10) traceEvent=started\n"), 1u);
}

TEST_F(BindingDiscoveryVarpReplySmTest, endsInTheMiddleOfItsFrames) {
    auto v4 = v4Is();
    runUntilIdle();
    countersMoved();
    for (uint32_t host = 1; host <= 3; ++host) {
        ports.inject(vlan10, ArpReply{.senderIp = IpGenAddr((10u << 24) + host)}.bytes());
    }
    auto reaction =
        record().bindingCollection().react(nullptr, [&](const VrfIpAddress&) { v4->destroy(); });
    runUntilIdle();
    EXPECT_EQ(countersMoved(), (Moved{{Id::varpArpAccepted, 1}, {Id::bindingCreated, 1}}));
}

TEST_F(BindingDiscoveryVarpReplySmTest, receivesWhileTheVlanIsUsable) {
    TraceCapture capture("ArpSuppression=8");
    vlanL3Info()->kniIntfIfIndexIs(0);
    auto v4 = v4Is();
    EXPECT_FALSE(v4->arpReplyRxPam());
    EXPECT_EQ(capture.count("needPam=no arpReplyRxPam=NULL\n"), 1u) << capture.text();
    runUntilIdle();
    EXPECT_EQ(listening(), std::vector<uint16_t>());
    vlanL3Info()->kniIntfIfIndexIs(vlan10);
    EXPECT_EQ(capture.count("needPam=yes arpReplyRxPam=NULL\n"), 1u) << capture.text();
    auto pam = v4->arpReplyRxPam();
    ASSERT_TRUE(pam);
    runUntilIdle();
    EXPECT_EQ(listening(), std::vector<uint16_t>{0x0806});
    vlanL3Info()->kniIntfIfIndexIs(0);
    EXPECT_FALSE(v4->arpReplyRxPam());
    EXPECT_TRUE(pam->destroyed());
    EXPECT_EQ(listening(), std::vector<uint16_t>());
}

TEST_F(BindingDiscoveryVarpReplySmTest, anIndexThatIsTheDevicesAnywayChangesNothing) {
    auto v4 = v4Is();
    auto pam = v4->arpReplyRxPam();
    // Nobody has found the device yet.
    vlanL3Info()->kniIntfIfIndexIs(8);
    EXPECT_EQ(v4->arpReplyRxPam(), pam);
    ports.deviceIs("Vlan10", 9);
    runUntilIdle();
    EXPECT_EQ(pam->ifIndex(), 9u);
    vlanL3Info()->kniIntfIfIndexIs(9); // the news come late
    EXPECT_EQ(v4->arpReplyRxPam(), pam);
    runUntilIdle();
    EXPECT_EQ(listening(9), std::vector<uint16_t>{0x0806});
}

TEST_F(BindingDiscoveryVarpReplySmTest, aDeviceMadeAnewUnderItsNameIsListenedTo) {
    auto v4 = v4Is();
    runUntilIdle();
    auto pam = v4->arpReplyRxPam();
    ports.deviceIs("Vlan10", 8);
    vlanL3Info()->kniIntfIfIndexIs(8);
    EXPECT_TRUE(pam->destroyed());
    runUntilIdle();
    EXPECT_EQ(listening(), std::vector<uint16_t>());
    EXPECT_EQ(listening(8), std::vector<uint16_t>{0x0806});
    ports.inject(8, ArpReply{}.bytes());
    runUntilIdle();
    EXPECT_EQ(macOf("10.0.0.1"), "02:00:00:00:00:0a");
}

TEST_F(BindingDiscoveryVarpReplySmTest, oneMadeAnewUnderTheSameIndexIsListenedTo) {
    auto v4 = v4Is();
    runUntilIdle();
    ports.inject(vlan10, ArpReply{}.bytes());
    ports.downIs(vlan10, true); // nobody announces an index
    runUntilIdle();
    EXPECT_EQ(macOf("10.0.0.1"), "02:00:00:00:00:0a") << "it came before";
    EXPECT_EQ(listening(), std::vector<uint16_t>());
    ports.downIs(vlan10, false);
    runFor(5);
    EXPECT_EQ(listening(), std::vector<uint16_t>{0x0806});
    ports.inject(vlan10, ArpReply{.senderIp = IpGenAddr("10.0.0.2")}.bytes());
    runUntilIdle();
    EXPECT_EQ(macOf("10.0.0.2"), "02:00:00:00:00:0a");
}

TEST_F(BindingDiscoveryVarpReplySmTest, aDeviceThatCannotBeFoundYetIsAwaited) {
    ports.deviceIs("Vlan10", 0);
    auto v4 = v4Is();
    runFor(7);
    EXPECT_EQ(listening(), std::vector<uint16_t>());
    ports.deviceIs("Vlan10", vlan10);
    runFor(3);
    ports.inject(vlan10, ArpReply{.padding = 18}.bytes());
    runUntilIdle();
    EXPECT_EQ(macOf("10.0.0.1"), "02:00:00:00:00:0a");
}

// Without L3 information, and what it is called

TEST_F(BindingDiscoveryVarpReplySmTest, withoutL3InformationItsVlanIsOne) {
    auto v4 = listenerIs<BindingDiscoveryVarpReplyV4Sm>(Zinc::ipv4(), nullptr);
    auto v6 = listenerIs<BindingDiscoveryVarpReplyV6Sm>(Zinc::ipv6(), nullptr);
    runUntilIdle();
    EXPECT_FALSE(v4->arpReplyRxPam());
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(handled(*v4, ArpReply{}.bytes(), *this),
              (Moved{{Id::varpArpAccepted, 1}, {Id::bindingNoVlanL3Info, 1}}));
    EXPECT_EQ(handled(*v6, Advertisement{}.bytes(), *this),
              (Moved{{Id::varpNaAccepted, 1}, {Id::bindingNoVlanL3Info, 1}}));
    EXPECT_EQ(capture.count("vlanId=1 ipAddress=10.0.0.1 macAddress=02:00:00:00:00:0a "
                            "bindingDiscoveryEvent=yes\n"),
              1u)
        << capture.text();
    EXPECT_EQ(capture.count("vlanId=1 ipAddress=2001:db8::1 "), 1u) << capture.text();
}

TEST_F(BindingDiscoveryVarpReplySmTest, saysWhatItIs) {
    auto v4 = v4Is();
    auto v6 = v6Is();
    Vela::DumpContext dump;
    v4->dumpState(dump, 0);
    v6->dumpState(dump, 4);
    EXPECT_EQ(dump.text(), "BindingDiscoveryVarpReplySm af=1 10\n"
                           "    BindingDiscoveryVarpReplySm af=2 10\n");
    std::ostringstream derived;
    v4->formatDerivedType(derived);
    derived << '\n';
    v6->formatDerivedType(derived);
    EXPECT_EQ(derived.str(), "af=ipv4 vlanId=10\naf=ipv6 vlanId=10");
    EXPECT_STREQ(v4->typeName(), "BindingDiscoveryVarpReplyV4Sm");
    EXPECT_STREQ(v6->typeName(), "BindingDiscoveryVarpReplyV6Sm");
    EXPECT_EQ(v4->af(), Zinc::ipv4());
    EXPECT_EQ(v6->vlanL3Info(), vlanL3Info());
    Vela::DumpContext tasks;
    scheduler()->dumpState(tasks, 0);
    EXPECT_NE(tasks.text().find("VarpReplySm-VarpReplyV4Sm"), std::string::npos) << tasks.text();
    EXPECT_NE(tasks.text().find("VarpReplySm-VarpReplyV6Sm"), std::string::npos) << tasks.text();
}

/// Forgets to say what it listens to, and what to do with it.
class Incomplete : public BindingDiscoveryVarpReplySmBase {
  public:
    using BindingDiscoveryVarpReplySmBase::BindingDiscoveryVarpReplySmBase;
    const char* typeName() const noexcept override { return "Incomplete"; }
};
class Deaf final : public Incomplete {
  public:
    using Incomplete::Incomplete;

  protected:
    void handleKniIntfIfIndex() override {}
};

TEST_F(BindingDiscoveryVarpReplySmDeathTest, derivedMachinesAreComplete) {
    EXPECT_DEATH(listenerIs<Incomplete>(Zinc::ipv4(), vlanL3Info()),
                 "handleKniIntfIfIndex.*Derived class must implement this function");
    auto deaf = listenerIs<Deaf>(Zinc::ipv4(), vlanL3Info());
    EXPECT_DEATH(deaf->processPacket(*Vela::pktManager().newPkt(ArpReply{}.bytes())),
                 "processPacket.*Derived class must implement this function");
}

} // namespace

} // namespace ArpSuppression
