// What the kernel does to devices and sockets under the agent.

#include "Platform/Packet/PacketSockets.h"
#include "tests/netns/Kernel.h"
#include "tests/netns/NetnsFixture.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <sys/socket.h>

namespace Netns {

namespace {

using boost::json::array;

/// Frames that the kernel has put into a packet socket's queue, or had no room for, since the last
/// question.
tpacket_stats queuedOn(const MessageTapSocketSm& machine) {
    tpacket_stats stats{};
    socklen_t length = sizeof stats;
    EXPECT_EQ(getsockopt(machine.fileDescriptor()->descriptor(), SOL_PACKET, PACKET_STATISTICS,
                         &stats, &length),
              0);
    return stats;
}

void expectNothingQueued(const MessageTapSocketSm& machine) {
    tpacket_stats stats = queuedOn(machine);
    EXPECT_EQ(stats.tp_packets, 0u);
    EXPECT_EQ(stats.tp_drops, 0u);
    char byte;
    EXPECT_EQ(recv(machine.fileDescriptor()->descriptor(), &byte, 1, MSG_DONTWAIT), -1);
    EXPECT_EQ(errno, EAGAIN);
}

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

class NetnsDeviceTest : public NetnsFixture {
  protected:
    /// Both ways out work, for one request each that came in on the device.
    void expectTraffic(const std::string& in, const std::string& out) {
        port(in).inject(request().bytes());
        EXPECT_EQ(decode(sent("fabric", 1)), array{replyLayers()});
        port(in).inject(unknownRequest().bytes());
        EXPECT_EQ(sent(out, 1).size(), 1u);
        Moved counters{{Id::trapArpRequest, 2},
                       {Id::answeredFromRemoteBinding, 1},
                       {Id::sentToRemoteTeps, 1},
                       {Id::reinjectWritten, 1}};
        EXPECT_EQ(moved(counters), counters);
    }
};

TEST_F(NetnsDeviceTest, aDeviceThatGoesClosesItsSocketsAndOneThatComesOpensNewOnes) {
    start(Hardware::physical);
    expectTraffic("fabric", "fabric");
    EXPECT_EQ(packetRings(), 1u) << "that of the trap";
    uint32_t before = port("fabric").ifIndex();
    int trapSocket = trapSm().fileDescriptor()->descriptor();
    int reinjectSocket = reinjectSm().fileDescriptor()->descriptor();
    // As the tracker does it: first the device goes.
    ifIndexIs("fabric", 0);
    EXPECT_FALSE(trapSm().fileDescriptor());
    EXPECT_FALSE(reinjectSm().fileDescriptor());
    EXPECT_FALSE(isOpen(trapSocket));
    EXPECT_FALSE(isOpen(reinjectSocket));
    EXPECT_EQ(packetRings(), 0u);
    portDel("fabric");
    portIs("fabric");
    ASSERT_NE(port("fabric").ifIndex(), before);
    ifIndexIs("fabric", port("fabric").ifIndex());
    ASSERT_TRUE(trapSm().fileDescriptor());
    ASSERT_TRUE(reinjectSm().fileDescriptor());
    expectTraffic("fabric", "fabric");
    EXPECT_EQ(packetRings(), 1u);
}

TEST_F(NetnsDeviceTest, eachDeviceOfASoftwareSwitchComesBackByItself) {
    start(Hardware::simulated);
    for (std::string name : {"arpsnoop", "fabric", "arpinject"}) {
        SCOPED_TRACE(name);
        expectTraffic("arpsnoop", "arpinject");
        portDel(name);
        portIs(name);
        // The tracker saw the device again before it was told that the old one had gone.
        ifIndexIs(name, port(name).ifIndex());
        // The old socket said that its device went down, if it was asked in time.
        turnUntilIdle();
        expectTraffic("arpsnoop", "arpinject");
    }
}

TEST_F(NetnsDeviceTest, aDeviceThatWasDownWorksAgain) {
    start(Hardware::physical);
    port("fabric").upIs(false);
    ifIndexIs("fabric", 0);
    turnUntilIdle();
    EXPECT_FALSE(trapSm().fileDescriptor());
    port("fabric").upIs(true);
    ifIndexIs("fabric", port("fabric").ifIndex());
    expectTraffic("fabric", "fabric");
}

TEST_F(NetnsDeviceTest, aDeviceThatIsDownWhenItsSocketsOpenWorksOnceItIsUp) {
    start(Hardware::physical);
    port("fabric").upIs(false);
    ifIndexIs("fabric", 0);
    ifIndexIs("fabric", port("fabric").ifIndex());
    turnUntilIdle();
    EXPECT_TRUE(trapSm().fileDescriptor());
    port("fabric").upIs(true);
    expectTraffic("fabric", "fabric");
}

TEST_F(NetnsDeviceTest, framesOutOfADeviceThatIsGoneAreCountedAsFailed) {
    start(Hardware::simulated);
    portDel("fabric");
    portDel("arpinject");
    port("arpsnoop").inject(request().bytes());
    port("arpsnoop").inject(unknownRequest().bytes());
    Moved counters{{Id::trapArpRequest, 2},
                   {Id::answeredFromRemoteBinding, 1},
                   {Id::replyTransmitFailed, 1},
                   {Id::sentToRemoteTeps, 1},
                   {Id::reinjectWriteFailed, 1}};
    EXPECT_EQ(moved(counters), counters);
}

TEST_F(NetnsDeviceTest, aTrapDeviceThatWentDownUnknownToTheAgentIsReadAgain) {
    start(Hardware::physical);
    port("fabric").upIs(false);
    Moved failed{{Id::trapReadFailed, 1}};
    EXPECT_EQ(moved(failed), failed);
    port("fabric").upIs(true);
    port("fabric").inject(request().bytes());
    EXPECT_EQ(decode(sent("fabric", 1)), array{replyLayers()});
}

TEST_F(NetnsDeviceTest, whatATrapDeviceBroughtBeforeItWentDownIsReadAtOnce) {
    start(Hardware::simulated);
    for (int i = 0; i < 3; ++i) {
        port("arpsnoop").inject(request().bytes());
    }
    port("arpsnoop").upIs(false);
    Moved counters{
        {Id::trapReadFailed, 1}, {Id::trapArpRequest, 3}, {Id::answeredFromRemoteBinding, 3}};
    EXPECT_EQ(moved(counters), counters);
    EXPECT_EQ(sent("fabric", 3).size(), 3u);
}

TEST_F(NetnsDeviceTest, aReinjectionDeviceThatWentDownAndUpTakesTheNextMessage) {
    start(Hardware::simulated);
    port("arpinject").upIs(false);
    port("arpinject").upIs(true);
    port("arpsnoop").inject(unknownRequest().bytes());
    Moved counters{{Id::trapArpRequest, 1}, {Id::sentToRemoteTeps, 1}, {Id::reinjectWritten, 1}};
    EXPECT_EQ(moved(counters), counters);
    EXPECT_EQ(sent("arpinject", 1).size(), 1u);
    // One that stays down is a failure.
    port("arpinject").upIs(false);
    port("arpsnoop").inject(unknownRequest().bytes());
    counters = {{Id::trapArpRequest, 1}, {Id::sentToRemoteTeps, 1}, {Id::reinjectWriteFailed, 1}};
    EXPECT_EQ(moved(counters), counters);
}

TEST_F(NetnsDeviceTest, repliesFollowFabricToAnotherIndexAndOverADownTime) {
    start(Hardware::simulated);
    port("arpsnoop").inject(request().bytes());
    EXPECT_EQ(sent("fabric", 1).size(), 1u);
    portDel("fabric");
    port("arpsnoop").inject(request().bytes());
    Moved lost{
        {Id::trapArpRequest, 2}, {Id::answeredFromRemoteBinding, 2}, {Id::replyTransmitFailed, 1}};
    EXPECT_EQ(moved(lost), lost);
    portIs("fabric");
    ifIndexIs("fabric", port("fabric").ifIndex());
    port("arpsnoop").inject(request().bytes());
    EXPECT_EQ(decode(sent("fabric", 1)), array{replyLayers()});
    port("fabric").upIs(false);
    port("arpsnoop").inject(request().bytes());
    Moved down{
        {Id::trapArpRequest, 2}, {Id::answeredFromRemoteBinding, 2}, {Id::replyTransmitFailed, 1}};
    EXPECT_EQ(moved(down), down);
    port("fabric").upIs(true);
    port("arpsnoop").inject(request().bytes());
    EXPECT_EQ(decode(sent("fabric", 1)), array{replyLayers()});
}

TEST_F(NetnsDeviceTest, aBurstIsAnsweredWholeAlsoWhereFabricGoesDownInBetween) {
    start(Hardware::simulated);
    constexpr uint64_t burst = 50;
    for (uint64_t i = 0; i < burst; ++i) {
        port("arpsnoop").inject(request().bytes());
    }
    std::vector<Frame> replies = sent("fabric", burst);
    ASSERT_EQ(replies.size(), burst);
    EXPECT_EQ(std::count(replies.begin(), replies.end(), replies[0]), static_cast<long>(burst));
    Moved answered{{Id::trapArpRequest, burst}, {Id::answeredFromRemoteBinding, burst}};
    EXPECT_EQ(moved(answered), answered);
    port("fabric").upIs(false);
    for (uint64_t i = 0; i < burst; ++i) {
        port("arpsnoop").inject(request().bytes());
    }
    Moved down = answered;
    down[Id::replyTransmitFailed] = burst;
    EXPECT_EQ(moved(down), down);
}

TEST_F(NetnsDeviceTest, withoutFabricAReplyIsCountedAndNotSent) {
    start(Hardware::simulated);
    ifIndexIs("fabric", 0);
    port("arpsnoop").inject(request().bytes());
    Moved counters{
        {Id::trapArpRequest, 1}, {Id::answeredFromRemoteBinding, 1}, {Id::replyFabricNotUsable, 1}};
    EXPECT_EQ(moved(counters), counters);
    EXPECT_EQ(port("fabric").sent(), std::vector<Frame>{});
}

TEST_F(NetnsDeviceTest, nothingIsQueuedOnTheSocketThatIsOnlyWrittenTo) {
    start(Hardware::physical);
    constexpr unsigned frames = 50;
    for (unsigned i = 0; i < frames; ++i) {
        port("fabric").inject(request().bytes());
    }
    sent("fabric", frames);
    EXPECT_EQ(queuedOn(trapSm()).tp_packets, frames); // they did come by
    expectNothingQueued(reinjectSm());
    port("fabric").inject(unknownRequest().bytes());
    sent("fabric", 1);
    expectNothingQueued(reinjectSm());
}

/// The kernel's sockets, with a busy neighbour: a frame of the trap's protocol arrives on a device
/// while a socket is open and not bound yet.
class BusyOpening final : public Vela::PacketSockets {
  public:
    BusyOpening(const Testing::VethPort& port, Frame frame)
        : port_(port), frame_(std::move(frame)) {
        Vela::packetSocketsIs(this);
    }
    ~BusyOpening() override { Vela::packetSocketsIs(nullptr); }

