// From a trapped frame to what comes of it, through the kernel's sockets.

#include "tests/netns/NetnsFixture.h"

#include <boost/json/serialize.hpp>

namespace Netns {

namespace {

using boost::json::array;

class NetnsRoadTest : public NetnsFixture {
  protected:
    struct Encapsulation {
        bool controlWord;
        bool innerTag;
        uint16_t innerVlan = 10;
        uint32_t segmentLabel = 3;
    };

    /// The request for what nobody knows, as the remote end points are to get it.
    static array floodedLayers(const Encapsulation& with) {
        array layers{ether(bridgeMac, senderMac, 0x8100), dot1q(0xfff, 0x8847),
                     mpls(0x12345, false), mpls(with.segmentLabel, true)};
        if (with.controlWord) {
            layers.push_back(controlWord());
        }
        layers.push_back(ether(broadcast, senderMac, with.innerTag ? 0x8100 : 0x0806));
        if (with.innerTag) {
            layers.push_back(dot1q(with.innerVlan, 0x0806));
        }
        layers.push_back(unknownArp());
        return layers;
    }

    /// With each setting of control word and inner tag.
    void expectFlooded(const TrapFrame& frame) {
        start(Hardware::physical);
        std::vector<Frame> all;
        array expected;
        for (bool controlWord : {false, true}) {
            for (bool innerTag : {false, true}) {
                state().evpnMplsConfig->controlWordEnabledIs(controlWord);
                state().evpnMplsConfig->innerDot1qDefaultIs(innerTag);
                port("fabric").inject(frame.bytes());
                auto frames = sent("fabric", 1);
                all.insert(all.end(), frames.begin(), frames.end());
                expected.push_back(floodedLayers({controlWord, innerTag}));
            }
        }
        EXPECT_EQ(decode(all), expected);
        Moved counters{
            {Id::trapArpRequest, 4}, {Id::sentToRemoteTeps, 4}, {Id::reinjectWritten, 4}};
        EXPECT_EQ(moved(counters), counters);
    }
};

TEST_F(NetnsRoadTest, hardwareTrapsOnFabricAndIsAnsweredThere) {
    start(Hardware::physical);
    port("fabric").inject(request().bytes());
    port("fabric").inject(request(10).bytes());
    EXPECT_EQ(decode(sent("fabric", 2)), (array{replyLayers(), replyLayers()}));
    Moved counters{{Id::trapArpRequest, 2}, {Id::answeredFromRemoteBinding, 2}};
    EXPECT_EQ(moved(counters), counters);
}

TEST_F(NetnsRoadTest, hardwareFloodsAnUntaggedRequestUnderLabels) {
    expectFlooded(unknownRequest());
}

TEST_F(NetnsRoadTest, hardwareFloodsATaggedRequestUnderLabelsWithoutItsTag) {
    expectFlooded(unknownRequest(77));
}

TEST_F(NetnsRoadTest, aBundleThatTellsVlansApartHasItsOwnTagInside) {
    start(Hardware::physical);
    state().evpnStatus->vlanToDot1qIs(Bridging::VlanId(10), Bridging::VlanIdOrNone(88));
    port("fabric").inject(unknownRequest().bytes());
    port("fabric").inject(unknownRequest(77).bytes());
    auto expected = floodedLayers({.controlWord = false, .innerTag = true, .innerVlan = 88});
    EXPECT_EQ(decode(sent("fabric", 2)), (array{expected, expected}));
}

TEST_F(NetnsRoadTest, theForwarderOfASegmentPutsTheSegmentsLabelBelow) {
    start(Hardware::physical);
    Zinc::IntfId ethernet1("Ethernet1");
    state().evpnStatus->localEsiLabelIs(ethernet1, Evpn::EsiLabel(0xfffff));
    port("fabric").inject(unknownRequest().bytes());
    auto frames = sent("fabric", 1);
    state().evpnStatus->segmentStatusIs(ethernet1)->dfTepIs(Bridging::VlanId(10),
                                                            Zinc::IntfId("Vxlan1"));
    port("fabric").inject(unknownRequest().bytes());
    auto more = sent("fabric", 1);
    frames.insert(frames.end(), more.begin(), more.end());
    EXPECT_EQ(
        decode(frames),
        (array{floodedLayers({.controlWord = false, .innerTag = false}),
               floodedLayers({.controlWord = false, .innerTag = false, .segmentLabel = 0xfffff})}));
}

TEST_F(NetnsRoadTest, softwareTrapsOnArpsnoopAndIsAnsweredOnFabric) {
    start(Hardware::simulated);
    port("arpsnoop").inject(request().bytes());
    port("arpsnoop").inject(request(10).bytes());
    EXPECT_EQ(decode(sent("fabric", 2)), (array{replyLayers(), replyLayers()}));
    Moved counters{{Id::trapArpRequest, 2}, {Id::answeredFromRemoteBinding, 2}};
    EXPECT_EQ(moved(counters), counters);
    EXPECT_EQ(port("arpsnoop").sent(), std::vector<Frame>{});
    EXPECT_EQ(port("arpinject").sent(), std::vector<Frame>{});
}

TEST_F(NetnsRoadTest, softwareGetsARequestBackOnArpinjectAsItTrappedIt) {
    start(Hardware::simulated);
    TrapFrame longer = unknownRequest(10);
    longer.trailer = std::vector<uint8_t>(1400, 0xa5);
    const std::vector<Frame> trapped{unknownRequest().bytes(), unknownRequest(10).bytes(),
                                     longer.bytes()};
    for (const Frame& frame : trapped) {
        port("arpsnoop").inject(frame);
    }
    auto frames = sent("arpinject", 3);
    EXPECT_EQ(frames, trapped);
    frames.resize(2);
    EXPECT_EQ(decode(frames),
              (array{array{ether(broadcast, senderMac, 0x8135), trap(10, 11, 0x0806), unknownArp()},
                     array{ether(broadcast, senderMac, 0x8135), trap(10, 11, 0x8100),
                           dot1q(10, 0x0806), unknownArp()}}));
    Moved counters{{Id::trapArpRequest, 3},
                   {Id::trapArpExtraData, 1},
                   {Id::sentToRemoteTeps, 3},
                   {Id::reinjectWritten, 3}};
    EXPECT_EQ(moved(counters), counters);
    EXPECT_EQ(port("arpsnoop").sent(), std::vector<Frame>{});
    EXPECT_EQ(port("fabric").sent(), std::vector<Frame>{});
}

TEST_F(NetnsRoadTest, aRequestToOneHostIsTrappedLikeOneToAll) {
    start(Hardware::physical);
    TrapFrame frame = request();
    frame.frameDst = Zinc::EthAddr(remoteMac);
    port("fabric").inject(frame.bytes());
    EXPECT_EQ(decode(sent("fabric", 1)), array{replyLayers()});
}

TEST_F(NetnsRoadTest, otherTrafficOnTheDeviceIsNotSeen) {
    start(Hardware::physical);
    Frame plain = unknownRequest().bytes();
    plain[13] = 0x36; // another ethertype
    for (int i = 0; i < 10; ++i) {
        port("fabric").inject(plain);
    }
    port("fabric").inject(request().bytes());
    EXPECT_EQ(decode(sent("fabric", 1)), array{replyLayers()});
    Moved counters{{Id::trapArpRequest, 1}, {Id::answeredFromRemoteBinding, 1}};
    EXPECT_EQ(moved(counters), counters);
}

TEST_F(NetnsRoadTest, aBurstIsAnsweredInFull) {
    start(Hardware::physical);
    constexpr size_t burst = 100;
    for (size_t i = 0; i < burst; ++i) {
        port("fabric").inject(request().bytes());
    }
    auto frames = sent("fabric", burst);
    EXPECT_EQ(frames, std::vector<Frame>(burst, frames.at(0)));
    Moved counters{{Id::trapArpRequest, burst}, {Id::answeredFromRemoteBinding, burst}};
    EXPECT_EQ(moved(counters), counters);
}

TEST_F(NetnsRoadTest, whatComesWhileTheAgentIsAtOtherWorkIsNotLost) {
    start(Hardware::simulated);
    constexpr size_t burst = 5000; // the kernel's usual buffer holds some 250
    for (size_t i = 0; i < burst; ++i) {
        port("arpsnoop").inject(request().bytes());
    }
    Moved counters{{Id::trapArpRequest, burst}, {Id::answeredFromRemoteBinding, burst}};
    EXPECT_EQ(moved(counters), counters);
}

} // namespace

} // namespace Netns
