#pragma once

#include "Platform/Base/Errors.h"

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

namespace Vela {
class ValueParser;
}

namespace Bridging {

/// The tag of a frame: tag protocol identifier and the 12 bits of VLAN id as they stand in it, of
/// which 0xFFF stands for a frame without a tag. Both in host byte order.
/// toStrep: <tpid=0x8100 vlanId=10>
/// Value form: Value('Bridging::VlanTag', ** {'tpid': 33024, 'vlanId': 10})
class VlanTag {
  public:
    static constexpr uint16_t dot1q = 0x8100;
    static constexpr uint16_t noVlanId = 0xFFF;

    /// Untagged.
    constexpr VlanTag() = default;
    constexpr VlanTag(uint16_t tpid, uint32_t vlanId)
        : tpid_(tpid), vlanId_(static_cast<uint16_t>(vlanId)) {
        if (vlanId > noVlanId) {
            throw Vela::RangeError("Bridging::VlanTag::vlanId > 4095 not allowed");
        }
    }
    static VlanTag fromValue(Vela::ValueParser& parser);

    constexpr uint16_t tpid() const { return tpid_; }
    constexpr uint16_t vlanId() const { return vlanId_; }
    constexpr bool isTagged() const { return vlanId_ != noVlanId; }

    uint64_t hash(uint64_t seed) const;
    std::string toStrep() const;
    std::string valueToStrep() const;

    friend constexpr bool operator==(VlanTag, VlanTag) = default;
    friend constexpr std::strong_ordering operator<=>(VlanTag, VlanTag) = default;
    friend std::ostream& operator<<(std::ostream& out, VlanTag v) {
        return out << v.valueToStrep();
    }

  private:
    uint16_t tpid_ = dot1q;
    uint16_t vlanId_ = noVlanId;
};

} // namespace Bridging
