#pragma once

#include "ArpSuppression/ArpSuppressionAgent.h"
#include "Testing/LiveSwitch.h"
#include "Testing/TrapFrame.h"
#include "Testing/VethPort.h"
#include "tests/netns/Decoder.h"

#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Netns {

using ArpSuppression::MessageTapSocketSm;
using Id = ArpSuppression::ArpSuppressionCounterId;
using Moved = std::map<Id, uint64_t>;
using Frame = Testing::VethPort::Frame;
using Testing::TrapFrame;

enum class Hardware { physical, simulated };

/// The agent on real sockets, in a network namespace of the test's own: EVPN is configured,
/// suppression is active on VLAN 10, Ethernet1 (11) is a port. 10.0.0.1 (02:00:00:00:00:01) asks;
/// 10.0.0.2 (02:00:00:00:00:02) is remote; nobody knows 10.0.0.9.
class NetnsFixture : public ::testing::Test {
  protected:
    NetnsFixture();
    ~NetnsFixture() override;

    /// Makes the trap devices that such a switch has, and starts the agent.
    void start(Hardware hardware);
    /// The devices go and come as the kernel has them, without a word to the switch.
    void portIs(const std::string& name);
    void portDel(const std::string& name) { ports_.erase(name); }
    Testing::VethPort& port(const std::string& name) { return *ports_.at(name); }
    /// Publishes a device's kernel index, and waits until the agent has seen it; 0: it is gone.
    void ifIndexIs(const std::string& name, uint32_t ifIndex);

    /// Waits for as many frames out of a device, and returns all that came when nothing is left to
    /// do.
    std::vector<Frame> sent(const std::string& name, size_t count);
    void turnUntilIdle() { ASSERT_TRUE(live_->turnUntilIdle()); }
    /// Waits until the counters of the road of frames have moved so, since the last call or the
    /// start; returns how they have.
    Moved moved(const Moved& expected);

    Vela::SwitchState& state() { return live_->state(); }
    Testing::LiveSwitch& live() { return *live_; }
    const MessageTapSocketSm& trapSm() { return *agent_->rootSm()->messageTrapSm(); }
    const MessageTapSocketSm& reinjectSm() { return *agent_->rootSm()->messageReinjectSm(); }

    static constexpr uint32_t ethernet1Index = 11;
    static const std::string senderMac, remoteMac, bridgeMac, broadcast, noMac;
    /// A request for an address that another switch advertises, and one that nobody does.
    static TrapFrame request(std::optional<uint16_t> tag = {}) { return {.dot1q = tag}; }
    static TrapFrame unknownRequest(std::optional<uint16_t> tag = {}) {
        return {.dot1q = tag, .targetIp = Zinc::IpGenAddr("10.0.0.9")};
    }
    /// What they should lead to.
    static boost::json::array replyLayers();
    static boost::json::object unknownArp() {
        return arp(1, senderMac, "10.0.0.1", noMac, "10.0.0.9");
    }

  private:
    Moved movedSoFar() const;

    const uint64_t entitiesBefore_ = Vela::Entity::liveCount();
    std::map<std::string, std::unique_ptr<Testing::VethPort>> ports_;
    std::unique_ptr<Testing::LiveSwitch> live_;
    Vela::Ptr<ArpSuppression::ArpSuppressionAgent> agent_;
    std::array<uint64_t, ArpSuppression::arpSuppressionCounters> counters_{};
};

} // namespace Netns
