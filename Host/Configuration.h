#pragma once

#include "Platform/Value/EthAddr.h"
#include "Platform/Value/IpGenAddr.h"
#include "Platform/Value/VlanId.h"
#include "Platform/Value/VrfId.h"
#include "Platform/Value/VrfName.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

// What the configuration file says: docs/configuration.md describes each key, under the name that
// it has in the file. Defaults are those of a file without the key. Interfaces go by their names.
// Everything compares, so that a reload can tell what changed.

struct ControlConfiguration {
    std::string group; // empty: root alone

    bool operator==(const ControlConfiguration&) const = default;
};

struct FidConfiguration {
    Bridging::VlanId vlan;
    uint16_t fid = 0;

    bool operator==(const FidConfiguration&) const = default;
};

struct BridgingConfiguration {
    std::optional<Zinc::EthAddr> mac;
    std::vector<FidConfiguration> fids;

    bool operator==(const BridgingConfiguration&) const = default;
};

enum class ImetEncapsulation : uint8_t { mpls, vxlan };

struct EvpnVlanConfiguration {
    Bridging::VlanId vlan;
    Bridging::VlanIdOrNone dot1q;
    std::optional<uint32_t> imetLabel; // 20 bits
    ImetEncapsulation imetEncapsulation = ImetEncapsulation::mpls;

    bool operator==(const EvpnVlanConfiguration&) const = default;
};

struct DesignatedForwarderConfiguration {
    Bridging::VlanId vlan;
    std::string tunnel; // an interface; empty: none

    bool operator==(const DesignatedForwarderConfiguration&) const = default;
};

struct EvpnSegmentConfiguration {
    std::string interface;
    std::optional<uint32_t> label; // 20 bits
    std::vector<DesignatedForwarderConfiguration> designatedForwarders;

    bool operator==(const EvpnSegmentConfiguration&) const = default;
};

struct EvpnConfiguration {
    bool mpls = false;
    bool innerDot1q = false;
    bool controlWord = false;
    std::vector<EvpnVlanConfiguration> vlans;
    std::vector<EvpnSegmentConfiguration> segments;

    bool operator==(const EvpnConfiguration&) const = default;
};

struct FhrpConfiguration {
    std::optional<Zinc::EthAddr> varpMac;

    bool operator==(const FhrpConfiguration&) const = default;
};

struct L2VpnConfiguration {
    bool selectiveArpInstall = false;

    bool operator==(const L2VpnConfiguration&) const = default;
};

enum class VrfState : uint8_t { active, initializing, deleting };

struct VrfConfiguration {
    L3::VrfName name = "default";
    Vrf::VrfId id; // invalid: none given
    std::string networkNamespace = "default";
    VrfState state = VrfState::active;

    bool operator==(const VrfConfiguration&) const = default;
};

struct AddressConfiguration {
    Zinc::IpGenAddr address;
    uint8_t prefixLength = 0;

    bool operator==(const AddressConfiguration&) const = default;
};

struct SubInterfaceConfiguration {
    std::string parent;
    Bridging::VlanId outerVlan;
    Bridging::VlanIdOrNone innerVlan;

    bool operator==(const SubInterfaceConfiguration&) const = default;
};

struct InterfaceConfiguration {
    std::string name;
    std::string device; // in the kernel
    std::optional<L3::VrfName> vrf;
    std::vector<AddressConfiguration> ipv4; // the first is the primary one
    std::vector<AddressConfiguration> ipv6;
    std::optional<uint32_t> ifindex;
    bool running = true;
    std::optional<SubInterfaceConfiguration> subInterface;

    bool isRouted() const { return vrf || !ipv4.empty() || !ipv6.empty(); }
    L3::VrfName vrfName() const { return vrf.value_or("default"); }

    bool operator==(const InterfaceConfiguration&) const = default;
};

struct RemoteBindingConfiguration {
    Bridging::VlanId vlan;
    Zinc::IpGenAddr ip;
    Zinc::EthAddr mac;
    bool vxlan = false;
    bool localMultihomed = false;

    bool operator==(const RemoteBindingConfiguration&) const = default;
};

enum class FdbType : uint8_t { learned, isStatic, evpn, evpnStatic };

struct FdbConfiguration {
    Bridging::VlanId vlan;
    Zinc::EthAddr mac;
    std::string interface;
    FdbType type = FdbType::learned;

    bool operator==(const FdbConfiguration&) const = default;
};

struct NeighborConfiguration {
    std::string interface;
    Zinc::IpGenAddr ip;
    Zinc::EthAddr mac;
    bool isStatic = false;
    L3::VrfName vrf = "default";
    uint8_t source = 0;

    bool operator==(const NeighborConfiguration&) const = default;
};

struct LinuxVlanConfiguration {
    Bridging::VlanId vlan;
    std::string bridge; // in the kernel

    bool operator==(const LinuxVlanConfiguration&) const = default;
};

/// Where the kernel is the switch.
struct LinuxConfiguration {
    uint32_t receiveBuffer = 8 << 20; // bytes
    std::vector<LinuxVlanConfiguration> vlans;

    bool operator==(const LinuxConfiguration&) const = default;
};

struct Configuration {
    std::string runtimeDirectory = "/run/arpsup";
    std::string logDirectory = "/var/log/arpsup";
    std::string toggleDirectory = "/etc/arpsup/toggles";
    std::string agentLibrary; // empty: beside the program
    bool physicalHardware = false;
    std::string trace; // TraceSettings.h has its form
    ControlConfiguration control;
    BridgingConfiguration bridging;
    EvpnConfiguration evpn;
    FhrpConfiguration fhrp;
    L2VpnConfiguration l2vpn;
    std::optional<LinuxConfiguration> onLinux;
    std::vector<VrfConfiguration> vrfs{VrfConfiguration()}; // "default" is always among them
    std::vector<InterfaceConfiguration> interfaces;
    std::vector<RemoteBindingConfiguration> remoteBindings;
    std::vector<FdbConfiguration> fdb;
    std::vector<NeighborConfiguration> neighbors;

    bool operator==(const Configuration&) const = default;
};

/// The file cannot be used. The text has a line per mistake, in the order of the file:
///
///     arpsupd.toml:12:8: "vlan" is 4095; expected a VLAN, 1 to 4094
///
/// Lines and columns count from 1, columns in characters. After the 20th mistake there is only a
/// line with the number of those left out.
class ConfigurationError : public std::runtime_error {
  public:
    ConfigurationError(std::vector<std::string> mistakes, size_t leftOut);

    /// The lines, 1 to 20 of them.
    const std::vector<std::string>& mistakes() const { return mistakes_; }

  private:
    std::vector<std::string> mistakes_;
};

/// A configuration file is at most this long.
constexpr size_t configurationFileBytes = 1 << 20;

/// `fileName` only serves the texts of mistakes. Throws ConfigurationError.
Configuration parseConfiguration(std::string_view text, std::string_view fileName);

/// Throws ConfigurationError, also if there is no such file or it cannot be read: a mistake
/// without line and column.
Configuration readConfiguration(const std::string& path);

} // namespace Host
