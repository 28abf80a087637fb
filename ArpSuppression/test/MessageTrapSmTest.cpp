#include "ArpSuppression/MessageTrapSm.h"

#include "ArpSuppression/test/TapFixture.h"
#include "Platform/Agent/Toggle.h"
#include "Platform/Packet/Headers.h"
#include "Platform/Packet/NeighborDiscovery.h"
#include "Platform/State/DumpContext.h"
#include "Testing/TraceCapture.h"
#include "Testing/TrapFrame.h"

#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <sys/socket.h>
#include <sys/un.h>

namespace ArpSuppression {

namespace {

using Testing::Frame;
using Testing::fromHex;
using Testing::TraceCapture;
using Testing::trapFrame;
using Testing::TrapFrame;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;

constexpr uint32_t arpsnoop = 101;

/// A neighbour discovery message as it is trapped.
struct NdFrame {
    uint8_t type = Vela::Icmp6Hdr::neighborSolicitation;
    std::optional<uint16_t> dot1q = {};
    uint8_t option = 1; ///< the one with 02:00:00:00:00:99 in it; 0: none
    IpGenAddr src{"fe80::1"};
    IpGenAddr dst{"ff02::1:ff00:2"};
    IpGenAddr target{"2001:db8::2"};
    uint8_t nextHeader = Vela::Ip6Hdr::icmp6;
    uint8_t hopLimit = 255;
    uint32_t vlanId = 10;
    Frame trailer = {};

    Frame bytes() const {
        Frame message = {type, 0, 0, 0, 0, 0, 0, 0};
        if (type == Vela::Icmp6Hdr::neighborSolicitation ||
            type == Vela::Icmp6Hdr::neighborAdvertisement) {
            message.insert(message.end(), target.bytes().begin(), target.bytes().end());
        }
        if (option != 0) {
            Frame bytes = {option, 1, 2, 0, 0, 0, 0, 0x99};
            message.insert(message.end(), bytes.begin(), bytes.end());
        }
        Vela::Ip6Hdr ip6;
        ip6.payloadLength = static_cast<uint16_t>(message.size());
        ip6.nextHeader = nextHeader;
        ip6.hopLimit = hopLimit;
        ip6.src = src;
        ip6.dst = dst;
        uint16_t checksum = Arp::icmp6Checksum(ip6, message);
        message[2] = static_cast<uint8_t>(checksum >> 8);
        message[3] = static_cast<uint8_t>(checksum);

        Frame payload(dot1q ? 44 : 40);
        Vela::WireWriter writer(payload);
        if (dot1q) {
            Vela::Dot1qHdr{.vlanId = *dot1q, .etherType = Vela::EtherType::ipv6}.write(writer);
        }
        ip6.write(writer);
        payload.insert(payload.end(), message.begin(), message.end());
        payload.insert(payload.end(), trailer.begin(), trailer.end());
        return trapFrame(vlanId, 11, dot1q ? Vela::EtherType::dot1q : Vela::EtherType::ipv6,
                         payload);
    }
};

constexpr uint8_t ns = Vela::Icmp6Hdr::neighborSolicitation;
constexpr uint8_t na = Vela::Icmp6Hdr::neighborAdvertisement;
constexpr uint8_t rs = Vela::Icmp6Hdr::routerSolicitation;

/// Whatever is asked of it it gives out the same socket.
class OneSocket final : public Vela::PacketSockets {
  public:
    explicit OneSocket(int fd) : fd_(fd) { Vela::packetSocketsIs(this); }
    ~OneSocket() override { Vela::packetSocketsIs(nullptr); }

  private:
    Vela::UniqueFd open(uint16_t) override { return Vela::UniqueFd(dup(fd_)); }
    int bind(int, uint16_t, uint32_t) override { return 0; }
    bool send(int, uint16_t, uint32_t, std::span<const uint8_t>) override { return false; }

    const int fd_;
};

class MessageTrapSmTest : public TapFixture {
  protected:
    MessageTrapSmTest() {
        status->vlanIdIs(Bridging::VlanId(10), true);
        status->vlanIdIs(Bridging::VlanId(30), false);
        devices->deviceIntfStatusIs(11, {ethernet1, "et1"});
        deviceIs("arpsnoop", arpsnoop);
    }
    ~MessageTrapSmTest() override {
        sm.reset();
        subInterfaces->destroy();
    }

    void make(bool withDirectories = true) {
        sm = Vela::make<MessageTrapSmMimic>(
            scheduler(), vlanL3InfoStatus, trapV4, trapV6, queue,
            Vela::Ptr<const ArpSuppressionStatus>(status), counterStatus,
            withDirectories ? Vela::Ptr<const Interface::DeviceIntfStatusDir>(devices) : nullptr,
            withDirectories ? Vela::Ptr<const Brant::IntfEncapServiceIntfColl>(subInterfaces)
                            : nullptr);
        runUntilIdle();
        countersMoved();
    }

    void trap(const Frame& frame) {
        if (!sm) {
            make();
        }
        ports.inject(arpsnoop, frame);
        runUntilIdle();
    }

    /// Traps a frame that is accepted, and returns what it was published as.
    Vela::Ptr<const TrappedMessage> published(const Frame& frame, const Moved& moved) {
        size_t before = messages.size();
        trap(frame);
        EXPECT_EQ(countersMoved(), moved);
        EXPECT_EQ(messages.size(), before + 1);
        EXPECT_EQ(queue->messages(), 0u);
        if (messages.size() != before + 1) {
            return nullptr;
        }
        EXPECT_TRUE(std::ranges::equal(messages.back()->pkt()->bytes(), frame));
        return messages.back();
    }

