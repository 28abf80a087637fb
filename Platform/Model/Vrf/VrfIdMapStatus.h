#pragma once

#include "Platform/Base/Assert.h"
#include "Platform/Quarry/Table.h"
#include "Platform/Quarry/TableCollection.h"
#include "Platform/Value/VrfId.h"
#include "Platform/Value/VrfName.h"

#include <array>
#include <string_view>

namespace Vrf::VrfIdMap {

/// The name of a VRF by its id. 108 bytes.
struct VrfIdEntry {
    using Key = VrfId;
    static constexpr const char* recordType = "Vrf::VrfIdMap::VrfIdEntry";

    VrfIdEntry() = default;
    VrfIdEntry(VrfId vrfId, const L3::VrfName& name) : key(vrfId) {
        length = static_cast<uint8_t>(name.bytes().copy(bytes.data(), bytes.size()));
    }

    VrfId key;
    uint8_t length = 0;
    std::array<char, 103> bytes{}; // zero beyond the name

    L3::VrfName vrfName() const { return std::string_view(bytes.data(), length); }
    friend bool operator==(const VrfIdEntry&, const VrfIdEntry&) = default;
};

/// The ids that the platform has given to VRFs.
class Status final : public Quarry::Table {
  public:
    static constexpr const char* tableType = "Vrf::VrfIdMap::Status";
    static constexpr uint32_t capacity = 1u << 16;

    explicit Status(const Quarry::TableSite& site) : Table(site), vrf_(*this, "vrf", capacity) {}
    const char* typeName() const noexcept override { return tableType; }

    const Quarry::TableCollection<VrfIdEntry>& vrfCollection() const { return vrf_; }
    bool vrfIs(VrfId vrfId, const L3::VrfName& name) { return vrf_.set({vrfId, name}); }
    bool vrfDel(VrfId vrfId) { return vrf_.del(vrfId); }

  private:
    Quarry::TableCollection<VrfIdEntry> vrf_;
};

} // namespace Vrf::VrfIdMap
