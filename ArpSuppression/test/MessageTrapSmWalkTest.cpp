#include "ArpSuppression/test/MessageTrapSmFixture.h"
#include "Platform/Agent/Toggle.h"
#include "Platform/State/DumpContext.h"

#include <cstdio>
#include <fstream>
#include <sys/socket.h>
#include <sys/un.h>

namespace ArpSuppression {

namespace {

using Testing::Frame;
using Testing::TraceCapture;
using Testing::TrapFrame;

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

using MessageTrapSmWalkTest = MessageTrapSmFixture;
using MessageTrapSmWalkDeathTest = MessageTrapSmFixture;

// The toggle: read once per process, so these need one each.

class MessageTrapSmToggleTest : public MessageTrapSmFixture {
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
    for (uint8_t type : {uint8_t{133}, uint8_t{135}, uint8_t{136}}) {
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

TEST_F(MessageTrapSmWalkTest, eachVariantReadsItsOwnDevice) {
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

TEST_F(MessageTrapSmWalkTest, theWalkDoesNotStartWithoutASocket) {
    deviceIs("arpsnoop", 0);
    TraceCapture lines("ArpSuppression=8");
    make();
    EXPECT_EQ(lines.count("traceEvent=refused\n"), 1u) << lines.text();
    EXPECT_FALSE(lines.contains("traceEvent=started"));
    EXPECT_EQ(countersMoved(), Moved());
}

TEST_F(MessageTrapSmWalkTest, whatWaitsIsReadInOneWalk) {
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

TEST_F(MessageTrapSmWalkTest, theWalkYieldsBetweenFramesWhenItsTimeIsUp) {
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

TEST_F(MessageTrapSmWalkTest, aMessageSaysWhetherMoreFollowInItsSlice) {
    make();
    std::vector<bool> follows;
    onMessage = [&] { follows.push_back(trapV4->moreFollows()); };
    std::vector<size_t> ends; // how many messages had come
    Vela::Reaction reaction = trapV4->moreFollowsAttribute().react(nullptr, [&] {
        if (!trapV4->moreFollows()) {
            ends.push_back(follows.size());
        }
    });
    for (int i = 0; i < 3; ++i) {
        ports.inject(arpsnoop, TrapFrame{}.bytes());
    }
    runUntilIdle();
    EXPECT_EQ(follows.size(), 3u);
    EXPECT_TRUE(follows[0]);
    EXPECT_FALSE(trapV4->moreFollows());
    if (alwaysYield()) {
        EXPECT_EQ(follows, (std::vector<bool>{true, true, false}));
        EXPECT_EQ(ends, (std::vector<size_t>{1, 2}));
    } else {
        EXPECT_EQ(ends, std::vector<size_t>{3});
    }
    ports.inject(arpsnoop, TrapFrame{}.bytes());
    runUntilIdle();
    EXPECT_FALSE(follows.back());
}

TEST_F(MessageTrapSmWalkTest, nothingFollowsASliceThatARangeErrorEnds) {
    make();
    onMessage = [] { throw Vela::RangeError("of a reaction"); };
    ports.inject(arpsnoop, TrapFrame{}.bytes());
    ports.inject(arpsnoop, TrapFrame{}.bytes());
    runUntilIdle();
    EXPECT_FALSE(trapV4->moreFollows());
}

TEST_F(MessageTrapSmWalkTest, aRefusedFrameIsFollowedByTheNext) {
    make();
    ports.inject(arpsnoop, Frame(27));
    ports.inject(arpsnoop, TrapFrame{}.bytes());
    runUntilIdle();
    EXPECT_EQ(messages.size(), 1u);
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapMalformed, 1}, {Id::trapArpRequest, 1}}));
}

TEST_F(MessageTrapSmWalkTest, aReadThatFailsIsCountedAndEndsTheWalk) {
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

TEST_F(MessageTrapSmWalkTest, aDrainedSocketIsNoFailure) {
    make();
    TraceCapture lines("ArpSuppression=8");
    trap(Frame(5));
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapMalformed, 1}}));
    EXPECT_FALSE(lines.contains("read failed"));
}

