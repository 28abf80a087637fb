#pragma once

#include "Platform/Base/UniqueFd.h"
#include "Platform/Packet/Pkt.h"
#include "Platform/State/Entity.h"

#include <cstdint>
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

    /// Sends the packet out of the interface with this kernel index. Returns whether it went, and
    /// if not, leaves the reason in `errno`. Quickest from one interface again and again: the
    /// socket stays bound to it.
    bool transmit(const Pkt& pkt, uint32_t ifIndex);

  protected:
    void handleDestroy() noexcept override { fd_.reset(); }

  private:
    bool sendBound(const Pkt& pkt, uint32_t ifIndex);

    const std::string name_;
    uint16_t ethProtocol_ = 0;
    UniqueFd fd_;
    uint32_t boundTo_ = 0; // an interface's index; 0: not bound
};

} // namespace Vela
