#pragma once

#include "Platform/Base/Hash.h"
#include "Platform/Value/IntfId.h"
#include "Platform/Value/IpGenAddr.h"
#include "Platform/Value/VrfId.h"

#include <array>
#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

namespace Vela {
class ValueParser;
}

namespace Arp::Table {

/// The key of an entry in the kernel's ARP and neighbour tables. 28 bytes.
/// toStrep: <vrfId=1 intfId=Vlan10 addr=10.0.0.1>
/// Value form: Value('Arp::Table::ArpKey', ** {'vrfId': 1, 'intfId': 'Vlan10', 'addr': '10.0.0.1'})
class ArpKey {
  public:
    constexpr ArpKey() = default;
    constexpr ArpKey(Vrf::VrfId vrfId, Zinc::IntfId intfId, const Zinc::IpGenAddr& addr)
        : vrfId_(vrfId), intfId_(intfId), addr_(addr) {}
    static ArpKey fromValue(Vela::ValueParser& parser);

    constexpr Vrf::VrfId vrfId() const { return vrfId_; }
    constexpr Zinc::IntfId intfId() const { return intfId_; }
    constexpr const Zinc::IpGenAddr& addr() const { return addr_; }

    uint64_t hash(uint64_t seed) const {
        Vela::IncrementalHash hash(seed);
        hash.mix(vrfId_.value());
        hash.mix(intfId_.hash(seed));
        hash.mix(addr_.hash(seed));
        return hash.result();
    }
    std::string toStrep() const;
    std::string valueToStrep() const;

    /// By VRF id, interface (see IntfId about its order) and address.
    friend constexpr bool operator==(const ArpKey&, const ArpKey&) = default;
    friend constexpr std::strong_ordering operator<=>(const ArpKey&, const ArpKey&) = default;
    friend std::ostream& operator<<(std::ostream& out, const ArpKey& v) {
        return out << v.valueToStrep();
    }

  private:
    Vrf::VrfId vrfId_;
    Zinc::IntfId intfId_;
    Zinc::IpGenAddr addr_;
    // Always zero, in the place of padding: copied to where others can read it, the key must not
    // carry along bytes that nobody wrote.
    std::array<uint8_t, 3> unused_{};
};

} // namespace Arp::Table
