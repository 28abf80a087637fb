#include "Host/StaticEntries.h"

#include "Testing/SwitchFixture.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <net/if.h>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Host {
namespace {

using Bridging::Fid;
using Bridging::VlanId;
using Bridging::VlanTag;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;
using Lines = std::vector<std::string>;

template <class Key>
std::string text(const Key& key) {
    return key.toStrep();
}
std::string text(const L3::VrfName& key) {
    return key.bytes();
}
std::string text(KernelNetInfo::IfIndex key) {
    return std::to_string(key.value);
}

// A configuration with something in every section.
constexpr const char* everything = R"(
[bridging]
mac = "02:00:00:00:00:01"
[[bridging.fid]]
vlan = 20
fid = 1020
[fhrp]
varp_mac = "02:00:5e:00:01:01"
[l2vpn]
selective_arp_install = true
[evpn]
mpls = true
inner_dot1q = true
control_word = true
[[evpn.vlan]]
vlan = 10
imet_label = 10010
imet_encapsulation = "vxlan"
[[evpn.vlan]]
vlan = 20
dot1q = 200
imet_label = 10020
[[evpn.vlan]]
vlan = 30
[[evpn.segment]]
interface = "Ethernet2"
label = 500
[[evpn.segment.designated_forwarder]]
vlan = 10
tunnel = "Vxlan1"
[[evpn.segment.designated_forwarder]]
vlan = 20
[[vrf]]
name = "blue"
id = 7
namespace = "ns-blue"
[[vrf]]
name = "red"
state = "initializing"
[[interface]]
name = "Ethernet1"
device = "et1"
ifindex = 11
[[interface]]
name = "Vlan10"
device = "vlan10"
ipv4 = ["10.10.0.1/24", "10.10.2.1/24", "10.10.1.1/24"]
ipv6 = ["2001:db8:10::1/64", "fe80::1/64"]
[[interface]]
name = "Vlan20"
device = "vlan20"
vrf = "blue"
ipv4 = ["10.20.0.1/24"]
ifindex = 11
running = false
[[interface]]
name = "Vlan30"
vrf = "red"
[[interface]]
name = "Ethernet1.30"
parent = "Ethernet1"
outer_vlan = 30
inner_vlan = 300
[[remote_binding]]
vlan = 10
ip = "10.10.0.50"
mac = "02:00:00:00:10:50"
[[remote_binding]]
vlan = 20
ip = "2001:db8:20::60"
mac = "02:00:00:00:20:60"
vxlan = true
local_multihomed = true
[[fdb]]
vlan = 10
mac = "02:00:00:00:10:10"
interface = "Ethernet1"
[[fdb]]
vlan = 20
mac = "02:00:00:00:20:10"
interface = "Ethernet1"
type = "static"
[[fdb]]
vlan = 10
mac = "02:00:00:00:10:50"
interface = "Vxlan1"
type = "evpn"
[[fdb]]
vlan = 10
mac = "02:00:00:00:10:51"
interface = "Vxlan1"
type = "evpn_static"
[[neighbor]]
interface = "Vlan10"
ip = "10.10.0.10"
mac = "02:00:00:00:10:10"
[[neighbor]]
interface = "Vlan20"
vrf = "blue"
ip = "2001:db8:20::20"
mac = "02:00:00:00:20:20"
static = true
source = 9
)";

class StaticEntriesTest : public Testing::SwitchFixture {
  protected:
    static Configuration parsed(std::string_view text) { return parseConfiguration(text, "test"); }
    void apply(std::string_view text) { entries_.apply(parsed(text)); }

    /// What is announced, sorted, when the configuration goes from one to the other.
    Lines changes(std::string_view from, std::string_view to) {
        apply(from);
        return changesTo(parsed(to));
    }
    Lines changesTo(const Configuration& configuration) {
        Lines lines = announcedBy([&] { entries_.apply(configuration); });
        std::sort(lines.begin(), lines.end());
        return lines;
    }
    Lines announcedBy(const std::function<void()>& change) {
        runUntilIdle();
        watchAll();
        change();
        runUntilIdle();
        reactions_.clear();
        return std::move(lines_);
    }

    Vrf::VrfId vrfId(const std::string& name) {
        std::optional<Vrf::VrfId> id;
        for (auto cursor = state().vrfIdMap->vrfCollection().first(); cursor; ++cursor) {
            if (cursor.value().vrfName() == name) {
                EXPECT_FALSE(id) << name << " has two ids";
                id = cursor.key();
            }
        }
        return id.value_or(Vrf::VrfId());
    }
    KernelNetInfo::InterfaceStatus kernelInterface(const std::string& netNs, uint32_t ifIndex) {
        auto status = kernelNetInfo(netNs);
        return status ? status->interfaceCollection().value({ifIndex})
                      : KernelNetInfo::InterfaceStatus();
    }
    /// Empty where nobody has mounted it.
    Vela::Ptr<KernelNetInfo::Status> kernelNetInfo(const std::string& netNs) {
        return state().tables->entity<KernelNetInfo::Status>(KernelNetInfo::statusPath(netNs));
    }
    Brant::IntfEncap encap(const char* parent, const char* subIntf) {
        auto entry = state().intfEncapServiceIntf->parent(IntfId(parent));
        return entry ? entry->subIntfCollection().value(IntfId(subIntf)) : Brant::IntfEncap();
    }

    StaticEntries entries_{state()};

  private:
    template <class Observed>
    void watch(const std::string& name, const Observed& observed) {
        if constexpr (requires { typename Observed::Key; }) {
            using Key = typename Observed::Key;
            reactions_.push_back(observed.react(
                nullptr, [=, this](const Key& key) { lines_.push_back(name + " " + text(key)); }));
        } else {
            reactions_.push_back(observed.react(nullptr, [=, this] { lines_.push_back(name); }));
        }
    }
    void watchAll();

    std::vector<Vela::Reaction> reactions_;
    Lines lines_;
};

