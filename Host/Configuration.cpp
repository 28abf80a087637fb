#include "Host/Configuration.h"

#include "Host/ConfigurationMistakes.h"
#include "Host/ConfigurationSection.h"
#include "Host/ConfigurationTree.h"
#include "Platform/Base/FileText.h"
#include "Platform/Trace/TraceSettings.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace Host {

namespace {

using Section = ConfigurationSection;

constexpr int64_t mostLabel = 0xfffff;
// The name of the control socket in it must fit into a socket address.
constexpr size_t mostRuntimeDirectoryBytes = 90;
constexpr size_t mostPathBytes = 1024;
constexpr size_t mostDeviceBytes = 15;
constexpr int64_t leastReceiveBuffer = 4096;
constexpr int64_t mostReceiveBuffer = 1 << 30;
constexpr size_t mostVrfNameBytes = L3::VrfName::maxLength();

/// The file's value where there is one, else the target keeps its own.
template <class T, class Value>
void take(T& target, std::optional<Value> value) {
    if (value) {
        target = static_cast<T>(*std::move(value));
    }
}

/// Reads the sections in such an order that what a section refers to has been read.
class ConfigurationReader {
  public:
    explicit ConfigurationReader(ConfigurationMistakes& mistakes) : mistakes_(mistakes) {}

    Configuration read(Section& root) {
        readProgram(root);
        root.table("control",
                   [&](Section& s) { take(file_.control.group, s.text("group", 0, 32)); });
        root.table("bridging", [&](Section& s) { readBridging(s); });
        root.table("evpn", [&](Section& s) { readEvpn(s); });
        root.table("fhrp", [&](Section& s) { file_.fhrp.varpMac = s.mac("varp_mac"); });
        root.table("l2vpn", [&](Section& s) {
            take(file_.l2vpn.selectiveArpInstall, s.boolean("selective_arp_install"));
        });
        root.table("linux", [&](Section& s) { readLinux(s); });
        readVrfs(root);
        readInterfaces(root);
        readRemoteBindings(root);
        readFdb(root);
        readNeighbors(root);
        return std::move(file_);
    }

  private:
    void readProgram(Section& root) {
        take(file_.runtimeDirectory, root.path("runtime_directory", mostRuntimeDirectoryBytes));
        take(file_.logDirectory, root.path("log_directory", mostPathBytes));
        take(file_.toggleDirectory, root.path("toggle_directory", mostPathBytes));
        take(file_.agentLibrary, root.text("agent_library", 0, mostPathBytes));
        if (!file_.agentLibrary.empty() && file_.agentLibrary.front() != '/') {
            mistakes_.add(root.place("agent_library"),
                          "\"agent_library\" is " + quoted(file_.agentLibrary),
                          "a path that begins with \"/\", or nothing");
        }
        take(file_.physicalHardware, root.boolean("physical_hardware"));
        take(file_.trace, root.text("trace", 0, mostPathBytes));
        std::vector<std::string> problems;
        Vela::TraceSettings::parse(file_.trace, problems);
        for (const std::string& problem : problems) {
            size_t colon = problem.rfind(": expected ");
            mistakes_.add(root.place("trace"), "\"trace\" holds " + problem.substr(0, colon),
                          problem.substr(colon + 11));
        }
    }

    void readBridging(Section& bridging) {
        file_.bridging.mac = bridging.mac("mac");
        FirstPlaces<Bridging::VlanId> places(mistakes_);
        bridging.tables("fid", [&](Section& s) {
            auto vlan = s.vlan("vlan", Need::required);
            auto fid = s.number("fid", 1, 0xffff, Need::required);
            if (vlan) {
                places.add(*vlan, s.place(), "the FID of VLAN " + vlan->toStrep());
            }
            if (vlan && fid) {
                file_.bridging.fids.push_back({*vlan, static_cast<uint16_t>(*fid)});
            }
        });
    }

    void readEvpn(Section& evpn) {
        take(file_.evpn.mpls, evpn.boolean("mpls"));
        take(file_.evpn.innerDot1q, evpn.boolean("inner_dot1q"));
        take(file_.evpn.controlWord, evpn.boolean("control_word"));
        FirstPlaces<Bridging::VlanId> vlans(mistakes_);
        evpn.tables("vlan", [&](Section& s) { readEvpnVlan(s, vlans); });
        FirstPlaces<std::string> segments(mistakes_);
        evpn.tables("segment", [&](Section& s) { readEvpnSegment(s, segments); });
    }

