#include "Platform/Packet/EthDevPam.h"

#include "Platform/Base/Errors.h"
#include "Platform/Packet/PacketSockets.h"
#include "Platform/State/DumpContext.h"
#include "Testing/CoreFixture.h"
#include "Testing/PacketPorts.h"

#include <cerrno>
#include <fcntl.h>
#include <sstream>
#include <string_view>
#include <sys/socket.h>
#include <system_error>

namespace Zinc {

namespace {

using Testing::Frame;
using Vela::make;
using Vela::Ptr;

/// The ports, and the number of the last socket opened there.
class SeenSockets final : public Vela::PacketSockets {
  public:
    SeenSockets() { Vela::packetSocketsIs(this); }
    ~SeenSockets() override { Vela::packetSocketsIs(nullptr); }

    bool lastIsOpen() const { return fcntl(lastFd, F_GETFD) != -1; }
    int lastFd = -1;
    std::vector<uint16_t> opened;

  private:
    uint32_t ifIndex(const std::string& name) override { return ports_.ifIndex(name); }
    Vela::UniqueFd open(uint16_t protocol) override {
        auto fd = ports_.open(protocol);
        lastFd = fd.get();
        opened.push_back(protocol);
        return fd;
    }
    int bind(int fd, uint16_t protocol, uint32_t ifIndex) override {
        return ports_.bind(fd, protocol, ifIndex);
    }
    ssize_t receive(int fd, std::span<uint8_t> frame) override { return ports_.receive(fd, frame); }
    bool send(int fd, uint16_t protocol, uint32_t ifIndex,
              std::span<const uint8_t> frame) override {
        return ports_.send(fd, protocol, ifIndex, frame);
    }

    Vela::PacketSockets& ports_ = Vela::packetSockets();
};

class EthDevPamTest : public Testing::CoreFixture {
  protected:
    EthDevPamTest() {
        pam->ethProtocolIs(0x0806);
        ports.deviceIs("Vlan10", 7);
    }

    std::string errorOfEnabling(int expected) {
        try {
            pam->enabledIs(true);
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), expected) << error.what();
            return error.what();
        }
        ADD_FAILURE() << "enabled";
        return {};
    }
    void inject(uint8_t first, unsigned count = 1) {
        for (unsigned i = 0; i < count; ++i) {
            ports.inject(7, Frame{static_cast<uint8_t>(first + i), 0xff});
        }
    }
    /// The first bytes of all the frames that can be taken.
    std::vector<unsigned> received() {
        std::vector<unsigned> first;
        while (auto pkt = pam->rxPkt()) {
            first.push_back(pkt->bytes()[0]);
        }
        return first;
    }
    std::vector<uint32_t> announced;
    Vela::Reaction announce() {
        return pam->readableCountAttribute().react(
            nullptr, [this] { announced.push_back(pam->readableCount()); });
    }

    Testing::PacketPorts ports;
    SeenSockets sockets;
    Ptr<EthDevPam> pam = make<EthDevPam>(scheduler(), "Vlan10");
};

TEST_F(EthDevPamTest, HasASocketOnItsDeviceWhileItIsEnabled) {
    EXPECT_FALSE(pam->enabled());
    EXPECT_EQ(pam->ifIndex(), 0u);
    EXPECT_EQ(ports.opened(), 0u);
    pam->enabledIs(false);
    pam->enabledIs(true);
    pam->enabledIs(true); // once
    EXPECT_TRUE(pam->enabled());
    EXPECT_EQ(pam->ifIndex(), 7u);
    EXPECT_EQ(sockets.opened, std::vector<uint16_t>{0}) << "deaf until it is bound";
    ASSERT_EQ(ports.bindings().size(), 1u);
    EXPECT_EQ(ports.bindings()[0].protocol, 0x0806);
    EXPECT_EQ(ports.bindings()[0].ifIndex, 7u);
    pam->enabledIs(false);
    EXPECT_FALSE(pam->enabled());
    EXPECT_EQ(pam->ifIndex(), 0u);
    EXPECT_FALSE(sockets.lastIsOpen());
    // Under its name there may be another device by now.
    ports.deviceIs("Vlan10", 8);
    pam->ethProtocolIs(0x86DD);
    pam->enabledIs(true);
    EXPECT_EQ(pam->ifIndex(), 8u);
    ASSERT_EQ(ports.bindings().size(), 1u);
    EXPECT_EQ(ports.bindings()[0].protocol, 0x86DD);
    EXPECT_EQ(ports.bindings()[0].ifIndex, 8u);
    pam->destroy();
    EXPECT_FALSE(pam->enabled());
    EXPECT_FALSE(sockets.lastIsOpen());
}