void StaticEntriesTest::watchAll() {
    Vela::SwitchState& s = state();
    watch("bridgeMacAddr", s.bridgingConfig->bridgeMacAddrAttribute());
    watch("vlanToFid", s.bridgingConfig->vlanToFidCollection());
    watch("varpVirtualMac", s.fhrpVrMacStatus->varpVirtualMacAttribute());
    watch("selectiveArpInstall", s.l2VpnConfig->selectiveArpInstallAttribute());
    watch("mplsConfigured", s.evpnStatus->mplsConfiguredAttribute());
    watch("vlanToDot1q", s.evpnStatus->vlanToDot1qCollection());
    watch("imetLabel", s.evpnStatus->imetLabelCollection());
    watch("localEsiLabel", s.evpnStatus->localEsiLabelCollection());
    watch("segmentStatus", s.evpnStatus->segmentStatusCollection());
    for (auto it = s.evpnStatus->segmentStatusCollection().first(); it; ++it) {
        watch(text(it.key()) + " dfTep", it.value()->dfTepCollection());
    }
    watch("innerDot1qDefault", s.evpnMplsConfig->innerDot1qDefaultAttribute());
    watch("controlWordEnabled", s.evpnMplsConfig->controlWordEnabledAttribute());
    watch("vrf", s.allVrfStatusLocal->vrfCollection());
    for (auto it = s.allVrfStatusLocal->vrfCollection().first(); it; ++it) {
        watch(text(it.key()) + " state", it.value()->stateAttribute());
        watch(text(it.key()) + " networkNamespace", it.value()->networkNamespaceAttribute());
        if (auto status = kernelNetInfo(it.value()->networkNamespace())) {
            watch("kernel " + it.value()->networkNamespace(), status->interfaceCollection());
        }
    }
    watch("vrfId", s.vrfIdMap->vrfCollection());
    watch("intfStatus", s.allIntfStatusDir->intfStatusCollection());
    for (auto it = s.allIntfStatusDir->intfStatusCollection().first(); it; ++it) {
        watch(text(it.key()) + " deviceName", it.value()->deviceNameAttribute());
    }
    watch("intfStatusLocal", s.allIntfStatusLocalDir->intfStatusLocalCollection());
    for (auto it = s.allIntfStatusLocalDir->intfStatusLocalCollection().first(); it; ++it) {
        watch(text(it.key()) + " netNs", it.value()->netNsAttribute());
    }
    watch("ipIntfStatus", s.ipStatus->ipIntfStatusCollection());
    for (auto it = s.ipStatus->ipIntfStatusCollection().first(); it; ++it) {
        watch(text(it.key()) + " primary", it.value()->activeAddrWithMaskAttribute());
        watch(text(it.key()) + " secondary", it.value()->activeSecondaryWithMaskCollection());
    }
    watch("ip6IntfStatus", s.ip6Status->intfCollection());
    for (auto it = s.ip6Status->intfCollection().first(); it; ++it) {
        watch(text(it.key()) + " ip6", it.value()->addrCollection());
    }
    watch("parent", s.intfEncapServiceIntf->parentCollection());
    for (auto it = s.intfEncapServiceIntf->parentCollection().first(); it; ++it) {
        watch(text(it.key()) + " subIntf", it.value()->subIntfCollection());
    }
    watch("arpEntry", s.arpStatus->arpEntryCollection());
    watch("neighborEntry", s.arpStatus->neighborEntryCollection());
    watch("fdb", s.bridgingStatus->quarryFdbStatusCollection());
    watch("remoteBinding", s.remoteBindingConfig->remoteBindingCollection());
}

TEST_F(StaticEntriesTest, AnEmptyConfigurationHasTheDefaultVrf) {
    EXPECT_EQ(changes("", ""), Lines{});
    auto vrf = state().allVrfStatusLocal->vrf("default");
    ASSERT_TRUE(vrf);
    EXPECT_EQ(vrf->state(), Ip::VrfState::active);
    EXPECT_EQ(vrf->networkNamespace(), "default");
    EXPECT_EQ(vrfId("default"), Vrf::VrfId(0));
    EXPECT_TRUE(kernelNetInfo("default"));
    EXPECT_EQ(state().allVrfStatusLocal->vrfCollection().count(), 1u);
    EXPECT_EQ(state().allIntfStatusDir->intfStatusCollection().count(), 0u);
    EXPECT_FALSE(state().evpnStatus->mplsConfigured());
}

TEST_F(StaticEntriesTest, FillsVrfs) {
    apply(everything);
    auto blue = state().allVrfStatusLocal->vrf("blue");
    ASSERT_TRUE(blue);
    EXPECT_EQ(blue->state(), Ip::VrfState::active);
    EXPECT_EQ(blue->networkNamespace(), "ns-blue");
    auto red = state().allVrfStatusLocal->vrf("red");
    ASSERT_TRUE(red);
    EXPECT_EQ(red->state(), Ip::VrfState::initializing);
    EXPECT_EQ(red->networkNamespace(), "red");
    EXPECT_EQ(state().allVrfStatusLocal->vrfCollection().count(), 3u);
    EXPECT_EQ(vrfId("default"), Vrf::VrfId(0));
    EXPECT_EQ(vrfId("blue"), Vrf::VrfId(7));
    EXPECT_EQ(vrfId("red"), Vrf::VrfId(1));
    EXPECT_TRUE(kernelNetInfo("ns-blue"));
    EXPECT_TRUE(kernelNetInfo("red"));

    apply("[[vrf]]\nname = \"red\"\nstate = \"deleting\"");
    EXPECT_EQ(red->state(), Ip::VrfState::deleting);
}

