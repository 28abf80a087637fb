#pragma once

#include "Platform/Base/Assert.h"
#include "Platform/Model/Arp/TableStatus.h"

namespace ArpSuppression::ArpStatusHelper {

/// The kernel's entry for an address: of the ARP table for IPv4, of the neighbour table for IPv6.
inline Quarry::RecordLookup<Arp::Table::ArpEntry> lookup(const Arp::Table::Status& arpStatus,
                                                         const Arp::Table::ArpKey& key) {
    if (key.addr().af() == Zinc::ipv4()) {
        return arpStatus.arpEntryCollection().lookup(key);
    }
    Vela::assertThat(key.addr().af() == Zinc::ipv6(), "false");
    return arpStatus.neighborEntryCollection().lookup(key);
}

} // namespace ArpSuppression::ArpStatusHelper
