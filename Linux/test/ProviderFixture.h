#pragma once

#include "Linux/FdbProvider.h"
#include "Linux/LocalMultihomedSm.h"
#include "Linux/NeighborProvider.h"
#include "Linux/Topology.h"
#include "Linux/test/NeighborBytes.h"
#include "Testing/SwitchFixture.h"

#include <optional>
#include <string>
#include <vector>

namespace Linux {

using Bridging::EntryType;
using Bridging::VlanId;

/// A switch with the VLANs 10 and 20 of VRF 1 in namespace "default" and VLAN 30 of VRF 7 in "red";
/// the test speaks as the kernel does. Devices in "default":
/// Vlan10 (10), a macvlan on it (11); ports of its bridge: et1 (1), et2 on an Ethernet segment (2),
/// the tunnel (3), the end of a routed interface (4); Vlan20 (20), port et20 (21), tunnel (23).
/// In "red": Vlan30 (10).
class ProviderFixture : public Testing::SwitchFixture {
  protected:
    static inline const std::string ip = "10.0.0.1";
    static inline const std::string ip6 = "2001:db8::1";
    static inline const std::string a = "02:00:00:00:00:0a";
    static inline const std::string b = "02:00:00:00:00:0b";

    ProviderFixture() {
        topology = Vela::make<Topology>();
        topology->routedDeviceIs({"default", 10}, routed10);
        topology->routedDeviceIs({"default", 11}, macvlan10);
        topology->routedDeviceIs({"default", 20}, routed20);
        topology->routedDeviceIs({"red", 10}, routed30);
        topology->bridgePortIs(1, {VlanId(10), Zinc::IntfId("Ethernet1")});
        topology->bridgePortIs(
            2,
            {.vlanId = VlanId(10), .intfId = Zinc::IntfId("Ethernet2"), .ethernetSegment = true});
        topology->bridgePortIs(
            3, {.vlanId = VlanId(10), .intfId = Zinc::IntfId("Vxlan10"), .tunnel = true});
        topology->bridgePortIs(
            4, {.vlanId = VlanId(10), .intfId = Zinc::IntfId("r10"), .routed = true});
        topology->bridgePortIs(21, {VlanId(20), Zinc::IntfId("Ethernet20")});
        topology->bridgePortIs(
            23, {.vlanId = VlanId(20), .intfId = Zinc::IntfId("Vxlan20"), .tunnel = true});
        configured = Vela::make<ConfiguredBindings>();
        localMultihomedSm = Vela::make<LocalMultihomedSm>(
            scheduler(), topology, state().bridgingConfig, state().bridgingStatus,
            state().remoteBindingConfig, configured);
        fdb = Vela::make<FdbProvider>(scheduler(), topology, state().bridgingConfig,
                                      state().bridgingStatus, localMultihomedSm,
                                      [this] { ++fdbResyncs; });
        neighbors = Vela::make<NeighborProvider>(
            scheduler(), topology, state().arpStatus, state().remoteBindingConfig, configured,
            localMultihomedSm, [this](const std::string& netNs) { resyncs.push_back(netNs); });
        neighbors->consumerIs("default");
        neighbors->consumerIs("red");
        runUntilIdle();
    }
    ~ProviderFixture() override {
        neighbors->destroy();
        fdb->destroy();
        localMultihomedSm->destroy();
    }

    void say(NetlinkConsumer& consumer, const NeighborSpecimen& specimen) {
        MessageBytes bytes = specimen.bytes();
        consumer.message(bytes.header());
    }
    void fdbIs(uint32_t ifIndex, const std::string& mac, uint16_t state = NUD_REACHABLE,
               uint8_t flags = 0) {
        say(*fdb, {.ifIndex = ifIndex, .macAddress = mac, .state = state, .flags = flags});
    }
    void fdbDel(uint32_t ifIndex, const std::string& mac) {
        say(*fdb, {.ifIndex = ifIndex, .macAddress = mac, .removed = true});
    }
    NetlinkConsumer& inDefault() { return neighbors->consumerIs("default"); }
    NetlinkConsumer& inRed() { return neighbors->consumerIs("red"); }
    void neighborIs(uint32_t ifIndex, const std::string& address, const std::string& mac) {
        say(inDefault(), {.ifIndex = ifIndex, .address = address, .macAddress = mac});
    }
    void remoteIs(uint32_t ifIndex, const std::string& address, const std::string& mac) {
        say(inDefault(), remote(ifIndex, address, mac));
    }
    static NeighborSpecimen remote(uint32_t ifIndex, const std::string& address,
                                   const std::string& mac) {
        return {.ifIndex = ifIndex,
                .address = address,
                .macAddress = mac,
                .state = NUD_NOARP,
                .flags = NTF_EXT_LEARNED,
                .protocol = 11};
    }
    void neighborDel(uint32_t ifIndex, const std::string& address) {
        say(inDefault(),
            {.ifIndex = ifIndex, .address = address, .state = NUD_FAILED, .removed = true});
    }

    Bridging::QuarryFdbStatus fdbEntry(uint16_t fid, const std::string& mac) {
        return state().bridgingStatus->quarryFdbStatus({Bridging::Fid(fid), Zinc::EthAddr(mac)});
    }
    size_t fdbEntries() { return state().bridgingStatus->quarryFdbStatusCollection().count(); }
    std::optional<Arp::Table::ArpEntry> arpEntry(const RoutedDevice& device,
                                                 const std::string& address) {
        const Zinc::IpGenAddr parsed(address);
        const auto& entries = parsed.af() == Zinc::ipv4()
                                  ? state().arpStatus->arpEntryCollection()
                                  : state().arpStatus->neighborEntryCollection();
        return entries.find({device.vrfId, device.intfId, parsed});
    }
    size_t arpEntries() {
        return state().arpStatus->arpEntryCollection().count() +
               state().arpStatus->neighborEntryCollection().count();
    }
    std::optional<ArpSuppression::RemoteBinding> binding(uint16_t vlan,
                                                         const std::string& address) {
        return state().remoteBindingConfig->remoteBindingCollection().find(
            {VlanId(vlan), Zinc::IpGenAddr(address)});
    }
    size_t bindings() { return state().remoteBindingConfig->remoteBindingCollection().count(); }

    static inline const RoutedDevice routed10{VlanId(10), Zinc::IntfId("Vlan10"), Vrf::VrfId(1)};
    static inline const RoutedDevice macvlan10{VlanId(10), Zinc::IntfId("Vlan10"), Vrf::VrfId(1),
                                               true};
    static inline const RoutedDevice routed20{VlanId(20), Zinc::IntfId("Vlan20"), Vrf::VrfId(1)};
    static inline const RoutedDevice routed30{VlanId(30), Zinc::IntfId("Vlan30"), Vrf::VrfId(7)};

    Vela::Ptr<Topology> topology;
    Vela::Ptr<ConfiguredBindings> configured;
    Vela::Ptr<LocalMultihomedSm> localMultihomedSm;
    Vela::Ptr<FdbProvider> fdb;
    Vela::Ptr<NeighborProvider> neighbors;
    int fdbResyncs = 0;
    std::vector<std::string> resyncs; // the namespaces asked for
};

} // namespace Linux
