#pragma once

#include "Platform/Base/Hash.h"
#include "Platform/Model/Bridging/Fid.h"
#include "Platform/Quarry/Table.h"
#include "Platform/Quarry/TableCollection.h"
#include "Platform/Value/EthAddr.h"
#include "Platform/Value/IntfId.h"

#include <array>
#include <ostream>
#include <string>

namespace Bridging {

/// How a MAC address came into the MAC table.
enum class EntryType : uint8_t {
    none = 0,
    learnedDynamic = 1,       ///< seen on a local port
    configuredStatic = 2,     ///< put on a local port by an operator
    evpnDynamicRemote = 3,    ///< behind a remote tunnel end point
    evpnConfiguredRemote = 4, ///< the same, static there
    evpnLocalSegment = 5      ///< advertised by a peer on an Ethernet segment that is here, too
};

/// On a port of this switch.
constexpr bool isEntryTypeLocal(EntryType type) {
    return type == EntryType::learnedDynamic || type == EntryType::configuredStatic ||
           type == EntryType::evpnLocalSegment;
}
/// Known from EVPN.
constexpr bool isEntryTypeEvpn(EntryType type) {
    return type == EntryType::evpnDynamicRemote || type == EntryType::evpnConfiguredRemote ||
           type == EntryType::evpnLocalSegment;
}
/// The name of the enumerator.
const char* toStrep(EntryType type);
inline std::ostream& operator<<(std::ostream& out, EntryType type) {
    return out << toStrep(type);
}

/// The key of an entry in the MAC table. 8 bytes. toStrep: <fid=10 macAddress=02:00:00:00:00:0a>
struct HostKey {
    Fid fid;
    Zinc::EthAddr macAddress;

    uint64_t hash(uint64_t seed) const {
        Vela::IncrementalHash hash(seed);
        hash.mix(fid.value());
        hash.mixBytes(macAddress.bytes());
        return hash.result();
    }
    std::string toStrep() const;
    friend bool operator==(const HostKey&, const HostKey&) = default;
    friend std::ostream& operator<<(std::ostream& out, const HostKey& v) {
        return out << v.toStrep();
    }
};

/// An entry of the MAC table; the default value stands for none. 16 bytes.
struct QuarryFdbStatus {
    using Key = HostKey;
    static constexpr const char* recordType = "Bridging::QuarryFdbStatus";

    HostKey key;
    Zinc::IntfId intf;
    EntryType entryType = EntryType::none;
    std::array<uint8_t, 3> unused{}; // in the place of padding

    std::string toStrep() const;
    friend bool operator==(const QuarryFdbStatus&, const QuarryFdbStatus&) = default;
    friend std::ostream& operator<<(std::ostream& out, const QuarryFdbStatus& v) {
        return out << v.toStrep();
    }
};

} // namespace Bridging

namespace Quarry::Bridging {

/// The MAC table of all VLANs.
class Status final : public Table {
  public:
    static constexpr const char* tableType = "Quarry::Bridging::Status";
    static constexpr uint32_t capacity = 1u << 22;
    using Entry = ::Bridging::QuarryFdbStatus;

    explicit Status(const TableSite& site)
        : Table(site), quarryFdbStatus_(*this, "quarryFdbStatus", capacity) {}
    const char* typeName() const noexcept override { return tableType; }

    const TableCollection<Entry>& quarryFdbStatusCollection() const { return quarryFdbStatus_; }
    /// The default entry where there is none.
    Entry quarryFdbStatus(const ::Bridging::HostKey& key) const {
        return quarryFdbStatus_.value(key);
    }
    bool quarryFdbStatusIs(const Entry& entry) { return quarryFdbStatus_.set(entry); }
    bool quarryFdbStatusDel(const ::Bridging::HostKey& key) { return quarryFdbStatus_.del(key); }

  private:
    TableCollection<Entry> quarryFdbStatus_;
};

} // namespace Quarry::Bridging
