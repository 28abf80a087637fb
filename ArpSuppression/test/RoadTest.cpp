#include "ArpSuppression/test/MessageTrapSmFixture.h"
#include "ArpSuppression/test/RoadFixture.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

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

TEST_F(RoadTest, aProbeAndAnAnnouncementGoOnWhateverIsKnown) {
    startRoad();
    remoteBindingIs("10.0.0.2", "02:00:00:00:00:02");
    neighborIs("10.0.0.2", "02:00:00:00:00:0a");
    fdbIs("02:00:00:00:00:0a", ethernet2, Bridging::EntryType::learnedDynamic);
    runUntilIdle();
    for (const char* senderIp : {"0.0.0.0", "10.0.0.2"}) {
        countersMoved();
        TrapFrame frame;
        frame.senderIp = Zinc::IpGenAddr(senderIp);
        trap(frame);
        EXPECT_EQ(ports.written(arpinject), std::vector<Testing::Frame>{frame.bytes()});
        EXPECT_TRUE(ports.sent(fabric).empty());
        Moved moved = countersMoved();
        EXPECT_EQ(moved[Id::sentToRemoteTeps], 1u);
        EXPECT_EQ(moved[Id::reinjectWritten], 1u);
        EXPECT_FALSE(moved.contains(Id::answeredFromRemoteBinding));
        EXPECT_FALSE(moved.contains(Id::localTargetNotAnswered));
    }
}

TEST_F(RoadTest, aNeighborSolicitationIsOnlyLearntFrom) {
    startRoad();
    remoteBindingIs("2001:db8::2", "02:00:00:00:00:02");
    runUntilIdle();
    countersMoved();
    ports.inject(arpsnoop, NdFrame{}.bytes());
    runUntilIdle();
    EXPECT_TRUE(ports.sent(fabric).empty());
    EXPECT_TRUE(ports.written(arpinject).empty());
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapNeighborSolicitation, 1}, {Id::bindingCreated, 1}}));
    auto vlan10 = vlanL3InfoStatus().vlanL3Info(Bridging::VlanId(10));
    auto binding = root().localBindingRecord()->binding(
        VrfIpAddress::fromVlanL3Info(vlan10, Zinc::IpGenAddr("fe80::1")));
    ASSERT_TRUE(binding);
    EXPECT_EQ(binding->vlanIdMacAddress().macAddress(), Zinc::EthAddr("02:00:00:00:00:99"));
}

TEST_F(RoadTest, aVlanThatEvpnNoLongerServesIsNotSuppressedUntilItIsBack) {
    startRoad();
    auto answers = [this] {
        trap({});
        return ports.sent(fabric).size();
    };
    remoteBindingIs("10.0.0.2", "02:00:00:00:00:02");
    runUntilIdle();
    EXPECT_EQ(answers(), 1u);
    state().remoteBindingConfig->remoteBindingDel(
        {Bridging::VlanId(10), Zinc::IpGenAddr("10.0.0.2")});
    state().evpnStatus->vlanToDot1qDel(Bridging::VlanId(10));
    runUntilIdle();
    countersMoved();
    EXPECT_EQ(answers(), 0u);
    ports.inject(arpsnoop, NdFrame{}.bytes());
    runUntilIdle();
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapVlanNotSuppressed, 2}}));
    EXPECT_TRUE(ports.written(arpinject).empty());
    state().evpnStatus->vlanToDot1qIs(Bridging::VlanId(10), Bridging::VlanIdOrNone());
    remoteBindingIs("10.0.0.2", "02:00:00:00:00:02");
    runUntilIdle();
    EXPECT_EQ(answers(), 1u);
}

TEST_F(RoadTest, withoutTheDefaultVrfEverySocketIsClosedUntilItIsBack) {
    startRoad();
    remoteBindingIs("10.0.0.2", "02:00:00:00:00:02");
    runUntilIdle();
    auto bound = [this] {
        std::map<uint32_t, unsigned> sockets;
        for (const auto& binding : ports.bindings()) {
            ++sockets[binding.ifIndex];
        }
        return sockets;
    };
    EXPECT_EQ(bound()[arpsnoop], 1u);
    EXPECT_EQ(bound()[arpinject], 1u);
    state().vrfIdMap->vrfDel(Vrf::VrfId(0));
    runUntilIdle();
    EXPECT_FALSE(bound().contains(arpsnoop));
    EXPECT_FALSE(bound().contains(arpinject));
    countersMoved();
    trap({});
    EXPECT_EQ(countersMoved(), Moved());
    state().vrfIdMap->vrfIs(Vrf::VrfId(0), "default");
    runUntilIdle();
    EXPECT_EQ(bound()[arpsnoop], 1u);
    EXPECT_EQ(bound()[arpinject], 1u);
    TrapFrame frame;
    trap(frame);
    EXPECT_EQ(ports.sent(fabric).size(), 1u);
    frame.targetIp = Zinc::IpGenAddr("10.0.0.3");
    trap(frame);
    EXPECT_EQ(ports.written(arpinject), std::vector<Testing::Frame>{frame.bytes()});
}

TEST_F(RoadTest, aStopForgetsTheRequestsThatWait) {
    startRoad();
    // The least room that the kernel grants.
    int bytes = 0;
    ASSERT_EQ(setsockopt(rootSm().messageReinjectSm()->fileDescriptor()->descriptor(), SOL_SOCKET,
                         SO_SNDBUF, &bytes, sizeof bytes),
              0);
    constexpr size_t requests = 20;
    for (size_t i = 0; i < requests; ++i) {
        ports.inject(arpsnoop, TrapFrame{}.bytes());
    }
    runUntilIdle();
    EXPECT_EQ(countersMoved()[Id::sentToRemoteTeps], requests);
    ASSERT_GT(root().reinjectMessageQueue()->messages(), 0u);
    size_t written = requests - root().reinjectMessageQueue()->messages() - 1; // one was lost
    stop();
    EXPECT_EQ(ports.written(arpinject).size(), written);
    state().evpnStatus->mplsConfiguredIs(true);
    runUntilIdle();
    EXPECT_EQ(root().reinjectMessageQueue()->messages(), 0u);
    EXPECT_TRUE(ports.written(arpinject).empty());
    trap({});
    EXPECT_EQ(ports.written(arpinject).size(), 1u);
}

} // namespace

} // namespace ArpSuppression
