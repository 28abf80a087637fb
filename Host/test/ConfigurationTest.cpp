#include "Host/Configuration.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace Host {
namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Zinc::EthAddr;
using Zinc::IpGenAddr;

Configuration parse(std::string_view text) {
    return parseConfiguration(text, "f.toml");
}

AddressConfiguration address(std::string_view text, uint8_t prefixLength) {
    return {IpGenAddr(text), prefixLength};
}

TEST(Configuration, AnEmptyFileGivesTheDefaults) {
    Configuration c = parse("");
    EXPECT_EQ(c, Configuration());
    EXPECT_EQ(parse("# nothing\n\n"), Configuration());
    EXPECT_EQ(c.runtimeDirectory, "/run/arpsup");
    EXPECT_EQ(c.logDirectory, "/var/log/arpsup");
    EXPECT_EQ(c.toggleDirectory, "/etc/arpsup/toggles");
    EXPECT_EQ(c.agentLibrary, "");
    EXPECT_FALSE(c.physicalHardware);
    EXPECT_EQ(c.trace, "");
    EXPECT_EQ(c.control.group, "");
    EXPECT_FALSE(c.bridging.mac);
    EXPECT_FALSE(c.evpn.mpls);
    EXPECT_FALSE(c.fhrp.varpMac);
    EXPECT_FALSE(c.l2vpn.selectiveArpInstall);
    ASSERT_EQ(c.vrfs.size(), 1u);
    EXPECT_EQ(c.vrfs[0].name, "default");
    EXPECT_FALSE(c.vrfs[0].id.isValid());
    EXPECT_EQ(c.vrfs[0].networkNamespace, "default");
    EXPECT_EQ(c.vrfs[0].state, VrfState::active);
    EXPECT_TRUE(c.interfaces.empty());
    EXPECT_TRUE(c.remoteBindings.empty());
    EXPECT_TRUE(c.fdb.empty());
    EXPECT_TRUE(c.neighbors.empty());
}

TEST(Configuration, EmptySectionsGiveTheDefaults) {
    EXPECT_EQ(parse("[control]\n[bridging]\n[evpn]\n[fhrp]\n[l2vpn]\n"), Configuration());
    EXPECT_EQ(parse("interface = []\nevpn = {}\n"), Configuration());
}

TEST(Configuration, Program) {
    Configuration c = parse(R"(
        runtime_directory = "/r"
        log_directory = "/l"
        toggle_directory = '/t'
        agent_library = "/a.so"
        physical_hardware = true
        trace = "ArpSuppression=8,*=1"
        [control]
        group = "ops"
    )");
    Configuration expected;
    expected.runtimeDirectory = "/r";
    expected.logDirectory = "/l";
    expected.toggleDirectory = "/t";
    expected.agentLibrary = "/a.so";
    expected.physicalHardware = true;
    expected.trace = "ArpSuppression=8,*=1";
    expected.control.group = "ops";
    EXPECT_EQ(c, expected);
}

TEST(Configuration, ForwardingPlane) {
    Configuration c = parse(R"(
        [bridging]
        mac = "02:00:00:00:00:0A"
        [[bridging.fid]]
        vlan = 4094
        fid = 65535
        [[bridging.fid]]
        vlan = 1
        fid = 1
        [fhrp]
        varp_mac = "02:00:00:00:00:0b"
        [l2vpn]
        selective_arp_install = true
    )");
    Configuration expected;
    expected.bridging.mac = EthAddr("02:00:00:00:00:0a");
    expected.bridging.fids = {{VlanId(4094), 65535}, {VlanId(1), 1}};
    expected.fhrp.varpMac = EthAddr("02:00:00:00:00:0b");
    expected.l2vpn.selectiveArpInstall = true;
    EXPECT_EQ(c, expected);
}

TEST(Configuration, Evpn) {
    Configuration c = parse(R"(
        [evpn]
        mpls = true
        inner_dot1q = true
        control_word = true
        [[evpn.vlan]]
        vlan = 10
        dot1q = 100
        imet_label = 0xfffff
        imet_encapsulation = "vxlan"
        [[evpn.vlan]]
        vlan = 20
        imet_label = 0
        [[evpn.vlan]]
        vlan = 30
        [[evpn.segment]]
        interface = "Ethernet1"
        label = 5
        [[evpn.segment.designated_forwarder]]
        vlan = 10
        tunnel = "Vxlan1"
        [[evpn.segment.designated_forwarder]]
        vlan = 20
        [[evpn.segment]]
        interface = "Ethernet2"
        [[evpn.segment.designated_forwarder]]
        vlan = 10
    )");
    Configuration expected;
    expected.evpn.mpls = expected.evpn.innerDot1q = expected.evpn.controlWord = true;
    expected.evpn.vlans = {
        {VlanId(10), VlanIdOrNone(100), 0xfffff, ImetEncapsulation::vxlan},
        {VlanId(20), VlanIdOrNone(), 0, ImetEncapsulation::mpls},
        {VlanId(30), VlanIdOrNone(), std::nullopt, ImetEncapsulation::mpls},
    };
    expected.evpn.segments = {
        {"Ethernet1", 5, {{VlanId(10), "Vxlan1"}, {VlanId(20), ""}}},
        {"Ethernet2", std::nullopt, {{VlanId(10), ""}}},
    };
    EXPECT_EQ(c, expected);
}

