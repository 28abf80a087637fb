#pragma once

#include "Linux/AddressMessage.h"
#include "Linux/NetlinkConsumer.h"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <utility>
#include <vector>

namespace Linux {

/// The addresses of the devices of one network namespace, those of a device in the kernel's order:
/// of IPv4 the first that is not secondary is the primary one.
class AddressTable final : public NetlinkConsumer {
  public:
    using Changed = std::function<void(uint32_t ifIndex)>;

    /// `changed` is called after a change and must not change the table.
    explicit AddressTable(Changed changed) : changed_(std::move(changed)) {}

    /// None for a device that has none. Valid until the table changes.
    const std::vector<AddressMessage>& addresses(uint32_t ifIndex) const;
    /// Whether a change is one of the many that the end of a resync may bring in one call.
    bool sweeping() const { return sweeping_; }

    void resyncStarted() override;
    void message(const nlmsghdr& message) override;
    void resyncFinished() override;

  private:
    using Key = std::pair<uint32_t, Ip::AddrWithMask>;

    void update(const AddressMessage& address);
    void remove(const Key& key);

    const Changed changed_;
    std::map<uint32_t, std::vector<AddressMessage>> addresses_;
    bool resyncing_ = false;
    bool sweeping_ = false;
    std::map<uint32_t, std::vector<AddressMessage>> dumped_; // in the resync under way
    std::set<Key> announced_;                                // in it
};

} // namespace Linux