TEST_F(EthDevPamTest, WhatKeepsItFromBeingEnabledIsThrownAndCanBeTriedAgain) {
    ports.deviceIs("Vlan10", 0);
    EXPECT_EQ(errorOfEnabling(ENODEV), "Vlan10: device: No such device");
    EXPECT_EQ(ports.opened(), 0u);
    ports.deviceIs("Vlan10", 7);
    ports.openError = EPERM;
    EXPECT_EQ(errorOfEnabling(EPERM), "Vlan10: packet socket: Operation not permitted");
    ports.openError = 0;
    ports.bindError = ENODEV; // it went in between
    EXPECT_EQ(errorOfEnabling(ENODEV), "Vlan10: bind: No such device");
    EXPECT_FALSE(sockets.lastIsOpen());
    ports.bindError = 0;
    pam->netNsIs("no-such-namespace");
    EXPECT_NE(errorOfEnabling(ENOENT).find("no-such-namespace"), std::string::npos);
    EXPECT_FALSE(pam->enabled());
    EXPECT_EQ(pam->ifIndex(), 0u);
    EXPECT_EQ(ports.opened(), 1u);
    pam->netNsIs("default");
    pam->enabledIs(true);
    EXPECT_TRUE(pam->enabled());
}

TEST_F(EthDevPamTest, FramesAreAnnouncedAndWaitUntilTheyAreTaken) {
    auto reaction = announce();
    pam->enabledIs(true);
    EXPECT_FALSE(pam->rxPkt());
    runUntilIdle();
    EXPECT_TRUE(announced.empty());
    inject(1, 3);
    EXPECT_TRUE(announced.empty());
    runUntilIdle();
    EXPECT_EQ(announced, std::vector<uint32_t>{3});
    EXPECT_EQ(received(), (std::vector<unsigned>{1, 2, 3}));
    runUntilIdle();
    EXPECT_EQ(announced.size(), 1u);
    inject(4);
    runUntilIdle();
    EXPECT_EQ(announced, (std::vector<uint32_t>{3, 1}));
    EXPECT_EQ(received(), std::vector<unsigned>{4});
}

TEST_F(EthDevPamTest, NoMoreThanTheReadLimitWaitOutsideTheSocketAndNoneIsLost) {
    auto reaction = announce();
    pam->socketReadLimitIs(4);
    pam->enabledIs(true);
    inject(0, 10);
    runUntilIdle();
    EXPECT_EQ(announced, std::vector<uint32_t>{4});
    inject(10, 5);
    runUntilIdle();
    EXPECT_EQ(announced, (std::vector<uint32_t>{4, 4}));
    std::vector<unsigned> all;
    for (unsigned i = 0; i < 15; ++i) {
        all.push_back(i);
    }
    EXPECT_EQ(received(), all);
    EXPECT_FALSE(pam->rxPkt());
}

TEST_F(EthDevPamTest, WhatWaitsIsGoneOnceItIsDisabled) {
    auto reaction = announce();
    pam->enabledIs(true);
    inject(1, 2);
    runUntilIdle();
    pam->enabledIs(false);
    EXPECT_FALSE(pam->rxPkt());
    pam->enabledIs(true);
    EXPECT_FALSE(pam->rxPkt());
    inject(3);
    runUntilIdle();
    EXPECT_EQ(received(), std::vector<unsigned>{3});
    EXPECT_EQ(announced, (std::vector<uint32_t>{2, 1}));
}

