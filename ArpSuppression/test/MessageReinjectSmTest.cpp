#include "ArpSuppression/MessageReinjectSm.h"

#include "ArpSuppression/test/TapFixture.h"
#include "Platform/Packet/Pkt.h"
#include "Platform/State/DumpContext.h"
#include "Testing/TraceCapture.h"
#include "Testing/TrapFrame.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

namespace ArpSuppression {

namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Testing::Frame;
using Testing::fromHex;
using Testing::TraceCapture;
using Testing::trapFrame;
using Testing::TrapFrame;
using Zinc::IntfId;

constexpr uint32_t fabric = 100;
constexpr uint32_t arpinject = 102;

/// Takes its time for each message.
class SlowReinjectSm final : public MessageReinjectSmBase {
  public:
    SlowReinjectSm(Vela::Ptr<Vela::TaskScheduler> scheduler,
                   Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus, Vela::Ptr<MessageQueue> queue,
                   Vela::Ptr<ArpSuppressionCounterStatus> counters, Testing::SimulatedClock& clock)
        : MessageReinjectSmBase(std::move(scheduler), std::move(vlanL3InfoStatus), std::move(queue),
                                std::move(counters), "SlowReinjectSm", "arpinject"),
          clock_(clock) {}
    const char* typeName() const noexcept override { return "SlowReinjectSm"; }

  private:
    int32_t processMessage(const TrappedMessage& message) override {
        clock_.advance(std::chrono::milliseconds(2));
        return writeFrame(message.pkt()->bytes());
    }

    Testing::SimulatedClock& clock_;
};

class MessageReinjectSmTest : public TapFixture {
  protected:
    ~MessageReinjectSmTest() override {
        sm.reset();
        evpnStatus->destroy();
    }

    void makeMimic() {
        sm =
            Vela::make<MessageReinjectSmMimic>(scheduler(), vlanL3InfoStatus, queue, counterStatus);
        runUntilIdle();
    }
    void makePhysical() {
        bridgingConfig->bridgeMacAddrIs(Zinc::EthAddr("02:00:00:00:0b:0b"));
        sm = Vela::make<MessageReinjectSmPhysical>(
            scheduler(), vlanL3InfoStatus, queue, counterStatus,
            Vela::Ptr<const Evpn::EvpnStatus>(evpnStatus),
            Vela::Ptr<const Evpn::MplsConfig>(evpnMplsConfig),
            Vela::Ptr<const Bridging::Config>(bridgingConfig));
        runUntilIdle();
    }

    static Vela::Ptr<const TrappedMessage> message(const Frame& frame, unsigned vlan = 10,
                                                   IntfId srcIntfId = IntfId("Ethernet1")) {
        return trappedMessageFactory(
            VlanId(vlan), MessageType::request, srcIntfId, false, Zinc::IpGenAddr("10.0.0.1"),
            Zinc::EthAddr("02:00:00:00:00:01"), Zinc::IpGenAddr("10.0.0.2"),
            Vela::Ptr<const Vela::Pkt>(Vela::pktManager().newPkt(frame)));
    }
    /// The request with that number in its sender's address.
    static Frame request(unsigned number) {
        TrapFrame frame;
        frame.senderIp = Zinc::IpGenAddr((10u << 24) + number);
        return frame.bytes();
    }
    static std::vector<Frame> requests(unsigned from, unsigned to) {
        std::vector<Frame> frames;
        for (unsigned number = from; number <= to; ++number) {
            frames.push_back(request(number));
        }
        return frames;
    }
    void enqueue(unsigned from, unsigned to) {
        for (const Frame& frame : requests(from, to)) {
            queue->enqueueMessage(message(frame));
        }
    }
    int sock() const { return sm->fileDescriptor()->descriptor(); }
    /// The least room that the kernel grants: a frame of 9000 bytes does not fit.
    void sendBufferIsSmall() const {
        int bytes = 0;
        ASSERT_EQ(setsockopt(sock(), SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes), 0);
    }
    static Frame tooLong() { return trapFrame(10, 11, 0x0806, Frame(9000)); }
    /// Writes requests until the socket takes no more, and returns how many it took; the one after
    /// those is lost, and those up to number 200 wait.
    unsigned fillSocket() {
        sendBufferIsSmall();
        queue->queueLimitCurrentIs(500);
        enqueue(1, 200);
        runUntilIdle();
        auto taken = static_cast<unsigned>(countersMoved()[Id::reinjectWritten]);
        EXPECT_GT(taken, 0u);
        EXPECT_LT(taken, 199u);
        EXPECT_FALSE(sm->fileDescriptor()->writable());
        EXPECT_EQ(queue->messages(), 199 - taken);
        queue->queueLimitCurrentIs(500);
        return taken;
    }

