#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

namespace Vela {
class ValueParser;
}

namespace Vrf {

/// The platform's number for a VRF, invalid while the VRF has none. Text forms: 1.
class VrfId {
  public:
    static constexpr uint32_t invalid = 0xffffff;

    constexpr VrfId() = default;
    explicit constexpr VrfId(uint32_t value) : value_(value) {}
    static VrfId fromValue(Vela::ValueParser& parser);

    constexpr uint32_t value() const { return value_; }
    constexpr bool isValid() const { return value_ != invalid; }

    uint64_t hash(uint64_t seed) const;
    std::string toStrep() const;
    std::string valueToStrep() const { return toStrep(); }

    friend constexpr bool operator==(VrfId, VrfId) = default;
    friend constexpr std::strong_ordering operator<=>(VrfId, VrfId) = default;
    friend std::ostream& operator<<(std::ostream& out, VrfId v) { return out << v.valueToStrep(); }

  private:
    uint32_t value_ = invalid;
};

} // namespace Vrf
