#include "Platform/Model/Arp/TableStatus.h"

#include "Platform/Base/Assert.h"

namespace Arp::Table {

std::string ArpEntry::toStrep() const {
    return "[" + key.intfId().toStrep() + "," + key.addr().toStrep() + "," + macAddress.toStrep() +
           ",static " + (isStatic ? "Y" : "N") + "," + Arp::toStrep(source) + "]";
}

Quarry::TableCollection<ArpEntry>& Status::of(const ArpKey& key) {
    if (key.addr().af() == Zinc::ipv4()) {
        return arpEntry_;
    }
    Vela::assertThat(key.addr().af() == Zinc::ipv6(), "key.addr().af() == Zinc::ipv6()");
    return neighborEntry_;
}

} // namespace Arp::Table