    const Vela::Ptr<Evpn::EvpnStatus> evpnStatus = Vela::make<Evpn::EvpnStatus>();
    const Vela::Ptr<Evpn::MplsConfig> evpnMplsConfig = Vela::make<Evpn::MplsConfig>();
    const Vela::Ptr<Bridging::Config> bridgingConfig = Vela::make<Bridging::Config>();
    Vela::Owned<MessageReinjectSmBase> sm;
};

using MessageReinjectSmDeathTest = MessageReinjectSmTest;

// The walk

TEST_F(MessageReinjectSmTest, withoutASocketTheQueueIsEmptied) {
    makeMimic();
    TraceCapture lines("ArpSuppression=8");
    enqueue(1, 5);
    EXPECT_EQ(queue->messages(), 5u);
    runUntilIdle();
    EXPECT_EQ(queue->messages(), 0u);
    EXPECT_EQ(queue->queueLimitCurrent(), 500u);
    EXPECT_EQ(countersMoved(), Moved());
    EXPECT_EQ(ports.opened(), 0u);
    EXPECT_TRUE(lines.contains("traceEvent=started\n"));
    EXPECT_FALSE(lines.contains("traceEvent=refused"));
}

TEST_F(MessageReinjectSmTest, whatWaitedBeforeTheMachineCameIsNotForgotten) {
    enqueue(1, 2);
    makeMimic();
    EXPECT_EQ(queue->messages(), 0u);
    sm.reset();
    enqueue(3, 4);
    deviceIs("arpinject", arpinject);
    makeMimic();
    EXPECT_EQ(ports.written(arpinject), requests(3, 4));
    EXPECT_EQ(countersMoved(), (Moved{{Id::reinjectWritten, 2}}));
}

TEST_F(MessageReinjectSmTest, aMessageLeavesAtOnceWhileTheSocketStaysWritable) {
    deviceIs("arpinject", arpinject);
    makeMimic();
    for (unsigned number = 1; number <= 3; ++number) {
        enqueue(number, number);
        runUntilIdle();
        EXPECT_EQ(ports.written(arpinject), requests(number, number));
        runUntilIdle();
    }
    EXPECT_EQ(countersMoved(), (Moved{{Id::reinjectWritten, 3}}));
}

TEST_F(MessageReinjectSmTest, messagesLeaveInTheirOrder) {
    deviceIs("arpinject", arpinject);
    makeMimic();
    enqueue(1, 20);
    runUntilIdle();
    EXPECT_EQ(ports.written(arpinject), requests(1, 20));
    EXPECT_EQ(queue->messages(), 0u);
    EXPECT_EQ(countersMoved(), (Moved{{Id::reinjectWritten, 20}}));
}

TEST_F(MessageReinjectSmTest, anEmptyQueueOnAWritableSocketCostsNoSlices) {
    deviceIs("arpinject", arpinject);
    makeMimic();
    uint64_t before = scheduler()->slices();
    EXPECT_EQ(runUntilIdle(), 0u);
    runFor(1000);
    EXPECT_EQ(scheduler()->slices(), before);
    EXPECT_FALSE(sm->walkScheduled());
    EXPECT_TRUE(sm->fileDescriptor()->writable());
}

TEST_F(MessageReinjectSmTest, theWalkYieldsBetweenMessagesWhenItsTimeIsUp) {
    deviceIs("arpinject", arpinject);
    sm = Vela::make<SlowReinjectSm>(scheduler(), vlanL3InfoStatus, queue, counterStatus, clock());
    runUntilIdle();
    TraceCapture lines("ArpSuppression=8");
    enqueue(1, 3);
    runUntilIdle();
    EXPECT_TRUE(lines.contains(" initialMessages=3 messages=2 processed=1\n")) << lines.text();
    EXPECT_TRUE(lines.contains(" initialMessages=2 messages=1 processed=1\n"));
    EXPECT_TRUE(lines.contains(" initialMessages=1 messages=0 processed=1\n"));
    EXPECT_EQ(lines.count("traceEvent=yielded\n"), 2u);
    EXPECT_EQ(queue->queueLimitCurrent(), 50u);
    EXPECT_EQ(ports.written(arpinject), requests(1, 3));
    EXPECT_EQ(countersMoved(), (Moved{{Id::reinjectWritten, 3}}));
}

TEST_F(MessageReinjectSmTest, aMessageThatComesDuringAWalkLeavesWithIt) {
    deviceIs("arpinject", arpinject);
    sm = Vela::make<SlowReinjectSm>(scheduler(), vlanL3InfoStatus, queue, counterStatus, clock());
    runUntilIdle();
    enqueue(1, 2);
    TraceCapture lines("ArpSuppression=8");
    while (!lines.contains("traceEvent=yielded\n")) {
        ASSERT_TRUE(turn());
    }
    enqueue(3, 3);
    runUntilIdle();
    EXPECT_EQ(ports.written(arpinject), requests(1, 3));
    EXPECT_FALSE(lines.contains("traceEvent=aborted")) << lines.text();
    EXPECT_EQ(lines.count("traceEvent=finished\n"), 1u);
}

TEST_F(MessageReinjectSmTest, aDeviceThatGoesBetweenSlicesTakesTheRestAlong) {
    deviceIs("arpinject", arpinject);
    sm = Vela::make<SlowReinjectSm>(scheduler(), vlanL3InfoStatus, queue, counterStatus, clock());
    runUntilIdle();
    enqueue(1, 3);
    while (queue->messages() == 3) {
        ASSERT_TRUE(turn());
    }
    ASSERT_EQ(queue->messages(), 2u);
    deviceIs("arpinject", 0);
    runUntilIdle();
    EXPECT_EQ(queue->messages(), 0u);
    EXPECT_EQ(ports.written(arpinject), requests(1, 1));
    EXPECT_EQ(countersMoved(), (Moved{{Id::reinjectWritten, 1}}));
    EXPECT_FALSE(sm->walkScheduled());
}

TEST_F(MessageReinjectSmTest, aWalkWithTimeLeftDoesNotYield) {
    deviceIs("arpinject", arpinject);
    makeMimic();
    TraceCapture lines("ArpSuppression=8");
    enqueue(1, 3);
    runUntilIdle();
    EXPECT_EQ(lines.count("traceEvent=yielded\n"), alwaysYield() ? 2u : 0u);
    EXPECT_EQ(lines.count(" initialMessages="), alwaysYield() ? 3u : 0u);
}

TEST_F(MessageReinjectSmTest, theQueueLimitFollowsTheSlices) {
    deviceIs("arpinject", arpinject);
    makeMimic();
    EXPECT_EQ(queue->queueLimitCurrent(), 50u); // the slice that found nothing
    queue->queueLimitCurrentIs(500);
    enqueue(1, 100);
    runUntilIdle();
    EXPECT_EQ(ports.written(arpinject).size(), 100u);
    EXPECT_EQ(queue->queueLimitCurrent(), alwaysYield() ? 50u : 200u);
    queue->queueLimitCurrentIs(500);
    enqueue(1, 24);
    runUntilIdle();
    EXPECT_EQ(queue->queueLimitCurrent(), 50u);
}

TEST_F(MessageReinjectSmTest, aMessageThatCannotBeWrittenIsDroppedAndTheNextLeaves) {
    deviceIs("arpinject", arpinject);
    makeMimic();
    sendBufferIsSmall();
    enqueue(1, 1);
    queue->enqueueMessage(message(tooLong()));
    enqueue(2, 3);
    TraceCapture lines("ArpSuppression=8");
    runUntilIdle();
    EXPECT_EQ(ports.written(arpinject), requests(1, 3));
    EXPECT_EQ(queue->messages(), 0u);
    EXPECT_EQ(countersMoved(), (Moved{{Id::reinjectWriteFailed, 1}, {Id::reinjectWritten, 3}}));
    EXPECT_EQ(lines.count("write failed errno=Message too long\n"), 1u) << lines.text();
    // The failure ended a walk.
    EXPECT_EQ(lines.count("traceEvent=finished\n"), 2u);
}

TEST_F(MessageReinjectSmTest, aFailureCountsTheMessagesBeforeIt) {
    deviceIs("arpinject", arpinject);
    makeMimic();
    sendBufferIsSmall();
    queue->enqueueMessage(message(tooLong()));
    TraceCapture lines("ArpSuppression=8");
    runUntilIdle();
    EXPECT_TRUE(lines.contains(" messagesProcessed=0 newLimit=50\n")) << lines.text();
    EXPECT_EQ(countersMoved(), (Moved{{Id::reinjectWriteFailed, 1}}));
    EXPECT_FALSE(lines.contains(" initialMessages="));
}

TEST_F(MessageReinjectSmTest, failureAfterFailureEmptiesTheQueueAndEnds) {
    deviceIs("arpinject", arpinject);
    makeMimic();
    sendBufferIsSmall();
    for (int i = 0; i < 3; ++i) {
        queue->enqueueMessage(message(tooLong()));
    }
    runUntilIdle(100);
    EXPECT_EQ(queue->messages(), 0u);
    EXPECT_EQ(countersMoved(), (Moved{{Id::reinjectWriteFailed, 3}}));
    EXPECT_TRUE(ports.written(arpinject).empty());
    EXPECT_TRUE(sm->fileDescriptor());
}

TEST_F(MessageReinjectSmTest, afterAFullSocketTheRestWaitsUntilItIsWritable) {
    deviceIs("arpinject", arpinject);
    makeMimic();
    sendBufferIsSmall();
    queue->queueLimitCurrentIs(500);
    enqueue(1, 200);
    TraceCapture lines("ArpSuppression=8");
    runUntilIdle();
    Moved moved = countersMoved();
    EXPECT_EQ(moved[Id::reinjectWriteFailed], 1u);
    auto left = static_cast<unsigned>(moved[Id::reinjectWritten]);
    ASSERT_GT(left, 0u);
    ASSERT_LT(left, 199u);
    EXPECT_EQ(moved.size(), 2u);
    EXPECT_EQ(queue->messages(), 199 - left);
    EXPECT_FALSE(sm->fileDescriptor()->writable());
    EXPECT_FALSE(sm->walkScheduled());
    EXPECT_TRUE(lines.contains("write failed errno=Resource temporarily unavailable\n"));
    EXPECT_EQ(runUntilIdle(), 0u);

    EXPECT_EQ(ports.written(arpinject), requests(1, left));
    runUntilIdle();
    auto next = ports.written(arpinject);
    ASSERT_FALSE(next.empty());
    EXPECT_EQ(next[0], request(left + 2)); // one was dropped
}

TEST_F(MessageReinjectSmTest, whatComesWhileTheSocketIsFullWaitsToo) {
    deviceIs("arpinject", arpinject);
    makeMimic();
    unsigned taken = fillSocket();
    TraceCapture lines("ArpSuppression=8");
    enqueue(201, 203);
    EXPECT_EQ(runUntilIdle(), 0u);
    EXPECT_EQ(queue->messages(), 202 - taken);
    EXPECT_EQ(countersMoved(), Moved());
    EXPECT_FALSE(lines.contains("write failed")) << lines.text();

    EXPECT_EQ(ports.written(arpinject), requests(1, taken));
    runUntilIdle();
    auto next = ports.written(arpinject);
    ASSERT_FALSE(next.empty());
    EXPECT_EQ(next[0], request(taken + 2));
}

TEST_F(MessageReinjectSmTest, whatWaitsForASocketThatClosesIsDropped) {
    deviceIs("arpinject", arpinject);
    makeMimic();
    fillSocket();
    deviceIs("arpinject", 0);
    runUntilIdle();
    EXPECT_EQ(queue->messages(), 0u);
    deviceIs("arpinject", 202);
    runUntilIdle();
    EXPECT_TRUE(ports.written(202).empty());
    EXPECT_EQ(countersMoved(), Moved());
    EXPECT_FALSE(sm->walkScheduled());
}

TEST_F(MessageReinjectSmTest, whatWaitsLeavesThroughADeviceThatTakesThePlaceAtOnce) {
    deviceIs("arpinject", arpinject);
    makeMimic();
    unsigned taken = fillSocket();
    deviceIs("arpinject", 202);
    runUntilIdle();
    auto next = ports.written(202);
    ASSERT_FALSE(next.empty());
    EXPECT_EQ(next[0], request(taken + 2));
}

TEST_F(MessageReinjectSmTest, aDeviceThatIsGoneDropsWhatComesUntilItIsBack) {
    deviceIs("arpinject", arpinject);
    makeMimic();
    deviceIs("arpinject", 0);
    enqueue(1, 2);
    runUntilIdle();
    EXPECT_EQ(queue->messages(), 0u);
    EXPECT_EQ(countersMoved(), Moved());
    deviceIs("arpinject", 202);
    runUntilIdle();
    enqueue(3, 3);
    runUntilIdle();
    EXPECT_TRUE(ports.written(arpinject).empty());
    EXPECT_EQ(ports.written(202), requests(3, 3));
    EXPECT_EQ(countersMoved(), (Moved{{Id::reinjectWritten, 1}}));
}

TEST_F(MessageReinjectSmTest, withTheMachineGoneTheQueueKeepsWhatComes) {
    deviceIs("arpinject", arpinject);
    makeMimic();
    sm.reset();
    EXPECT_TRUE(ports.bindings().empty());
    enqueue(1, 2);
    EXPECT_EQ(runUntilIdle(), 0u);
    EXPECT_EQ(queue->messages(), 2u);
}

// With forwarding in software

TEST_F(MessageReinjectSmTest, theTrappedFrameIsWrittenUnchanged) {
    deviceIs("arpinject", arpinject);
    makeMimic();
    auto bindings = ports.bindings();
    ASSERT_EQ(bindings.size(), 1u);
    EXPECT_EQ(bindings[0].ifIndex, arpinject);
    EXPECT_EQ(bindings[0].protocol, 0x8135);
    TrapFrame tagged;
    tagged.dot1q = 7;
    tagged.trailer = Frame(18, 0x5a);
    std::vector<Frame> frames = {TrapFrame{}.bytes(), tagged.bytes(),
                                 trapFrame(10, 11, 0x86DD, Frame(72, 0x11)),
                                 trapFrame(10, 11, 0x0806, Frame(9970, 0x22))};
    for (const Frame& frame : frames) {
        queue->enqueueMessage(message(frame));
    }
    runUntilIdle();
    EXPECT_EQ(ports.written(arpinject), frames);
    EXPECT_EQ(countersMoved(), (Moved{{Id::reinjectWritten, 4}}));
}

TEST_F(MessageReinjectSmTest, theDumpShowsDeviceProtocolSocketAndQueue) {
    makeMimic();
    Vela::DumpContext context;
    sm->dumpState(context, 2);
    EXPECT_EQ(context.text(), "  MessageReinjectSmMimic\n"
                              "    interfaceName: arpinject\n"
                              "    protocol: 1\n"
                              "    interfaceWatch <vrfName=default intfName=arpinject usable=no>\n"
                              "    fileDescriptor NULL socket -1\n"
                              "    MessageQueue #messages=0\n");
}

// On a switching chip

class MessageReinjectSmPhysicalTest : public MessageReinjectSmTest {
  protected:
    MessageReinjectSmPhysicalTest() {
        deviceIs("fabric", fabric);
        evpnStatus->imetLabelIs(VlanId(10), Evpn::ImetLabel(0x12345, Evpn::EncapType::mpls));
        makePhysical();
    }

