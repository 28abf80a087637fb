#pragma once

#include "Platform/Value/IpGenAddr.h"

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

namespace Vela {
class ValueParser;
}

namespace Ip {

/// An address of an interface, IPv4 or IPv6, with the length of its network's prefix. Zero unless
/// given. toStrep: 10.0.0.1/24, nothing if the address is unset.
/// Value form: Value('Ip::AddrWithMask', ** {'address': '10.0.0.1', 'prefixLen': 24})
class AddrWithMask {
  public:
    constexpr AddrWithMask() = default;
    /// Throws RangeError if the prefix is longer than the address; an unset one has no bits.
    AddrWithMask(const Zinc::IpGenAddr& address, uint32_t prefixLen);
    static AddrWithMask fromValue(Vela::ValueParser& parser);

    constexpr const Zinc::IpGenAddr& address() const { return address_; }
    constexpr uint8_t prefixLen() const { return prefixLen_; }
    /// There is no address: it is unset, 0.0.0.0 or ::.
    constexpr bool isZero() const { return address_.isUnset() || address_.isUnspecified(); }

    uint64_t hash(uint64_t seed) const;
    std::string toStrep() const;
    std::string valueToStrep() const;

    /// By address, then by prefix length.
    friend constexpr bool operator==(const AddrWithMask&, const AddrWithMask&) = default;
    friend constexpr std::strong_ordering operator<=>(const AddrWithMask&,
                                                      const AddrWithMask&) = default;
    friend std::ostream& operator<<(std::ostream& out, const AddrWithMask& v) {
        return out << v.valueToStrep();
    }

  private:
    Zinc::IpGenAddr address_;
    uint8_t prefixLen_ = 0;
};

} // namespace Ip