TEST(Configuration, TheDefaultVrfComesFirstUnlessItIsConfigured) {
    Configuration c = parse("[[vrf]]\nname = \"blue\"\nid = 0\n"
                            "[[vrf]]\nname = \"red\"\nid = 0xfffffe\nnamespace = \"ns-red\"\n"
                            "state = \"deleting\"\n");
    VrfConfiguration blue{"blue", Vrf::VrfId(0), "blue", VrfState::active};
    VrfConfiguration red{"red", Vrf::VrfId(0xfffffe), "ns-red", VrfState::deleting};
    EXPECT_EQ(c.vrfs, (std::vector{VrfConfiguration(), blue, red}));

    c = parse("[[vrf]]\nname = \"blue\"\nid = 0\n[[vrf]]\nname = \"default\"\nid = 7\n"
              "state = \"initializing\"\n");
    VrfConfiguration standard{"default", Vrf::VrfId(7), "default", VrfState::initializing};
    EXPECT_EQ(c.vrfs, (std::vector{blue, standard}));
}

TEST(Configuration, Interfaces) {
    Configuration c = parse(R"(
        [[vrf]]
        name = "blue"
        [[interface]]
        name = "Vlan10"
        device = "vlan10"
        vrf = "blue"
        ipv4 = ["10.0.0.2/24", "10.0.0.1/32"]
        ipv6 = ["2001:db8::1/64", "fe80::1/128"]
        ifindex = 2147483647
        running = false
        [[interface]]
        name = "et1"
        [[interface]]
        name = "et1.10"
        parent = "et1"
        outer_vlan = 10
        [[interface]]
        name = "et1.20"
        parent = "et1"
        outer_vlan = 10
        inner_vlan = 20
    )");
    ASSERT_EQ(c.interfaces.size(), 4u);
    InterfaceConfiguration vlan10;
    vlan10.name = "Vlan10";
    vlan10.device = "vlan10";
    vlan10.vrf = "blue";
    vlan10.ipv4 = {address("10.0.0.2", 24), address("10.0.0.1", 32)};
    vlan10.ipv6 = {address("2001:db8::1", 64), address("fe80::1", 128)};
    vlan10.ifindex = 2147483647;
    vlan10.running = false;
    EXPECT_EQ(c.interfaces[0], vlan10);

    InterfaceConfiguration et1;
    et1.name = et1.device = "et1";
    EXPECT_EQ(c.interfaces[1], et1);
    EXPECT_EQ(c.interfaces[2].subInterface,
              (SubInterfaceConfiguration{"et1", VlanId(10), VlanIdOrNone()}));
    EXPECT_EQ(c.interfaces[3].subInterface,
              (SubInterfaceConfiguration{"et1", VlanId(10), VlanIdOrNone(20)}));
}

TEST(Configuration, AnInterfaceWithAddressesOrVrfIsRouted) {
    auto isRouted = [](const std::string& keys) {
        Configuration c = parse("[[interface]]\nname = \"a\"\n" + keys);
        EXPECT_EQ(c.interfaces.at(0).vrfName(), "default");
        return c.interfaces.at(0).isRouted();
    };
    EXPECT_FALSE(isRouted(""));
    EXPECT_FALSE(isRouted("ipv4 = []\nipv6 = []"));
    EXPECT_FALSE(isRouted("parent = \"b\"\nouter_vlan = 1"));
    EXPECT_TRUE(isRouted("ipv4 = [\"10.0.0.1/8\"]"));
    EXPECT_TRUE(isRouted("ipv6 = [\"fe80::1/64\"]"));
    EXPECT_TRUE(isRouted("vrf = \"default\""));
}