TEST_F(StaticEntriesTest, FillsInterfaces) {
    apply(everything);
    auto& status = *state().allIntfStatusDir;
    auto& local = *state().allIntfStatusLocalDir;
    ASSERT_EQ(status.intfStatusCollection().count(), 5u);
    ASSERT_EQ(local.intfStatusLocalCollection().count(), 5u);
    EXPECT_EQ(status.intfStatus(IntfId("Vlan20"))->deviceName(), "vlan20");
    EXPECT_EQ(status.intfStatus(IntfId("Vlan30"))->deviceName(), "Vlan30");
    EXPECT_EQ(local.intfStatusLocal(IntfId("Ethernet1"))->netNs(), "default");
    EXPECT_EQ(local.intfStatusLocal(IntfId("Vlan10"))->netNs(), "default");
    EXPECT_EQ(local.intfStatusLocal(IntfId("Vlan20"))->netNs(), "ns-blue");
    EXPECT_EQ(local.intfStatusLocal(IntfId("Vlan30"))->netNs(), "red");

    EXPECT_EQ(kernelInterface("default", 11),
              KernelNetInfo::InterfaceStatus(11, "et1", IFF_UP | IFF_RUNNING, EthAddr()));
    EXPECT_EQ(kernelInterface("ns-blue", 11),
              KernelNetInfo::InterfaceStatus(11, "vlan20", 0, EthAddr()));
    EXPECT_EQ(kernelNetInfo("default")->interfaceCollection().count(), 1u);

    EXPECT_EQ(encap("Ethernet1", "Ethernet1.30"),
              Brant::IntfEncap(VlanTag(VlanTag::dot1q, 30), VlanTag(VlanTag::dot1q, 300)));
    EXPECT_EQ(state().intfEncapServiceIntf->parentCollection().count(), 1u);
}

TEST_F(StaticEntriesTest, FillsAddresses) {
    apply(everything);
    auto& ip = *state().ipStatus;
    ASSERT_EQ(ip.ipIntfStatusCollection().count(), 2u);
    auto vlan10 = ip.ipIntfStatus(IntfId("Vlan10"));
    EXPECT_EQ(vlan10->vrfName(), "default");
    EXPECT_EQ(vlan10->activeAddrWithMask().toStrep(), "10.10.0.1/24");
    auto second = vlan10->activeSecondaryWithMaskCollection().first();
    EXPECT_EQ(second.key().toStrep(), "10.10.1.1/24");
    EXPECT_EQ(vlan10->activeSecondaryWithMaskCollection().count(), 2u);
    EXPECT_EQ(ip.ipIntfStatus(IntfId("Vlan20"))->vrfName(), "blue");

    auto& ip6 = *state().ip6Status;
    ASSERT_EQ(ip6.intfCollection().count(), 2u);
    auto addresses = ip6.intf(IntfId("Vlan10"))->addrCollection().first();
    EXPECT_EQ(addresses.key().toStrep(), "2001:db8:10::1/64");
    ++addresses;
    EXPECT_EQ(addresses.key().toStrep(), "fe80::1/64");
    // Routed without an address.
    EXPECT_EQ(ip6.intf(IntfId("Vlan30"))->vrfName(), "red");
    EXPECT_EQ(ip6.intf(IntfId("Vlan30"))->addrCollection().count(), 0u);
}

TEST_F(StaticEntriesTest, FillsBridgingAndEvpn) {
    apply(everything);
    EXPECT_EQ(state().bridgingConfig->bridgeMacAddr(), EthAddr("02:00:00:00:00:01"));
    EXPECT_EQ(state().bridgingConfig->fid(VlanId(20)), Fid(1020));
    EXPECT_EQ(state().bridgingConfig->vlanToFidCollection().count(), 1u);
    EXPECT_EQ(state().fhrpVrMacStatus->varpVirtualMac(), EthAddr("02:00:5e:00:01:01"));
    EXPECT_TRUE(state().l2VpnConfig->selectiveArpInstall());
    EXPECT_TRUE(state().evpnMplsConfig->innerDot1qDefault());
    EXPECT_TRUE(state().evpnMplsConfig->controlWordEnabled());

    auto& evpn = *state().evpnStatus;
    EXPECT_TRUE(evpn.mplsConfigured());
    EXPECT_EQ(evpn.vlanToDot1qCollection().count(), 3u);
    EXPECT_FALSE(evpn.vlanToDot1qCollection().value(VlanId(10)));
    EXPECT_EQ(evpn.vlanToDot1qCollection().value(VlanId(20)), VlanId(200));
    EXPECT_EQ(evpn.imetLabelCollection().count(), 2u);
    EXPECT_EQ(evpn.imetLabelCollection().value(VlanId(10)),
              Evpn::ImetLabel(10010, Evpn::EncapType::vxlan));
    EXPECT_EQ(evpn.imetLabelCollection().value(VlanId(20)),
              Evpn::ImetLabel(10020, Evpn::EncapType::mpls));
    EXPECT_EQ(evpn.localEsiLabelCollection().value(IntfId("Ethernet2")), Evpn::EsiLabel(500));
    auto segment = evpn.segmentStatus(IntfId("Ethernet2"));
    ASSERT_TRUE(segment);
    EXPECT_EQ(segment->dfTepCollection().count(), 2u);
    EXPECT_EQ(segment->dfTep(VlanId(10)), IntfId("Vxlan1"));
    EXPECT_EQ(segment->dfTep(VlanId(20)), IntfId());
}

