#pragma once

#include "Platform/State/Attribute.h"
#include "Platform/Value/EthAddr.h"

namespace Routing::Fhrp {

/// The MAC addresses of virtual routers. The setter announces only a change.
class VirtualRouterMacStatus final : public Vela::Entity {
  public:
    const char* typeName() const noexcept override {
        return "Routing::Fhrp::VirtualRouterMacStatus";
    }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// Zero while VARP is not configured.
    const Zinc::EthAddr& varpVirtualMac() const { return varpVirtualMac_.get(); }
    const Vela::Attribute<Zinc::EthAddr>& varpVirtualMacAttribute() const {
        return varpVirtualMac_;
    }
    void varpVirtualMacIs(const Zinc::EthAddr& macAddr) { varpVirtualMac_.set(macAddr); }

  private:
    Vela::Attribute<Zinc::EthAddr> varpVirtualMac_;
};

} // namespace Routing::Fhrp
