#include "ArpSuppression/RemoteBindingStatus.h"

#include "Platform/Base/Assert.h"
#include "Platform/State/DumpContext.h"

namespace ArpSuppression {

namespace {

// What a million exist of: another field here costs every binding.
static_assert(sizeof(RemoteIpToMac) == 72);
static_assert(sizeof(RemoteMacToIp) == 56);

const VlanIdMacAddress& keyOf(const RemoteIpToMac::VlanIdMac& element) {
    return element.vlanIdMacAddress;
}
const Zinc::IpGenAddr& keyOf(const Zinc::IpGenAddr& element) {
    return element;
}

template <class Elements>
std::string blankSeparated(const Elements& elements) {
    std::string text;
    elements.each(
        [&](const auto& element) { text += (text.empty() ? "" : " ") + keyOf(element).toStrep(); });
    return text;
}

template <class Elements>
void printEach(Vela::DumpContext& context, const Elements& elements) {
    elements.each(
        [&](const auto& element) { context.print(0, " %s", keyOf(element).toStrep().c_str()); });
    context.print(0, "\n");
}

template <class Table>
typename Table::Value valueOf(const Table& table, const typename Table::Key& key) {
    typename Table::Value* found = table.find(key);
    return found ? *found : nullptr;
}

template <class Table, class Entry>
typename Table::Value findOrCreate(Table& table, const typename Table::Key& key) {
    return *table.findOrInsert(key, [&] { return Vela::make<Entry>(key); }).first;
}

template <class Table>
typename Table::Value remove(Table& table, const typename Table::Key& key) {
    typename Table::Value removed = table.erase(key).value_or(nullptr);
    if (removed) {
        removed->destroy();
    }
    return removed;
}

template <class Table>
void removeAll(Table& table) {
    for (auto entry = table.first(); entry; ++entry) {
        remove(table, entry.key());
    }
}

} // namespace

// RemoteIpToMac

size_t RemoteIpToMac::indexOf(const VlanIdMacAddress& vlanIdMacAddress) const {
    return vlanIdMacAddress_.find(
        [&](const VlanIdMac& element) { return element.vlanIdMacAddress == vlanIdMacAddress; });
}

bool RemoteIpToMac::vlanIdMacAddressHas(const VlanIdMacAddress& vlanIdMacAddress) const {
    return indexOf(vlanIdMacAddress) != VlanIdMacAddressCollection::none;
}

bool RemoteIpToMac::isLocalMultihomed(const VlanIdMacAddress& vlanIdMacAddress) const {
    size_t i = indexOf(vlanIdMacAddress);
    return i != VlanIdMacAddressCollection::none && vlanIdMacAddress_[i].localMultihomed;
}

VlanIdMacAddress RemoteIpToMac::firstVlanIdMacAddress() const {
    Vela::assertThat(vlanIdMacAddresses() > 0, "iter");
    return vlanIdMacAddress_[0].vlanIdMacAddress;
}

bool RemoteIpToMac::isFirstVlanIdMacAddressLocalMultihomed() const {
    return vlanIdMacAddresses() > 0 && vlanIdMacAddress_[0].localMultihomed;
}

bool RemoteIpToMac::vlanIdMacAddressIs(const VlanIdMacAddress& vlanIdMacAddress,
                                       bool localMultihomed) {
    size_t i = indexOf(vlanIdMacAddress);
    if (i == VlanIdMacAddressCollection::none) {
        vlanIdMacAddress_.append({vlanIdMacAddress, localMultihomed});
        return true;
    }
    bool before = std::exchange(vlanIdMacAddress_[i].localMultihomed, localMultihomed);
    return before != localMultihomed;
}

bool RemoteIpToMac::vlanIdMacAddressDel(const VlanIdMacAddress& vlanIdMacAddress) {
    size_t i = indexOf(vlanIdMacAddress);
    if (i == VlanIdMacAddressCollection::none) {
        return false;
    }
    vlanIdMacAddress_.remove(i);
    return true;
}

std::string RemoteIpToMac::toStrep() const {
    return "<vrfIpAddress=" + vrfIpAddress_.toStrep() + " macAddress=[" +
           blankSeparated(vlanIdMacAddress_) + "]>";
}

void RemoteIpToMac::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "RemoteIpToMac %s", vrfIpAddress_.toStrep().c_str());
    printEach(context, vlanIdMacAddress_);
}

// RemoteMacToIp

std::string RemoteMacToIp::toStrep() const {
    return "<vlanIdMacAddress=" + vlanIdMacAddress_.toStrep() + " ipAddress=[" +
           blankSeparated(ipAddress_) + "]>";
}

void RemoteMacToIp::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "RemoteMacToIp %s ->", vlanIdMacAddress_.toStrep().c_str());
    printEach(context, ipAddress_);
}

// RemoteBindingStatus

Vela::Ptr<RemoteIpToMac> RemoteBindingStatus::ipToMac(const VrfIpAddress& vrfIpAddress) const {
    return valueOf(ipToMac_, vrfIpAddress);
}

Vela::Ptr<RemoteIpToMac> RemoteBindingStatus::ipToMacIs(const VrfIpAddress& vrfIpAddress) {
    return findOrCreate<IpToMacTable, RemoteIpToMac>(ipToMac_, vrfIpAddress);
}

Vela::Ptr<RemoteIpToMac> RemoteBindingStatus::ipToMacDel(const VrfIpAddress& vrfIpAddress) {
    return remove(ipToMac_, vrfIpAddress);
}

void RemoteBindingStatus::ipToMacDelAll() {
    removeAll(ipToMac_);
}

Vela::Ptr<RemoteMacToIp>
RemoteBindingStatus::macToIp(const VlanIdMacAddress& vlanIdMacAddress) const {
    return valueOf(macToIp_, vlanIdMacAddress);
}

Vela::Ptr<RemoteMacToIp> RemoteBindingStatus::macToIpIs(const VlanIdMacAddress& vlanIdMacAddress) {
    return findOrCreate<MacToIpTable, RemoteMacToIp>(macToIp_, vlanIdMacAddress);
}

Vela::Ptr<RemoteMacToIp> RemoteBindingStatus::macToIpDel(const VlanIdMacAddress& vlanIdMacAddress) {
    return remove(macToIp_, vlanIdMacAddress);
}

void RemoteBindingStatus::macToIpDelAll() {
    removeAll(macToIp_);
}

void RemoteBindingStatus::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "RemoteBindingStatus\n");
    indent += 4;
    context.print(indent, "initialPopulationComplete=%s\n",
                  initialPopulationComplete() ? "yes" : "no");
    context.print(indent, "macToIp[] #%zu\n", macToIps());
    for (auto macToIp = macToIp_.first(); macToIp; ++macToIp) {
        macToIp.value()->dumpState(context, indent + 4);
    }
    context.print(indent, "ipToMac[] #%zu\n", ipToMacs());
    for (auto ipToMac = ipToMac_.first(); ipToMac; ++ipToMac) {
        ipToMac.value()->dumpState(context, indent + 4);
    }
    dumpVrfUseTrackerState(context, indent);
}

void RemoteBindingStatus::handleDestroy() noexcept {
    ipToMacDelAll();
    macToIpDelAll();
    VrfUseTracker::handleDestroy();
}

} // namespace ArpSuppression
