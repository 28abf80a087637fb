#include "ArpSuppression/MessageTapSocketSm.h"

#include "ArpSuppression/test/TapFixture.h"
#include "Platform/State/DumpContext.h"
#include "Testing/TraceCapture.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ArpSuppression {

namespace {

using Protocol = MessageTapSocketSm::Protocol;
using NotifyMode = MessageTapSocketSm::NotifyMode;
using Testing::TraceCapture;

constexpr uint32_t tap = 40;

/// Counts its walks and reads nothing.
class Tap : public MessageTapSocketSm {
  public:
    Tap(Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus,
        Protocol protocol, NotifyMode notifyMode)
        : MessageTapSocketSm(std::move(scheduler), std::move(vlanL3InfoStatus), "Tap", "tap0",
                             protocol, notifyMode) {}
    const char* typeName() const noexcept override { return "Tap"; }
    void dumpState(Vela::DumpContext& context, int indent) const override {
        dumpSocketState(context, indent);
    }
    using MessageTapSocketSm::allowWalkRestarts;

    unsigned walks = 0;
    unsigned slicesToGo = 1;

  protected:
    bool walkStartedNotification() override { return true; }
    Vela::WalkRet walk() override {
        ++walks;
        slicesToGo -= slicesToGo > 1;
        return {slicesToGo > 1, 1};
    }
};

/// A machine that does not say when its walk may run.
class BareTap final : public Tap {
  public:
    using Tap::Tap;

  protected:
    bool walkStartedNotification() override {
        return MessageTapSocketSm::walkStartedNotification();
    }
};

/// Gives out a descriptor that is no socket at all.
class NoSockets final : public Vela::PacketSockets {
  public:
    NoSockets() { Vela::packetSocketsIs(this); }
    ~NoSockets() override { Vela::packetSocketsIs(nullptr); }

  private:
    Vela::UniqueFd open(uint16_t) override { return Vela::UniqueFd(eventfd(0, EFD_CLOEXEC)); }
    int bind(int, uint16_t, uint32_t) override { return 0; }
    bool send(int, uint16_t, uint32_t, std::span<const uint8_t>) override { return false; }
};

class MessageTapSocketSmTest : public TapFixture {
  protected:
    ~MessageTapSocketSmTest() override {
        if (sm) {
            sm->destroy();
        }
    }
    template <class Machine = Tap>
    void make(NotifyMode notifyMode = NotifyMode::readable,
              Protocol protocol = Protocol::norvelArpSnoop) {
        sm = Vela::make<Machine>(scheduler(), vlanL3InfoStatus, protocol, notifyMode);
    }
    /// The descriptor that the next one opened would get: it says whether one was closed.
    static int nextDescriptor() { return Vela::UniqueFd(dup(STDIN_FILENO)).get(); }
    std::string dump() const {
        Vela::DumpContext context;
        sm->dumpState(context, 0);
        return context.text();
    }

