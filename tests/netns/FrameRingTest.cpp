// The frames of a real packet socket, out of the memory that the kernel shares with it.

#include "Platform/Packet/FrameReader.h"
#include "Platform/Packet/Headers.h"
#include "Platform/Packet/PacketSockets.h"
#include "Testing/VethPort.h"
#include "tests/netns/Kernel.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <memory>
#include <sys/socket.h>

namespace Netns {

namespace {

using Testing::VethPort;
using Vela::FrameReader;
using Vela::FrameRing;
using Frame = VethPort::Frame;
constexpr uint16_t protocol = Vela::EtherType::norvelArpSnoop;

/// To everybody, of the trap's protocol, and so long; a number makes it different from others.
Frame frame(size_t length, uint32_t number = 0) {
    Frame bytes(length, 0x5a);
    std::fill_n(bytes.begin(), 6, 0xff);
    std::fill_n(bytes.begin() + 6, 6, 2);
    bytes[12] = protocol >> 8;
    bytes[13] = protocol & 0xff;
    std::memcpy(&bytes[14], &number, sizeof number);
    return bytes;
}

class FrameRingTest : public testing::Test {
  protected:
    FrameRingTest() {
        Testing::enterOwnNetworkNamespace();
        port_ = std::make_unique<VethPort>("arpsnoop");
        openSocket();
        EXPECT_EQ(packetRings(), 1u);
    }

    void openSocket() {
        socket_ = Vela::packetSockets().open(protocol);
        EXPECT_EQ(Vela::packetSockets().bind(socket_.get(), protocol, port_->ifIndex()), 0);
        EXPECT_EQ(fcntl(socket_.get(), F_SETFL, O_NONBLOCK), 0);
        EXPECT_TRUE(reader_->ringIs(socket_.get())) << std::strerror(errno);
    }

    void inject(const Frame& frame) { port_->inject(frame); }
    /// Empty where there is none; errno says why.
    Frame next() {
        auto frame = reader_->next(socket_.get());
        return frame ? Frame(frame->begin(), frame->end()) : Frame();
    }
    void expectNoneLeft() {
        errno = 0;
        EXPECT_EQ(next(), Frame());
        EXPECT_EQ(errno, EAGAIN);
    }
    /// What a packet socket's queue holds is not in the ring.
    size_t firstOfQueue() {
        return static_cast<size_t>(std::max<ssize_t>(
            recv(socket_.get(), nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT), 0));
    }