    void readEvpnVlan(Section& section, FirstPlaces<Bridging::VlanId>& places) {
        EvpnVlanConfiguration entry;
        auto vlan = section.vlan("vlan", Need::required);
        take(entry.dot1q, section.vlan("dot1q"));
        take(entry.imetLabel, section.number("imet_label", 0, mostLabel));
        auto encapsulation = section.choice<ImetEncapsulation>(
            "imet_encapsulation",
            {{"mpls", ImetEncapsulation::mpls}, {"vxlan", ImetEncapsulation::vxlan}});
        if (encapsulation && !section.has("imet_label")) {
            mistakes_.add(section.place("imet_encapsulation"),
                          "\"imet_encapsulation\" says how a label is sent that is not there",
                          "\"imet_label\" beside it");
        }
        take(entry.imetEncapsulation, encapsulation);
        if (vlan) {
            places.add(*vlan, section.place(), "EVPN's VLAN " + vlan->toStrep());
            entry.vlan = *vlan;
            file_.evpn.vlans.push_back(entry);
        }
    }

    void readEvpnSegment(Section& section, FirstPlaces<std::string>& places) {
        EvpnSegmentConfiguration entry;
        auto interface = section.interfaceName("interface", Need::required);
        take(entry.label, section.number("label", 0, mostLabel));
        FirstPlaces<Bridging::VlanId> vlans(mistakes_);
        section.tables("designated_forwarder", [&](Section& s) {
            auto vlan = s.vlan("vlan", Need::required);
            auto tunnel = s.interfaceName("tunnel");
            if (vlan) {
                vlans.add(*vlan, s.place(), "the segment's VLAN " + vlan->toStrep());
                entry.designatedForwarders.push_back({*vlan, tunnel.value_or("")});
            }
        });
        if (interface) {
            places.add(*interface, section.place(), "the segment of " + quoted(*interface));
            entry.interface = *interface;
            file_.evpn.segments.push_back(std::move(entry));
        }
    }

    void readLinux(Section& section) {
        LinuxConfiguration& onLinux = file_.onLinux.emplace();
        take(onLinux.receiveBuffer,
             section.number("receive_buffer", leastReceiveBuffer, mostReceiveBuffer));
        FirstPlaces<Bridging::VlanId> vlans(mistakes_);
        FirstPlaces<std::string> bridges(mistakes_);
        section.tables("vlan", [&](Section& s) {
            auto vlan = s.vlan("vlan", Need::required);
            auto bridge = s.fileName("bridge", mostDeviceBytes, Need::required);
            if (vlan) {
                vlans.add(*vlan, s.place(), "the bridge of VLAN " + vlan->toStrep());
            }
            if (bridge) {
                bridges.add(*bridge, s.place("bridge"), "bridge " + quoted(*bridge));
            }
            if (vlan && bridge && isRoutedName(*bridge) && *bridge != "Vlan" + vlan->toStrep()) {
                mistakes_.add(s.place("bridge"), quoted(*bridge) + " is named as another VLAN",
                              "a bridge that is that of no other VLAN");
            }
            if (vlan && bridge) {
                onLinux.vlans.push_back({*vlan, *bridge});
            }
        });
    }

    /// Vlan and a number.
    static bool isRoutedName(std::string_view name) {
        constexpr std::string_view start = "Vlan";
        return name.starts_with(start) && name.size() > start.size() &&
               name.find_first_not_of("0123456789", start.size()) == name.npos;
    }

    /// What is said where the kernel says it, too.
    void rejectBesideLinux(FilePlace place, const std::string& what) {
        if (file_.onLinux) {
            mistakes_.add(place, what + " stands beside [linux], where the kernel has it",
                          "it to be left out");
        }
    }