TEST_F(MessageTrapSmWalkTest, aDeviceThatGoesAndComesBackIsReadFromAgain) {
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

TEST_F(MessageTrapSmWalkTest, aMessageMayTakeTheDeviceAway) {
    make();
    onMessage = [this] { deviceIs("arpsnoop", 0); };
    ports.inject(arpsnoop, TrapFrame{}.bytes());
    ports.inject(arpsnoop, TrapFrame{}.bytes());
    runUntilIdle();
    EXPECT_EQ(messages.size(), 1u);
    EXPECT_FALSE(sm->fileDescriptor());
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapArpRequest, 1}}));
}

TEST_F(MessageTrapSmWalkTest, whatWaitsBetweenSlicesIsLostWithTheSocket) {
    make();
    // The slice ends after the first frame, and the device goes before the next slice.
    onMessage = [this] { clock().advance(std::chrono::milliseconds(2)); };
    for (int i = 0; i < 3; ++i) {
        ports.inject(arpsnoop, TrapFrame{}.bytes());
    }
    while (messages.empty()) {
        ASSERT_TRUE(scheduler()->turn(Vela::MonotonicTime(0)));
    }
    EXPECT_EQ(messages.size(), 1u);
    deviceIs("arpsnoop", 0);
    deviceIs("arpsnoop", 201);
    runUntilIdle();
    EXPECT_EQ(messages.size(), 1u);
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapArpRequest, 1}}));
    ports.inject(201, TrapFrame{}.bytes());
    runUntilIdle();
    EXPECT_EQ(messages.size(), 2u);
}

TEST_F(MessageTrapSmWalkTest, aMessageMayReplaceTheDeviceAndNothingOfTheOldOneIsLeft) {
    make();
    TrapFrame ofTheOld;
    ofTheOld.targetIp = Zinc::IpGenAddr("10.0.0.77");
    TrapFrame ofTheNew;
    ofTheNew.targetIp = Zinc::IpGenAddr("10.0.0.78");
    onMessage = [&] {
        if (messages.size() == 1) {
            deviceIs("arpsnoop", 0);
            deviceIs("arpsnoop", 201);
            ports.inject(201, ofTheNew.bytes());
        }
    };
    for (int i = 0; i < 3; ++i) {
        ports.inject(arpsnoop, ofTheOld.bytes());
    }
    runUntilIdle();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0]->targetIpAddress(), ofTheOld.targetIp);
    EXPECT_EQ(messages[1]->targetIpAddress(), ofTheNew.targetIp);
}

TEST_F(MessageTrapSmWalkTest, framesKeepTheirOrderWhereMoreComeWhileTheWalkHasYielded) {
    make();
    std::vector<Zinc::IpGenAddr> asked;
    uint32_t next = 0x0A000001;
    auto ask = [&] {
        TrapFrame frame;
        frame.targetIp = Zinc::IpGenAddr(next++);
        asked.push_back(frame.targetIp);
        ports.inject(arpsnoop, frame.bytes());
    };
    onMessage = [&] {
        clock().advance(std::chrono::milliseconds(2));
        if (messages.size() % 3 == 0 && asked.size() < 60) {
            ask();
            ask();
        }
    };
    for (int i = 0; i < 40; ++i) {
        ask();
    }
    runUntilIdle();
    ASSERT_EQ(messages.size(), asked.size());
    EXPECT_GE(asked.size(), 60u);
    for (size_t i = 0; i < asked.size(); ++i) {
        EXPECT_EQ(messages[i]->targetIpAddress(), asked[i]) << i;
    }
}

TEST_F(MessageTrapSmWalkTest, aMessageMayEndTheMachine) {
    make();
    onMessage = [this] { sm.reset(); };
    ports.inject(arpsnoop, TrapFrame{}.bytes());
    ports.inject(arpsnoop, TrapFrame{}.bytes());
    runUntilIdle();
    EXPECT_EQ(messages.size(), 1u);
    EXPECT_TRUE(ports.bindings().empty());
    EXPECT_EQ(countersMoved(), (Moved{{Id::trapArpRequest, 1}}));
}

TEST_F(MessageTrapSmWalkDeathTest, aDescriptorThatWasTakenAwayIsAProgrammingError) {
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

TEST_F(MessageTrapSmWalkTest, theDumpShowsSocketTrapsAndQueue) {
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