    unsigned opened = 0;

  private:
    Vela::UniqueFd open(uint16_t protocol) override {
        ++opened;
        auto fd = kernel_.open(protocol);
        port_.inject(frame_);
        return fd;
    }
    int bind(int fd, uint16_t protocol, uint32_t ifIndex) override {
        return kernel_.bind(fd, protocol, ifIndex);
    }
    bool send(int fd, uint16_t protocol, uint32_t ifIndex,
              std::span<const uint8_t> frame) override {
        return kernel_.send(fd, protocol, ifIndex, frame);
    }

    Vela::PacketSockets& kernel_ = Vela::packetSockets();
    const Testing::VethPort& port_;
    const Frame frame_;
};

TEST_F(NetnsDeviceTest, whatArrivesElsewhereWhileASocketIsOpenedIsNotTrapped) {
    start(Hardware::physical);
    portIs("stranger");
    ifIndexIs("fabric", 0);
    {
        BusyOpening sockets(port("stranger"), request().bytes());
        ifIndexIs("fabric", port("fabric").ifIndex());
        EXPECT_EQ(sockets.opened, 2u);
    }
    port("fabric").inject(request().bytes());
    EXPECT_EQ(decode(sent("fabric", 1)), array{replyLayers()});
    Moved counters{{Id::trapArpRequest, 1}, {Id::answeredFromRemoteBinding, 1}};
    EXPECT_EQ(moved(counters), counters);
    char byte;
    EXPECT_EQ(recv(reinjectSm().fileDescriptor()->descriptor(), &byte, 1, MSG_DONTWAIT), -1);
    EXPECT_EQ(errno, EAGAIN);
}

} // namespace

} // namespace Netns