    void readVrfs(Section& root) {
        file_.vrfs.clear();
        FirstPlaces<std::string> names(mistakes_);
        FirstPlaces<uint32_t> ids(mistakes_);
        root.tables("vrf", [&](Section& s) { readVrf(s, names, ids); });
        if (!findVrf("default")) {
            file_.vrfs.insert(file_.vrfs.begin(), VrfConfiguration());
        }
    }

    void readVrf(Section& section, FirstPlaces<std::string>& names, FirstPlaces<uint32_t>& ids) {
        VrfConfiguration entry;
        auto name = section.text("name", 1, mostVrfNameBytes, Need::required);
        if (auto id = section.number("id", 0, Vrf::VrfId::invalid - 1)) {
            entry.id = Vrf::VrfId(static_cast<uint32_t>(*id));
            ids.add(entry.id.value(), section.place("id"), "VRF id " + entry.id.toStrep());
        }
        auto networkNamespace = section.fileName("namespace", 255);
        take(entry.state,
             section.choice<VrfState>("state", {{"active", VrfState::active},
                                                {"initializing", VrfState::initializing},
                                                {"deleting", VrfState::deleting}}));
        if (!name) {
            return;
        }
        names.add(*name, section.place(), "VRF " + quoted(*name));
        if (!section.has("namespace") && !isFileName(*name)) {
            mistakes_.add(section.place("name"),
                          "VRF " + quoted(*name) + " cannot lend its name to its namespace",
                          "a key \"namespace\" beside it");
        }
        entry.name = *name;
        entry.networkNamespace = networkNamespace.value_or(*name);
        file_.vrfs.push_back(std::move(entry));
    }

    const VrfConfiguration* findVrf(std::string_view name) const {
        auto vrf = std::find_if(file_.vrfs.begin(), file_.vrfs.end(),
                                [&](const VrfConfiguration& v) { return v.name.bytes() == name; });
        return vrf == file_.vrfs.end() ? nullptr : &*vrf;
    }

    /// The key "vrf", which must name one that there is.
    std::optional<L3::VrfName> vrfOf(Section& section) {
        auto name = section.text("vrf", 1, mostVrfNameBytes);
        if (!name) {
            return std::nullopt;
        }
        if (!findVrf(*name)) {
            std::vector<std::string_view> names;
            for (const VrfConfiguration& vrf : file_.vrfs) {
                names.push_back(vrf.name);
            }
            std::string_view nearest = nearestName(*name, names);
            mistakes_.add(section.place("vrf"), "there is no VRF " + quoted(*name),
                          nearest.empty()
                              ? "the name of a [[vrf]]"
                              : "the name of a [[vrf]]; did you mean " + quoted(nearest) + "?");
            return std::nullopt;
        }
        return L3::VrfName(*name);
    }

    void readInterfaces(Section& root) {
        InterfacePlaces places{FirstPlaces<std::string>(mistakes_),
                               FirstPlaces<DeviceKey>(mistakes_),
                               FirstPlaces<IfindexKey>(mistakes_)};
        root.tables("interface", [&](Section& s) { readInterface(s, places); });
        checkParents();
    }

    using DeviceKey = std::pair<std::string, std::string>; // in a network namespace
    using IfindexKey = std::pair<std::string, uint32_t>;
    struct InterfacePlaces {
        FirstPlaces<std::string> names;
        FirstPlaces<DeviceKey> devices;
        FirstPlaces<IfindexKey> indexes;
    };

