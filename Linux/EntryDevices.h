#pragma once

#include "Linux/LinuxConfiguration.h"
#include "Linux/Topology.h"
#include "Platform/Model/Arp/InputConfigEntry.h"
#include "Platform/Model/Ip6/Status.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Linux {

/// A device that neighbour entries of a VLAN are put on.
struct EntryDevice {
    std::string netNs;
    uint32_t ifIndex = 0;
    RoutedDevice routed;
};

/// Finds the device for an entry that is to be installed in a VRF. An IPv6 address that is not
/// link-local comes without an interface: it belongs to the routed interface of its VRF that has
/// the longest prefix with it.
class EntryDevices {
  public:
    /// `changed` is called when entries may have other devices than before; within it, nothing is
    /// to be asked.
    EntryDevices(Vela::Ptr<const Topology> topology, Vela::Ptr<const Ip6::Status> ip6Status,
                 std::function<void()> changed);

    void vrfsAre(const std::vector<VrfSetting>& vrfs);
    /// Null if the configuration has no such VRF.
    const L3::VrfName* vrfName(Vrf::VrfId vrfId) const;

    /// The interface that an entry with this key is meant for; empty: nobody knows.
    Zinc::IntfId intfId(const L3::VrfName& vrfName, const Arp::InputConfigKey& key);
    /// Null if the VRF has no such interface, or the kernel has no device for it.
    const EntryDevice* device(const L3::VrfName& vrfName, Zinc::IntfId intfId);
    /// The device that speaks for a VLAN; null if there is none.
    const EntryDevice* device(Bridging::VlanId vlanId);

  private:
    using Networks = std::map<Zinc::IpGenAddr, Zinc::IntfId>; // by first address

    void noteChange();
    void follow(Zinc::IntfId intfId);
    void refresh();

    const Vela::Ptr<const Topology> topology_;
    const Vela::Ptr<const Ip6::Status> ip6Status_;
    const std::function<void()> changed_;
    std::map<Vrf::VrfId, L3::VrfName> vrf_;

    bool stale_ = true;
    std::map<Zinc::IntfId, EntryDevice> device_;
    std::map<Bridging::VlanId, Zinc::IntfId> intfOfVlan_;
    std::map<L3::VrfName, std::map<uint8_t, Networks>> networks_; // by length of the prefix

    Vela::Reaction deviceReaction_;
    Vela::Reaction intfReaction_;
    std::map<Zinc::IntfId, Vela::Reaction> addressReactions_;
};

} // namespace Linux
