#include "Host/Configuration.h"

#include <gtest/gtest.h>

namespace Host {
namespace {

std::string errorOf(std::string_view text) {
    try {
        parseConfiguration(text, "f");
    } catch (const ConfigurationError& error) {
        return error.what();
    }
    return "no error";
}

struct Mistake {
    const char* text;
    const char* error;
};

class ConfigurationMistake : public testing::TestWithParam<Mistake> {};

TEST_P(ConfigurationMistake, IsNamedWithItsPlace) {
    EXPECT_EQ(errorOf(GetParam().text), GetParam().error) << GetParam().text;
}

constexpr Mistake noToml[] = {
    {"a = 1\n b = ", "f:2:6: the file ends within the key-value pair; expected the rest of it"},
    {"[evpn", "f:1:6: the file ends within the table header; expected the rest of it"},
    {"trace = \"x", "f:1:11: the file ends within the string; expected the rest of it"},
    {"trace = \"x\n\"",
     "f:1:11: in the string: unescaped control characters other than TAB (U+0009) are explicitly "
     "prohibited; expected TOML"},
    {"evpn = {mpls = tru", "f:1:19: the file ends within the boolean; expected the rest of it "
                           "(texts, addresses among them, stand in double quotes)"},
    {"\n= 3", "f:2:1: in the root table stands '='; expected keys, tables, whitespace or comments"},
    {"[evpn]\nmpls = true false",
     "f:2:13: in the key-value pair stands 'f'; expected a comment or whitespace"},
    {"[bridging]\nmac = 02:00:00:00:00:0a",
     "f:2:15: in the time stands ':'; expected '.' "
     "(texts, addresses among them, stand in double quotes)"},
    {"ip = 10.0.0.1",
     "f:1:10: in the floating-point stands '.'; expected decimal digit or exponent "
     "(texts, addresses among them, stand in double quotes)"},
    {"[)",
     "f:1:2: in the key stands ')'; expected bare key starting character or string delimiter"},
    {"\xc3\xa9 = 1",
     "f:1:1: in the root table stands '\xc3\xa9'; expected keys, tables, whitespace or comments"},
    {"a = \xc3\xa9", "f:1:5: in the value: could not determine value type; expected TOML "
                     "(texts, addresses among them, stand in double quotes)"},
    {"trace = \"\xff\"", "f:1:9: in the TOML: Encountered invalid utf-8 sequence; expected TOML"},
    {"trace = \"\"\"a\"\"\"",
     "f:1:9: a text of several lines begins here; expected texts of one line, in one double or "
     "single quote on each side"},
    {"trace = '''a'''",
     "f:1:9: a text of several lines begins here; expected texts of one line, in one double or "
     "single quote on each side"},
};

constexpr Mistake twice[] = {
    {"trace = \"a=1\"\n\n  trace = \"a=2\"",
     "f:3:3: \"trace\" stands here a second time, first in line 1; expected it once"},
    {"[evpn]\nmpls = true\n[control]\n[evpn]\n",
     "f:4:2: \"evpn\" stands here a second time, first in line 1; expected it once"},
    {"[control]\ngroup = \"a\"\n[evpn]\nmpls = true\nmpls = false",
     "f:5:1: \"mpls\" stands here a second time, first in line 4; expected it once"},
    {"[[vrf]]\nname = \"a\"\n[[vrf]]\nname = \"b\"\n\"name\" = \"c\"",
     "f:5:1: \"name\" stands here a second time, first in line 4; expected it once"},
    {"[[evpn.segment]]\n[[evpn.segment.designated_forwarder]]\nvlan = 1\n\nvlan = 2",
     "f:5:1: \"vlan\" stands here a second time, first in line 3; expected it once"},
    {"control.group = \"a\"\ncontrol.group = \"b\"",
     "f:2:9: \"control.group\" stands here a second time, first in line 1; expected it once"},
    {"mpls = 1\nevpn = {mpls = true, mpls = false}",
     "f:2:29: cannot redefine existing boolean 'mpls'; expected each key and each table once"},
    {"[[vrf]]\nname = \"a\"\n[vrf]", "f:3:2: \"vrf\" stands here as something else than in line 1; "
                                     "expected [vrf] once, or [[vrf]] any number of times"},
    {"[[vrf]]\nname = \"a\"\n[[vrf]]\nname = \"a\"",
     "f:3:1: VRF \"a\" stands here a second time, first in line 1; expected it once"},
    {"[[vrf]]\nname = \"a\"\nid = 7\n[[vrf]]\nname = \"b\"\nid = 7",
     "f:6:6: VRF id 7 stands here a second time, first in line 3; expected it once"},
    {"[[bridging.fid]]\nvlan = 1\nfid = 2\n[[bridging.fid]]\nvlan = 1\nfid = 3",
     "f:4:1: the FID of VLAN 1 stands here a second time, first in line 1; expected it once"},
    {"[[evpn.vlan]]\nvlan = 1\n[[evpn.vlan]]\nvlan = 1",
     "f:3:1: EVPN's VLAN 1 stands here a second time, first in line 1; expected it once"},
    {"[[evpn.segment]]\ninterface = \"a\"\n[[evpn.segment]]\ninterface = \"a\"",
     "f:3:1: the segment of \"a\" stands here a second time, first in line 1; expected it once"},
    {"[[evpn.segment]]\ninterface = \"a\"\n[[evpn.segment.designated_forwarder]]\nvlan = 1\n"
     "[[evpn.segment.designated_forwarder]]\nvlan = 1",
     "f:5:1: the segment's VLAN 1 stands here a second time, first in line 3; expected it once"},
    {"[[interface]]\nname = \"a\"\n[[interface]]\nname = \"a\"",
     "f:3:1: interface \"a\" stands here a second time, first in line 1; expected it once"},
    {"[[interface]]\nname = \"a\"\n[[interface]]\nname = \"b\"\ndevice = \"a\"",
     "f:3:1: device \"a\" stands here a second time, first in line 1; expected it once"},
    {"[[interface]]\nname = \"a\"\nifindex = 3\n[[interface]]\nname = \"b\"\nifindex = 3",
     "f:6:11: ifindex 3 stands here a second time, first in line 3; expected it once"},
    {"[[interface]]\nname = \"a\"\nipv4 = [\n  \"10.0.0.1/8\",\n  \"10.0.0.1/24\"]",
     "f:5:3: address 10.0.0.1 stands here a second time, first in line 4; expected it once"},
    {"[[interface]]\nname = \"a\"\nparent = \"p\"\nouter_vlan = 1\ninner_vlan = 2\n"
     "[[interface]]\nname = \"b\"\nparent = \"p\"\nouter_vlan = 1\ninner_vlan = 2",
     "f:8:10: VLAN 1 with inner 2 of \"p\" stands here a second time, first in line 3; "
     "expected it once"},
    {"[[remote_binding]]\nvlan = 1\nip = \"fe80::1\"\nmac = \"02:00:00:00:00:01\"\n"
     "[[remote_binding]]\nvlan = 1\nip = \"FE80::0:1\"\nmac = \"02:00:00:00:00:02\"",
     "f:5:1: the remote binding of fe80::1 in VLAN 1 stands here a second time, "
     "first in line 1; expected it once"},
    {"[[fdb]]\nvlan = 1\nmac = \"02:00:00:00:00:0a\"\ninterface = \"a\"\n"
     "[[fdb]]\nvlan = 1\nmac = \"02:00:00:00:00:0A\"\ninterface = \"b\"",
     "f:5:1: 02:00:00:00:00:0a in VLAN 1 stands here a second time, first in line 1; "
     "expected it once"},
    {"[[neighbor]]\ninterface = \"a\"\nip = \"10.0.0.1\"\nmac = \"02:00:00:00:00:01\"\n"
     "[[neighbor]]\ninterface = \"a\"\nip = \"10.0.0.1\"\nmac = \"02:00:00:00:00:01\"\n"
     "vrf = \"default\"",
     "f:5:1: neighbor 10.0.0.1 at \"a\" stands here a second time, first in line 1; "
     "expected it once"},
};

constexpr Mistake unknownKeys[] = {
    {"remote_bindng = 1", "f:1:1: unknown key \"remote_bindng\"; did you mean \"remote_binding\"?"},
    {"[[vrf]]\nname = \"a\"\n  stat = \"active\"",
     "f:3:3: unknown key \"stat\"; did you mean \"state\"?"},
    {"[evpn]\ncontrol-word = true",
     "f:2:1: unknown key \"control-word\"; did you mean \"control_word\"?"},
    {"[[fdb]]\nvlna = 1\nvlan = 1\nmac = \"02:00:00:00:00:01\"\ninterface = \"a\"",
     "f:2:1: unknown key \"vlna\"; did you mean \"vlan\"?"},
    {"[contrl]\ngroup = \"a\"", "f:1:2: unknown key \"contrl\"; did you mean \"control\"?"},
    {"[control]\nuser = \"a\"", "f:2:1: unknown key \"user\"; expected one of group"},
    {"[fhrp]\n\"a\\u0007\" = 1", "f:2:1: unknown key \"a\\u0007\"; expected one of varp_mac"},
    {"[l2vpn]\nx = 1", "f:2:1: unknown key \"x\"; expected one of selective_arp_install"},
};

constexpr Mistake values[] = {
    {"runtime_directory = \"run\"",
     "f:1:21: \"runtime_directory\" is \"run\"; expected a path that begins with \"/\""},
    {"runtime_directory = \"\"",
     "f:1:21: \"runtime_directory\" is \"\"; expected a text of 1 to 90 bytes without control "
     "characters"},
    {"agent_library = \"a.so\"",
     "f:1:17: \"agent_library\" is \"a.so\"; expected a path that begins with \"/\", or nothing"},
    {"physical_hardware = 1", "f:1:21: \"physical_hardware\" is 1; expected true or false"},
    {"physical_hardware = \"yes\"",
     "f:1:21: \"physical_hardware\" is \"yes\"; expected true or false"},
    {"physical_hardware = 1.5",
     "f:1:21: \"physical_hardware\" is a date, a time or a number with a fraction; expected true "
     "or false"},
    {"physical_hardware = []", "f:1:21: \"physical_hardware\" is a list; expected true or false"},
    {"trace = \"a=1,b=x\"",
     "f:1:9: \"trace\" holds \"b=x\"; expected handle=level, level 0 to 9, a '*' only at the "
     "handle's end"},
    {"control = true", "f:1:11: \"control\" is true; expected [control]"},
    {"[vrf]\nname = \"a\"", "f:1:1: \"vrf\" is a table; expected [[vrf]]"},
    {"vrf = [1]", "f:1:8: \"vrf\" is 1; expected [[vrf]]"},
    {"[control]\ngroup = \"a\\u0000\"",
     "f:2:9: \"group\" is \"a\\u0000\"; expected a text of at most 32 bytes without control "
     "characters"},
    {"[bridging]\nmac = \"02:00:00:00:00\"",
     "f:2:7: \"mac\" is \"02:00:00:00:00\"; expected a MAC address such as "
     "\"02:00:00:00:00:0a\""},
    {"[bridging]\nmac = \"ff:ff:ff:ff:ff:ff\"",
     "f:2:7: \"mac\" is \"ff:ff:ff:ff:ff:ff\"; expected the MAC address of one station, neither "
     "zero nor a group's"},
    {"[fhrp]\nvarp_mac = \"00:00:00:00:00:00\"",
     "f:2:12: \"varp_mac\" is \"00:00:00:00:00:00\"; expected the MAC address of one station, "
     "neither zero nor a group's"},
    {"[[bridging.fid]]\nvlan = 1\nfid = 0", "f:3:7: \"fid\" is 0; expected an integer, 1 to 65535"},
    {"[[bridging.fid]]\nvlan = 1", "f:1:1: [[bridging.fid]] has no key \"fid\"; expected an "
                                   "integer, 1 to 65535"},
    {"[[evpn.vlan]]", "f:1:1: [[evpn.vlan]] has no key \"vlan\"; expected a VLAN, 1 to 4094"},
    {"[[evpn.vlan]]\nvlan = 4095", "f:2:8: \"vlan\" is 4095; expected a VLAN, 1 to 4094"},
    {"[[evpn.vlan]]\nvlan = 0", "f:2:8: \"vlan\" is 0; expected a VLAN, 1 to 4094"},
    {"[[evpn.vlan]]\nvlan = -65526", "f:2:8: \"vlan\" is -65526; expected a VLAN, 1 to 4094"},
    {"[[evpn.vlan]]\nvlan = \"10\"", "f:2:8: \"vlan\" is \"10\"; expected a VLAN, 1 to 4094"},
    {"[[evpn.vlan]]\nvlan = 1\nimet_label = 1048576",
     "f:3:14: \"imet_label\" is 1048576; expected an integer, 0 to 1048575"},
    {"[[evpn.vlan]]\nvlan = 1\nimet_label = 1\nimet_encapsulation = \"gre\"",
     "f:4:22: \"imet_encapsulation\" is \"gre\"; expected \"mpls\" or \"vxlan\""},
    {"[[evpn.vlan]]\nvlan = 1\nimet_encapsulation = \"mpls\"",
     "f:3:22: \"imet_encapsulation\" says how a label is sent that is not there; expected "
     "\"imet_label\" beside it"},
    {"[[vrf]]\nid = 1",
     "f:1:1: [[vrf]] has no key \"name\"; expected a text of 1 to 100 bytes without control "
     "characters"},
    {"[[vrf]]\nname = \"a\"\nid = 0xffffff",
     "f:3:6: \"id\" is 16777215; expected an integer, 0 to 16777214"},
    {"[[vrf]]\nname = \"a\"\nstate = \"up\"",
     "f:3:9: \"state\" is \"up\"; expected \"active\", \"initializing\" or \"deleting\""},
    {"[[vrf]]\nname = \"a\"\nnamespace = \"../b\"",
     "f:3:13: \"namespace\" is \"../b\"; expected a name without \"/\""},
    {"[[vrf]]\nname = \"a/b\"",
     "f:2:8: VRF \"a/b\" cannot lend its name to its namespace; expected a key \"namespace\" "
     "beside it"},
    {"[[interface]]\nname = \"Port-Channel1000\"",
     "f:2:8: interface \"Port-Channel1000\" cannot lend its name to a kernel device, which has at "
     "most 15 bytes and no \"/\"; expected a key \"device\" beside it"},
    {"[[interface]]\nname = \"a\"\ndevice = \"0123456789abcdef\"",
     "f:3:10: \"device\" is \"0123456789abcdef\"; expected a text of 1 to 15 bytes without "
     "control characters"},
    {"[[interface]]\nname = \"a\"\nifindex = 0",
     "f:3:11: \"ifindex\" is 0; expected an integer, 1 to 2147483647"},
    {"[[interface]]\nname = \"a\"\nipv4 = \"10.0.0.1/24\"",
     "f:3:8: \"ipv4\" is \"10.0.0.1/24\"; expected a list of addresses, [\"...\"]"},
    {"[[interface]]\nname = \"a\"\nipv4 = [\"10.0.0.1/24\", 1]",
     "f:3:24: \"ipv4\" is 1; expected an address of this host with its prefix length, "
     "\"10.0.0.1/24\""},
    {"[[interface]]\nname = \"a\"\nvrf = \"blu\"\n[[vrf]]\nname = \"blue\"",
     "f:3:7: there is no VRF \"blu\"; expected the name of a [[vrf]]; did you mean \"blue\"?"},
    {"[[interface]]\nname = \"a\"\nvrf = \"red\"",
     "f:3:7: there is no VRF \"red\"; expected the name of a [[vrf]]"},
    {"[[interface]]\nname = \"a\"\nparent = \"b\"",
     "f:1:1: [[interface]] has no key \"outer_vlan\"; expected a VLAN, 1 to 4094"},
    {"[[interface]]\nname = \"a\"\nouter_vlan = 1",
     "f:3:14: \"outer_vlan\" belongs to a sub-interface; expected \"parent\" beside it"},
    {"[[interface]]\nname = \"a\"\nparent = \"a\"\nouter_vlan = 1",
     "f:3:10: \"a\" is a sub-interface itself; expected the interface that carries the tagged "
     "frames"},
    {"[[remote_binding]]\nvlan = 1\nmac = \"02:00:00:00:00:01\"",
     "f:1:1: [[remote_binding]] has no key \"ip\"; expected an IP address such as \"10.0.0.1\" or "
     "\"2001:db8::1\""},
    {"[[remote_binding]]\nvlan = 1\nip = \"10.0.0.256\"\nmac = \"02:00:00:00:00:01\"",
     "f:3:6: \"ip\" is \"10.0.0.256\"; expected an IP address such as \"10.0.0.1\" or "
     "\"2001:db8::1\""},
    {"[[remote_binding]]\nvlan = 1\nip = \"\"\nmac = \"02:00:00:00:00:01\"",
     "f:3:6: \"ip\" is \"\"; expected an IP address such as \"10.0.0.1\" or \"2001:db8::1\""},
    {"[[remote_binding]]\nvlan = 1\nip = \"224.0.0.1\"\nmac = \"02:00:00:00:00:01\"",
     "f:3:6: \"ip\" is \"224.0.0.1\"; expected the address of one host, neither unspecified nor a "
     "group's"},
    {"[[fdb]]\nvlan = 1\nmac = \"02:00:00:00:00:01\"",
     "f:1:1: [[fdb]] has no key \"interface\"; expected a text of 1 to 63 bytes without control "
     "characters"},
    {"[[fdb]]\nvlan = 1\nmac = \"02:00:00:00:00:01\"\ninterface = \"a\"\ntype = \"dynamic\"",
     "f:5:8: \"type\" is \"dynamic\"; expected \"learned\", \"static\", \"evpn\" or "
     "\"evpn_static\""},
    {"[[neighbor]]\ninterface = \"a\"\nip = \"10.0.0.1\"\nmac = \"02:00:00:00:00:01\"\n"
     "source = 256",
     "f:5:10: \"source\" is 256; expected an integer, 0 to 255"},
    {"[[neighbor]]\ninterface = \"a\"\nip = \"10.0.0.1\"\nmac = \"02:00:00:00:00:01\"\n"
     "vrf = \"red\"",
     "f:5:7: there is no VRF \"red\"; expected the name of a [[vrf]]"},
    {"[[vrf]]\nname = \"blue\"\n[[interface]]\nname = \"a\"\nvrf = \"blue\"\n"
     "[[neighbor]]\ninterface = \"a\"\nip = \"10.0.0.1\"\nmac = \"02:00:00:00:00:01\"",
     "f:6:1: the neighbor is in VRF \"default\" but \"a\" in VRF \"blue\"; expected \"vrf\" of the "
     "neighbor to be that of its interface"},
};

INSTANTIATE_TEST_SUITE_P(NoToml, ConfigurationMistake, testing::ValuesIn(noToml));
INSTANTIATE_TEST_SUITE_P(Twice, ConfigurationMistake, testing::ValuesIn(twice));
INSTANTIATE_TEST_SUITE_P(UnknownKeys, ConfigurationMistake, testing::ValuesIn(unknownKeys));
INSTANTIATE_TEST_SUITE_P(Values, ConfigurationMistake, testing::ValuesIn(values));

class BadAddress : public testing::TestWithParam<const char*> {};

TEST_P(BadAddress, IsNoAddressOfAnInterface) {
    std::string address = GetParam();
    bool isV6 = address.find(':') != address.npos;
    std::string key = isV6 ? "ipv6" : "ipv4";
    EXPECT_EQ(errorOf("[[interface]]\nname = \"a\"\n" + key + " = [\"" + address + "\"]"),
              "f:3:9: \"" + key + "\" is \"" + address +
                  "\"; expected an address of this host with its prefix length, " +
                  (isV6 ? "\"2001:db8::1/64\"" : "\"10.0.0.1/24\""));
}

INSTANTIATE_TEST_SUITE_P(Addresses, BadAddress,
                         testing::Values("", "/", "/24", "10.0.0.1", "10.0.0.1/", "10.0.0.1/0",
                                         "10.0.0.1/33", "10.0.0.1/256", "10.0.0.1/-1",
                                         "10.0.0.1/+8", "10.0.0.1/24 ", "10.0.0.1/24/8",
                                         "0.0.0.0/8", "224.0.0.1/4", "255.255.255.255/32",
                                         "10.0.0/8", "2001:db8::1", "2001:db8::1/0",
                                         "2001:db8::1/129", "::/64", "ff02::1/16"));

TEST(ConfigurationErrors, AnAddressOfTheOtherFamilyIsNone) {
    EXPECT_EQ(errorOf("[[interface]]\nname = \"a\"\nipv4 = [\"fe80::1/64\"]"),
              "f:3:9: \"ipv4\" is \"fe80::1/64\"; expected an address of this host with its prefix "
              "length, \"10.0.0.1/24\"");
    EXPECT_EQ(errorOf("[[interface]]\nname = \"a\"\nipv6 = [\"10.0.0.1/24\"]"),
              "f:3:9: \"ipv6\" is \"10.0.0.1/24\"; expected an address of this host with its "
              "prefix length, \"2001:db8::1/64\"");
}

TEST(ConfigurationErrors, DevicesAndIndexesMayRepeatInAnotherNamespace) {
    EXPECT_EQ(
        errorOf("[[vrf]]\nname = \"blue\"\n"
                "[[interface]]\nname = \"a\"\ndevice = \"eth0\"\nifindex = 2\n"
                "[[interface]]\nname = \"b\"\ndevice = \"eth0\"\nifindex = 2\nvrf = \"blue\""),
        "no error");
}

TEST(ConfigurationErrors, AllMistakesComeInTheOrderOfTheFile) {
    EXPECT_EQ(errorOf("[[fdb]]\nvlan = 0\nmac = \"x\"\n[evpn]\nmpsl = true\n"),
              "f:1:1: [[fdb]] has no key \"interface\"; expected a text of 1 to 63 bytes without "
              "control characters\n"
              "f:2:8: \"vlan\" is 0; expected a VLAN, 1 to 4094\n"
              "f:3:7: \"mac\" is \"x\"; expected a MAC address such as \"02:00:00:00:00:0a\"\n"
              "f:5:1: unknown key \"mpsl\"; did you mean \"mpls\"?");
}

TEST(ConfigurationErrors, TheFirstTwentyAreNamed) {
    auto vlans = [](int count) {
        std::string text;
        for (int i = 0; i < count; ++i) {
            text += "[[evpn.vlan]]\nvlan = 0\n";
        }
        return text;
    };
    std::string last = "\nf:40:8: \"vlan\" is 0; expected a VLAN, 1 to 4094";
    EXPECT_TRUE(errorOf(vlans(20)).ends_with(last));
    EXPECT_TRUE(errorOf(vlans(25)).ends_with(last + "\nand 5 more"));
    try {
        parseConfiguration(vlans(25), "f");
        FAIL();
    } catch (const ConfigurationError& error) {
        ASSERT_EQ(error.mistakes().size(), 20u);
        EXPECT_EQ(error.mistakes()[0], "f:2:8: \"vlan\" is 0; expected a VLAN, 1 to 4094");
    }
}

TEST(ConfigurationErrors, LongTextsAreCut) {
    std::string mac(99, 'x');
    EXPECT_EQ(errorOf("[bridging]\nmac = \"" + mac + "\xc3\xa9\xc3\xa9\""),
              "f:2:7: \"mac\" is \"" + mac +
                  "...\"; expected a MAC address such as \"02:00:00:00:00:0a\"");
}

TEST(ConfigurationErrors, DeepNestingIsRefusedBeforeItHurts) {
    std::string tooDeep = "tables or lists are nested too deep; expected at most 16 open brackets, "
                          "and 64 dots in a line";
    EXPECT_EQ(errorOf("a = " + std::string(16, '[') + std::string(16, ']')),
              "f:1:1: unknown key \"a\"; expected one of runtime_directory, log_directory, "
              "toggle_directory, agent_library, physical_hardware, trace, control, bridging, evpn, "
              "fhrp, l2vpn, linux, vrf, interface, remote_binding, fdb, neighbor");
    EXPECT_EQ(errorOf("a = " + std::string(17, '[')), "f:1:21: " + tooDeep);
    std::string dotted = "a";
    for (int i = 0; i < 500'000; ++i) {
        dotted += ".a";
    }
    EXPECT_EQ(errorOf("#\n" + dotted + " = 1"), "f:2:130: " + tooDeep);
    EXPECT_EQ(errorOf("[" + dotted + "]"), "f:1:131: " + tooDeep);
    EXPECT_EQ(errorOf(std::string(1'000'000, '[')), "f:1:17: " + tooDeep);
    EXPECT_EQ(errorOf("trace = \"\" # " + dotted + std::string(100, '[')), "no error");
    EXPECT_EQ(errorOf("[control]\ngroup = \"\\\"[[[[[[[[[[[[[[[[[[\" # '"), "no error");
}

TEST(ConfigurationErrors, WhatTheKernelHasIsNotSaidBesideIt) {
    EXPECT_EQ(errorOf("[[fdb]]\nvlan = 1\nmac = \"02:00:00:00:00:01\"\ninterface = \"e\"\n[linux]"),
              "f:1:1: [[fdb]] stands beside [linux], where the kernel has it; expected it to be "
              "left out");
    EXPECT_EQ(errorOf("[linux]\n[[neighbor]]\nip = \"10.0.0.1\"\nmac = \"02:00:00:00:00:01\"\n"
                      "interface = \"e\""),
              "f:2:1: [[neighbor]] stands beside [linux], where the kernel has it; expected it to "
              "be left out");
    EXPECT_EQ(
        errorOf("[linux]\n[[interface]]\nname = \"e\"\nipv4 = [\"10.0.0.1/24\"]\nifindex = 3"),
        "f:4:8: \"ipv4\" stands beside [linux], where the kernel has it; expected it to be "
        "left out\nf:5:11: \"ifindex\" stands beside [linux], where the kernel has it; "
        "expected it to be left out");
}

TEST(ConfigurationErrors, RoutedInterfacesOfTheKernelHaveTheirNames) {
    std::string interface = "[[interface]]\nname = \"Vlan10\"\ndevice = \"eth0\"\n";
    EXPECT_EQ(errorOf(interface), "no error");
    EXPECT_EQ(errorOf(interface + "[linux]"),
              "f:3:10: \"eth0\" is the device of a routed interface; expected a device named as "
              "the interface");
}

TEST(ConfigurationErrors, BridgesOfVlans) {
    EXPECT_EQ(errorOf("[linux]\nreceive_buffer = 4095"),
              "f:2:18: \"receive_buffer\" is 4095; expected an integer, 4096 to 1073741824");
    EXPECT_EQ(
        errorOf("[[linux.vlan]]\nvlan = 10"),
        "f:1:1: [[linux.vlan]] has no key \"bridge\"; expected a text of 1 to 15 bytes without "
        "control characters");
    EXPECT_EQ(errorOf("[[linux.vlan]]\nvlan = 10\nbridge = \"Vlan20\""),
              "f:3:10: \"Vlan20\" is named as another VLAN; expected a bridge that is that of no "
              "other VLAN");
    EXPECT_EQ(errorOf("[[linux.vlan]]\nvlan = 10\nbridge = \"b\"\n"
                      "[[linux.vlan]]\nvlan = 20\nbridge = \"b\""),
              "f:6:10: bridge \"b\" stands here a second time, first in line 3; expected it once");
    EXPECT_EQ(errorOf("[[linux.vlan]]\nvlan = 10\nbridge = \"a\"\n"
                      "[[linux.vlan]]\nvlan = 10\nbridge = \"b\""),
              "f:4:1: the bridge of VLAN 10 stands here a second time, first in line 1; expected "
              "it once");
}

TEST(ConfigurationErrors, AFileFullOfMistakesIsReadToItsEnd) {
    std::string text = "[bridging]\nmac = \"02:00:00:00:00:01\"\n";
    while (text.size() + 20 < configurationFileBytes) {
        text += "k" + std::to_string(text.size()) + " = 1\n";
    }
    EXPECT_TRUE(errorOf(text).starts_with("f:3:1: unknown key \"k37\"; expected one of mac, fid\n"))
        << errorOf(text).substr(0, 200);
}

} // namespace
} // namespace Host
