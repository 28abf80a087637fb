#include "Platform/Packet/RawTxPam.h"

#include "Platform/Packet/PacketSockets.h"
#include "Platform/Packet/test/Hex.h"
#include "Platform/State/DumpContext.h"
#include "Testing/CoreFixture.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sstream>
#include <system_error>
#include <unistd.h>

namespace {

using namespace Vela;

struct Sent {
    int fd;
    uint16_t protocol;
    uint32_t ifIndex;
    Bytes frame;
    friend bool operator==(const Sent&, const Sent&) = default;
};

/// Keeps what is sent. Its sockets are real descriptors, so that it shows when one is closed.
class FakeSockets final : public PacketSockets {
  public:
    UniqueFd open(uint16_t protocol) override {
        if (openError != 0) {
            errno = openError;
            return {};
        }
        opened.push_back(protocol);
        UniqueFd fd(::open("/dev/null", O_RDWR | O_CLOEXEC));
        lastFd = fd.get();
        return fd;
    }
    int bind(int, uint16_t protocol, uint32_t ifIndex) override {
        EXPECT_EQ(protocol, 0); // with any other one it would receive
        if (bindError != 0) {
            errno = bindError;
            return -1;
        }
        ++binds;
        boundTo = ifIndex;
        return 0;
    }
    bool send(int fd, uint16_t protocol, uint32_t ifIndex,
              std::span<const uint8_t> frame) override {
        if (sendError != 0 || (refusedFrame && *refusedFrame == frame[0])) {
            errno = sendError != 0 ? sendError : ENOBUFS;
            return false;
        }
        if (ifIndex == 0 && boundTo == 0) {
            errno = ENXIO;
            return false;
        }
        sent.push_back(
            {fd, protocol, ifIndex ? ifIndex : boundTo, Bytes(frame.begin(), frame.end())});
        return true;
    }
    bool lastIsOpen() const { return fcntl(lastFd, F_GETFD) != -1; }

    int openError = 0;
    int sendError = 0;
    std::optional<uint8_t> refusedFrame; ///< the first byte of one that fails with ENOBUFS
    int bindError = 0;
    uint32_t boundTo = 0; ///< 0: to none, or to a device that is gone
    std::vector<uint16_t> opened;
    int binds = 0;
    int lastFd = -1;
    std::vector<Sent> sent;
};

class RawTxPamTest : public Testing::CoreFixture {
  protected:
    RawTxPamTest() { packetSocketsIs(&sockets); }
    ~RawTxPamTest() override {
        pam.reset();
        packetSocketsIs(nullptr);
    }

    std::string dumpText() const {
        DumpContext dump;
        pam->dumpState(dump, 2);
        return dump.text();
    }

    /// Of one packet.
    bool transmit(const Bytes& frame, uint32_t ifIndex) {
        boost::intrusive_ptr<Pkt> pkt = packets.newPkt(frame);
        return pam->transmit({&pkt, 1}, ifIndex) == 1;
    }
    std::vector<boost::intrusive_ptr<Pkt>> packetsOf(uint8_t count) {
        std::vector<boost::intrusive_ptr<Pkt>> pkts;
        for (uint8_t i = 0; i < count; ++i) {
            pkts.push_back(packets.newPkt(Bytes{i}));
        }
        return pkts;
    }

