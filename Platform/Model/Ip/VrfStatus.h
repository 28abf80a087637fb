#pragma once

#include "Platform/State/Attribute.h"
#include "Platform/State/Collection.h"
#include "Platform/Value/VrfName.h"

#include <cstdint>
#include <ostream>
#include <string>

namespace Ip {

/// Text forms: initializing, active, deleting.
enum class VrfState : uint8_t { initializing = 0, active = 1, deleting = 2 };

const char* toStrep(VrfState state);
inline std::ostream& operator<<(std::ostream& out, VrfState state) {
    return out << toStrep(state);
}

/// A VRF as this switch has set it up. The setters announce only a change.
class VrfStatusLocal final : public Vela::Entity {
  public:
    explicit VrfStatusLocal(L3::VrfName vrfName) : vrfName_(std::move(vrfName)) {}

    const char* typeName() const noexcept override { return "Ip::VrfStatusLocal"; }
    void formatDerivedType(std::ostream& out) const override;
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const L3::VrfName& vrfName() const { return vrfName_; }

    VrfState state() const { return state_.get(); }
    const Vela::Attribute<VrfState>& stateAttribute() const { return state_; }
    void stateIs(VrfState state) { state_.set(state); }

    /// Name of the VRF's kernel network namespace. It does not change while the VRF is active: who
    /// has to change it removes the entry and makes a new one.
    const std::string& networkNamespace() const { return networkNamespace_.get(); }
    const Vela::Attribute<std::string>& networkNamespaceAttribute() const {
        return networkNamespace_;
    }
    void networkNamespaceIs(std::string name) { networkNamespace_.set(std::move(name)); }

  private:
    const L3::VrfName vrfName_;
    Vela::Attribute<VrfState> state_;
    Vela::Attribute<std::string> networkNamespace_;
};

/// The VRFs of this switch; it owns the entries.
class AllVrfStatusLocal final : public Vela::Entity {
  public:
    using VrfCollection = Vela::Map<L3::VrfName, Vela::Ptr<VrfStatusLocal>>;

    const char* typeName() const noexcept override { return "Ip::AllVrfStatusLocal"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const VrfCollection& vrfCollection() const { return vrf_; }
    Vela::Ptr<VrfStatusLocal> vrf(const L3::VrfName& vrfName) const { return vrf_.value(vrfName); }
    Vela::Ptr<VrfStatusLocal> vrfIs(const L3::VrfName& vrfName);
    void vrfDel(const L3::VrfName& vrfName);
    void vrfDelAll();

  protected:
    void handleDestroy() noexcept override { vrfDelAll(); }

  private:
    VrfCollection vrf_;
};

} // namespace Ip