    void readInterface(Section& section, InterfacePlaces& places) {
        InterfaceConfiguration entry;
        auto name = section.interfaceName("name", Need::required);
        auto device = section.fileName("device", mostDeviceBytes);
        entry.vrf = vrfOf(section);
        entry.ipv4 = section.addresses("ipv4", Zinc::ipv4());
        entry.ipv6 = section.addresses("ipv6", Zinc::ipv6());
        take(entry.ifindex, section.number("ifindex", 1, 0x7fffffff));
        take(entry.running, section.boolean("running"));
        entry.subInterface = readSubInterface(section);
        for (const char* key : {"ipv4", "ipv6", "ifindex", "running"}) {
            if (section.has(key)) {
                rejectBesideLinux(section.place(key), quoted(key));
            }
        }
        if (!name) {
            return;
        }
        entry.name = *name;
        entry.device = device.value_or(*name);
        if (!places.names.add(*name, section.place(), "interface " + quoted(*name))) {
            return;
        }
        if (!section.has("device") && (name->size() > mostDeviceBytes || !isFileName(*name))) {
            mistakes_.add(section.place("name"),
                          "interface " + quoted(*name) +
                              " cannot lend its name to a kernel device, which has at most 15 "
                              "bytes and no \"/\"",
                          "a key \"device\" beside it");
        }
        if (file_.onLinux && isRoutedName(*name) && entry.device != *name) {
            mistakes_.add(section.place("device"),
                          quoted(entry.device) + " is the device of a routed interface",
                          "a device named as the interface");
        }
        const VrfConfiguration* vrf = findVrf(entry.vrfName());
        const std::string& networkNamespace = vrf->networkNamespace;
        places.devices.add({networkNamespace, entry.device}, section.place(),
                           "device " + quoted(entry.device));
        if (entry.ifindex) {
            places.indexes.add({networkNamespace, *entry.ifindex}, section.place("ifindex"),
                               "ifindex " + std::to_string(*entry.ifindex));
        }
        interfacePlaces_.push_back(section.place("parent"));
        file_.interfaces.push_back(std::move(entry));
    }

    std::optional<SubInterfaceConfiguration> readSubInterface(Section& section) {
        bool isSubInterface = section.has("parent");
        auto parent = section.interfaceName("parent");
        auto outer = section.vlan("outer_vlan", isSubInterface ? Need::required : Need::optional);
        auto inner = section.vlan("inner_vlan");
        for (std::string_view key : {"outer_vlan", "inner_vlan"}) {
            if (section.has(key) && !isSubInterface) {
                mistakes_.add(section.place(key), quoted(key) + " belongs to a sub-interface",
                              "\"parent\" beside it");
            }
        }
        if (!parent || !outer) {
            return std::nullopt;
        }
        SubInterfaceConfiguration result{*parent, *outer, {}};
        take(result.innerVlan, inner);
        return result;
    }

    /// A parent need not be configured here, but if it is it must not be a sub-interface.
    void checkParents() {
        std::map<std::string_view, const InterfaceConfiguration*> byName;
        for (const InterfaceConfiguration& interface : file_.interfaces) {
            byName.emplace(interface.name, &interface);
        }
        FirstPlaces<std::tuple<std::string, Bridging::VlanId, Bridging::VlanIdOrNone>> tags(
            mistakes_);
        for (size_t i = 0; i < file_.interfaces.size(); ++i) {
            const auto& sub = file_.interfaces[i].subInterface;
            if (!sub) {
                continue;
            }
            auto parent = byName.find(sub->parent);
            if (parent != byName.end() && parent->second->subInterface) {
                mistakes_.add(interfacePlaces_[i],
                              quoted(sub->parent) + " is a sub-interface itself",
                              "the interface that carries the tagged frames");
            }
            std::string what = "VLAN " + sub->outerVlan.toStrep() +
                               (sub->innerVlan ? " with inner " + sub->innerVlan.toStrep() : "") +
                               " of " + quoted(sub->parent);
            tags.add({sub->parent, sub->outerVlan, sub->innerVlan}, interfacePlaces_[i], what);
        }
    }

    void readRemoteBindings(Section& root) {
        FirstPlaces<std::pair<Bridging::VlanId, Zinc::IpGenAddr>> places(mistakes_);
        root.tables("remote_binding", [&](Section& s) {
            RemoteBindingConfiguration entry;
            auto vlan = s.vlan("vlan", Need::required);
            auto ip = s.ip("ip", Need::required);
            auto mac = s.mac("mac", Need::required);
            take(entry.vxlan, s.boolean("vxlan"));
            take(entry.localMultihomed, s.boolean("local_multihomed"));
            if (vlan && ip) {
                places.add({*vlan, *ip}, s.place(),
                           "the remote binding of " + ip->toStrep() + " in VLAN " +
                               vlan->toStrep());
            }
            if (vlan && ip && mac) {
                entry.vlan = *vlan;
                entry.ip = *ip;
                entry.mac = *mac;
                file_.remoteBindings.push_back(entry);
            }
        });
    }