    FakeSockets sockets;
    PktManager packets;
    Ptr<RawTxPam> pam = make<RawTxPam>("tx");
};

TEST_F(RawTxPamTest, HasASocketWhileItIsEnabled) {
    EXPECT_FALSE(pam->enabled());
    EXPECT_TRUE(sockets.opened.empty());
    pam->enabledIs(true);
    EXPECT_TRUE(pam->enabled());
    EXPECT_EQ(sockets.opened, std::vector<uint16_t>{0}); // receives nothing
    EXPECT_EQ(sockets.binds, 0);                         // sends out of any interface
    EXPECT_TRUE(sockets.lastIsOpen());
    pam->enabledIs(false);
    EXPECT_FALSE(pam->enabled());
    EXPECT_FALSE(sockets.lastIsOpen());
    pam->enabledIs(true);
    EXPECT_EQ(sockets.opened.size(), 2u);
    EXPECT_TRUE(sockets.lastIsOpen());
}

TEST_F(RawTxPamTest, EnablingAgainChangesNothing) {
    pam->enabledIs(false);
    EXPECT_TRUE(sockets.opened.empty());
    pam->enabledIs(true);
    pam->enabledIs(true);
    EXPECT_EQ(sockets.opened.size(), 1u);
    EXPECT_TRUE(sockets.lastIsOpen());
}

TEST_F(RawTxPamTest, TheSocketGoesWithTheEndOfItsLife) {
    pam->enabledIs(true);
    pam->destroy();
    EXPECT_FALSE(sockets.lastIsOpen());
    EXPECT_FALSE(pam->enabled());
    EXPECT_FALSE(transmit(Bytes{1}, 1));
    EXPECT_TRUE(sockets.sent.empty());
}

TEST_F(RawTxPamTest, TheSocketGoesWithTheLastReference) {
    pam->enabledIs(true);
    pam.reset();
    EXPECT_FALSE(sockets.lastIsOpen());
}

TEST_F(RawTxPamTest, TransmitsTheWholeFrame) {
    pam->ethProtocolIs(3);
    pam->enabledIs(true);
    boost::intrusive_ptr<Pkt> pkt = packets.newPkt(Bytes{1, 2, 3}, 4);
    EXPECT_EQ(pam->transmit({&pkt, 1}, 7), 1u);
    pkt->prepend(2);
    pam->ethProtocolIs(0x0806);
    EXPECT_EQ(pam->transmit({&pkt, 1}, 8), 1u);
    std::vector<Sent> expected = {{sockets.lastFd, 3, 7, {1, 2, 3}},
                                  {sockets.lastFd, 0x0806, 8, {0, 0, 1, 2, 3}}};
    EXPECT_EQ(sockets.sent, expected);
    EXPECT_EQ(sockets.opened.size(), 1u); // another protocol needs no other socket
}

TEST_F(RawTxPamTest, TheSocketIsBoundAnewOnlyWhenTheInterfaceChanges) {
    pam->ethProtocolIs(3);
    pam->enabledIs(true);
    for (uint32_t ifIndex : {7u, 7u, 7u, 8u, 8u, 7u}) {
        EXPECT_TRUE(transmit(Bytes{1}, ifIndex));
        EXPECT_EQ(sockets.sent.back().ifIndex, ifIndex);
    }
    EXPECT_EQ(sockets.sent.size(), 6u);
    EXPECT_EQ(sockets.binds, 3);
    // A new socket is bound to nothing.
    pam->enabledIs(false);
    pam->enabledIs(true);
    sockets.boundTo = 0;
    EXPECT_TRUE(transmit(Bytes{1}, 7));
    EXPECT_EQ(sockets.binds, 4);
    EXPECT_EQ(sockets.sent.size(), 7u);
}

TEST_F(RawTxPamTest, AProtocolOfItsOwnNeedsNoBinding) {
    pam->ethProtocolIs(0x0806);
    pam->enabledIs(true);
    EXPECT_TRUE(transmit(Bytes{1}, 7));
    EXPECT_EQ(sockets.binds, 0);
}

TEST_F(RawTxPamTest, ADeviceOfTheSameIndexIsBoundToAnew) {
    pam->ethProtocolIs(3);
    pam->enabledIs(true);
    EXPECT_TRUE(transmit(Bytes{1}, 7));
    sockets.boundTo = 0; // gone, and another one came
    EXPECT_TRUE(transmit(Bytes{2}, 7));
    EXPECT_EQ(sockets.binds, 2);
    ASSERT_EQ(sockets.sent.size(), 2u);
    EXPECT_EQ(sockets.sent[1].frame, Bytes{2});
}

TEST_F(RawTxPamTest, SeveralGoInTheirOrder) {
    pam->enabledIs(true);
    for (uint16_t protocol : {uint16_t{3}, uint16_t{0x0806}}) {
        pam->ethProtocolIs(protocol);
        sockets.sent.clear();
        EXPECT_EQ(pam->transmit(packetsOf(40), 7), 40u);
        ASSERT_EQ(sockets.sent.size(), 40u);
        for (uint8_t i = 0; i < 40; ++i) {
            EXPECT_EQ(sockets.sent[i], (Sent{sockets.lastFd, protocol, 7, {i}}));
        }
    }
    EXPECT_EQ(pam->transmit({}, 7), 0u);
    EXPECT_EQ(sockets.binds, 1);
}

TEST_F(RawTxPamTest, OfSeveralTheOneThatFailsIsTheNextAfterThoseThatWent) {
    pam->enabledIs(true);
    for (uint16_t protocol : {uint16_t{3}, uint16_t{0x0806}}) {
        pam->ethProtocolIs(protocol);
        for (uint8_t refused : {uint8_t{0}, uint8_t{5}, uint8_t{16}, uint8_t{39}}) {
            sockets.sent.clear();
            sockets.refusedFrame = refused;
            errno = 0;
            EXPECT_EQ(pam->transmit(packetsOf(40), 7), refused);
            EXPECT_EQ(errno, ENOBUFS);
            EXPECT_EQ(sockets.sent.size(), refused);
        }
    }
}

TEST_F(RawTxPamTest, SeveralFollowTheDeviceOfTheSameIndex) {
    pam->ethProtocolIs(3);
    pam->enabledIs(true);
    EXPECT_TRUE(transmit(Bytes{1}, 7));
    sockets.boundTo = 0;
    sockets.sent.clear();
    EXPECT_EQ(pam->transmit(packetsOf(3), 7), 3u);
    EXPECT_EQ(sockets.sent.size(), 3u);
    EXPECT_EQ(sockets.binds, 2);
}

TEST_F(RawTxPamTest, AFrameForADeviceThatIsGoneLeavesTheReason) {
    pam->ethProtocolIs(3);
    pam->enabledIs(true);
    EXPECT_TRUE(transmit(Bytes{1}, 7));
    sockets.boundTo = 0;
    sockets.bindError = ENODEV;
    for (int i = 0; i < 2; ++i) {
        errno = 0;
        EXPECT_FALSE(transmit(Bytes{2}, 7));
        EXPECT_EQ(errno, ENODEV);
    }
    EXPECT_EQ(sockets.sent.size(), 1u);
    // A device that cannot be bound to takes no other device's frames.
    sockets.bindError = 0;
    EXPECT_TRUE(transmit(Bytes{3}, 8));
    sockets.bindError = ENODEV;
    EXPECT_FALSE(transmit(Bytes{4}, 9));
    sockets.bindError = 0;
    EXPECT_TRUE(transmit(Bytes{5}, 8));
    ASSERT_EQ(sockets.sent.size(), 3u);
    EXPECT_EQ(sockets.sent[2].ifIndex, 8u);
}

TEST_F(RawTxPamTest, ADeviceThatIsDownIsNotTriedTwice) {
    pam->ethProtocolIs(3);
    pam->enabledIs(true);
    EXPECT_TRUE(transmit(Bytes{1}, 7));
    sockets.sendError = ENETDOWN;
    EXPECT_FALSE(transmit(Bytes{2}, 7));
    EXPECT_EQ(errno, ENETDOWN);
    EXPECT_EQ(sockets.binds, 1);
}

TEST_F(RawTxPamTest, NoSocketIsAnError) {
    sockets.openError = EPERM;
    try {
        pam->enabledIs(true);
        FAIL() << "enabled without a socket";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::operation_not_permitted);
        EXPECT_TRUE(std::string_view(error.what()).starts_with("tx: packet socket"))
            << error.what();
    }
    EXPECT_FALSE(pam->enabled());
    // It may be tried again.
    sockets.openError = 0;
    pam->enabledIs(true);
    EXPECT_TRUE(pam->enabled());
}

