#pragma once

#include "Platform/Packet/Pkt.h"
#include "Platform/Scheduler/FileDescriptor.h"
#include "Platform/Scheduler/TaskScheduler.h"
#include "Platform/State/Attribute.h"

#include <cstdint>
#include <deque>
#include <string>

namespace Zinc {

/// Receives the frames of one Ethernet protocol on one device, which it finds by name when it is
/// enabled; it has a socket while it is. The socket stays with the device that had the name then,
/// and when that goes down, it disables itself: what comes up under the name may be another device.
///
/// Frames that arrive are announced, not handed over: who uses it takes them with `rxPkt`, in its
/// own time and outside the announcement, until there is none.
class EthDevPam : public Vela::Entity {
  public:
    static constexpr size_t frameBytes = 10'000; ///< what is longer is cut

    EthDevPam(Vela::Ptr<Vela::TaskScheduler> scheduler, std::string name);

    const char* typeName() const noexcept override { return "EthDevPam"; }
    void formatDerivedType(std::ostream& out) const override;
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// The device's name.
    const std::string& name() const { return name_; }

    // These hold from the next time on that it is enabled.

    /// In host byte order.
    uint16_t ethProtocol() const { return ethProtocol_; }
    void ethProtocolIs(uint16_t protocol) { ethProtocol_ = protocol; }
    /// The network namespace of the device, as Vela::NetNsGuard takes it.
    const std::string& netNs() const { return netNs_; }
    void netNsIs(std::string netNs) { netNs_ = std::move(netNs); }
    /// The socket's priority in the kernel, 0 to 15; throws Vela::RangeError.
    uint32_t sockPrio() const { return sockPrio_; }
    void sockPrioIs(uint32_t priority);
    /// How many frames are taken out of the socket ahead of who uses them, 1 to 64; throws
    /// Vela::RangeError.
    uint32_t socketReadLimit() const { return socketReadLimit_; }
    void socketReadLimitIs(uint32_t frames);

    bool enabled() const { return static_cast<bool>(fileDescriptor_); }
    /// Throws std::system_error if there is no such namespace or device there, if the device is
    /// down, or if there is no socket to be had; it is as it was then. Frames that wait are gone
    /// once it is disabled.
    void enabledIs(bool enabled);
    /// The kernel index of the device; 0 while it is not enabled.
    uint32_t ifIndex() const { return ifIndex_; }

    /// Frames that were taken out of the socket and wait; there may be more. Announced when some
    /// have arrived; who is told may destroy it.
    uint32_t readableCount() const { return readableCount_.get(); }
    const Vela::Attribute<uint32_t>& readableCountAttribute() const { return readableCount_; }

    /// Takes the next frame, in the order of arrival; none if there is none now.
    Vela::Ptr<Vela::Pkt> rxPkt();

  protected:
    void handleDestroy() noexcept override { close(); }
    /// Its device went down and it has disabled itself. Frames that came before still wait.
    virtual void handleDeviceDown() {}

  private:
    void open();
    void close() noexcept;
    void closeSocket() noexcept;
    void handleReadable();
    void takeFrames();

    const Vela::Ptr<Vela::TaskScheduler> scheduler_;
    const std::string name_;
    uint16_t ethProtocol_ = 0;
    std::string netNs_;
    uint32_t sockPrio_ = 0;
    uint32_t socketReadLimit_ = 16;
    uint32_t ifIndex_ = 0;
    bool deviceWentDown_ = false; // frames that came before are still in the socket
    Vela::Owned<Vela::FileDescriptor> fileDescriptor_;
    Vela::Reaction readable_;
    std::deque<Vela::Ptr<Vela::Pkt>> frames_;
    Vela::Attribute<uint32_t> readableCount_;
};

} // namespace Zinc
