#pragma once

#include "Platform/Model/Arp/ArpKey.h"
#include "Platform/Model/Arp/InputConfigEntry.h"
#include "Platform/Quarry/Table.h"
#include "Platform/Quarry/TableCollection.h"
#include "Platform/Value/EthAddr.h"

#include <ostream>
#include <string>

namespace Arp::Table {

/// A neighbour as the kernel has it; the default value stands for none. 36 bytes.
/// toStrep: [Vlan10,10.0.0.1,02:00:00:00:00:0a,static N,kernel]
struct ArpEntry {
    using Key = ArpKey;
    static constexpr const char* recordType = "Arp::Table::ArpEntry";

    ArpKey key;
    Zinc::EthAddr macAddress;
    bool isStatic = false;
    ArpSource source = ArpSource::kernel;

    std::string toStrep() const;
    friend bool operator==(const ArpEntry&, const ArpEntry&) = default;
    friend std::ostream& operator<<(std::ostream& out, const ArpEntry& v) {
        return out << v.toStrep();
    }
};

/// The kernel's ARP table (IPv4) and neighbour table (IPv6), of all VRFs.
class Status final : public Quarry::Table {
  public:
    static constexpr const char* tableType = "Arp::Table::Status";
    static constexpr uint32_t capacity = 1u << 22;

    explicit Status(const Quarry::TableSite& site)
        : Table(site), arpEntry_(*this, "arpEntry", capacity),
          neighborEntry_(*this, "neighborEntry", capacity) {}
    const char* typeName() const noexcept override { return tableType; }

    const Quarry::TableCollection<ArpEntry>& arpEntryCollection() const { return arpEntry_; }
    const Quarry::TableCollection<ArpEntry>& neighborEntryCollection() const {
        return neighborEntry_;
    }

    /// Into the collection of the address's family, which is IPv4 or IPv6.
    bool entryIs(const ArpEntry& entry) { return of(entry.key).set(entry); }
    bool entryDel(const ArpKey& key) { return of(key).del(key); }

  private:
    Quarry::TableCollection<ArpEntry>& of(const ArpKey& key);

    Quarry::TableCollection<ArpEntry> arpEntry_;
    Quarry::TableCollection<ArpEntry> neighborEntry_;
};

} // namespace Arp::Table