TEST_F(StaticEntriesTest, FillsTables) {
    apply(everything);
    auto& bindings = *state().remoteBindingConfig;
    EXPECT_EQ(bindings.remoteBindingCollection().count(), 2u);
    EXPECT_EQ(bindings.remoteBinding({VlanId(10), IpGenAddr("10.10.0.50")}).toStrep(),
              "<vlanId=10 ipAddress=10.10.0.50 macAddress=02:00:00:00:10:50 vxlan=0 "
              "localMultihomed=0>");
    EXPECT_EQ(bindings.remoteBinding({VlanId(20), IpGenAddr("2001:db8:20::60")}).toStrep(),
              "<vlanId=20 ipAddress=2001:db8:20::60 macAddress=02:00:00:00:20:60 vxlan=1 "
              "localMultihomed=1>");

    auto& fdb = *state().bridgingStatus;
    using Bridging::EntryType;
    EXPECT_EQ(fdb.quarryFdbStatusCollection().count(), 4u);
    auto local = fdb.quarryFdbStatus({Fid(10), EthAddr("02:00:00:00:10:10")});
    EXPECT_EQ(local.intf, IntfId("Ethernet1"));
    EXPECT_EQ(local.entryType, EntryType::learnedDynamic);
    auto type = [&](Fid fid, const char* mac) {
        return fdb.quarryFdbStatus({fid, EthAddr(mac)}).entryType;
    };
    EXPECT_EQ(type(Fid(1020), "02:00:00:00:20:10"), EntryType::configuredStatic);
    EXPECT_EQ(type(Fid(10), "02:00:00:00:10:50"), EntryType::evpnDynamicRemote);
    EXPECT_EQ(type(Fid(10), "02:00:00:00:10:51"), EntryType::evpnConfiguredRemote);

    auto& arp = *state().arpStatus;
    EXPECT_EQ(arp.arpEntryCollection().count(), 1u);
    auto host =
        arp.arpEntryCollection().value({Vrf::VrfId(0), IntfId("Vlan10"), IpGenAddr("10.10.0.10")});
    EXPECT_EQ(host.macAddress, EthAddr("02:00:00:00:10:10"));
    EXPECT_FALSE(host.isStatic);
    EXPECT_EQ(host.source, Arp::ArpSource::kernel);
    EXPECT_EQ(arp.neighborEntryCollection().count(), 1u);
    host = arp.neighborEntryCollection().value(
        {Vrf::VrfId(7), IntfId("Vlan20"), IpGenAddr("2001:db8:20::20")});
    EXPECT_EQ(host.macAddress, EthAddr("02:00:00:00:20:20"));
    EXPECT_TRUE(host.isStatic);
    EXPECT_EQ(host.source, Arp::ArpSource(9));
}

TEST_F(StaticEntriesTest, TheSameAgainAnnouncesNothing) {
    EXPECT_EQ(changes(everything, everything), Lines{});
}

TEST_F(StaticEntriesTest, AnnouncesWhatChangedAndNothingElse) {
    struct Edit {
        const char* from;
        const char* to;
        Lines announced;
    };
    const Edit edits[] = {
        {"mac = \"02:00:00:00:00:01\"", "mac = \"02:00:00:00:00:02\"", {"bridgeMacAddr"}},
        {"varp_mac = \"02:00:5e:00:01:01\"", "", {"varpVirtualMac"}},
        {"selective_arp_install = true", "", {"selectiveArpInstall"}},
        {"mpls = true", "mpls = false", {"mplsConfigured"}},
        {"inner_dot1q = true", "", {"innerDot1qDefault"}},
        {"control_word = true", "", {"controlWordEnabled"}},
        {"dot1q = 200", "dot1q = 201", {"vlanToDot1q 20"}},
        {"imet_label = 10020", "imet_label = 10021", {"imetLabel 20"}},
        {"imet_label = 10020", "", {"imetLabel 20"}},
        {"imet_encapsulation = \"vxlan\"", "", {"imetLabel 10"}},
        {"[[evpn.vlan]]\nvlan = 30", "", {"vlanToDot1q 30"}},
        {"label = 500", "label = 501", {"localEsiLabel Ethernet2"}},
        {"label = 500", "", {"localEsiLabel Ethernet2"}},
        {"tunnel = \"Vxlan1\"", "tunnel = \"Vxlan2\"", {"Ethernet2 dfTep 10"}},
        {"[[evpn.segment.designated_forwarder]]\nvlan = 20", "", {"Ethernet2 dfTep 20"}},
        {"id = 7",
         "id = 8",
         {"neighborEntry <vrfId=7 intfId=Vlan20 addr=2001:db8:20::20>",
          "neighborEntry <vrfId=8 intfId=Vlan20 addr=2001:db8:20::20>", "vrfId 7", "vrfId 8"}},
        {"state = \"initializing\"", "", {"red state"}},
        {"device = \"et1\"\nifindex = 11",
         "device = \"et1\"\nifindex = 12",
         {"kernel default 11", "kernel default 12"}},
        {"device = \"vlan20\"", "device = \"vlan021\"", {"Vlan20 deviceName", "kernel ns-blue 11"}},
        {"running = false", "", {"kernel ns-blue 11"}},
        {"\"10.10.0.1/24\", ", "", {"Vlan10 primary", "Vlan10 secondary 10.10.2.1/24"}},
        {", \"10.10.1.1/24\"", "", {"Vlan10 secondary 10.10.1.1/24"}},
        {", \"fe80::1/64\"", "", {"Vlan10 ip6 fe80::1/64"}},
        {"ipv6 = [\"2001:db8:10::1/64\", \"fe80::1/64\"]", "", {"ip6IntfStatus Vlan10"}},
        {"inner_vlan = 300", "", {"Ethernet1 subIntf Ethernet1.30"}},
        {"mac = \"02:00:00:00:10:50\"\n[[remote",
         "mac = \"02:00:00:00:10:51\"\n[[remote",
         {"remoteBinding <vlanId=10 ipAddress=10.10.0.50>"}},
        {"vxlan = true", "", {"remoteBinding <vlanId=20 ipAddress=2001:db8:20::60>"}},
        {"type = \"static\"", "", {"fdb <fid=1020 macAddress=02:00:00:00:20:10>"}},
        {"interface = \"Ethernet1\"\n[[fdb",
         "interface = \"Ethernet3\"\n[[fdb",
         {"fdb <fid=10 macAddress=02:00:00:00:10:10>"}},
        {"source = 9", "", {"neighborEntry <vrfId=7 intfId=Vlan20 addr=2001:db8:20::20>"}},
    };
    for (const Edit& edit : edits) {
        std::string edited = everything;
        size_t place = edited.find(edit.from);
        ASSERT_NE(place, edited.npos) << edit.from;
        edited.replace(place, std::string_view(edit.from).size(), edit.to);
        EXPECT_EQ(changes(everything, edited), edit.announced) << edit.from;
    }
}

