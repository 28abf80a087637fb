#pragma once

#include "Platform/State/Collection.h"
#include "Platform/Value/VrfId.h"
#include "Platform/Value/VrfName.h"

namespace Vrf::VrfIdMap {

/// The ids of VRFs by their names. The setter announces only a change.
class NameToIdMap final : public Vela::Entity {
  public:
    using VrfIdCollection = Vela::Map<L3::VrfName, VrfId>;

    const char* typeName() const noexcept override { return "Vrf::VrfIdMap::NameToIdMap"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const VrfIdCollection& vrfIdCollection() const { return vrfId_; }
    /// The invalid id for a name that has none.
    VrfId vrfId(const L3::VrfName& vrfName) const { return vrfId_.value(vrfName); }
    void vrfIdIs(const L3::VrfName& vrfName, VrfId vrfId) { vrfId_.set(vrfName, vrfId); }
    void vrfIdDel(const L3::VrfName& vrfName) { vrfId_.del(vrfName); }
    void vrfIdDelAll() { vrfId_.delAll(); }

  private:
    VrfIdCollection vrfId_;
};

} // namespace Vrf::VrfIdMap
