#pragma once

#include "Platform/Packet/PacketSockets.h"

#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace Testing {

using Frame = std::vector<uint8_t>;

/// Packet sockets without a kernel device behind them: what the code under test writes can be
/// looked at, and what it is to read put in. In use from construction to destruction.
class PacketPorts final : public Vela::PacketSockets {
  public:
    PacketPorts();
    ~PacketPorts() override;
    PacketPorts(const PacketPorts&) = delete;
    PacketPorts& operator=(const PacketPorts&) = delete;

    /// A device that can be found by its name; with index 0 it is gone, as all are at first.
    void deviceIs(const std::string& name, uint32_t ifIndex) { devices_[name] = ifIndex; }
    /// Whether the device is down; none is at first. While it is, no socket can be bound to it.
    /// Those that are bound when it goes down say so once, in front of what they have yet to read,
    /// and receive nothing more, also not when it is up again: it may have been made anew.
    void downIs(uint32_t ifIndex, bool down);
    /// Delivers a frame to every open socket bound to the interface for reading.
    void inject(uint32_t ifIndex, std::span<const uint8_t> frame);
    /// Takes what was written to sockets bound to the interface since the last call.
    std::vector<Frame> written(uint32_t ifIndex);
    /// Takes what was sent out of the interface, on a socket that receives nothing.
    std::vector<Frame> sent(uint32_t ifIndex);

    /// Forgets the ports of sockets that are closed, and what was written there.
    void forgetClosed();

    struct Binding {
        uint16_t protocol;
        uint32_t ifIndex;
    };
    /// Of the sockets that are open now, in the order of binding.
    std::vector<Binding> bindings() const;
    /// Sockets opened so far.
    unsigned opened() const { return opened_; }

    /// What the next calls fail with; 0: they do not.
    int openError = 0;
    int bindError = 0;
    int sendError = 0;

  private:
    uint32_t ifIndex(const std::string& deviceName) override;
    Vela::UniqueFd open(uint16_t protocol) override;
    int bind(int fd, uint16_t protocol, uint32_t ifIndex) override;
    ssize_t receive(int fd, std::span<uint8_t> frame) override;
    bool send(int fd, uint16_t protocol, uint32_t ifIndex, std::span<const uint8_t> frame) override;

    struct Port {
        Vela::UniqueFd far; ///< the test's end
        int near;           ///< the number of the other
        Binding binding{0, 0};
        bool dead = false; ///< its device went down
    };

    std::map<std::string, uint32_t> devices_;
    std::vector<Port> ports_;
    std::map<int, uint32_t> senders_; // the near end's number to the interface it is bound to
    std::map<int, size_t> unbound_;   // the near end's number to the index of its port
    std::map<uint32_t, std::vector<Frame>> sent_;
    std::set<uint32_t> down_;
    std::set<int> downUntold_; // the near ends that have yet to say so
    unsigned opened_ = 0;
};

} // namespace Testing