TEST_F(StaticEntriesTest, WhatIsGoneIsWithdrawn) {
    EXPECT_EQ(changes(everything, ""),
              (Lines{"Ethernet1 subIntf Ethernet1.30",
                     "arpEntry <vrfId=0 intfId=Vlan10 addr=10.10.0.10>",
                     "bridgeMacAddr",
                     "controlWordEnabled",
                     "fdb <fid=10 macAddress=02:00:00:00:10:10>",
                     "fdb <fid=10 macAddress=02:00:00:00:10:50>",
                     "fdb <fid=10 macAddress=02:00:00:00:10:51>",
                     "fdb <fid=1020 macAddress=02:00:00:00:20:10>",
                     "imetLabel 10",
                     "imetLabel 20",
                     "innerDot1qDefault",
                     "intfStatus Ethernet1",
                     "intfStatus Ethernet1.30",
                     "intfStatus Vlan10",
                     "intfStatus Vlan20",
                     "intfStatus Vlan30",
                     "intfStatusLocal Ethernet1",
                     "intfStatusLocal Ethernet1.30",
                     "intfStatusLocal Vlan10",
                     "intfStatusLocal Vlan20",
                     "intfStatusLocal Vlan30",
                     "ip6IntfStatus Vlan10",
                     "ip6IntfStatus Vlan30",
                     "ipIntfStatus Vlan10",
                     "ipIntfStatus Vlan20",
                     "kernel default 11",
                     "localEsiLabel Ethernet2",
                     "mplsConfigured",
                     "neighborEntry <vrfId=7 intfId=Vlan20 addr=2001:db8:20::20>",
                     "parent Ethernet1",
                     "remoteBinding <vlanId=10 ipAddress=10.10.0.50>",
                     "remoteBinding <vlanId=20 ipAddress=2001:db8:20::60>",
                     "segmentStatus Ethernet2",
                     "selectiveArpInstall",
                     "varpVirtualMac",
                     "vlanToDot1q 10",
                     "vlanToDot1q 20",
                     "vlanToDot1q 30",
                     "vlanToFid 20",
                     "vrf blue",
                     "vrf red",
                     "vrfId 1",
                     "vrfId 7"}));
    EXPECT_TRUE(state().allVrfStatusLocal->vrf("default"));
    EXPECT_EQ(state().bridgingConfig->bridgeMacAddr(), EthAddr());
    EXPECT_EQ(state().bridgingStatus->quarryFdbStatusCollection().count(), 0u);
}

TEST_F(StaticEntriesTest, WhatOthersPublishedStays) {
    auto publish = [&] {
        Vela::SwitchState& s = state();
        const EthAddr mac("02:00:00:00:00:77");
        s.allVrfStatusLocal->vrfIs("green")->networkNamespaceIs("ns-green");
        s.vrfIdMap->vrfIs(Vrf::VrfId(99), "green");
        s.kernelNetInfoIs("ns-green")->interfaceIs({5, "g5", 0, EthAddr()});
        s.kernelNetInfoIs("default")->interfaceIs({5, "d5", 0, EthAddr()});
        s.allIntfStatusDir->intfStatusIs(IntfId("Other1"))->deviceNameIs("o1");
        s.allIntfStatusLocalDir->intfStatusLocalIs(IntfId("Other1"))->netNsIs("ns-green");
        s.ipStatus->ipIntfStatusIs(IntfId("Other1"), "green");
        s.ip6Status->intfIs(IntfId("Other1"), "green");
        s.intfEncapServiceIntf->parentIs(IntfId("Ethernet1"))
            ->subIntfIs(IntfId("Ethernet1.77"), Brant::IntfEncap(VlanTag(VlanTag::dot1q, 77)));
        s.bridgingConfig->vlanToFidIs(VlanId(77), Fid(770));
        s.evpnStatus->vlanToDot1qIs(VlanId(77), {});
        s.evpnStatus->imetLabelIs(VlanId(77), {770, Evpn::EncapType::mpls});
        s.evpnStatus->segmentStatusIs(IntfId("Other1"));
        s.evpnStatus->localEsiLabelIs(IntfId("Other1"), Evpn::EsiLabel(77));
        s.bridgingStatus->quarryFdbStatusIs(
            {{Fid(77), mac}, {}, Bridging::EntryType::learnedDynamic});
        s.arpStatus->entryIs({{Vrf::VrfId(0), IntfId("Other1"), IpGenAddr("10.77.0.1")}, mac});
        s.remoteBindingConfig->remoteBindingIs({{VlanId(77), IpGenAddr("10.77.0.1")}, mac});
    };
    publish();
    apply(everything);
    apply("");
    EXPECT_EQ(announcedBy(publish), Lines{});
    EXPECT_EQ(kernelInterface("ns-green", 5).deviceName(), "g5");
    EXPECT_EQ(state().evpnStatus->segmentStatusCollection().count(), 1u);
}

TEST_F(StaticEntriesTest, WhatIsNotConfiguredMayBeAnothers) {
    apply("");
    state().bridgingConfig->bridgeMacAddrIs(EthAddr("02:00:00:00:00:99"));
    state().fhrpVrMacStatus->varpVirtualMacIs(EthAddr("02:00:00:00:00:98"));
    apply("[[vrf]]\nname = \"blue\"");
    EXPECT_EQ(state().bridgingConfig->bridgeMacAddr(), EthAddr("02:00:00:00:00:99"));
    EXPECT_EQ(state().fhrpVrMacStatus->varpVirtualMac(), EthAddr("02:00:00:00:00:98"));
}

// --- VRFs

TEST_F(StaticEntriesTest, AVrfIsNeverActiveWithoutItsNamespace) {
    Lines seen;
    std::vector<Vela::Reaction> reactions;
    auto& vrfs = *state().allVrfStatusLocal;
    auto note = [&] {
        if (auto vrf = vrfs.vrf("blue")) {
            seen.push_back(std::string(toStrep(vrf->state())) + " in " + vrf->networkNamespace());
        } else {
            seen.emplace_back("gone");
        }
    };
    auto reaction = vrfs.vrfCollection().react(nullptr, [&](const L3::VrfName& name) {
        if (name == "blue") {
            note();
            if (auto vrf = vrfs.vrf("blue")) {
                reactions.push_back(vrf->stateAttribute().react(nullptr, note));
                reactions.push_back(vrf->networkNamespaceAttribute().react(nullptr, note));
            }
        }
    });
    apply("[[vrf]]\nname = \"blue\"\nnamespace = \"a\"");
    EXPECT_EQ(seen, (Lines{"initializing in ", "initializing in a", "active in a"}));
    seen.clear();
    auto before = vrfs.vrf("blue");
    apply("[[vrf]]\nname = \"blue\"\nnamespace = \"b\"");
    EXPECT_EQ(seen, (Lines{"gone", "initializing in ", "initializing in b", "active in b"}));
    EXPECT_NE(vrfs.vrf("blue"), before);
    EXPECT_TRUE(kernelNetInfo("b"));
    EXPECT_FALSE(kernelNetInfo("a"));
}

