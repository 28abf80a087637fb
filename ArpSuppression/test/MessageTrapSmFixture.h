#pragma once

#include "ArpSuppression/MessageTrapSm.h"
#include "ArpSuppression/test/TapFixture.h"
#include "Platform/Packet/Headers.h"
#include "Platform/Packet/NeighborDiscovery.h"
#include "Platform/Packet/Pkt.h"
#include "Testing/TraceCapture.h"
#include "Testing/TrapFrame.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace ArpSuppression {

/// A neighbour discovery message as it is trapped.
struct NdFrame {
    uint8_t type = Vela::Icmp6Hdr::neighborSolicitation;
    std::optional<uint16_t> dot1q = {};
    uint8_t option = 1; ///< the one with 02:00:00:00:00:99 in it; 0: none
    Zinc::IpGenAddr src{"fe80::1"};
    Zinc::IpGenAddr dst{"ff02::1:ff00:2"};
    Zinc::IpGenAddr target{"2001:db8::2"};
    uint8_t nextHeader = Vela::Ip6Hdr::icmp6;
    uint8_t hopLimit = 255;
    uint32_t vlanId = 10;
    Testing::Frame trailer = {};

    Testing::Frame bytes() const {
        Testing::Frame message = {type, 0, 0, 0, 0, 0, 0, 0};
        if (type == Vela::Icmp6Hdr::neighborSolicitation ||
            type == Vela::Icmp6Hdr::neighborAdvertisement) {
            message.insert(message.end(), target.bytes().begin(), target.bytes().end());
        }
        if (option != 0) {
            Testing::Frame bytes = {option, 1, 2, 0, 0, 0, 0, 0x99};
            message.insert(message.end(), bytes.begin(), bytes.end());
        }
        Vela::Ip6Hdr ip6;
        ip6.payloadLength = static_cast<uint16_t>(message.size());
        ip6.nextHeader = nextHeader;
        ip6.hopLimit = hopLimit;
        ip6.src = src;
        ip6.dst = dst;
        uint16_t checksum = Arp::icmp6Checksum(ip6, message);
        message[2] = static_cast<uint8_t>(checksum >> 8);
        message[3] = static_cast<uint8_t>(checksum);

        Testing::Frame payload(dot1q ? 44 : 40);
        Vela::WireWriter writer(payload);
        if (dot1q) {
            Vela::Dot1qHdr{.vlanId = *dot1q, .etherType = Vela::EtherType::ipv6}.write(writer);
        }
        ip6.write(writer);
        payload.insert(payload.end(), message.begin(), message.end());
        payload.insert(payload.end(), trailer.begin(), trailer.end());
        return Testing::trapFrame(vlanId, 11,
                                  dot1q ? Vela::EtherType::dot1q : Vela::EtherType::ipv6, payload);
    }
};

/// The trap machine of a switch that forwards in software: suppression is active on VLAN 10, VLAN
/// 30 is known but not active, and Ethernet1 (11) is a port.
class MessageTrapSmFixture : public TapFixture {
  protected:
    static constexpr uint32_t arpsnoop = 101;

    MessageTrapSmFixture() {
        status->vlanIdIs(Bridging::VlanId(10), true);
        status->vlanIdIs(Bridging::VlanId(30), false);
        devices->deviceIntfStatusIs(11, {ethernet1, "et1"});
        deviceIs("arpsnoop", arpsnoop);
    }
    ~MessageTrapSmFixture() override {
        sm.reset();
        subInterfaces->destroy();
    }

    void make(bool withDirectories = true) {
        sm = Vela::make<MessageTrapSmMimic>(
            scheduler(), vlanL3InfoStatus, trapV4, trapV6, queue,
            Vela::Ptr<const ArpSuppressionStatus>(status), counterStatus,
            withDirectories ? Vela::Ptr<const Interface::DeviceIntfStatusDir>(devices) : nullptr,
            withDirectories ? Vela::Ptr<const Brant::IntfEncapServiceIntfColl>(subInterfaces)
                            : nullptr);
        runUntilIdle();
        countersMoved();
    }

    void trap(const Testing::Frame& frame) {
        if (!sm) {
            make();
        }
        ports.inject(arpsnoop, frame);
        runUntilIdle();
    }

    /// Traps a frame that is accepted, and returns what it was published as.
    Vela::Ptr<const TrappedMessage> published(const Testing::Frame& frame, const Moved& moved) {
        size_t before = messages.size();
        trap(frame);
        EXPECT_EQ(countersMoved(), moved);
        EXPECT_EQ(messages.size(), before + 1);
        EXPECT_EQ(queue->messages(), 0u);
        if (messages.size() != before + 1) {
            return nullptr;
        }
        EXPECT_TRUE(std::ranges::equal(messages.back()->pkt()->bytes(), frame));
        return messages.back();
    }

    /// Traps a frame that is refused: one counter, one line, nothing else. With `withData` the
    /// line ends with the frame.
    void expectRefused(const Testing::Frame& frame, Id counter, const std::string& text,
                       bool withData = true) {
        if (!sm) {
            make();
        }
        size_t before = messages.size();
        Testing::TraceCapture lines("ArpSuppression=8");
        trap(frame);
        EXPECT_EQ(countersMoved(), (Moved{{counter, 1}})) << hex(frame);
        EXPECT_TRUE(lines.contains(text + (withData ? hex(frame) : "") + "\n"))
            << "expected: " << text << "\n"
            << lines.text();
        EXPECT_FALSE(lines.contains(" attempting srcIntf lookup"));
        EXPECT_EQ(messages.size(), before);
        EXPECT_EQ(queue->messages(), 0u);
        EXPECT_TRUE(ports.written(arpsnoop).empty());
        EXPECT_TRUE(ports.sent(arpsnoop).empty());
    }

    static Testing::Frame first(const Testing::Frame& frame, size_t length) {
        return {frame.begin(), frame.begin() + static_cast<ptrdiff_t>(length)};
    }

    const Vela::Ptr<ArpSuppressionStatus> status = Vela::make<ArpSuppressionStatus>();
    const Vela::Ptr<Interface::DeviceIntfStatusDir> devices =
        Vela::make<Interface::DeviceIntfStatusDir>("");
    const Vela::Ptr<Brant::IntfEncapServiceIntfColl> subInterfaces =
        Vela::make<Brant::IntfEncapServiceIntfColl>();
    const Zinc::IntfId ethernet1{"Ethernet1"};
    Vela::Owned<MessageTrapSm> sm;

    // What was published, and by which trap.
    std::vector<Vela::Ptr<const TrappedMessage>> messages;
    std::vector<bool> wasV4;
    std::function<void()> onMessage = [] {};

  private:
    Vela::Reaction onV4_ = trapV4->lastTrappedMessageAttribute().react(nullptr, [this] {
        messages.push_back(trapV4->lastTrappedMessage());
        wasV4.push_back(true);
        onMessage();
    });
    Vela::Reaction onV6_ = trapV6->lastTrappedMessageAttribute().react(nullptr, [this] {
        messages.push_back(trapV6->lastTrappedMessage());
        wasV4.push_back(false);
        onMessage();
    });
};

} // namespace ArpSuppression
