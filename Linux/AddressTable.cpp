#include "Linux/AddressTable.h"

#include <algorithm>

namespace Linux {

namespace {

template <class Addresses>
auto findAddress(Addresses& addresses, const Ip::AddrWithMask& address) {
    return std::find_if(addresses.begin(), addresses.end(),
                        [&](const AddressMessage& entry) { return entry.address == address; });
}

} // namespace

const std::vector<AddressMessage>& AddressTable::addresses(uint32_t ifIndex) const {
    static const std::vector<AddressMessage> none;
    auto found = addresses_.find(ifIndex);
    return found == addresses_.end() ? none : found->second;
}

void AddressTable::resyncStarted() {
    resyncing_ = true;
    dumped_.clear();
    announced_.clear();
}

/// A dump takes effect as a whole: only then the order of a device's addresses is known again.
void AddressTable::message(const nlmsghdr& message) {
    auto address = decodeAddress(message);
    if (!address) {
        return;
    }
    if (isDumped(message) && resyncing_) {
        dumped_[address->ifIndex].push_back(*address);
        return;
    }
    if (resyncing_) {
        announced_.emplace(address->ifIndex, address->address);
    }
    if (address->removed) {
        remove({address->ifIndex, address->address});
    } else {
        update(*address);
    }
}

void AddressTable::resyncFinished() {
    // What was announced meanwhile may be newer than what was dumped.
    for (auto& [ifIndex, addresses] : dumped_) {
        std::erase_if(addresses, [&, index = ifIndex](const AddressMessage& entry) {
            return announced_.contains({index, entry.address});
        });
    }
    for (const auto& [ifIndex, address] : announced_) {
        const auto& now = addresses(ifIndex);
        if (auto found = findAddress(now, address); found != now.end()) {
            dumped_[ifIndex].push_back(*found);
        }
    }
    std::erase_if(dumped_, [](const auto& entry) { return entry.second.empty(); });
    std::set<uint32_t> changed;
    for (const auto& [ifIndex, addresses] : addresses_) {
        auto found = dumped_.find(ifIndex);
        if (found == dumped_.end() || found->second != addresses) {
            changed.insert(ifIndex);
        }
    }
    for (const auto& [ifIndex, addresses] : dumped_) {
        if (!addresses_.contains(ifIndex)) {
            changed.insert(ifIndex);
        }
    }
    addresses_ = std::exchange(dumped_, {});
    announced_.clear();
    resyncing_ = false;
    sweeping_ = true;
    for (uint32_t ifIndex : changed) {
        changed_(ifIndex);
    }
    sweeping_ = false;
}

void AddressTable::update(const AddressMessage& address) {
    auto& addresses = addresses_[address.ifIndex];
    auto found = findAddress(addresses, address.address);
    if (found == addresses.end()) {
        addresses.push_back(address);
    } else if (*found == address) {
        return;
    } else {
        *found = address;
    }
    changed_(address.ifIndex);
}

void AddressTable::remove(const Key& key) {
    auto entry = addresses_.find(key.first);
    if (entry == addresses_.end()) {
        return;
    }
    auto found = findAddress(entry->second, key.second);
    if (found == entry->second.end()) {
        return;
    }
    entry->second.erase(found);
    if (entry->second.empty()) {
        addresses_.erase(entry);
    }
    changed_(key.first);
}

} // namespace Linux
