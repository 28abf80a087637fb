#pragma once

#include "Platform/State/Attribute.h"

namespace Evpn {

/// How EVPN frames are carried over MPLS. The setters announce only a change.
class MplsConfig final : public Vela::Entity {
  public:
    const char* typeName() const noexcept override { return "Evpn::MplsConfig"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// Whether a carried frame gets an 802.1Q tag where its bundle does not ask for one.
    bool innerDot1qDefault() const { return innerDot1qDefault_.get(); }
    const Vela::Attribute<bool>& innerDot1qDefaultAttribute() const { return innerDot1qDefault_; }
    void innerDot1qDefaultIs(bool present) { innerDot1qDefault_.set(present); }

    /// Whether a control word stands between the labels and the carried frame.
    bool controlWordEnabled() const { return controlWordEnabled_.get(); }
    const Vela::Attribute<bool>& controlWordEnabledAttribute() const { return controlWordEnabled_; }
    void controlWordEnabledIs(bool enabled) { controlWordEnabled_.set(enabled); }

  private:
    Vela::Attribute<bool> innerDot1qDefault_;
    Vela::Attribute<bool> controlWordEnabled_;
};

} // namespace Evpn
