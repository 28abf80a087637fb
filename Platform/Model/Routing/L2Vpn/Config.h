#pragma once

#include "Platform/State/Attribute.h"

namespace Routing::L2Vpn {

/// How layer-2 VPNs are to behave. The setter announces only a change.
class Config final : public Vela::Entity {
  public:
    const char* typeName() const noexcept override { return "Routing::L2Vpn::Config"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// Whether neighbour entries of remote bindings are installed only when somebody asks for them.
    bool selectiveArpInstall() const { return selectiveArpInstall_.get(); }
    const Vela::Attribute<bool>& selectiveArpInstallAttribute() const {
        return selectiveArpInstall_;
    }
    void selectiveArpInstallIs(bool selective) { selectiveArpInstall_.set(selective); }

  private:
    Vela::Attribute<bool> selectiveArpInstall_;
};

} // namespace Routing::L2Vpn