TEST_F(StaticEntriesTest, AVrfsKernelTableIsThereBeforeItIsActive) {
    bool there = false;
    auto reaction =
        state().allVrfStatusLocal->vrfCollection().react(nullptr, [&](const L3::VrfName& name) {
            if (name == "blue") {
                there = kernelNetInfo("blue") != nullptr;
            }
        });
    apply("[[vrf]]\nname = \"blue\"");
    EXPECT_TRUE(there);
}

TEST_F(StaticEntriesTest, ANamespaceIsMountedAsLongAsAVrfUsesIt) {
    apply("[[vrf]]\nname = \"a\"\nnamespace = \"n\"\n[[vrf]]\nname = \"b\"\nnamespace = \"n\"\n"
          "[[interface]]\nname = \"I\"\nvrf = \"b\"\nifindex = 3");
    auto mounted = kernelNetInfo("n");
    ASSERT_TRUE(mounted);
    apply("[[vrf]]\nname = \"b\"\nnamespace = \"n\"");
    EXPECT_EQ(kernelNetInfo("n"), mounted);
    EXPECT_EQ(kernelInterface("n", 3), KernelNetInfo::InterfaceStatus());
    apply("");
    EXPECT_FALSE(kernelNetInfo("n"));
    EXPECT_TRUE(kernelNetInfo("default"));
}

TEST_F(StaticEntriesTest, TheDefaultVrfMayHaveAnotherNamespace) {
    apply("[[vrf]]\nname = \"default\"\nnamespace = \"main\"\n[[interface]]\nname = \"Ethernet1\"\n"
          "ifindex = 3");
    EXPECT_EQ(state().allVrfStatusLocal->vrf("default")->networkNamespace(), "main");
    EXPECT_EQ(state().allIntfStatusLocalDir->intfStatusLocal(IntfId("Ethernet1"))->netNs(), "main");
    EXPECT_EQ(kernelInterface("main", 3).deviceName(), "Ethernet1");
    EXPECT_FALSE(kernelNetInfo("default"));
}

TEST_F(StaticEntriesTest, VrfsWithoutAnIdGetTheLowestFreeOnes) {
    apply("[[vrf]]\nname = \"a\"\n[[vrf]]\nname = \"b\"\nid = 1\n[[vrf]]\nname = \"c\"\n"
          "[[vrf]]\nname = \"default\"");
    EXPECT_EQ(vrfId("a"), Vrf::VrfId(2));
    EXPECT_EQ(vrfId("b"), Vrf::VrfId(1));
    EXPECT_EQ(vrfId("c"), Vrf::VrfId(3));
    EXPECT_EQ(vrfId("default"), Vrf::VrfId(0));
}

TEST_F(StaticEntriesTest, IdZeroIsForWhoeverAsksForIt) {
    apply("[[vrf]]\nname = \"a\"\nid = 0\n[[vrf]]\nname = \"b\"");
    EXPECT_EQ(vrfId("a"), Vrf::VrfId(0));
    EXPECT_EQ(vrfId("default"), Vrf::VrfId(1));
    EXPECT_EQ(vrfId("b"), Vrf::VrfId(2));
}

TEST_F(StaticEntriesTest, AVrfKeepsTheIdThatItHasGot) {
    EXPECT_EQ(changes("[[vrf]]\nname = \"b\"\n[[vrf]]\nname = \"c\"",
                      "[[vrf]]\nname = \"a\"\n[[vrf]]\nname = \"b\"\n[[vrf]]\nname = \"c\""),
              (Lines{"vrf a", "vrfId 3"}));
    EXPECT_EQ(changesTo(parsed("[[vrf]]\nname = \"c\"\n[[vrf]]\nname = \"a\"")),
              (Lines{"vrf b", "vrfId 1"}));
    EXPECT_EQ(vrfId("c"), Vrf::VrfId(2));
    // Unless another asks for it.
    apply("[[vrf]]\nname = \"c\"\n[[vrf]]\nname = \"a\"\nid = 2");
    EXPECT_EQ(vrfId("a"), Vrf::VrfId(2));
    EXPECT_EQ(vrfId("c"), Vrf::VrfId(1));
}

// --- Interfaces

TEST_F(StaticEntriesTest, AnInterfaceMovesToAnotherVrf) {
    std::string vrf = "[[vrf]]\nname = \"blue\"\nid = 7\n";
    std::string interface = "[[interface]]\nname = \"Vlan10\"\nipv4 = [\"10.0.0.1/24\"]\n"
                            "ipv6 = [\"2001:db8::1/64\"]\nifindex = 4\n";
    std::string neighbor = "[[neighbor]]\ninterface = \"Vlan10\"\nip = \"10.0.0.2\"\n"
                           "mac = \"02:00:00:00:00:0a\"\n";
    std::string blue = "vrf = \"blue\"\n";
    EXPECT_EQ(changes(vrf + interface + neighbor, vrf + interface + blue + neighbor + blue),
              (Lines{"Vlan10 netNs", "arpEntry <vrfId=0 intfId=Vlan10 addr=10.0.0.2>",
                     "arpEntry <vrfId=7 intfId=Vlan10 addr=10.0.0.2>", "ip6IntfStatus Vlan10",
                     "ipIntfStatus Vlan10", "kernel blue 4", "kernel default 4"}));
    auto status = state().ipStatus->ipIntfStatus(IntfId("Vlan10"));
    EXPECT_EQ(status->vrfName(), "blue");
    EXPECT_EQ(status->activeAddrWithMask().toStrep(), "10.0.0.1/24");
    EXPECT_EQ(state().ip6Status->intf(IntfId("Vlan10"))->vrfName(), "blue");
    EXPECT_EQ(state().ip6Status->intf(IntfId("Vlan10"))->addrCollection().count(), 1u);
    EXPECT_EQ(state().allIntfStatusLocalDir->intfStatusLocal(IntfId("Vlan10"))->netNs(), "blue");
    EXPECT_EQ(state().arpStatus->arpEntryCollection().count(), 1u);
}