    /// Traps a frame that is refused: one counter, one line, nothing else. With `withData` the
    /// line ends with the frame.
    void expectRefused(const Frame& frame, Id counter, const std::string& text,
                       bool withData = true) {
        if (!sm) {
            make();
        }
        size_t before = messages.size();
        TraceCapture lines("ArpSuppression=8");
        trap(frame);
        EXPECT_EQ(countersMoved(), (Moved{{counter, 1}})) << hex(frame);
        EXPECT_TRUE(lines.contains(text + (withData ? hex(frame) : "") + "\n"))
            << "expected: " << text << "\n"
            << lines.text();
        EXPECT_FALSE(lines.contains(" attempting srcIntf lookup"));
        EXPECT_EQ(messages.size(), before);
        EXPECT_EQ(queue->messages(), 0u);
        EXPECT_TRUE(ports.written(arpsnoop).empty());
        EXPECT_TRUE(ports.sent(arpsnoop).empty());
    }

    static Frame first(const Frame& frame, size_t length) {
        return {frame.begin(), frame.begin() + static_cast<ptrdiff_t>(length)};
    }

    const Vela::Ptr<ArpSuppressionStatus> status = Vela::make<ArpSuppressionStatus>();
    const Vela::Ptr<Interface::DeviceIntfStatusDir> devices =
        Vela::make<Interface::DeviceIntfStatusDir>("");
    const Vela::Ptr<Brant::IntfEncapServiceIntfColl> subInterfaces =
        Vela::make<Brant::IntfEncapServiceIntfColl>();
    const IntfId ethernet1{"Ethernet1"};
    Vela::Owned<MessageTrapSm> sm;

    // What was published, and by which trap.
    std::vector<Vela::Ptr<const TrappedMessage>> messages;
    std::vector<bool> wasV4;
    std::function<void()> onMessage = [] {};