TEST(Configuration, Entries) {
    Configuration c = parse(R"(
        [[vrf]]
        name = "blue"
        [[remote_binding]]
        vlan = 10
        ip = "10.0.0.1"
        mac = "02:00:00:00:00:01"
        [[remote_binding]]
        vlan = 10
        ip = "fe80::1"
        mac = "02:00:00:00:00:01"
        vxlan = true
        local_multihomed = true
        [[fdb]]
        vlan = 10
        mac = "02:00:00:00:00:01"
        interface = "Ethernet1"
        [[fdb]]
        vlan = 20
        mac = "02:00:00:00:00:01"
        interface = "Vxlan1"
        type = "evpn_static"
        [[neighbor]]
        interface = "Vlan10"
        ip = "10.0.0.1"
        mac = "02:00:00:00:00:01"
        [[neighbor]]
        interface = "Vlan10"
        vrf = "blue"
        ip = "10.0.0.1"
        mac = "02:00:00:00:00:01"
        static = true
        source = 255
    )");
    EthAddr mac("02:00:00:00:00:01");
    Configuration expected;
    expected.vrfs.push_back({"blue", Vrf::VrfId(), "blue", VrfState::active});
    expected.remoteBindings = {{VlanId(10), IpGenAddr("10.0.0.1"), mac, false, false},
                               {VlanId(10), IpGenAddr("fe80::1"), mac, true, true}};
    expected.fdb = {{VlanId(10), mac, "Ethernet1", FdbType::learned},
                    {VlanId(20), mac, "Vxlan1", FdbType::evpnStatic}};
    expected.neighbors = {{"Vlan10", IpGenAddr("10.0.0.1"), mac, false, "default", 0},
                          {"Vlan10", IpGenAddr("10.0.0.1"), mac, true, "blue", 255}};
    EXPECT_EQ(c, expected);
}

TEST(Configuration, FdbTypes) {
    for (auto [name, type] : {std::pair{"learned", FdbType::learned},
                              {"static", FdbType::isStatic},
                              {"evpn", FdbType::evpn},
                              {"evpn_static", FdbType::evpnStatic}}) {
        Configuration c = parse("[[fdb]]\nvlan = 1\nmac = \"02:00:00:00:00:01\"\n"
                                "interface = \"a\"\ntype = \"" +
                                std::string(name) + "\"\n");
        ASSERT_EQ(c.fdb.size(), 1u);
        EXPECT_EQ(c.fdb[0].type, type);
    }
}

TEST(Configuration, AReloadSeesWhatChanged) {
    std::string_view text = "[[interface]]\nname = \"a\"\nipv4 = [\"10.0.0.1/24\"]\n";
    EXPECT_EQ(parse(text), parse("# other\n" + std::string(text)));
    EXPECT_NE(parse(text), parse("[[interface]]\nname = \"a\"\nipv4 = [\"10.0.0.1/25\"]\n"));
    EXPECT_NE(parse(text), parse(""));
}

TEST(Configuration, TextsMayHoldLettersOutsideAscii) {
    EXPECT_EQ(parse("[control]\ngroup = \"b\xc3\xbcro\" # \xe2\x82\xac\n").control.group,
              "b\xc3\xbcro");
    EXPECT_EQ(parse("\xef\xbb\xbf[control]\ngroup = \"a\"").control.group, "a");
}

TEST(Configuration, LinesMayEndAsElsewhere) {
    EXPECT_EQ(parse("[control]\r\ngroup = \"a\"\r\n").control.group, "a");
}

/// A directory of its own per test.
class ConfigurationFile : public testing::Test {
  protected:
    ConfigurationFile() {
        std::string pattern =
            std::filesystem::temp_directory_path() / ("configuration" + std::string(6, 'X'));
        directory_ = mkdtemp(pattern.data());
    }
    ~ConfigurationFile() override { std::filesystem::remove_all(directory_); }

    std::string path() const { return directory_ + "/arpsupd.toml"; }
    std::string errorOf() const {
        try {
            readConfiguration(path());
        } catch (const ConfigurationError& error) {
            return error.what();
        }
        return "no error";
    }

    std::string directory_;
};

TEST_F(ConfigurationFile, IsRead) {
    std::ofstream(path()) << "trace = \"a=1\"\n";
    EXPECT_EQ(readConfiguration(path()).trace, "a=1");
}

TEST_F(ConfigurationFile, MistakesNameThePath) {
    std::ofstream(path()) << "\n trace = 1\n";
    EXPECT_EQ(errorOf(), path() + ":2:10: \"trace\" is 1; expected a text of at most 1024 bytes "
                                  "without control characters");
}

TEST_F(ConfigurationFile, Absent) {
    EXPECT_EQ(errorOf(), path() + ": there is no such file; expected a configuration");
}

TEST_F(ConfigurationFile, APipeIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
    EXPECT_EQ(errorOf(), path() + ": is no regular file; expected a configuration");
}

TEST_F(ConfigurationFile, LengthIsBounded) {
    std::string text = "trace = \"a=1\"\n";
    text.resize(configurationFileBytes, '\n');
    std::ofstream(path()) << text;
    EXPECT_EQ(readConfiguration(path()).trace, "a=1");
    std::ofstream(path(), std::ios::app) << '\n';
    EXPECT_EQ(errorOf(), path() + ": is longer than 1048576 bytes; expected a configuration");
    EXPECT_THROW(parse(text + "\n"), ConfigurationError);
}

} // namespace
} // namespace Host
