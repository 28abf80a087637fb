#pragma once

#include "Platform/Model/Vrf/NameToIdMap.h"
#include "Platform/Model/Vrf/VrfIdMapStatus.h"

#include <map>

namespace Vrf::VrfIdMap {

/// Keeps a map from names to ids filled with what the table of ids holds: at once with what is
/// there, and then as it changes. Of two ids of one name the one that changed last counts. The map
/// keeps its entries when the mapper ends. Without a table it stays as it is.
class ReverseMapper final : public Vela::Entity {
  public:
    ReverseMapper(Vela::Ptr<const Status> status, Vela::Ptr<NameToIdMap> nameToIdMap);

    const char* typeName() const noexcept override { return "Vrf::VrfIdMap::ReverseMapper"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

  protected:
    void handleInitialized() override;

  private:
    void handleVrf(VrfId vrfId);
    void forget(VrfId vrfId);

    Vela::Ptr<const Status> status_;
    Vela::Ptr<NameToIdMap> nameToIdMap_;
    std::map<VrfId, L3::VrfName> known_; // what the table said last
    Vela::Reaction vrfReaction_;
};

} // namespace Vrf::VrfIdMap
