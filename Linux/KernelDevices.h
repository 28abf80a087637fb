#pragma once

#include "Linux/AddressTable.h"
#include "Linux/LinkTable.h"
#include "Linux/LinuxConfiguration.h"
#include "Platform/Model/KernelNetInfo/Status.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Linux {

/// A network namespace with its devices.
struct NetNs {
    NetNs(std::string netNs, LinkTable::Changed linkChanged, AddressTable::Changed addressesChanged)
        : name(std::move(netNs)), links(std::move(linkChanged)),
          addresses(std::move(addressesChanged)) {}

    const std::string name;
    LinkTable links;
    AddressTable addresses;
    Vela::Ptr<KernelNetInfo::Status> kernelNetInfo;
    std::optional<int32_t> ownNetNsId; ///< what this one calls the program's own, where known
};

/// A device and where it is; valid until that namespace's table changes.
struct DeviceRef {
    const NetNs* netNs = nullptr;
    const LinkMessage* link = nullptr;

    explicit operator bool() const { return link != nullptr; }
};

/// The namespaces that there are, of those that the configuration names, and what their devices
/// have to do with each other.
class KernelDevices {
  public:
    const LinuxConfiguration& configuration() const { return configuration_; }
    void configurationIs(LinuxConfiguration configuration);

    NetNs& netNsIs(std::unique_ptr<NetNs> netNs);
    /// Takes it out of sight; its devices go with what is returned.
    std::unique_ptr<NetNs> netNsDel(const std::string& name);
    /// Null if there is none.
    NetNs* netNs(const std::string& name) const;
    const std::vector<std::unique_ptr<NetNs>>& all() const { return all_; }

    /// The VRF of what belongs to a device; null if the configuration names none such.
    const VrfSetting* vrfOf(const DeviceRef& device) const;
    /// Whether there is the VRF: its namespace, and in it, if it shares that, its device.
    bool vrfExists(const VrfSetting& vrf) const;

    /// The device that the configuration names for an interface; null if it names none.
    const LinuxConfiguration::Device* configuredDevice(const std::string& interface) const;

    std::string bridgeName(Bridging::VlanId vlanId) const;
    std::optional<Bridging::VlanId> vlanOfBridge(const std::string& name) const;
    /// Vlan10, without leading zeros.
    static std::string interfaceName(Bridging::VlanId vlanId);
    static std::optional<Bridging::VlanId> vlanOfInterface(const std::string& name);

    /// The bridge of a VLAN in the program's own namespace; null if there is none.
    const LinkMessage* bridgeOf(Bridging::VlanId vlanId) const;
    /// The VLAN whose bridge a device of that namespace is a port of.
    std::optional<Bridging::VlanId> vlanOfPort(const LinkMessage& link) const;
    /// The VLAN's routed interface: the end of a veth whose other end is a port of its bridge, or
    /// else that bridge. In a VRF that the configuration names.
    DeviceRef routedOf(Bridging::VlanId vlanId) const;
    /// The port of the VLAN's bridge that a veth of any namespace leads to; 0: none.
    uint32_t portBehind(const DeviceRef& veth, Bridging::VlanId vlanId) const;

  private:
    const VrfSetting* firstVrfIn(const std::string& netNs) const;

    LinuxConfiguration configuration_;
    std::map<std::string, Bridging::VlanId> vlanOfMappedBridge_;
    std::map<std::string, LinuxConfiguration::Device> configuredDevice_;
    std::vector<std::unique_ptr<NetNs>> all_;
};

} // namespace Linux