  private:
    Vela::Reaction onV4_ = trapV4->lastTrappedMessageAttribute().react(nullptr, [this] {
        messages.push_back(trapV4->lastTrappedMessage());
        wasV4.push_back(true);
        onMessage();
    });
    Vela::Reaction onV6_ = trapV6->lastTrappedMessageAttribute().react(nullptr, [this] {
        messages.push_back(trapV6->lastTrappedMessage());
        wasV4.push_back(false);
        onMessage();
    });
};

using MessageTrapSmDeathTest = MessageTrapSmTest;

// What is accepted

TEST_F(MessageTrapSmTest, anArpRequestBecomesAMessage) {
    TraceCapture lines("ArpSuppression=8");
    auto message = published(TrapFrame{}.bytes(), {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_EQ(message->toStrep(), "<request vlanId=10 if=Ethernet1 cpuPort=no sIp=10.0.0.1 "
                                  "sMac=02:00:00:00:00:01 tIp=10.0.0.2>");
    EXPECT_EQ(wasV4, std::vector<bool>{true});
    EXPECT_TRUE(lines.contains(" attempting srcIntf lookup with srcIfIndex11\n"));
    EXPECT_TRUE(lines.contains("Message vlanId=10 messageType=0 srcintf=11 srcIntfIdEthernet1 "
                               "senderIp=10.0.0.1 senderMac=02:00:00:00:00:01 targetIp=10.0.0.2"))
        << lines.text();
}

TEST_F(MessageTrapSmTest, anArpReplyBecomesAMessage) {
    TrapFrame frame;
    frame.operation = 2;
    frame.targetMac = EthAddr("02:00:00:00:00:07");
    auto message = published(frame.bytes(), {{Id::trapArpReply, 1}});
    ASSERT_TRUE(message);
    EXPECT_EQ(message->toStrep(), "<reply vlanId=10 if=Ethernet1 cpuPort=no sIp=10.0.0.1 "
                                  "sMac=02:00:00:00:00:01 tIp=10.0.0.2>");
    EXPECT_EQ(wasV4, std::vector<bool>{true});
}

TEST_F(MessageTrapSmTest, theSenderIsTheOneThatTheArpMessageNames) {
    TrapFrame frame;
    Frame bytes = frame.bytes();
    bytes[11] = 0x77; // the frame's own source
    auto message = published(bytes, {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_EQ(message->senderMacAddress(), EthAddr("02:00:00:00:00:01"));
}

TEST_F(MessageTrapSmTest, theVlanIsThatOfTheTrapHeaderAndNotOfTheTag) {
    TrapFrame frame;
    frame.dot1q = 77;
    auto message = published(frame.bytes(), {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_EQ(message->vlanId(), Bridging::VlanId(10));
    NdFrame nd;
    nd.dot1q = 77;
    message = published(nd.bytes(), {{Id::trapNeighborSolicitation, 1}});
    ASSERT_TRUE(message);
    EXPECT_EQ(message->vlanId(), Bridging::VlanId(10));
}

TEST_F(MessageTrapSmTest, aTaggedArpReplyBecomesAMessage) {
    TrapFrame frame;
    frame.operation = 2;
    frame.dot1q = 0;
    auto message = published(frame.bytes(), {{Id::trapArpReply, 1}});
    ASSERT_TRUE(message);
    EXPECT_EQ(message->type(), MessageType::reply);
    EXPECT_EQ(message->targetIpAddress(), IpGenAddr("10.0.0.2"));
}

TEST_F(MessageTrapSmTest, theOutermostVlansAreAccepted) {
    for (uint32_t vlan : {1u, 4094u}) {
        status->vlanIdIs(Bridging::VlanId(vlan), true);
        TrapFrame frame;
        frame.vlanId = vlan;
        auto message = published(frame.bytes(), {{Id::trapArpRequest, 1}});
        ASSERT_TRUE(message);
        EXPECT_EQ(message->vlanId(), Bridging::VlanId(vlan));
    }
}

TEST_F(MessageTrapSmTest, arpWithTrailingDataIsUsedAndCountedTwice) {
    for (bool tagged : {false, true}) {
        TrapFrame frame;
        frame.trailer = {0};
        if (tagged) {
            frame.dot1q = 7;
        }
        TraceCapture lines("ArpSuppression=8");
        published(frame.bytes(), {{Id::trapArpRequest, 1}, {Id::trapArpExtraData, 1}});
        EXPECT_TRUE(lines.contains("ARP message has extra data rcv=1\n")) << lines.text();
        frame.operation = 2;
        frame.trailer.resize(18);
        published(frame.bytes(), {{Id::trapArpReply, 1}, {Id::trapArpExtraData, 1}});
        EXPECT_TRUE(lines.contains("ARP message has extra data rcv=18\n")) << lines.text();
    }
}

TEST_F(MessageTrapSmTest, neighborDiscoveryMessagesBecomeMessages) {
    struct Row {
        uint8_t type;
        uint8_t option;
        const char* dst;
        Id counter;
        const char* name;
        const char* text;
        const char* target;
    };
    const std::vector<Row> rows = {
        {ns, 1, "ff02::1:ff00:2", Id::trapNeighborSolicitation, "Neighbor Solicitation Message",
         "<NeighborSolicitation", "2001:db8::2"},
        {na, 2, "ff02::1", Id::trapNeighborAdvertisement, "Neighbor Advertisement Message",
         "<NeighborAdvertisement", "2001:db8::2"},
        {rs, 1, "ff02::2", Id::trapRouterSolicitation, "Router Solicitation Message",
         "<RouterSolicitation", "::"},
    };
    for (const Row& row : rows) {
        for (bool tagged : {false, true}) {
            NdFrame frame;
            frame.type = row.type;
            frame.option = row.option;
            frame.dst = IpGenAddr(row.dst);
            if (tagged) {
                frame.dot1q = 7;
            }
            TraceCapture lines("ArpSuppression=8");
            auto message = published(frame.bytes(), {{row.counter, 1}});
            ASSERT_TRUE(message);
            EXPECT_EQ(message->toStrep(), std::string(row.text) +
                                              " vlanId=10 if=Ethernet1 cpuPort=no sIp=fe80::1 "
                                              "sMac=02:00:00:00:00:99 tIp=" +
                                              row.target + ">");
            EXPECT_FALSE(wasV4.back());
            EXPECT_TRUE(
                lines.contains("rcv " + std::to_string(row.type) + " vlanId 10 srcIfIndex 11\n"))
                << lines.text();
            EXPECT_TRUE(lines.contains(std::string(row.name) + "\n"));
            EXPECT_TRUE(lines.contains("Message vlanId=10 messageType=" +
                                       std::to_string(static_cast<int>(message->type()))));

            // Without an option it is the frame that says who sent it.
            frame.option = 0;
            message = published(frame.bytes(), {{row.counter, 1}});
            ASSERT_TRUE(message);
            EXPECT_EQ(message->senderMacAddress(), EthAddr("02:00:00:00:00:01"));

            // An option of the other kind does not say it either.
            frame.option = row.option == 1 ? 2 : 1;
            message = published(frame.bytes(), {{row.counter, 1}});
            ASSERT_TRUE(message);
            EXPECT_EQ(message->senderMacAddress(), EthAddr("02:00:00:00:00:01"));

            // What Ethernet pads is no part of the message.
            frame.trailer = Frame(6);
            published(frame.bytes(), {{row.counter, 1}});
        }
    }
}

TEST_F(MessageTrapSmTest, aHostThatProbesForItsAddressHasNoneYet) {
    NdFrame frame;
    frame.src = IpGenAddr("::");
    frame.option = 0;
    auto message = published(frame.bytes(), {{Id::trapNeighborSolicitation, 1}});
    ASSERT_TRUE(message);
    EXPECT_EQ(message->senderIpAddress(), IpGenAddr("::"));
    EXPECT_EQ(message->targetIpAddress(), IpGenAddr("2001:db8::2"));
}

TEST_F(MessageTrapSmTest, aMessageKeepsItsFrameWhenTheNextOneComes) {
    Frame one = TrapFrame{}.bytes();
    TrapFrame other;
    other.senderIp = IpGenAddr("10.9.9.9");
    auto message = published(one, {{Id::trapArpRequest, 1}});
    published(other.bytes(), {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_TRUE(std::ranges::equal(message->pkt()->bytes(), one));
}

TEST_F(MessageTrapSmTest, aFrameIsReadUpToTenThousandBytes) {
    TrapFrame frame;
    frame.trailer.resize(10'100);
    trap(frame.bytes());
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapArpRequest, 1}, {Id::trapArpExtraData, 1}}));
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0]->pkt()->size(), 10'000u);
}

// What is refused

TEST_F(MessageTrapSmTest, everyTruncatedLengthOfAnArpFrameIsRefused) {
    for (bool tagged : {false, true}) {
        TrapFrame frame;
        if (tagged) {
            frame.dot1q = 7;
        }
        Frame whole = frame.bytes();
        for (size_t length = 0; length < whole.size(); ++length) {
            const char* text = length < 28             ? "not enough data for vxlan_encap_hdr data="
                               : length < 30           ? "not enough data for ethhdr data="
                               : tagged && length < 34 ? "not enough data for vlan_ethhdr data="
                                                       : "not enough data for ARP header data=";
            expectRefused(first(whole, length), Id::trapMalformed, text);
        }
        published(whole, {{Id::trapArpRequest, 1}});
    }
}

TEST_F(MessageTrapSmTest, everyTruncatedLengthOfANeighborDiscoveryFrameIsRefused) {
    struct Row {
        uint8_t type;
        const char* dst;
        Id counter;
        const char* text;
    };
    const std::vector<Row> rows = {
        {ns, "ff02::1:ff00:2", Id::trapNeighborSolicitation, "NS pkt validate error: "},
        {na, "ff02::1", Id::trapNeighborAdvertisement, "NA pkt validate error: "},
        {rs, "ff02::2", Id::trapRouterSolicitation, "RS pkt validate error: "},
    };
    for (const Row& row : rows) {
        for (bool tagged : {false, true}) {
            NdFrame frame;
            frame.type = row.type;
            frame.dst = IpGenAddr(row.dst);
            size_t tag = 0;
            if (tagged) {
                frame.dot1q = 7;
                tag = 4;
            }
            Frame whole = frame.bytes();
            for (size_t length = 0; length < 74 + tag; ++length) {
                const char* text = length < 28         ? "not enough data for vxlan_encap_hdr data="
                                   : length < 30       ? "not enough data for ethhdr data="
                                   : length < 30 + tag ? "not enough data for vlan_ethhdr data="
                                   : length < 70 + tag ? "not enough data for ip6_hdr="
                                                       : "not enough data for Icmp6Hdr=";
                expectRefused(first(whole, length), Id::trapMalformed, text);
            }
            for (size_t length = 74 + tag; length < whole.size(); ++length) {
                trap(first(whole, length));
                EXPECT_EQ(countersMoved(), (Moved{{Id::trapMalformed, 1}})) << length;
            }
            TraceCapture lines("ArpSuppression=8");
            trap(first(whole, whole.size() - 1));
            EXPECT_EQ(countersMoved(), (Moved{{Id::trapMalformed, 1}}));
            EXPECT_TRUE(lines.contains(row.text)) << lines.text();
            EXPECT_TRUE(lines.contains("badLength"));
            EXPECT_TRUE(messages.empty());
            published(whole, {{row.counter, 1}});
            messages.clear();
        }
    }
}

TEST_F(MessageTrapSmTest, aFrameThatFailsTheTrapHeaderIsRefused) {
    Frame frame = TrapFrame{}.bytes();
    for (size_t at : {size_t{12}, size_t{13}}) {
        Frame other = frame;
        other[at] ^= 1;
        expectRefused(other, Id::trapMalformed, "not ETH_P_NORVEL_ARP_SNOOP data=");
    }
}

TEST_F(MessageTrapSmTest, aVlanIdBeyondItsRangeIsRefused) {
    for (uint32_t vlan : {0u, 4095u, 4096u, 0x1000Au, 0xFFFFFFFFu}) {
        for (bool tagged : {false, true}) {
            TrapFrame frame;
            frame.vlanId = vlan;
            if (tagged) {
                frame.dot1q = 10;
            }
            expectRefused(frame.bytes(), Id::trapMalformed, "Invalid vlanId data=");
            NdFrame nd;
            nd.vlanId = vlan;
            expectRefused(nd.bytes(), Id::trapMalformed, "Invalid vlanId data=");
        }
    }
}

TEST_F(MessageTrapSmTest, theFirstFaultIsTheOneThatIsNamed) {
    TrapFrame frame;
    frame.vlanId = 0;
    Frame bytes = frame.bytes();
    expectRefused(first(bytes, 28), Id::trapMalformed, "Invalid vlanId data=");
    bytes[12] = 0;
    expectRefused(bytes, Id::trapMalformed, "not ETH_P_NORVEL_ARP_SNOOP data=");
    expectRefused(first(bytes, 27), Id::trapMalformed, "not enough data for vxlan_encap_hdr data=");
}

TEST_F(MessageTrapSmTest, aFrameThatCarriesSomethingElseIsRefused) {
    expectRefused(trapFrame(10, 11, 0x0800, Frame(60)), Id::trapMalformed,
                  "packet not ARP and not IPV6 h_proto=2048 data=");
    expectRefused(trapFrame(10, 11, 0x88A8, Frame(60)), Id::trapMalformed,
                  "packet not ARP and not IPV6 h_proto=34984 data=");
    Frame tagged = {0x00, 0x07, 0x08, 0x00};
    tagged.resize(60);
    expectRefused(trapFrame(10, 11, 0x8100, tagged), Id::trapMalformed,
                  "ETH_P_8021Q encapsulated packet not ARP h_vlan_encapsulated_proto=2048 data=");
}

TEST_F(MessageTrapSmTest, aFrameWithTwoTagsIsRefused) {
    Frame twice = fromHex("0007 8100 0008 0806");
    twice.resize(60);
    expectRefused(trapFrame(10, 11, 0x8100, twice), Id::trapMalformed,
                  "ETH_P_8021Q encapsulated packet not ARP h_vlan_encapsulated_proto=33024 data=");
}

TEST_F(MessageTrapSmTest, aVlanWithoutSuppressionIsCountedAsSuch) {
    for (uint32_t vlan : {20u, 30u}) { // absent; present, but not active
        std::string text = "Unexpected vlanId=" + std::to_string(vlan) + " data=";
        for (bool tagged : {false, true}) {
            TrapFrame frame;
            frame.vlanId = vlan;
            NdFrame nd;
            nd.vlanId = vlan;
            if (tagged) {
                frame.dot1q = 10;
                nd.dot1q = 10;
            }
            Frame whole = frame.bytes();
            expectRefused(whole, Id::trapVlanNotSuppressed, text);
            // It is asked for before the ARP header is.
            expectRefused(first(whole, tagged ? 34 : 30), Id::trapVlanNotSuppressed, text);
            for (uint8_t type : {ns, na, rs, uint8_t{134}}) {
                nd.type = type;
                expectRefused(nd.bytes(), Id::trapVlanNotSuppressed, text);
            }
        }
    }
}

TEST_F(MessageTrapSmTest, suppressionIsAskedForWithEachFrame) {
    Frame frame = TrapFrame{}.bytes();
    published(frame, {{Id::trapArpRequest, 1}});
    status->vlanIdIs(Bridging::VlanId(10), false);
    expectRefused(frame, Id::trapVlanNotSuppressed, "Unexpected vlanId=10 data=");
    status->vlanIdIs(Bridging::VlanId(10), true);
    published(frame, {{Id::trapArpRequest, 1}});
    status->vlanIdDel(Bridging::VlanId(10));
    expectRefused(frame, Id::trapVlanNotSuppressed, "Unexpected vlanId=10 data=");
}

TEST_F(MessageTrapSmTest, anArpHeaderOfAnotherKindIsRefused) {
    for (bool tagged : {false, true}) {
        TrapFrame frame;
        if (tagged) {
            frame.dot1q = 7;
        }
        Frame whole = frame.bytes();
        size_t arp = tagged ? 34 : 30;
        for (size_t at = arp; at < arp + 6; ++at) {
            Frame other = whole;
            other[at] ^= 2;
            expectRefused(other, Id::trapMalformed, "invalid ARP header data=");
        }
    }
}

TEST_F(MessageTrapSmTest, anArpOperationOtherThanRequestAndReplyIsCountedAsSuch) {
    for (uint16_t operation : {uint16_t{0}, uint16_t{3}, uint16_t{8}, uint16_t{0x0101}}) {
        for (bool tagged : {false, true}) {
            TrapFrame frame;
            frame.operation = operation;
            frame.trailer = {0}; // says nothing about what is not used
            if (tagged) {
                frame.dot1q = 7;
            }
            expectRefused(frame.bytes(), Id::trapArpNeitherRequestNorReply,
                          "ARP packet not a request or a reply opcode=" +
                              std::to_string(operation) + " data=");
        }
    }
}

TEST_F(MessageTrapSmTest, anIcmp6MessageOfAnotherTypeIsRefused) {
    for (uint8_t type : {uint8_t{0}, uint8_t{128}, uint8_t{134}, uint8_t{137}, uint8_t{255}}) {
        for (bool tagged : {false, true}) {
            NdFrame frame;
            frame.type = type;
            if (tagged) {
                frame.dot1q = 7;
            }
            expectRefused(frame.bytes(), Id::trapMalformed,
                          "Invalid Icmp6 Type: " + std::to_string(type), false);
        }
    }
}

TEST_F(MessageTrapSmTest, whatFollowsTheIp6HeaderIsTakenForIcmp6) {
    NdFrame frame;
    frame.nextHeader = 17;
    frame.type = 200;
    expectRefused(frame.bytes(), Id::trapMalformed, "Invalid Icmp6 Type: 200", false);
    frame.type = ns;
    expectRefused(frame.bytes(), Id::trapMalformed, "NS pkt validate error: notIcmp6", false);
}

TEST_F(MessageTrapSmTest, aNeighborDiscoveryMessageThatIsNotValidIsRefused) {
    struct Row {
        uint8_t type;
        const char* dst;
        const char* text;
    };
    for (const Row& row : {Row{ns, "ff02::1:ff00:2", "NS pkt validate error: "},
                           Row{na, "ff02::1", "NA pkt validate error: "},
                           Row{rs, "ff02::2", "RS pkt validate error: "}}) {
        for (bool tagged : {false, true}) {
            NdFrame frame;
            frame.type = row.type;
            frame.dst = IpGenAddr(row.dst);
            size_t icmp6 = 70;
            if (tagged) {
                frame.dot1q = 7;
                icmp6 = 74;
            }
            frame.hopLimit = 254;
            expectRefused(frame.bytes(), Id::trapMalformed, row.text + std::string("badHopLimit"),
                          false);
            frame.hopLimit = 255;
            Frame bytes = frame.bytes();
            bytes[icmp6 + 2] ^= 1;
            expectRefused(bytes, Id::trapMalformed, row.text + std::string("badChecksum"), false);
        }
    }
}

// Where it came from

TEST_F(MessageTrapSmTest, aPortThatNobodyKnowsLeavesTheSourceEmpty) {
    TrapFrame frame;
    frame.srcIfIndex = 99;
    auto message = published(frame.bytes(), {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_FALSE(message->srcIntfId());
    EXPECT_FALSE(message->isCpuPort());
}

TEST_F(MessageTrapSmTest, aDefaultEntryLeavesTheSourceEmpty) {
    devices->deviceIntfStatusIs(12, {});
    TrapFrame frame;
    frame.srcIfIndex = 12;
    TraceCapture lines("ArpSuppression=8");
    auto message = published(frame.bytes(), {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_FALSE(message->srcIntfId());
    EXPECT_FALSE(message->isCpuPort());
    EXPECT_FALSE(lines.contains(" Looking for intfEncap="));
}

TEST_F(MessageTrapSmTest, withoutADirectoryTheSourceIsEmpty) {
    make(false);
    auto message = published(TrapFrame{}.bytes(), {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_FALSE(message->srcIntfId());
    EXPECT_FALSE(message->isCpuPort());
}

TEST_F(MessageTrapSmTest, onlyTheDeviceNamedCpuIsTheCpuPort) {
    devices->deviceIntfStatusIs(12, {IntfId("Cpu"), "cpu"});
    devices->deviceIntfStatusIs(13, {IntfId("Cpu"), "cpu0"});
    TrapFrame frame;
    frame.srcIfIndex = 12;
    auto message = published(frame.bytes(), {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_EQ(message->srcIntfId(), IntfId("Cpu"));
    EXPECT_TRUE(message->isCpuPort());
    frame.srcIfIndex = 13;
    message = published(frame.bytes(), {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_EQ(message->srcIntfId(), IntfId("Cpu"));
    EXPECT_FALSE(message->isCpuPort());
}

TEST_F(MessageTrapSmTest, theSourceOfATaggedFrameIsTheSubInterfaceOfItsTag) {
    auto parent = subInterfaces->parentIs(ethernet1);
    Bridging::VlanTag tag7(0x8100, 7);
    Bridging::VlanTag tag8(0x8100, 8);
    parent->subIntfIs(IntfId("Ethernet1.1"), Brant::IntfEncap(tag7, tag8));
    parent->subIntfIs(IntfId("Ethernet1.2"), Brant::IntfEncap(tag7));
    parent->subIntfIs(IntfId("Ethernet1.3"), Brant::IntfEncap(tag8));
    auto sourceOf = [&](std::optional<uint16_t> dot1q) {
        TrapFrame frame;
        frame.dot1q = dot1q;
        auto message = published(frame.bytes(), {{Id::trapArpRequest, 1}});
        return message ? message->srcIntfId() : IntfId();
    };
    TraceCapture lines("ArpSuppression=8");
    EXPECT_EQ(sourceOf(7), IntfId("Ethernet1.2"));
    EXPECT_TRUE(lines.contains(" Looking for intfEncap=<tpid=0x8100 vlanId=7>\n"));
    EXPECT_TRUE(lines.contains("Outer/inner vlanTags or single vlan tag match for"));
    EXPECT_TRUE(lines.contains("Ethernet1.2 returning numTags:1\n")) << lines.text();
    EXPECT_EQ(sourceOf(8), IntfId("Ethernet1.3"));
    lines.clear();
    EXPECT_EQ(sourceOf(9), ethernet1);
    EXPECT_TRUE(lines.contains(" No matching subintf vlan encap config found\n"));
    lines.clear();
    EXPECT_EQ(sourceOf({}), ethernet1);
    EXPECT_TRUE(lines.contains(" Looking for intfEncap=<tpid=0x8100 vlanId=4095>\n"));
    subInterfaces->parentDel(ethernet1);
    lines.clear();
    EXPECT_EQ(sourceOf(7), ethernet1);
    EXPECT_TRUE(lines.contains(" Can not find parentIntfId.\n"));
}

TEST_F(MessageTrapSmTest, aSubInterfaceOfTheCpuPortIsNotTheCpuPort) {
    devices->deviceIntfStatusIs(11, {IntfId("Cpu"), "cpu"});
    subInterfaces->parentIs(IntfId("Cpu"))
        ->subIntfIs(IntfId("Cpu.7"), Brant::IntfEncap(Bridging::VlanTag(0x8100, 7)));
    TrapFrame frame;
    frame.dot1q = 7;
    auto message = published(frame.bytes(), {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_EQ(message->srcIntfId(), IntfId("Cpu.7"));
    EXPECT_FALSE(message->isCpuPort());
}

TEST_F(MessageTrapSmTest, aSubInterfaceIsFoundByBothItsTags) {
    auto parent = subInterfaces->parentIs(ethernet1);
    Bridging::VlanTag tag7(0x8100, 7);
    Bridging::VlanTag tag8(0x8100, 8);
    parent->subIntfIs(IntfId("Ethernet1.1"), Brant::IntfEncap(tag7));
    parent->subIntfIs(IntfId("Ethernet1.2"), Brant::IntfEncap(tag7, tag8));
    make();
    TraceCapture lines("ArpSuppression=8");
    auto found = sm->getSubInterfaceInfo(ethernet1, tag7, tag8);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->subIntfId(), IntfId("Ethernet1.2"));
    EXPECT_EQ(found->numVlanMatched(), 2);
    EXPECT_TRUE(lines.contains(" returning numTags:2\n"));
    found = sm->getSubInterfaceInfo(ethernet1, tag7);
    EXPECT_EQ(found->subIntfId(), IntfId("Ethernet1.1"));
    EXPECT_EQ(found->numVlanMatched(), 1);
    for (auto none : {sm->getSubInterfaceInfo(ethernet1, tag8, tag7),
                      sm->getSubInterfaceInfo(ethernet1, Bridging::VlanTag(0x88A8, 7)),
                      sm->getSubInterfaceInfo(ethernet1, Bridging::VlanTag()),
                      sm->getSubInterfaceInfo(IntfId("Ethernet2"), tag7)}) {
        ASSERT_TRUE(none);
        EXPECT_FALSE(none->subIntfId());
        EXPECT_EQ(none->numVlanMatched(), 0);
    }
}

TEST_F(MessageTrapSmTest, withoutSubInterfacesNoneIsFound) {
    make(false);
    auto none = sm->getSubInterfaceInfo(ethernet1, Bridging::VlanTag(0x8100, 7));
    ASSERT_TRUE(none);
    EXPECT_FALSE(none->subIntfId());
}

// The toggle: read once per process, so these need one each.

class MessageTrapSmToggleTest : public MessageTrapSmTest {
  protected:
    void toggleIs(bool enabled) {
        std::ofstream(directory_.path() + "/ArpSuppression.json")
            << "{\"MplsIRBv6\": " << (enabled ? "true" : "false") << "}";
        Vela::toggleDirectoryIs(directory_.path());
    }
    ~MessageTrapSmToggleTest() override { Vela::toggleDirectoryIs("/etc/arpsup/toggles"); }

  private:
    Testing::TemporaryDirectory directory_;
};

TEST_F(MessageTrapSmToggleTest, withTheToggleOffIp6IsRefused) {
    toggleIs(false);
    for (uint8_t type : {ns, na, rs}) {
        NdFrame frame;
        frame.type = type;
        expectRefused(frame.bytes(), Id::trapMalformed,
                      "packet not ARP and not IPV6 h_proto=34525 data=");
        frame.dot1q = 7;
        expectRefused(
            frame.bytes(), Id::trapMalformed,
            "ETH_P_8021Q encapsulated packet not ARP h_vlan_encapsulated_proto=34525 data=");
    }
    expectRefused(first(NdFrame{}.bytes(), 30), Id::trapMalformed,
                  "packet not ARP and not IPV6 h_proto=34525 data=");
    published(TrapFrame{}.bytes(), {{Id::trapArpRequest, 1}});
    // It is not read again.
    toggleIs(true);
    expectRefused(NdFrame{}.bytes(), Id::trapMalformed,
                  "packet not ARP and not IPV6 h_proto=34525 data=");
}

TEST_F(MessageTrapSmToggleTest, withTheToggleOnItStaysOn) {
    toggleIs(true);
    published(NdFrame{}.bytes(), {{Id::trapNeighborSolicitation, 1}});
    toggleIs(false);
    published(NdFrame{}.bytes(), {{Id::trapNeighborSolicitation, 1}});
}

// The walk

TEST_F(MessageTrapSmTest, eachVariantReadsItsOwnDevice) {
    make();
    EXPECT_EQ(sm->interfaceName(), "arpsnoop");
    EXPECT_EQ(sm->protocol(), MessageTapSocketSm::Protocol::norvelArpSnoop);
    EXPECT_STREQ(sm->typeName(), "MessageTrapSmMimic");
    auto bindings = ports.bindings();
    ASSERT_EQ(bindings.size(), 1u);
    EXPECT_EQ(bindings[0].protocol, 0x8135);
    EXPECT_EQ(bindings[0].ifIndex, arpsnoop);
    auto physical = Vela::make<MessageTrapSmPhysical>(
        scheduler(), vlanL3InfoStatus, trapV4, trapV6, queue,
        Vela::Ptr<const ArpSuppressionStatus>(status), counterStatus,
        Vela::Ptr<const Interface::DeviceIntfStatusDir>(devices),
        Vela::Ptr<const Brant::IntfEncapServiceIntfColl>(subInterfaces));
    EXPECT_EQ(physical->interfaceName(), "fabric");
    EXPECT_STREQ(physical->typeName(), "MessageTrapSmPhysical");
    EXPECT_EQ(physical->protocol(), MessageTapSocketSm::Protocol::norvelArpSnoop);
    deviceIs("fabric", 100);
    bindings = ports.bindings();
    ASSERT_EQ(bindings.size(), 2u);
    EXPECT_EQ(bindings[1].ifIndex, 100u);
    ports.inject(100, TrapFrame{}.bytes());
    runUntilIdle();
    EXPECT_EQ(messages.size(), 1u);
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapArpRequest, 1}}));
    physical->destroy();
}

TEST_F(MessageTrapSmTest, theWalkDoesNotStartWithoutASocket) {
    deviceIs("arpsnoop", 0);
    TraceCapture lines("ArpSuppression=8");
    make();
    EXPECT_EQ(lines.count("traceEvent=refused\n"), 1u) << lines.text();
    EXPECT_FALSE(lines.contains("traceEvent=started"));
    EXPECT_EQ(countersMoved(), Moved());
}

TEST_F(MessageTrapSmTest, whatWaitsIsReadInOneWalk) {
    make();
    TraceCapture lines("ArpSuppression=8");
    for (int i = 0; i < 5; ++i) {
        ports.inject(arpsnoop, TrapFrame{}.bytes());
    }
    runUntilIdle();
    EXPECT_EQ(messages.size(), 5u);
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapArpRequest, 5}}));
    EXPECT_EQ(lines.count("traceEvent=started\n"), 1u);
    EXPECT_EQ(lines.count("traceEvent=finished\n"), 1u);
    EXPECT_EQ(lines.count("traceEvent=yielded\n"), alwaysYield() ? 5u : 0u);
    EXPECT_FALSE(sm->fileDescriptor()->readable());
}

TEST_F(MessageTrapSmTest, theWalkYieldsBetweenFramesWhenItsTimeIsUp) {
    make();
    onMessage = [this] { clock().advance(std::chrono::milliseconds(2)); };
    TraceCapture lines("ArpSuppression=8");
    for (int i = 0; i < 3; ++i) {
        ports.inject(arpsnoop, TrapFrame{}.bytes());
    }
    runUntilIdle();
    EXPECT_EQ(messages.size(), 3u);
    EXPECT_EQ(lines.count("traceEvent=yielded\n"), 3u);
    EXPECT_EQ(lines.count("traceEvent=finished\n"), 1u);
    EXPECT_FALSE(lines.contains("read failed"));
}

TEST_F(MessageTrapSmTest, aRefusedFrameIsFollowedByTheNext) {
    make();
    ports.inject(arpsnoop, Frame(27));
    ports.inject(arpsnoop, TrapFrame{}.bytes());
    runUntilIdle();
    EXPECT_EQ(messages.size(), 1u);
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapMalformed, 1}, {Id::trapArpRequest, 1}}));
}

TEST_F(MessageTrapSmTest, aReadThatFailsIsCountedAndEndsTheWalk) {
    // A socket that listens is readable once somebody wants to connect, but nothing is to be read.
    Testing::TemporaryDirectory directory;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s/l", directory.path().c_str());
    auto* sockAddr = static_cast<sockaddr*>(static_cast<void*>(&address));
    Vela::UniqueFd listening(socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(bind(listening.get(), sockAddr, sizeof address), 0);
    ASSERT_EQ(listen(listening.get(), 1), 0);
    OneSocket sockets(listening.get());
    make();
    countersMoved();
    TraceCapture lines("ArpSuppression=8");
    Vela::UniqueFd client(socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(connect(client.get(), sockAddr, sizeof address), 0);
    runUntilIdle();
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapReadFailed, 1}}));
    EXPECT_TRUE(lines.contains("read failed errno=Invalid argument\n")) << lines.text();
    EXPECT_EQ(lines.count("traceEvent=finished\n"), 1u);
    EXPECT_TRUE(messages.empty());
    EXPECT_TRUE(sm->fileDescriptor());
    EXPECT_FALSE(sm->walkScheduled());
}

TEST_F(MessageTrapSmTest, aDrainedSocketIsNoFailure) {
    make();
    TraceCapture lines("ArpSuppression=8");
    trap(Frame(5));
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapMalformed, 1}}));
    EXPECT_FALSE(lines.contains("read failed"));
}