TEST_F(EthDevPamTest, ADeviceThatGoesDownDisablesItAndNoFrameIsLost) {
    auto reaction = announce();
    pam->socketReadLimitIs(4);
    pam->enabledIs(true);
    inject(0, 10);
    ports.downIs(7, true);
    runUntilIdle();
    EXPECT_EQ(announced, std::vector<uint32_t>{4});
    EXPECT_TRUE(pam->enabled()) << "more frames wait in the socket";
    EXPECT_EQ(received(), (std::vector<unsigned>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_FALSE(pam->enabled());
    EXPECT_EQ(pam->ifIndex(), 0u);
    EXPECT_FALSE(sockets.lastIsOpen());
    EXPECT_EQ(errorOfEnabling(ENETDOWN), "Vlan10: bind: Network is down");
    EXPECT_FALSE(sockets.lastIsOpen());
    ports.downIs(7, false);
    pam->enabledIs(true);
    inject(10, 2);
    runUntilIdle();
    EXPECT_EQ(received(), (std::vector<unsigned>{10, 11}));
    EXPECT_TRUE(pam->enabled());
}

TEST_F(EthDevPamTest, FramesOfADeviceThatWentDownWaitForWhoTakesThem) {
    auto reaction = announce();
    pam->enabledIs(true);
    inject(1, 2);
    ports.downIs(7, true);
    runUntilIdle();
    EXPECT_FALSE(pam->enabled());
    EXPECT_EQ(announced, std::vector<uint32_t>{2});
    ports.downIs(7, false);
    pam->enabledIs(true);
    inject(3);
    runUntilIdle();
    EXPECT_EQ(received(), (std::vector<unsigned>{1, 2, 3}));
    ports.downIs(7, true); // with nothing to announce
    runUntilIdle();
    EXPECT_FALSE(pam->enabled());
    EXPECT_EQ(announced, (std::vector<uint32_t>{2, 3}));
}

TEST_F(EthDevPamTest, WhoIsToldMayEndIt) {
    pam->enabledIs(true);
    unsigned told = 0;
    auto reaction = pam->readableCountAttribute().react(nullptr, [&] {
        ++told;
        pam->destroy();
    });
    inject(1, 2);
    runUntilIdle();
    EXPECT_EQ(told, 1u);
    EXPECT_FALSE(sockets.lastIsOpen());
    EXPECT_FALSE(pam->rxPkt());
}

TEST_F(EthDevPamTest, ALongFrameIsCut) {
    pam->enabledIs(true);
    ports.inject(7, Frame(EthDevPam::frameBytes + 1, 1));
    inject(2);
    runUntilIdle();
    auto pkt = pam->rxPkt();
    ASSERT_TRUE(pkt);
    EXPECT_EQ(pkt->size(), EthDevPam::frameBytes);
    EXPECT_EQ(received(), std::vector<unsigned>{2});
}

TEST_F(EthDevPamTest, PrioritiesReachTheSocket) {
    EXPECT_EQ(pam->sockPrio(), 0u);
    pam->sockPrioIs(6);
    pam->enabledIs(true);
    int priority = -1;
    socklen_t length = sizeof priority;
    ASSERT_EQ(getsockopt(sockets.lastFd, SOL_SOCKET, SO_PRIORITY, &priority, &length), 0);
    EXPECT_EQ(priority, 6);
}

template <class Set>
void expectRefused(Set set, std::string_view text) {
    try {
        set();
        ADD_FAILURE() << "allowed, not: " << text;
    } catch (const Vela::RangeError& error) {
        EXPECT_EQ(error.what(), text);
    }
}

TEST_F(EthDevPamTest, ItsLimits) {
    pam->sockPrioIs(15);
    expectRefused([&] { pam->sockPrioIs(16); },
                  "Zinc::EthDevPam::sockPrio < 0 or > 15 not allowed");
    EXPECT_EQ(pam->sockPrio(), 15u);
    for (uint32_t frames : {1u, 64u}) {
        pam->socketReadLimitIs(frames);
        EXPECT_EQ(pam->socketReadLimit(), frames);
    }
    for (uint32_t frames : {0u, 65u}) {
        expectRefused([&] { pam->socketReadLimitIs(frames); },
                      "Zinc::EthDevPam::socketReadLimit < 1 or > 64 not allowed");
    }
    EXPECT_EQ(pam->socketReadLimit(), 64u);
}

TEST_F(EthDevPamTest, SaysWhatItIs) {
    EXPECT_STREQ(pam->typeName(), "EthDevPam");
    std::ostringstream derived;
    pam->formatDerivedType(derived);
    EXPECT_EQ(derived.str(), "Vlan10");
    pam->netNsIs("default");
    pam->enabledIs(true);
    Vela::DumpContext dump;
    pam->dumpState(dump, 2);
    EXPECT_EQ(dump.text(), "  EthDevPam Vlan10 enabled\n    ethProtocol=2054\n    netNs=default\n");
}

} // namespace

} // namespace Zinc
