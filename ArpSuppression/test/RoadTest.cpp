#include "ArpSuppression/test/RoadFixture.h"

#include <gtest/gtest.h>

namespace ArpSuppression {

namespace {

using Testing::fromHex;
using Testing::TrapFrame;

class RoadTest : public RoadFixture {
  protected:
    /// A request that nobody here has sent before, from trap device to whatever comes of it.
    void trap(const TrapFrame& frame) {
        ports.inject(arpsnoop, frame.bytes());
        runUntilIdle();
    }
};

TEST_F(RoadTest, aRequestForARemoteHostIsAnsweredOnFabric) {
    startRoad();
    remoteBindingIs("10.0.0.2", "02:00:00:00:00:02");
    trap({});
    auto sent = ports.sent(fabric);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0], fromHex("020000000001 020000000002 8100 000a 0806"
                               "0001 0800 06 04 0002"
                               "020000000002 0a000002 020000000001 0a000001"));
    EXPECT_EQ(ports.written(arpinject).size(), 0u);
    EXPECT_EQ(countersMoved(), (Moved{{Id::inputPermanentAdded, 1},
                                      {Id::trapArpRequest, 1},
                                      {Id::answeredFromRemoteBinding, 1},
                                      {Id::bindingCreated, 1}}));
}

TEST_F(RoadTest, aRequestThatNobodyCanAnswerIsGivenBackAsItCame) {
    startRoad();
    TrapFrame frame;
    trap(frame);
    EXPECT_EQ(ports.sent(fabric).size(), 0u);
    EXPECT_EQ(ports.written(arpinject), std::vector<Testing::Frame>{frame.bytes()});
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapArpRequest, 1},
                                      {Id::sentToRemoteTeps, 1},
                                      {Id::bindingCreated, 1},
                                      {Id::reinjectWritten, 1}}));
}

TEST_F(RoadTest, onHardwareItGoesOutUnderTheLabelsOfItsVlan) {
    state().evpnStatus->imetLabelIs(Bridging::VlanId(10),
                                    Evpn::ImetLabel(0x12345, Evpn::EncapType::mpls));
    startRoad(true);
    ports.inject(fabric, TrapFrame{}.bytes());
    runUntilIdle();
    EXPECT_EQ(ports.sent(fabric).size(), 0u);
    auto written = ports.written(fabric);
    ASSERT_EQ(written.size(), 1u);
    EXPECT_EQ(written[0], fromHex("020000000b0b 020000000001 8100 0fff 8847"
                                  "12345 0ff 00003 1ff"
                                  "ffffffffffff 020000000001 0806"
                                  "0001 0800 06 04 0001"
                                  "020000000001 0a000001 000000000000 0a000002"));
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapArpRequest, 1},
                                      {Id::sentToRemoteTeps, 1},
                                      {Id::bindingCreated, 1},
                                      {Id::reinjectWritten, 1}}));
}

TEST_F(RoadTest, whatWaitsToGoOutEndsWithAStop) {
    startRoad();
    const TrapFrame frame;
    auto waiting =
        trappedMessageFactory(Bridging::VlanId(10), MessageType::request, ethernet1, false,
                              frame.senderIp, frame.senderMac, frame.targetIp,
                              Vela::Ptr<const Vela::Pkt>(Vela::pktManager().newPkt(frame.bytes())));
    root().receivedRequestTrapV4()->lastTrappedMessageIs(waiting);
    ASSERT_EQ(root().reinjectMessageQueue()->messageFront(), waiting);
    root().reinjectMessageQueue()->queueLimitCurrentIs(60);
    // Before anybody has a turn.
    state().evpnStatus->mplsConfiguredIs(false);
    state().evpnStatus->mplsConfiguredIs(true);
    EXPECT_EQ(root().reinjectMessageQueue()->messages(), 0u);
    EXPECT_EQ(root().reinjectMessageQueue()->queueLimitCurrent(), 500u);
    EXPECT_FALSE(root().receivedRequestTrapV4()->lastTrappedMessage());
    runUntilIdle();
    EXPECT_EQ(ports.written(arpinject).size(), 0u);
    EXPECT_EQ(root().localRequestRecord()->entries(), 0u);
    countersMoved();
    trap(frame); // and the next one goes its way
    EXPECT_EQ(ports.written(arpinject), std::vector<Testing::Frame>{frame.bytes()});
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapArpRequest, 1},
                                      {Id::sentToRemoteTeps, 1},
                                      {Id::bindingCreated, 1},
                                      {Id::reinjectWritten, 1}}));
}

} // namespace

} // namespace ArpSuppression
