#pragma once

#include "Platform/Base/Hash.h"

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

namespace Vela {
class ValueParser;
}

namespace Zinc {

/// An interface, known by its name: a 4-byte handle of the name, which the process interns and
/// keeps (at most 65536 of them, of at most 63 bytes). toStrep: Vlan10, value form: 'Vlan10'.
class IntfId {
  public:
    /// The empty interface id, the same as that of the empty name.
    constexpr IntfId() = default;
    /// Throws RangeError if the name is too long or one too many.
    explicit IntfId(std::string_view name);
    static IntfId fromValue(Vela::ValueParser& parser);

    explicit constexpr operator bool() const { return handle_ != 0; }

    /// Valid as long as the process.
    std::string_view name() const;
    /// Leading letters, if more than three and followed by a digit, shortened to two: Et1/2 for
    /// Ethernet1/2. Any other name as it is.
    std::string shortName() const;

    /// "Vlan" and a decimal number without leading zeros, be it a valid VLAN or not.
    bool isVlanIntf() const;
    /// That number, the largest uint32_t if it is greater; 0 for any other interface. So what is
    /// no VLAN here is none for VlanId either.
    uint32_t vlanNumber() const;

    uint64_t hash(uint64_t seed) const {
        Vela::IncrementalHash hash(seed);
        hash.mix(handle_);
        return hash.result();
    }
    std::string toStrep() const { return std::string(name()); }
    std::string valueToStrep() const;

    /// Orders by handle, that is by first use of the name: a total order good for lookups, which
    /// says nothing about the names.
    friend constexpr bool operator==(IntfId, IntfId) = default;
    friend constexpr std::strong_ordering operator<=>(IntfId, IntfId) = default;
    friend std::ostream& operator<<(std::ostream& out, IntfId v) { return out << v.valueToStrep(); }

  private:
    uint32_t handle_ = 0;
};

} // namespace Zinc