    Vela::Ptr<Tap> sm;
};

using MessageTapSocketSmDeathTest = MessageTapSocketSmTest;

TEST_F(MessageTapSocketSmTest, watchesItsDeviceInTheDefaultVrf) {
    make();
    ASSERT_TRUE(sm->interfaceWatch());
    EXPECT_EQ(sm->interfaceWatch(), vlanL3InfoStatus->vrfInterfaceWatch("tap0"));
    EXPECT_EQ(sm->interfaceWatch()->vrfInfo(), vlanL3InfoStatus->vrfInfo("default"));
    auto other =
        Vela::make<Tap>(scheduler(), vlanL3InfoStatus, Protocol::all, NotifyMode::writable);
    EXPECT_EQ(other->interfaceWatch(), sm->interfaceWatch());
    EXPECT_EQ(vlanL3InfoStatus->vrfInterfaceWatchCollection().count(), 1u);
}

TEST_F(MessageTapSocketSmTest, aDeviceThatIsNotThereHasNoSocket) {
    TraceCapture lines("ArpSuppression=8");
    make();
    runUntilIdle();
    EXPECT_FALSE(sm->fileDescriptor());
    EXPECT_EQ(ports.opened(), 0u);
    EXPECT_TRUE(lines.contains("interfaceWatch=<vrfName=default intfName=tap0 usable=no>\n"))
        << lines.text();
}

TEST_F(MessageTapSocketSmTest, aDeviceOfAVrfThatIsNotUsableHasNoSocket) {
    make();
    vlanL3InfoStatus->vrfInfo("default")->netlinkSocketIs(0);
    deviceIs("tap0", tap);
    runUntilIdle();
    EXPECT_FALSE(sm->fileDescriptor());
    EXPECT_EQ(ports.opened(), 0u);
    vlanL3InfoStatus->vrfInfo("default")->netlinkSocketIs(7);
    deviceIs("tap0", tap + 1);
    EXPECT_EQ(ports.opened(), 1u);
    EXPECT_TRUE(sm->fileDescriptor());
}

TEST_F(MessageTapSocketSmTest, aDeviceThatIsThereAlreadyHasASocketAtOnce) {
    deviceIs("tap0", tap);
    TraceCapture lines("ArpSuppression=8");
    make();
    ASSERT_TRUE(sm->fileDescriptor());
    auto bindings = ports.bindings();
    ASSERT_EQ(bindings.size(), 1u);
    EXPECT_EQ(bindings[0].protocol, 0x8135);
    EXPECT_EQ(bindings[0].ifIndex, tap);
    int sock = sm->fileDescriptor()->descriptor();
    EXPECT_TRUE(lines.contains("interfaceWatch=<vrfName=default intfName=tap0 usable=yes>\n"));
    EXPECT_TRUE(lines.contains("bound socket=" + std::to_string(sock) + "\n")) << lines.text();
    EXPECT_FALSE(lines.contains("closing socket="));
    EXPECT_EQ(sm->fileDescriptor()->name(), "ArpTrap");
    EXPECT_TRUE(sm->fileDescriptor()->hasNotificationActive());
    EXPECT_TRUE(fcntl(sock, F_GETFL) & O_NONBLOCK);
}

TEST_F(MessageTapSocketSmTest, theSocketIsOpenedForAllProtocolsIfToldSo) {
    deviceIs("tap0", tap);
    make(NotifyMode::readable, Protocol::all);
    auto bindings = ports.bindings();
    ASSERT_EQ(bindings.size(), 1u);
    EXPECT_EQ(bindings[0].protocol, 3);
}

TEST_F(MessageTapSocketSmDeathTest, anInvalidProtocolIsAProgrammingError) {
    deviceIs("tap0", tap);
    EXPECT_DEATH(make(NotifyMode::readable, Protocol::invalid), "0 != proto");
    EXPECT_DEATH(make(NotifyMode::readable, Protocol(3)), R"("false")");
}

TEST_F(MessageTapSocketSmTest, anotherIndexClosesAndReopensTheSocket) {
    deviceIs("tap0", tap);
    make();
    int sock = sm->fileDescriptor()->descriptor();
    Vela::Ptr<Vela::FileDescriptor> first = sm->fileDescriptor();
    TraceCapture lines("ArpSuppression=8");
    deviceIs("tap0", tap + 1);
    EXPECT_TRUE(lines.contains("closing socket=" + std::to_string(sock) + "\n"));
    EXPECT_TRUE(first->destroyed());
    EXPECT_EQ(ports.opened(), 2u);
    auto bindings = ports.bindings();
    ASSERT_EQ(bindings.size(), 1u);
    EXPECT_EQ(bindings[0].ifIndex, tap + 1);
    runUntilIdle();
    unsigned before = sm->walks;
    ports.inject(tap + 1, std::vector<uint8_t>{1});
    runUntilIdle();
    EXPECT_EQ(sm->walks, before + 1);
}

TEST_F(MessageTapSocketSmTest, theSameIndexOnceMoreChangesNothing) {
    deviceIs("tap0", tap);
    make();
    Vela::Ptr<Vela::FileDescriptor> first = sm->fileDescriptor();
    deviceIs("tap0", tap);
    EXPECT_EQ(sm->fileDescriptor(), first);
    EXPECT_EQ(ports.opened(), 1u);
}

TEST_F(MessageTapSocketSmTest, aDeviceThatGoesTakesTheSocketAlongAndBringsANewOne) {
    deviceIs("tap0", tap);
    make();
    deviceIs("tap0", 0);
    EXPECT_FALSE(sm->fileDescriptor());
    EXPECT_TRUE(ports.bindings().empty());
    runUntilIdle();
    EXPECT_EQ(ports.opened(), 1u);
    deviceIs("tap0", tap + 5);
    ASSERT_TRUE(sm->fileDescriptor());
    auto bindings = ports.bindings();
    ASSERT_EQ(bindings.size(), 1u);
    EXPECT_EQ(bindings[0].ifIndex, tap + 5);
}

TEST_F(MessageTapSocketSmTest, aSocketThatCannotBeMadeWaitsForTheNextIndex) {
    ports.openError = EMFILE;
    deviceIs("tap0", tap);
    TraceCapture lines("ArpSuppression=8");
    make();
    EXPECT_FALSE(sm->fileDescriptor());
    EXPECT_TRUE(lines.contains("socket creation failed errno=Too many open files\n"))
        << lines.text();
    ports.openError = 0;
    runFor(1000);
    EXPECT_FALSE(sm->fileDescriptor());
    EXPECT_EQ(ports.opened(), 0u);
    deviceIs("tap0", tap + 1);
    EXPECT_TRUE(sm->fileDescriptor());
    EXPECT_EQ(ports.bindings().size(), 1u);
}

TEST_F(MessageTapSocketSmTest, aSocketThatCannotBeBoundIsReleased) {
    ports.bindError = ENODEV;
    make();
    TraceCapture lines("ArpSuppression=8");
    // The test's end of the pair stays: the number before it is the socket's own.
    int descriptor = nextDescriptor();
    deviceIs("tap0", tap);
    EXPECT_EQ(ports.opened(), 1u);
    EXPECT_FALSE(sm->fileDescriptor());
    EXPECT_EQ(nextDescriptor(), descriptor);
    EXPECT_TRUE(lines.contains("bind failed intfId=tap0 errno=No such device\n")) << lines.text();
    EXPECT_FALSE(lines.contains("bound socket="));
    ports.bindError = 0;
    runFor(1000);
    EXPECT_FALSE(sm->fileDescriptor());
    EXPECT_EQ(ports.opened(), 1u);
    deviceIs("tap0", tap + 1);
    EXPECT_TRUE(sm->fileDescriptor());
}

TEST_F(MessageTapSocketSmTest, whatFailsToOpenAgainLeavesNoOldSocket) {
    deviceIs("tap0", tap);
    make();
    ports.openError = ENOBUFS;
    deviceIs("tap0", tap + 1);
    EXPECT_FALSE(sm->fileDescriptor());
    EXPECT_TRUE(ports.bindings().empty());
}

TEST_F(MessageTapSocketSmTest, theEndOfTheMachineClosesTheSocket) {
    deviceIs("tap0", tap);
    make();
    std::string sock = std::to_string(sm->fileDescriptor()->descriptor());
    TraceCapture lines("ArpSuppression=8");
    sm->destroy();
    EXPECT_TRUE(lines.contains("closing socket=" + sock + "\n"));
    EXPECT_FALSE(sm->fileDescriptor());
    EXPECT_TRUE(ports.bindings().empty());
    deviceIs("tap0", tap + 1);
    EXPECT_EQ(ports.opened(), 1u);
    runUntilIdle();
    EXPECT_EQ(sm->walks, 0u);
}

TEST_F(MessageTapSocketSmDeathTest, aDescriptorThatWasTakenAwayIsAProgrammingError) {
    deviceIs("tap0", tap);
    make();
    EXPECT_DEATH(
        {
            sm->fileDescriptor()->destroy();
            deviceIs("tap0", 0);
        },
        "sock >= 0");
}

TEST_F(MessageTapSocketSmTest, creationSchedulesTheFirstWalk) {
    TraceCapture lines("ArpSuppression=8");
    make();
    EXPECT_TRUE(sm->walkScheduled());
    runUntilIdle();
    EXPECT_EQ(sm->walks, 1u);
    EXPECT_EQ(lines.count("traceEvent=scheduled\n"), 1u);
    EXPECT_EQ(lines.count("traceEvent=started\n"), 1u);
    EXPECT_EQ(lines.count("traceEvent=finished\n"), 1u);
    EXPECT_EQ(lines.count("traceEvent="), 3u);
}

TEST_F(MessageTapSocketSmTest, aMachineThatDoesNotSayOtherwiseNeverWalks) {
    deviceIs("tap0", tap);
    make<BareTap>();
    TraceCapture lines("ArpSuppression=8");
    ports.inject(tap, std::vector<uint8_t>{1});
    runUntilIdle();
    EXPECT_EQ(sm->walks, 0u);
    EXPECT_TRUE(lines.contains("traceEvent=refused\n")) << lines.text();
    EXPECT_FALSE(lines.contains("traceEvent=started"));
}

TEST_F(MessageTapSocketSmTest, runsAtPriorityThreeUnderItsTaskName) {
    make();
    EXPECT_TRUE(sm->allowWalkRestarts());
    Vela::DumpContext context;
    scheduler()->dumpState(context, 0);
    EXPECT_NE(context.text().find(" Tap priority=3 "), std::string::npos) << context.text();
}

TEST_F(MessageTapSocketSmTest, aFrameThatArrivesSchedulesAWalk) {
    deviceIs("tap0", tap);
    make();
    runUntilIdle();
    unsigned before = sm->walks;
    TraceCapture lines("ArpSuppression=8");
    ports.inject(tap, std::vector<uint8_t>{1});
    runUntilIdle();
    EXPECT_EQ(sm->walks, before + 1);
    EXPECT_TRUE(lines.contains(" scheduled=no readableCount=1 writableCount=0\n")) << lines.text();
    EXPECT_EQ(sm->fileDescriptor()->writableCount(), 0u);
}

TEST_F(MessageTapSocketSmTest, readinessDuringAWalkDoesNotStartItOver) {
    deviceIs("tap0", tap);
    make();
    sm->slicesToGo = 4;
    ASSERT_TRUE(turn());
    ASSERT_EQ(sm->walks, 1u);
    TraceCapture lines("ArpSuppression=8");
    ports.inject(tap, std::vector<uint8_t>{1});
    runUntilIdle();
    EXPECT_TRUE(lines.contains(" scheduled=yes readableCount=1 writableCount=0\n")) << lines.text();
    EXPECT_FALSE(lines.contains("traceEvent=aborted")) << lines.text();
    EXPECT_EQ(lines.count("traceEvent=finished\n"), 1u);
    EXPECT_EQ(sm->walks, 3u);
}

TEST_F(MessageTapSocketSmTest, aWritableSocketIsAnnouncedOnceAndCostsNothingAfterwards) {
    deviceIs("tap0", tap);
    make(NotifyMode::writable);
    TraceCapture lines("ArpSuppression=8");
    runUntilIdle();
    EXPECT_TRUE(lines.contains(" readableCount=0 writableCount=1\n")) << lines.text();
    uint64_t before = scheduler()->slices();
    EXPECT_EQ(runUntilIdle(), 0u);
    runFor(100);
    EXPECT_EQ(scheduler()->slices(), before);
}

TEST_F(MessageTapSocketSmTest, aWriteModeSocketReceivesNothing) {
    deviceIs("tap0", tap);
    make(NotifyMode::writable);
    runUntilIdle();
    int sock = sm->fileDescriptor()->descriptor();
    int bytes = 0;
    socklen_t length = sizeof bytes;
    ASSERT_EQ(getsockopt(sock, SOL_SOCKET, SO_RCVBUF, &bytes, &length), 0);
    // The kernel's own least.
    Vela::UniqueFd plain(socket(AF_UNIX, SOCK_SEQPACKET, 0));
    int least = 0;
    ASSERT_EQ(setsockopt(plain.get(), SOL_SOCKET, SO_RCVBUF, &least, sizeof least), 0);
    ASSERT_EQ(getsockopt(plain.get(), SOL_SOCKET, SO_RCVBUF, &least, &length), 0);
    EXPECT_EQ(bytes, least);
    ports.inject(tap, std::vector<uint8_t>(60));
    runUntilIdle();
    uint8_t byte;
    EXPECT_EQ(read(sock, &byte, 1), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(sm->fileDescriptor()->readableCount(), 0u);
}

TEST_F(MessageTapSocketSmTest, aReadModeSocketHasRoomForMoreThanTheKernelsUsualBurst) {
    deviceIs("tap0", tap);
    make();
    int sock = sm->fileDescriptor()->descriptor();
    // As much as one gets by asking, at least.
    Vela::UniqueFd plain(socket(AF_UNIX, SOCK_SEQPACKET, 0));
    int most = 8 << 20;
    socklen_t length = sizeof most;
    ASSERT_EQ(setsockopt(plain.get(), SOL_SOCKET, SO_RCVBUF, &most, sizeof most), 0);
    ASSERT_EQ(getsockopt(plain.get(), SOL_SOCKET, SO_RCVBUF, &most, &length), 0);
    int bytes = 0;
    ASSERT_EQ(getsockopt(sock, SOL_SOCKET, SO_RCVBUF, &bytes, &length), 0);
    EXPECT_GE(bytes, most);
    ports.inject(tap, std::vector<uint8_t>(60));
    std::array<uint8_t, 100> buffer;
    EXPECT_EQ(read(sock, buffer.data(), buffer.size()), 60);
}

TEST_F(MessageTapSocketSmTest, aBufferThatCannotBeSetIsTracedAndTheSocketUsedAllTheSame) {
    NoSockets sockets;
    deviceIs("tap0", tap);
    TraceCapture lines("ArpSuppression=8");
    make(NotifyMode::writable);
    EXPECT_TRUE(lines.contains(
        "setsockopt SO_RCVBUF failed intfId=tap0 errno=Socket operation on non-socket\n"))
        << lines.text();
    ASSERT_TRUE(sm->fileDescriptor());
    runUntilIdle();
    EXPECT_EQ(sm->fileDescriptor()->writableCount(), 1u);
}

TEST_F(MessageTapSocketSmTest, aBufferThatCannotBeEnlargedIsTracedAndTheSocketUsedAllTheSame) {
    NoSockets sockets;
    deviceIs("tap0", tap);
    TraceCapture lines("ArpSuppression=8");
    make();
    EXPECT_TRUE(lines.contains(
        "setsockopt SO_RCVBUF failed intfId=tap0 errno=Socket operation on non-socket\n"))
        << lines.text();
    EXPECT_TRUE(sm->fileDescriptor());
}

TEST_F(MessageTapSocketSmTest, theDumpShowsWatchAndSocket) {
    make();
    EXPECT_EQ(dump(), "interfaceWatch <vrfName=default intfName=tap0 usable=no>\n"
                      "fileDescriptor NULL socket -1\n");
    deviceIs("tap0", tap);
    EXPECT_EQ(dump(), "interfaceWatch <vrfName=default intfName=tap0 usable=yes>\n"
                      "fileDescriptor ArpTrap socket " +
                          std::to_string(sm->fileDescriptor()->descriptor()) + "\n");
}

} // namespace

} // namespace ArpSuppression
