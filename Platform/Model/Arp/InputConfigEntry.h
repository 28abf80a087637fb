#pragma once

#include "Platform/Value/EthAddr.h"
#include "Platform/Value/IntfId.h"
#include "Platform/Value/IpGenAddr.h"

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

namespace Vela {
class ValueParser;
}

namespace Arp {

/// Who asked for a neighbour entry. Values that have no name here are other agents'.
/// toStrep: arpSuppression, or the number.
enum class ArpSource : uint8_t {
    kernel = 0, ///< the kernel itself, or nobody known
    arpSuppression = 110,
};

std::string toStrep(ArpSource source);
inline std::ostream& operator<<(std::ostream& out, ArpSource source) {
    return out << toStrep(source);
}

namespace ArpType {

/// Text forms: permanent, dynamic.
enum class ArpTypeId : uint8_t { permanent = 0, dynamic = 1 };

const char* toStrep(ArpTypeId type);
inline std::ostream& operator<<(std::ostream& out, ArpTypeId type) {
    return out << toStrep(type);
}

} // namespace ArpType

/// Whether the kernel is to verify a dynamic entry at once. Text forms: none, immediate.
enum class QuickRefresh : uint8_t { none = 0, immediate = 1 };

const char* toStrep(QuickRefresh refresh);
inline std::ostream& operator<<(std::ostream& out, QuickRefresh refresh) {
    return out << toStrep(refresh);
}

/// The key of a neighbour entry within a VRF. toStrep: <ipAddress=10.0.0.1 intfId=Vlan10>
/// Value form: Value('Arp::InputConfigKey', ** {'ipAddress': '10.0.0.1', 'intfId': 'Vlan10'})
class InputConfigKey {
  public:
    constexpr InputConfigKey() = default;
    constexpr InputConfigKey(const Zinc::IpGenAddr& ipAddress, Zinc::IntfId intfId)
        : ipAddress_(ipAddress), intfId_(intfId) {}
    static InputConfigKey fromValue(Vela::ValueParser& parser);

    constexpr const Zinc::IpGenAddr& ipAddress() const { return ipAddress_; }
    constexpr Zinc::IntfId intfId() const { return intfId_; }

    uint64_t hash(uint64_t seed) const;
    std::string toStrep() const;
    std::string valueToStrep() const;

    /// By address, then by interface (see IntfId about its order).
    friend constexpr bool operator==(const InputConfigKey&, const InputConfigKey&) = default;
    friend constexpr std::strong_ordering operator<=>(const InputConfigKey&,
                                                      const InputConfigKey&) = default;
    friend std::ostream& operator<<(std::ostream& out, const InputConfigKey& v) {
        return out << v.valueToStrep();
    }

  private:
    Zinc::IpGenAddr ipAddress_;
    Zinc::IntfId intfId_;
};

/// A neighbour entry that is to be installed. 10 bytes: a million of them may exist.
/// toStrep: <macAddress=02:00:00:00:00:0a type=dynamic source=arpSuppression quickRefresh=none>
/// Value form: Value('Arp::InputConfigEntry', ** {'macAddress': '02:00:00:00:00:0a', 'type':
/// 'dynamic', 'source': 110, 'quickRefresh': 'none'})
class InputConfigEntry {
  public:
    constexpr InputConfigEntry() = default;
    constexpr InputConfigEntry(const Zinc::EthAddr& macAddress, ArpType::ArpTypeId type,
                               ArpSource source, QuickRefresh quickRefresh = QuickRefresh::none)
        : macAddress_(macAddress), type_(type), source_(source), quickRefresh_(quickRefresh) {}
    static InputConfigEntry fromValue(Vela::ValueParser& parser);

    constexpr const Zinc::EthAddr& macAddress() const { return macAddress_; }
    constexpr ArpType::ArpTypeId type() const { return type_; }
    constexpr ArpSource source() const { return source_; }
    constexpr QuickRefresh quickRefresh() const { return quickRefresh_; }

    /// Marks of who carries entries out to the kernel, so that it needs no copy of its own. They
    /// are no part of the value: entries compare and print without them, and setting them, on a
    /// stored entry too, announces nothing. 0 in an entry that is new or has changed.
    uint8_t carriedOut() const { return carriedOut_; }
    void carriedOutIs(uint8_t marks) const { carriedOut_ = marks; }

    std::string toStrep() const;
    std::string valueToStrep() const;

    friend constexpr bool operator==(const InputConfigEntry& a, const InputConfigEntry& b) {
        return a.macAddress_ == b.macAddress_ && a.type_ == b.type_ && a.source_ == b.source_ &&
               a.quickRefresh_ == b.quickRefresh_;
    }
    friend std::ostream& operator<<(std::ostream& out, const InputConfigEntry& v) {
        return out << v.valueToStrep();
    }

  private:
    Zinc::EthAddr macAddress_;
    ArpType::ArpTypeId type_ = ArpType::ArpTypeId::permanent;
    ArpSource source_ = ArpSource::kernel;
    QuickRefresh quickRefresh_ = QuickRefresh::none;
    mutable uint8_t carriedOut_ = 0;
};

} // namespace Arp