TEST_F(MessageTrapSmTest, aDeviceThatGoesAndComesBackIsReadFromAgain) {
    make();
    deviceIs("arpsnoop", 0);
    ports.inject(arpsnoop, TrapFrame{}.bytes());
    runUntilIdle();
    EXPECT_TRUE(messages.empty());
    deviceIs("arpsnoop", 201);
    runUntilIdle();
    ports.inject(201, TrapFrame{}.bytes());
    runUntilIdle();
    EXPECT_EQ(messages.size(), 1u);
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapArpRequest, 1}}));
}

TEST_F(MessageTrapSmTest, aMessageMayTakeTheDeviceAway) {
    make();
    onMessage = [this] { deviceIs("arpsnoop", 0); };
    ports.inject(arpsnoop, TrapFrame{}.bytes());
    ports.inject(arpsnoop, TrapFrame{}.bytes());
    runUntilIdle();
    EXPECT_EQ(messages.size(), 1u);
    EXPECT_FALSE(sm->fileDescriptor());
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapArpRequest, 1}}));
}

TEST_F(MessageTrapSmTest, aMessageMayEndTheMachine) {
    make();
    onMessage = [this] { sm.reset(); };
    ports.inject(arpsnoop, TrapFrame{}.bytes());
    ports.inject(arpsnoop, TrapFrame{}.bytes());
    runUntilIdle();
    EXPECT_EQ(messages.size(), 1u);
    EXPECT_TRUE(ports.bindings().empty());
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapArpRequest, 1}}));
}

TEST_F(MessageTrapSmDeathTest, aDescriptorThatWasTakenAwayIsAProgrammingError) {
    make();
    EXPECT_DEATH(
        {
            ports.inject(arpsnoop, TrapFrame{}.bytes());
            scheduler()->descriptors().wait(Vela::MonotonicTime(0));
            sm->fileDescriptor()->destroy();
            runUntilIdle();
        },
        "MessageTrapSm.*sock >= 0");
}

TEST_F(MessageTrapSmTest, theDumpShowsSocketTrapsAndQueue) {
    make();
    Vela::DumpContext context;
    sm->dumpState(context, 2);
    EXPECT_EQ(context.text(), "  MessageTrapSmMimic\n"
                              "    interfaceWatch <vrfName=default intfName=arpsnoop usable=yes>\n"
                              "    fileDescriptor ArpTrap socket " +
                                  std::to_string(sm->fileDescriptor()->descriptor()) +
                                  "\n"
                                  "    MessageTrap\n"
                                  "      lastTrappedMessage=NULL\n"
                                  "    MessageTrap\n"
                                  "      lastTrappedMessage=NULL\n"
                                  "    MessageQueue #messages=0\n");
}

} // namespace

} // namespace ArpSuppression