    void readFdb(Section& root) {
        FirstPlaces<std::pair<Bridging::VlanId, Zinc::EthAddr>> places(mistakes_);
        root.tables("fdb", [&](Section& s) {
            rejectBesideLinux(s.place(), "[[fdb]]");
            FdbConfiguration entry;
            auto vlan = s.vlan("vlan", Need::required);
            auto mac = s.mac("mac", Need::required);
            auto interface = s.interfaceName("interface", Need::required);
            take(entry.type, s.choice<FdbType>("type", {{"learned", FdbType::learned},
                                                        {"static", FdbType::isStatic},
                                                        {"evpn", FdbType::evpn},
                                                        {"evpn_static", FdbType::evpnStatic}}));
            if (vlan && mac) {
                places.add({*vlan, *mac}, s.place(),
                           mac->toStrep() + " in VLAN " + vlan->toStrep());
            }
            if (vlan && mac && interface) {
                entry.vlan = *vlan;
                entry.mac = *mac;
                entry.interface = *std::move(interface);
                file_.fdb.push_back(std::move(entry));
            }
        });
    }

    void readNeighbors(Section& root) {
        std::map<std::string, L3::VrfName, std::less<>> routed;
        for (const InterfaceConfiguration& interface : file_.interfaces) {
            if (interface.isRouted()) {
                routed.emplace(interface.name, interface.vrfName());
            }
        }
        FirstPlaces<std::tuple<std::string, std::string, Zinc::IpGenAddr>> places(mistakes_);
        root.tables("neighbor", [&](Section& s) {
            rejectBesideLinux(s.place(), "[[neighbor]]");
            NeighborConfiguration entry;
            auto interface = s.interfaceName("interface", Need::required);
            auto ip = s.ip("ip", Need::required);
            auto mac = s.mac("mac", Need::required);
            take(entry.isStatic, s.boolean("static"));
            auto vrf = vrfOf(s);
            take(entry.vrf, vrf);
            take(entry.source, s.number("source", 0, 255));
            if (!interface || !ip) {
                return;
            }
            places.add({entry.vrf.bytes(), *interface, *ip}, s.place(),
                       "neighbor " + ip->toStrep() + " at " + quoted(*interface));
            auto known = routed.find(*interface);
            if (known != routed.end() && known->second != entry.vrf && (vrf || !s.has("vrf"))) {
                mistakes_.add(s.place("vrf"),
                              "the neighbor is in VRF " + quoted(entry.vrf) + " but " +
                                  quoted(*interface) + " in VRF " + quoted(known->second),
                              "\"vrf\" of the neighbor to be that of its interface");
            }
            if (mac) {
                entry.interface = *std::move(interface);
                entry.ip = *ip;
                entry.mac = *mac;
                file_.neighbors.push_back(std::move(entry));
            }
        });
    }

    ConfigurationMistakes& mistakes_;
    Configuration file_;
    std::vector<FilePlace> interfacePlaces_; // of each interface's parent, in their order
};

} // namespace

Configuration parseConfiguration(std::string_view text, std::string_view fileName) {
    ConfigurationMistakes mistakes;
    Configuration configuration;
    if (text.size() > configurationFileBytes) {
        mistakes.add(FilePlace(),
                     "is longer than " + std::to_string(configurationFileBytes) + " bytes",
                     "a configuration");
        throw mistakes.error(fileName);
    }
    ConfigurationTable tree = parseConfigurationTree(text, mistakes);
    if (mistakes.none()) {
        Section root(tree, "", FilePlace{1, 1}, mistakes);
        configuration = ConfigurationReader(mistakes).read(root);
        root.end();
    }
    if (!mistakes.none()) {
        throw mistakes.error(fileName);
    }
    return configuration;
}

Configuration readConfiguration(const std::string& path) {
    ConfigurationMistakes mistakes;
    try {
        if (auto text = Vela::readFileText(path, configurationFileBytes)) {
            return parseConfiguration(*text, path);
        }
        mistakes.add(FilePlace(), "there is no such file", "a configuration");
    } catch (const ConfigurationError&) {
        throw;
    } catch (const std::runtime_error& error) {
        mistakes.add(FilePlace(), error.what(), "a configuration");
    }
    throw mistakes.error(path);
}

} // namespace Host
