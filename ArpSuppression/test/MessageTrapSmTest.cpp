#include "ArpSuppression/test/MessageTrapSmFixture.h"

namespace ArpSuppression {

namespace {

using Testing::Frame;
using Testing::fromHex;
using Testing::TraceCapture;
using Testing::trapFrame;
using Testing::TrapFrame;
using Zinc::EthAddr;
using Zinc::IpGenAddr;

constexpr uint8_t ns = Vela::Icmp6Hdr::neighborSolicitation;
constexpr uint8_t na = Vela::Icmp6Hdr::neighborAdvertisement;
constexpr uint8_t rs = Vela::Icmp6Hdr::routerSolicitation;

using MessageTrapSmTest = MessageTrapSmFixture;

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

TEST_F(MessageTrapSmTest, whatAMessageAsksForIsAnnouncedInTwoStepsBeforeIt) {
    std::vector<std::string> order;
    auto note = [&](const char* trap) {
        return [&order, trap](const MessageTrap::Expected& expected) {
            bool isFirst = expected.step == MessageTrap::Expected::Step::first;
            order.push_back(trap + (" " + expected.key.toStrep()) + (isFirst ? " 1" : " 2"));
        };
    };
    auto expectedV4 = trapV4->expectedNotifier().react(nullptr, note("v4"));
    auto expectedV6 = trapV6->expectedNotifier().react(nullptr, note("v6"));
    onMessage = [&] { order.push_back("message"); };
    trap(TrapFrame{}.bytes());
    EXPECT_EQ(order, (std::vector<std::string>{"v4 <vlanId=10 ipAddress=10.0.0.2> 1",
                                               "v4 <vlanId=10 ipAddress=10.0.0.2> 2", "message"}));
    order.clear();
    trap(NdFrame{}.bytes());
    EXPECT_EQ(order,
              (std::vector<std::string>{"v6 <vlanId=10 ipAddress=2001:db8::2> 1",
                                        "v6 <vlanId=10 ipAddress=2001:db8::2> 2", "message"}));
    // What is refused leads to no message.
    order.clear();
    trap(first(TrapFrame{}.bytes(), 57));
    EXPECT_TRUE(order.empty());
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

} // namespace

} // namespace ArpSuppression