TEST_F(StaticEntriesTest, AnInterfaceThatIsNoLongerRoutedLeavesItsVrf) {
    EXPECT_EQ(changes("[[vrf]]\nname = \"blue\"\n[[interface]]\nname = \"E\"\nvrf = \"blue\"\n"
                      "ifindex = 4",
                      "[[vrf]]\nname = \"blue\"\n[[interface]]\nname = \"E\"\nifindex = 4"),
              (Lines{"E netNs", "ip6IntfStatus E", "kernel blue 4", "kernel default 4"}));
}

TEST_F(StaticEntriesTest, ASubInterfaceMovesToAnotherParent) {
    auto sub = [](const std::string& name, const std::string& parent) {
        return "[[interface]]\nname = \"" + name + "\"\nparent = \"" + parent +
               "\"\nouter_vlan = 30\n";
    };
    EXPECT_EQ(changes(sub("S", "A"), sub("S", "B")),
              (Lines{"A subIntf S", "parent A", "parent B"}));
    EXPECT_EQ(encap("B", "S"), Brant::IntfEncap(VlanTag(VlanTag::dot1q, 30)));
    EXPECT_FALSE(state().intfEncapServiceIntf->parent(IntfId("A")));
    // Two that change places.
    EXPECT_EQ(changes(sub("S", "A") + sub("T", "B"), sub("S", "B") + sub("T", "A")),
              (Lines{"A subIntf S", "A subIntf T", "B subIntf S", "B subIntf T"}));
    // One that becomes an interface of its own.
    EXPECT_EQ(changes(sub("S", "A"), "[[interface]]\nname = \"S\""),
              (Lines{"A subIntf S", "parent A"}));
    EXPECT_TRUE(state().allIntfStatusDir->intfStatus(IntfId("S")));
}

TEST_F(StaticEntriesTest, DevicesOfTheKernelChangePlaces) {
    auto interfaces = [](const char* a, const char* b) {
        return std::string("[[interface]]\nname = \"A\"\nifindex = ") + a +
               "\n[[interface]]\nname = \"B\"\nifindex = " + b;
    };
    EXPECT_EQ(changes(interfaces("1", "2"), interfaces("2", "1")),
              (Lines{"kernel default 1", "kernel default 2"}));
    EXPECT_EQ(kernelInterface("default", 1).deviceName(), "B");
    EXPECT_EQ(kernelInterface("default", 2).deviceName(), "A");
}

// --- Tables

TEST_F(StaticEntriesTest, AnotherFidMovesTheRecordsOfItsVlan) {
    std::string fdb = "[[fdb]]\nvlan = 10\nmac = \"02:00:00:00:00:0a\"\ninterface = \"E\"\n"
                      "[[fdb]]\nvlan = 20\nmac = \"02:00:00:00:00:0a\"\ninterface = \"E\"\n";
    EXPECT_EQ(changes(fdb, "[[bridging.fid]]\nvlan = 10\nfid = 1010\n" + fdb),
              (Lines{"fdb <fid=10 macAddress=02:00:00:00:00:0a>",
                     "fdb <fid=1010 macAddress=02:00:00:00:00:0a>", "vlanToFid 10"}));
    EXPECT_EQ(state().bridgingStatus->quarryFdbStatusCollection().count(), 2u);
}

TEST_F(StaticEntriesTest, OfVlansThatShareAFidTheFirstEntryCounts) {
    std::string shared = "[[bridging.fid]]\nvlan = 10\nfid = 5\n[[bridging.fid]]\nvlan = 20\n"
                         "fid = 5\n[[fdb]]\nvlan = 10\nmac = \"02:00:00:00:00:0a\"\n"
                         "interface = \"A\"\n[[fdb]]\nvlan = 20\nmac = \"02:00:00:00:00:0a\"\n"
                         "interface = \"B\"\n";
    EXPECT_EQ(changes(shared, shared), Lines{});
    EXPECT_EQ(state().bridgingStatus->quarryFdbStatusCollection().first().value().intf,
              IntfId("A"));
}

TEST_F(StaticEntriesTest, WhatTheKernelHasIsLeftToOthers) {
    Configuration next = parseConfiguration(everything, "f");
    next.onLinux.emplace();
    next.fdb.clear(); // no file has these beside it
    next.neighbors.clear();
    state().bridgingConfig->bridgeMacAddrIs(EthAddr("02:00:00:00:00:99"));
    state().evpnStatus->vlanToDot1qIs(VlanId(10), {});
    entries_.apply(next);
    Configuration none;
    none.onLinux.emplace();

    EXPECT_EQ(state().allVrfStatusLocal->vrfCollection().count(), 0u);
    EXPECT_EQ(state().allIntfStatusDir->intfStatusCollection().count(), 0u);
    EXPECT_EQ(state().allIntfStatusLocalDir->intfStatusLocalCollection().count(), 0u);
    EXPECT_EQ(state().ipStatus->ipIntfStatusCollection().count(), 0u);
    EXPECT_EQ(state().ip6Status->intfCollection().count(), 0u);
    EXPECT_EQ(state().bridgingStatus->quarryFdbStatusCollection().count(), 0u);
    EXPECT_EQ(state().kernelNetInfoIs("default")->interfaceCollection().count(), 0u);
    EXPECT_EQ(state().bridgingConfig->bridgeMacAddr(), EthAddr("02:00:00:00:00:99"));
    EXPECT_TRUE(state().fhrpVrMacStatus->varpVirtualMac().isZero());
    EXPECT_EQ(state().evpnStatus->vlanToDot1qCollection().count(), 1u);
    // The rest is nobody else's.
    EXPECT_EQ(state().evpnStatus->imetLabelCollection().count(), 2u);
    EXPECT_EQ(state().evpnStatus->segmentStatusCollection().count(), 1u);
    EXPECT_TRUE(state().evpnStatus->mplsConfigured());
    EXPECT_EQ(state().bridgingConfig->fid(VlanId(20)), Fid(1020));
    EXPECT_EQ(state().vrfIdMap->vrfCollection().count(), 3u);
    EXPECT_EQ(entries_.vrfIds().at("blue"), Vrf::VrfId(7));
    EXPECT_EQ(state().remoteBindingConfig->remoteBindingCollection().count(), 2u);
    EXPECT_EQ(state().intfEncapServiceIntf->parentCollection().count(), 1u);

    entries_.apply(none);
    EXPECT_EQ(state().remoteBindingConfig->remoteBindingCollection().count(), 0u);
    EXPECT_EQ(state().intfEncapServiceIntf->parentCollection().count(), 0u);
    EXPECT_EQ(state().evpnStatus->imetLabelCollection().count(), 0u);
    EXPECT_EQ(state().evpnStatus->vlanToDot1qCollection().count(), 1u);
    EXPECT_EQ(state().bridgingConfig->bridgeMacAddr(), EthAddr("02:00:00:00:00:99"));
}

