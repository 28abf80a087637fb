#pragma once

#include "Testing/LiveSwitch.h"

#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace Netns {

/// Runs `ip` with words that are parted by spaces. Throws std::runtime_error with what it has to
/// say if it fails.
void ip(const std::string& words);
/// Runs `ip` or `bridge` once with many lines.
void ipBatch(const std::string& lines);
void bridgeBatch(const std::string& lines);

/// The memory areas that packet sockets share with this process.
size_t packetRings();

/// A switch without an agent, in real time, in a network namespace of the test's own and with names
/// of namespaces of its own. The test ends with an error if it leaves an entity behind.
class LiveKernelFixture : public ::testing::Test {
  protected:
    LiveKernelFixture();
    ~LiveKernelFixture() override;

    Testing::LiveSwitch& live() { return *live_; }
    Vela::SwitchState& state() { return live_->state(); }

  private:
    const uint64_t entitiesBefore_ = Vela::Entity::liveCount();
    std::unique_ptr<Testing::LiveSwitch> live_;
};

} // namespace Netns
