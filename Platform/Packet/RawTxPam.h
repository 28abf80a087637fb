#pragma once

#include "Platform/Base/UniqueFd.h"
#include "Platform/Packet/Pkt.h"
#include "Platform/State/Entity.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace Vela {

/// Sends whole frames out of interfaces. It has a socket while it is enabled, and receives nothing.
class RawTxPam final : public Entity {
  public:
    explicit RawTxPam(std::string name) : name_(std::move(name)) {}

    const char* typeName() const noexcept override { return "RawTxPam"; }
    void formatDerivedType(std::ostream& out) const override;
    void dumpState(DumpContext& context, int indent) const override;

    const std::string& name() const { return name_; }

    /// The Ethernet protocol that the kernel files sent frames under, in host byte order; 3 for
    /// what each frame says itself.
    uint16_t ethProtocol() const { return ethProtocol_; }
    void ethProtocolIs(uint16_t protocol) { ethProtocol_ = protocol; }

    bool enabled() const { return static_cast<bool>(fd_); }
    /// Throws std::system_error if there can be no socket.
    void enabledIs(bool enabled);

    /// Sends packets, in their order, out of the interface with this kernel index, as many as can
    /// be with one system call. Returns how many went; if not all of them, the next one failed, for
    /// the reason in `errno`. Quickest from one interface again and again: the socket stays bound
    /// to it.
    size_t transmit(std::span<const boost::intrusive_ptr<Pkt>> pkts, uint32_t ifIndex);

  protected:
    void handleDestroy() noexcept override { fd_.reset(); }

  private:
    using Frames = std::span<const std::span<const uint8_t>>;

    size_t send(Frames frames, uint32_t ifIndex);
    size_t sendBound(Frames frames, uint32_t ifIndex);

    const std::string name_;
    uint16_t ethProtocol_ = 0;
    UniqueFd fd_;
    uint32_t boundTo_ = 0; // an interface's index; 0: not bound
};

} // namespace Vela