TEST_F(StaticEntriesTest, SuppressionStartsWhenAllElseIsInPlace) {
    Lines found;
    auto reaction = state().evpnStatus->mplsConfiguredAttribute().react(nullptr, [&] {
        Vela::SwitchState& s = state();
        found = {std::to_string(s.evpnStatus->imetLabelCollection().count()),
                 std::to_string(s.bridgingStatus->quarryFdbStatusCollection().count()),
                 std::to_string(s.remoteBindingConfig->remoteBindingCollection().count())};
    });
    apply(everything);
    EXPECT_EQ(found, (Lines{"2", "4", "2"}));
}

// --- What cannot be done

class StaticEntriesFailureTest : public StaticEntriesTest {
  protected:
    /// Expects the configuration to be refused with nothing changed, then or later.
    template <class Error>
    void expectRefused(const Configuration& bad, const std::string& why) {
        apply(everything);
        EXPECT_EQ(announcedBy([&] {
                      try {
                          entries_.apply(bad);
                          ADD_FAILURE() << "is taken";
                      } catch (const Error& error) {
                          EXPECT_EQ(std::string(error.what()), why);
                      }
                  }),
                  Lines{});
        EXPECT_EQ(changesTo(parsed(everything)), Lines{});
    }
    /// One that differs in every section.
    static Configuration other() {
        return parsed("[bridging]\nmac = \"02:00:00:00:00:03\"\n[[vrf]]\nname = \"new\"\n"
                      "[[interface]]\nname = \"Vlan10\"\nvrf = \"new\"\nifindex = 5\n"
                      "[[evpn.segment]]\ninterface = \"Ethernet7\"\n"
                      "[[evpn.segment.designated_forwarder]]\nvlan = 10\ntunnel = \"Vxlan7\"\n"
                      "[[fdb]]\nvlan = 10\nmac = \"02:00:00:00:00:0a\"\ninterface = \"E7\"\n"
                      "[[neighbor]]\ninterface = \"Vlan10\"\nip = \"10.0.0.2\"\nvrf = \"new\"\n"
                      "mac = \"02:00:00:00:00:0a\"\n");
    }
    void expectTooLong(const std::function<void(Configuration&, const std::string&)>& edit) {
        Configuration bad = other();
        edit(bad, std::string(64, 'x'));
        expectRefused<Vela::RangeError>(bad, tooLong());
        EXPECT_FALSE(kernelNetInfo("new"));
    }
    static std::string tooLong() {
        try {
            return std::string(IntfId(std::string(64, 'x')).name());
        } catch (const Vela::RangeError& error) {
            return error.what();
        }
    }
};

TEST_F(StaticEntriesFailureTest, NamesThatCannotBeInterned) {
    expectTooLong([](auto& c, const auto& name) { c.interfaces[0].name = name; });
    expectTooLong([](auto& c, const auto& name) {
        c.interfaces[0].subInterface = SubInterfaceConfiguration{name, VlanId(3), {}};
    });
    expectTooLong([](auto& c, const auto& name) { c.evpn.segments[0].interface = name; });
    expectTooLong([](auto& c, const auto& name) {
        c.evpn.segments[0].designatedForwarders[0].tunnel = name;
    });
    expectTooLong([](auto& c, const auto& name) { c.fdb[0].interface = name; });
    expectTooLong([](auto& c, const auto& name) { c.neighbors[0].interface = name; });
}

TEST_F(StaticEntriesFailureTest, ADeviceNameThatTheKernelDoesNotTake) {
    Configuration bad = other();
    bad.interfaces[0].device = std::string(16, 'x');
    std::string why;
    try {
        KernelNetInfo::InterfaceStatus(1, bad.interfaces[0].device, 0, EthAddr());
    } catch (const Vela::RangeError& error) {
        why = error.what();
    }
    expectRefused<Vela::RangeError>(bad, why);
}

TEST_F(StaticEntriesFailureTest, ANamespaceWhoseTableCannotBeMade) {
    std::filesystem::create_directories(directory() + "/kni/ns");
    std::ofstream(directory() + "/kni/ns/new") << "in the way";
    Configuration bad = other();
    bad.vrfs.push_back({"newer", Vrf::VrfId(), "newer", VrfState::active});
    bad.vrfs.insert(bad.vrfs.begin(), {"newest", Vrf::VrfId(), "newest", VrfState::active});
    for (int i = 0; i < 2; ++i) {
        expectRefused<Quarry::TableError>(bad, "the table kni/ns/new/status cannot be made");
        EXPECT_FALSE(kernelNetInfo("newest"));
        EXPECT_FALSE(kernelNetInfo("newer"));
        EXPECT_TRUE(kernelNetInfo("ns-blue"));
    }
    std::filesystem::remove(directory() + "/kni/ns/new");
    entries_.apply(bad);
    EXPECT_EQ(kernelInterface("new", 5).deviceName(), "Vlan10");
}

} // namespace
} // namespace Host
