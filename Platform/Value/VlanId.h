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

/// A VLAN, 1 to 4094. Text forms: 10.
class VlanId {
  public:
    constexpr VlanId() = default;
    /// Takes any integer, so that none wraps into a valid VLAN on its way here.
    explicit constexpr VlanId(uint64_t value) : value_(static_cast<uint16_t>(value)) {
        if (value < 1 || value > 4094) {
            throw Vela::RangeError("Bridging::VlanId::value < 1 or > 4094 not allowed");
        }
    }
    static VlanId fromValue(Vela::ValueParser& parser);

    constexpr uint16_t value() const { return value_; }

    uint64_t hash(uint64_t seed) const;
    std::string toStrep() const;
    std::string valueToStrep() const { return toStrep(); }

    friend constexpr bool operator==(VlanId, VlanId) = default;
    friend constexpr std::strong_ordering operator<=>(VlanId, VlanId) = default;
    friend std::ostream& operator<<(std::ostream& out, VlanId v) { return out << v.valueToStrep(); }

  private:
    uint16_t value_ = 1;
};

/// A VLAN or none, which is 0. Text forms: 10, 0.
class VlanIdOrNone {
  public:
    constexpr VlanIdOrNone() = default;
    explicit constexpr VlanIdOrNone(uint64_t value) : value_(static_cast<uint16_t>(value)) {
        if (value > 4094) {
            throw Vela::RangeError("Bridging::VlanIdOrNone::value > 4094 not allowed");
        }
    }
    constexpr VlanIdOrNone(VlanId vlanId) : value_(vlanId.value()) {}
    static VlanIdOrNone fromValue(Vela::ValueParser& parser);

    constexpr uint16_t value() const { return value_; }
    explicit constexpr operator bool() const { return value_ != 0; }
    /// None has no VLAN id and raises VlanId's range error.
    constexpr VlanId vlanId() const { return VlanId(value_); }

    uint64_t hash(uint64_t seed) const;
    std::string toStrep() const;
    std::string valueToStrep() const { return toStrep(); }

    friend constexpr bool operator==(VlanIdOrNone, VlanIdOrNone) = default;
    friend constexpr std::strong_ordering operator<=>(VlanIdOrNone, VlanIdOrNone) = default;
    friend std::ostream& operator<<(std::ostream& out, VlanIdOrNone v) {
        return out << v.valueToStrep();
    }

  private:
    uint16_t value_ = 0;
};

} // namespace Bridging
