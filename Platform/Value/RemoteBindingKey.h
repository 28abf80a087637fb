#pragma once

#include "Platform/Base/Hash.h"
#include "Platform/Value/IpGenAddr.h"
#include "Platform/Value/VlanId.h"

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

namespace Vela {
class ValueParser;
}

namespace ArpSuppression {

/// The key of a binding learnt from a remote tunnel end point: an IP address on a VLAN. The empty
/// key is VLAN 1 with the unset address. 20 bytes.
/// toStrep: <vlanId=10 ipAddress=10.0.0.1>
/// Value form: Value('ArpSuppression::RemoteBindingKey', ** {'vlanId': 10, 'ipAddress':
/// '10.0.0.1'})
class RemoteBindingKey {
  public:
    constexpr RemoteBindingKey() = default;
    constexpr RemoteBindingKey(Bridging::VlanId vlanId, const Zinc::IpGenAddr& ipAddress)
        : vlanId_(vlanId), ipAddress_(ipAddress) {}
    static RemoteBindingKey fromValue(Vela::ValueParser& parser);

    constexpr Bridging::VlanId vlanId() const { return vlanId_; }
    constexpr const Zinc::IpGenAddr& ipAddress() const { return ipAddress_; }
    /// Differs from the empty key.
    explicit constexpr operator bool() const { return *this != RemoteBindingKey(); }

    uint64_t hash(uint64_t seed) const {
        Vela::IncrementalHash hash(seed);
        hash.mix(vlanId_.value());
        hash.mix(ipAddress_.hash(seed));
        return hash.result();
    }
    std::string toStrep() const;
    std::string valueToStrep() const;

    friend constexpr bool operator==(const RemoteBindingKey&, const RemoteBindingKey&) = default;
    friend constexpr std::strong_ordering operator<=>(const RemoteBindingKey&,
                                                      const RemoteBindingKey&) = default;
    friend std::ostream& operator<<(std::ostream& out, const RemoteBindingKey& v) {
        return out << v.valueToStrep();
    }

  private:
    Bridging::VlanId vlanId_;
    Zinc::IpGenAddr ipAddress_;
    // Always zero, in the place of padding: copied to where others can read it, the key must not
    // carry along a byte that nobody wrote.
    uint8_t unused_ = 0;
};

} // namespace ArpSuppression