    std::unique_ptr<VethPort> port_;
    Vela::UniqueFd socket_;
    std::unique_ptr<FrameReader> reader_ = std::make_unique<FrameReader>();
};

TEST_F(FrameRingTest, framesComeInTheirOrderAroundTheRingAndNotThroughTheQueue) {
    for (uint32_t round = 0; round < 3; ++round) {
        for (uint32_t i = 0; i < FrameRing::slots / 2 + 100; ++i) {
            inject(frame(60, i));
        }
        EXPECT_EQ(firstOfQueue(), 0u);
        for (uint32_t i = 0; i < FrameRing::slots / 2 + 100; ++i) {
            ASSERT_EQ(next(), frame(60, i)) << i;
        }
        expectNoneLeft();
    }
}

TEST_F(FrameRingTest, aFrameTooLongForItsSlotComesWholeAndInItsPlace) {
    inject(frame(60, 1));
    inject(frame(1400, 2));
    inject(frame(FrameRing::slotBytes, 3));
    inject(frame(60, 4));
    inject(frame(1400, 5));
    EXPECT_EQ(firstOfQueue(), 1400u);
    EXPECT_EQ(next(), frame(60, 1));
    EXPECT_EQ(next(), frame(1400, 2));
    EXPECT_EQ(next(), frame(FrameRing::slotBytes, 3));
    EXPECT_EQ(next(), frame(60, 4));
    EXPECT_EQ(next(), frame(1400, 5));
    expectNoneLeft();
}

TEST_F(FrameRingTest, lengthsAroundWhatASlotHoldsComeWhole) {
    for (size_t length = FrameRing::slotBytes - 120; length < FrameRing::slotBytes; ++length) {
        inject(frame(length));
        ASSERT_EQ(next(), frame(length)) << length;
        expectNoneLeft();
    }
}

TEST_F(FrameRingTest, aLongFrameThatTheQueueHasNoRoomForIsDroppedNotCut) {
    int least = 0;
    ASSERT_EQ(setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &least, sizeof least), 0);
    for (uint32_t i = 0; i < 10; ++i) {
        inject(frame(1400, i));
        inject(frame(60, i));
    }
    size_t whole = 0;
    size_t others = 0;
    for (Frame given = next(); !given.empty(); given = next()) {
        if (given.size() == 60) {
            EXPECT_EQ(given, frame(60, static_cast<uint32_t>(others++)));
        } else {
            EXPECT_EQ(given, frame(1400, static_cast<uint32_t>(whole++)));
        }
    }
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(others, 10u);
    EXPECT_GT(whole, 0u);
    EXPECT_LT(whole, 10u);
}

TEST_F(FrameRingTest, whatDoesNotFitIsDroppedAndTheRingGoesOn) {
    for (uint32_t i = 0; i < FrameRing::slots + 10; ++i) {
        inject(frame(60, i));
    }
    for (uint32_t i = 0; i < FrameRing::slots; ++i) {
        ASSERT_EQ(next(), frame(60, i)) << i;
    }
    expectNoneLeft();
    tpacket_stats stats{};
    socklen_t length = sizeof stats;
    ASSERT_EQ(getsockopt(socket_.get(), SOL_PACKET, PACKET_STATISTICS, &stats, &length), 0);
    EXPECT_EQ(stats.tp_drops, 10u);
    inject(frame(60, 7));
    EXPECT_EQ(next(), frame(60, 7));
}

TEST_F(FrameRingTest, sixteenFramesAreABatch) {
    for (uint32_t i = 0; i < 2 * FrameReader::frames + 2; ++i) {
        inject(frame(60, i));
    }
    EXPECT_FALSE(reader_->waiting()); // none was given out yet
    for (uint32_t i = 1; i <= 2 * FrameReader::frames + 2; ++i) {
        next();
        const bool last = i % FrameReader::frames == 0 || i == 2 * FrameReader::frames + 2;
        EXPECT_EQ(reader_->waiting(), !last) << i;
    }
}

TEST_F(FrameRingTest, droppingGivesTheMemoryBackAndLeavesTheFrameThatIsLookedAt) {
    inject(frame(60, 1));
    inject(frame(60, 2));
    auto first = reader_->next(socket_.get());
    ASSERT_TRUE(first);
    socket_.reset();
    reader_->drop();
    EXPECT_EQ(packetRings(), 0u);
    EXPECT_FALSE(reader_->waiting());
    EXPECT_EQ(Frame(first->begin(), first->end()), frame(60, 1));

    openSocket();
    inject(frame(60, 3));
    EXPECT_EQ(next(), frame(60, 3));
    expectNoneLeft();
}

TEST_F(FrameRingTest, theErrorOfADeviceThatGoesDownComesAfterTheFrames) {
    inject(frame(60, 1));
    port_->upIs(false);
    EXPECT_EQ(next(), frame(60, 1));
    errno = 0;
    EXPECT_EQ(next(), Frame());
    EXPECT_EQ(errno, ENETDOWN);
    expectNoneLeft();
    port_->upIs(true);
    inject(frame(60, 2));
    EXPECT_EQ(next(), frame(60, 2));
}

TEST_F(FrameRingTest, aSocketOfAnotherKindHasNoRing) {
    Vela::UniqueFd other(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    EXPECT_FALSE(reader_->ringIs(other.get()));
    EXPECT_NE(errno, 0);
    EXPECT_EQ(packetRings(), 0u);
}

} // namespace
} // namespace Netns
