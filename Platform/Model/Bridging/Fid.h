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

/// A filtering database, by which the MAC table is keyed, or none, which is 0. Text forms: 10, 0.
class Fid {
  public:
    constexpr Fid() = default;
    /// Takes any integer, so that none wraps into a valid FID on its way here.
    explicit constexpr Fid(uint64_t value) : value_(static_cast<uint16_t>(value)) {
        if (value > 65535) {
            throw Vela::RangeError("Bridging::Fid::value > 65535 not allowed");
        }
    }
    static Fid fromValue(Vela::ValueParser& parser);

    constexpr uint16_t value() const { return value_; }
    explicit constexpr operator bool() const { return value_ != 0; }

    uint64_t hash(uint64_t seed) const;
    std::string toStrep() const;
    std::string valueToStrep() const { return toStrep(); }

    friend constexpr bool operator==(Fid, Fid) = default;
    friend constexpr std::strong_ordering operator<=>(Fid, Fid) = default;
    friend std::ostream& operator<<(std::ostream& out, Fid v) { return out << v.valueToStrep(); }

  private:
    uint16_t value_ = 0;
};

} // namespace Bridging