TEST_F(RawTxPamTest, AFrameThatDoesNotGoLeavesTheReason) {
    pam->enabledIs(true);
    sockets.sendError = ENETDOWN;
    errno = 0;
    EXPECT_FALSE(transmit(Bytes{1}, 7));
    EXPECT_EQ(errno, ENETDOWN);
    EXPECT_TRUE(pam->enabled());
    sockets.sendError = 0;
    EXPECT_TRUE(transmit(Bytes{2}, 7));
    ASSERT_EQ(sockets.sent.size(), 1u); // the one that failed is not sent again
    EXPECT_EQ(sockets.sent[0].frame, Bytes{2});
}

TEST_F(RawTxPamTest, TransmitsNothingWhileDisabled) {
    errno = 0;
    EXPECT_FALSE(transmit(Bytes{1}, 7));
    EXPECT_EQ(errno, ENOTCONN);
    EXPECT_TRUE(sockets.opened.empty());
    pam->enabledIs(true);
    pam->enabledIs(false);
    errno = 0;
    EXPECT_FALSE(transmit(Bytes{1}, 7));
    EXPECT_EQ(errno, ENOTCONN);
    EXPECT_TRUE(sockets.sent.empty());
}

TEST_F(RawTxPamTest, SaysWhatItIs) {
    EXPECT_EQ(pam->name(), "tx");
    EXPECT_STREQ(pam->typeName(), "RawTxPam");
    EXPECT_EQ(pam->ethProtocol(), 0);
    pam->ethProtocolIs(3);
    EXPECT_EQ(pam->ethProtocol(), 3);
    std::ostringstream derived;
    pam->formatDerivedType(derived);
    EXPECT_EQ(derived.str(), "tx");
    EXPECT_EQ(dumpText(), "  RawTxPam tx disabled\n    ethProtocol=3\n");
    pam->enabledIs(true);
    EXPECT_EQ(dumpText(), "  RawTxPam tx enabled\n    ethProtocol=3\n");
}

TEST(PacketSocketsTest, TheKernelsUnlessOthersAreChosen) {
    PacketSockets* kernel = &packetSockets();
    FakeSockets fake;
    packetSocketsIs(&fake);
    EXPECT_EQ(&packetSockets(), &fake);
    packetSocketsIs(nullptr);
    EXPECT_EQ(&packetSockets(), kernel);
}

TEST(PacketSocketsTest, TheKernelsLeaveTheReasonOfAFailure) {
    errno = 0;
    EXPECT_EQ(packetSockets().bind(-1, 0x0806, 1), -1);
    EXPECT_EQ(errno, EBADF);
    errno = 0;
    EXPECT_FALSE(packetSockets().send(-1, 0x0806, 1, Bytes{1}));
    EXPECT_EQ(errno, EBADF);
    errno = 0;
    Bytes frame{1};
    std::array<std::span<const uint8_t>, 2> frames{frame, frame};
    EXPECT_EQ(packetSockets().sendAll(-1, 3, frames), 0u);
    EXPECT_EQ(errno, EBADF);
}

} // namespace