    /// What comes of one message; empty if nothing was written.
    Frame written(const Frame& trapped, unsigned vlan = 10,
                  IntfId srcIntfId = IntfId("Ethernet1")) {
        queue->enqueueMessage(message(trapped, vlan, srcIntfId));
        runUntilIdle();
        auto frames = ports.written(fabric);
        EXPECT_LE(frames.size(), 1u);
        return frames.empty() ? Frame() : frames[0];
    }
    /// The label of the source's segment in a frame that was written.
    static uint32_t segmentLabel(const Frame& frame) {
        return frame.size() < 26 ? 0
                                 : uint32_t{frame[22]} << 12 | uint32_t{frame[23]} << 4 |
                                       uint32_t{frame[24]} >> 4;
    }
};

using MessageReinjectSmPhysicalDeathTest = MessageReinjectSmPhysicalTest;

TEST_F(MessageReinjectSmPhysicalTest, writesToFabric) {
    EXPECT_EQ(sm->interfaceName(), "fabric");
    EXPECT_STREQ(sm->typeName(), "MessageReinjectSmPhysical");
    ASSERT_EQ(ports.bindings().size(), 1u);
    EXPECT_EQ(ports.bindings()[0].ifIndex, fabric);
}

TEST_F(MessageReinjectSmPhysicalTest, theFrameHasWhatItsEncapsulationAsksFor) {
    const std::string arp = "0001 0800 06 04 0001 020000000001 0a000001 000000000000 0a000002";
    const std::string solicitation = "60000000 0020 3a ff fe800000000000000000000000000001"
                                     "ff0200000000000000000001ff000002 8700 1234 00000000"
                                     "20010db8000000000000000000000002 0101 020000000001";
    auto segment = evpnStatus->segmentStatusIs(IntfId("Ethernet1"));
    segment->dfTepIs(VlanId(10), IntfId("Tep1"));
    for (unsigned choice = 0; choice < 64; ++choice) {
        bool innerDot1qDefault = choice & 1;
        bool vlanAware = choice & 2;
        bool controlWord = choice & 4;
        bool tagged = choice & 8;
        bool ip6 = choice & 16;
        bool esi = choice & 32;
        evpnMplsConfig->innerDot1qDefaultIs(innerDot1qDefault);
        evpnMplsConfig->controlWordEnabledIs(controlWord);
        evpnStatus->vlanToDot1qIs(VlanId(10), VlanIdOrNone(vlanAware ? 0x123u : 0u));
        if (esi) {
            evpnStatus->localEsiLabelIs(IntfId("Ethernet1"), Evpn::EsiLabel(0xfedcb));
        } else {
            evpnStatus->localEsiLabelDel(IntfId("Ethernet1"));
        }

        const std::string etherType = ip6 ? "86dd" : "0806";
        const std::string payload = ip6 ? solicitation : arp;
        // Priority and VLAN of the trapped frame's own tag appear nowhere.
        Frame trapped = fromHex("333300000002 020000000001 8135 0000 0000000a 0000000b 00000000" +
                                std::string(tagged ? "8100 e04d" : "") + etherType + payload);
        std::string inner = vlanAware ? "8100 0123" : innerDot1qDefault ? "8100 000a" : "";
        Frame expected =
            fromHex("020000000b0b 020000000001 8100 0fff 8847 12345 0ff" +
                    std::string(esi ? "fedcb 1ff" : "00003 1ff") + (controlWord ? "00000000" : "") +
                    "333300000002 020000000001" + inner + etherType + payload);

        TraceCapture lines("ArpSuppression=8");
        EXPECT_EQ(hex(written(trapped)), hex(expected)) << choice;
        EXPECT_EQ(countersMoved(), (Moved{{Id::reinjectWritten, 1}}));
        auto yesNo = [](bool flag) { return flag ? "yes" : "no"; };
        std::string line = std::string(" localImetLabel=74565 localEsiMplsLabel=") +
                           (esi ? "1043915" : "3") +
                           " vlanAwareVlanId=" + (vlanAware ? "291" : "0") +
                           " addInnerDot1Q=" + yesNo(vlanAware || innerDot1qDefault) +
                           " origDot1QPresent=" + yesNo(tagged) +
                           " controlWordEnabled=" + yesNo(controlWord) + "\n";
        EXPECT_TRUE(lines.contains(message(trapped)->toStrep() + line)) << lines.text();
    }
}

TEST_F(MessageReinjectSmPhysicalTest, aVlanThatTheMapDoesNotNameGetsTheDefault) {
    evpnStatus->vlanToDot1qIs(VlanId(11), VlanIdOrNone(5));
    EXPECT_EQ(written(request(1)).size(), 26 + 14 + 28u);
    evpnMplsConfig->innerDot1qDefaultIs(true);
    Frame frame = written(request(1));
    ASSERT_EQ(frame.size(), 26 + 18 + 28u);
    EXPECT_EQ(Frame(frame.begin() + 38, frame.begin() + 44), fromHex("8100 000a 0806"));
}

TEST_F(MessageReinjectSmPhysicalTest, theOutermostVlansFitTheInnerTag) {
    for (auto [vlan, dot1q, tag] :
         {std::tuple(1u, 4094u, "8100 0ffe 0806"), std::tuple(4094u, 0u, "8100 0ffe 0806"),
          std::tuple(4094u, 1u, "8100 0001 0806")}) {
        evpnMplsConfig->innerDot1qDefaultIs(true);
        evpnStatus->imetLabelIs(VlanId(vlan), Evpn::ImetLabel(16, Evpn::EncapType::mpls));
        evpnStatus->vlanToDot1qIs(VlanId(vlan), VlanIdOrNone(dot1q));
        Frame frame = written(request(1), vlan);
        ASSERT_GT(frame.size(), 44u);
        EXPECT_EQ(Frame(frame.begin() + 38, frame.begin() + 44), fromHex(tag));
    }
    EXPECT_THROW(VlanIdOrNone(4095), Vela::RangeError);
}

TEST_F(MessageReinjectSmPhysicalTest, trailingBytesAndTheLongestFrameAreCarriedAlong) {
    evpnMplsConfig->innerDot1qDefaultIs(true);
    evpnMplsConfig->controlWordEnabledIs(true);
    Frame longest = trapFrame(10, 11, 0x0806, Frame(9970, 0x33));
    ASSERT_EQ(longest.size(), 10'000u);
    Frame frame = written(longest);
    ASSERT_EQ(frame.size(), 30 + 18 + 9970u);
    EXPECT_EQ(Frame(frame.begin() + 48, frame.end()), Frame(9970, 0x33));
    EXPECT_EQ(countersMoved(), (Moved{{Id::reinjectWritten, 1}}));
}

TEST_F(MessageReinjectSmPhysicalTest, aShortFrameAfterALongOneHasNothingOfIt) {
    written(trapFrame(10, 11, 0x0806, Frame(500, 0xff)));
    evpnMplsConfig->controlWordEnabledIs(true);
    Frame frame = written(request(1));
    ASSERT_EQ(frame.size(), 30 + 14 + 28u);
    EXPECT_EQ(Frame(frame.begin() + 26, frame.begin() + 30), Frame(4));
}

TEST_F(MessageReinjectSmPhysicalTest, theSegmentLabelNeedsAllThatBelongsToIt) {
    const IntfId ethernet1("Ethernet1");
    const IntfId tep("Tep1");
    constexpr uint32_t none = 3;
    EXPECT_EQ(segmentLabel(written(request(1))), none);

    evpnStatus->localEsiLabelIs(ethernet1, Evpn::EsiLabel(500));
    EXPECT_EQ(segmentLabel(written(request(1))), none); // the interface has no segment

    auto segment = evpnStatus->segmentStatusIs(ethernet1);
    EXPECT_EQ(segmentLabel(written(request(1))), none); // nobody forwards
    segment->dfTepIs(VlanId(11), tep);
    EXPECT_EQ(segmentLabel(written(request(1))), none); // only for another VLAN
    segment->dfTepIs(VlanId(10), IntfId());
    EXPECT_EQ(segmentLabel(written(request(1))), none); // the empty tunnel end point
    segment->dfTepIs(VlanId(10), tep);
    EXPECT_EQ(segmentLabel(written(request(1))), 500u);

    EXPECT_EQ(segmentLabel(written(request(1), 10, IntfId())), none);
    EXPECT_EQ(segmentLabel(written(request(1), 10, IntfId("Ethernet2"))), none);

    evpnStatus->localEsiLabelDel(ethernet1);
    EXPECT_EQ(segmentLabel(written(request(1))), none); // the segment has no label
    evpnStatus->localEsiLabelIs(ethernet1, Evpn::EsiLabel(500));
    evpnStatus->segmentStatusDel(ethernet1);
    EXPECT_EQ(segmentLabel(written(request(1))), none);
}

TEST_F(MessageReinjectSmPhysicalTest, aVlanWithoutAnMplsLabelIsCountedAndTheWalkGoesOn) {
    evpnStatus->imetLabelIs(VlanId(11), Evpn::ImetLabel(77, Evpn::EncapType::vxlan));
    evpnStatus->imetLabelIs(VlanId(12), Evpn::ImetLabel(77, Evpn::EncapType::none));
    TraceCapture lines("ArpSuppression=8");
    for (unsigned vlan : {11u, 12u, 13u, 10u}) {
        queue->enqueueMessage(message(request(vlan), vlan));
    }
    runUntilIdle();
    EXPECT_EQ(queue->messages(), 0u);
    EXPECT_EQ(ports.written(fabric).size(), 1u);
    // What is not negative counts as reinjected.
    EXPECT_EQ(countersMoved(), (Moved{{Id::reinjectNoImetLabel, 3}, {Id::reinjectWritten, 4}}));
    EXPECT_FALSE(lines.contains("write failed"));
    EXPECT_EQ(lines.count("traceEvent=finished\n"), 1u);
    for (unsigned vlan : {11u, 12u, 13u}) {
        EXPECT_TRUE(lines.contains(
            "no IMET label message=" + message(request(vlan), vlan)->toStrep() + "\n"))
            << lines.text();
    }
}

TEST_F(MessageReinjectSmPhysicalTest, theLabelIsTheOneAtTheTimeOfTheWrite) {
    unsigned taken = fillSocket();
    evpnStatus->imetLabelDel(VlanId(10)); // while they wait
    EXPECT_EQ(ports.written(fabric).size(), taken);
    runUntilIdle();
    EXPECT_TRUE(ports.written(fabric).empty());
    EXPECT_EQ(queue->messages(), 0u);
    EXPECT_EQ(countersMoved(),
              (Moved{{Id::reinjectNoImetLabel, 199 - taken}, {Id::reinjectWritten, 199 - taken}}));
}

TEST_F(MessageReinjectSmPhysicalTest, aFrameThatDoesNotFitTheSocketIsAFailedWrite) {
    sendBufferIsSmall();
    EXPECT_TRUE(written(tooLong()).empty());
    EXPECT_EQ(countersMoved(), (Moved{{Id::reinjectWriteFailed, 1}}));
}

TEST_F(MessageReinjectSmPhysicalDeathTest, anythingButArpAndIp6IsAProgrammingError) {
    const char* text = "packetType == 0x0806 \\|\\| packetType == 0x86DD";
    EXPECT_DEATH(written(trapFrame(10, 11, 0x0800, Frame(28))), text);
    EXPECT_DEATH(written(trapFrame(10, 11, 0x8100, fromHex("0007 0800 00000000"))), text);
}

} // namespace

} // namespace ArpSuppression
