// The local bindings as an operator sees them, through the callback that the control socket uses.

#include "ArpSuppression/test/RoadFixture.h"

#include <algorithm>
#include <boost/json.hpp>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace ArpSuppression {
namespace {

namespace json = boost::json;
using Bridging::VlanId;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;

class ShowLocalBindingsTest : public RoadFixture {
  protected:
    std::string shown(const std::string& arguments = "") {
        const std::string command = "show bindings local" + arguments;
        auto callback = agent->commandRequestDirSm().callback("showBindingsLocal");
        EXPECT_EQ(callback->refusal(command), "");
        Vela::UniqueFd file(memfd_create("answer", MFD_CLOEXEC));
        callback->handleCommand(file.get(), command);
        std::string text(static_cast<size_t>(lseek(file.get(), 0, SEEK_END)), '\0');
        EXPECT_EQ(pread(file.get(), text.data(), text.size(), 0),
                  static_cast<ssize_t>(text.size()));
        return text;
    }
    Vela::Ptr<LocalBinding> bindingIs(const IpGenAddr& address, const std::string& mac,
                                      unsigned vlan = 10) {
        auto vlanL3Info = vlanL3InfoStatus().vlanL3Info(VlanId(vlan));
        return root().localBindingRecord()->createLocalBinding(
            VrfIpAddress::fromVlanL3Info(vlanL3Info, address), {VlanId(vlan), EthAddr(mac)});
    }
    void startWithThree() {
        startRoad();
        Testing::routedVlanIs(state(), VlanId(9), 1009);
        runUntilIdle();
        bindingIs(IpGenAddr("10.0.0.10"), "02:00:00:00:00:0a")->arpStatusHasDynamicEntryIs(true);
        bindingIs(IpGenAddr("10.0.0.9"), "02:00:00:00:00:0b");
        bindingIs(IpGenAddr("10.0.0.11"), "02:00:00:00:00:0c", 9);
        fdbIs("02:00:00:00:00:0b", ethernet2, Bridging::EntryType::learnedDynamic);
    }
};

TEST_F(ShowLocalBindingsTest, ByVlanAndAddress) {
    startWithThree();
    EXPECT_EQ(shown(), "   9 10.0.0.11       02:00:00:00:00:0c -               default\n"
                       "  10 10.0.0.9        02:00:00:00:00:0b Ethernet2       default\n"
                       "  10 10.0.0.10       02:00:00:00:00:0a -               default "
                       "kernelLearnt\n");
}

TEST_F(ShowLocalBindingsTest, ForPrograms) {
    startWithThree();
    std::string text = shown(" -j");
    EXPECT_EQ(json::parse(text), json::parse(R"([
        {"vlan":9,"ip":"10.0.0.11","mac":"02:00:00:00:00:0c","interface":"","vrf":"default",
         "kernelLearnt":false},
        {"vlan":10,"ip":"10.0.0.9","mac":"02:00:00:00:00:0b","interface":"Ethernet2",
         "vrf":"default","kernelLearnt":false},
        {"vlan":10,"ip":"10.0.0.10","mac":"02:00:00:00:00:0a","interface":"","vrf":"default",
         "kernelLearnt":true}])"))
        << text;
    EXPECT_EQ(shown(" -j"), text);
}

TEST_F(ShowLocalBindingsTest, OnlyThoseAskedFor) {
    startWithThree();
    EXPECT_EQ(shown(" 9"), "   9 10.0.0.11       02:00:00:00:00:0c -               default\n");
    EXPECT_EQ(shown(" 10.0.0.9"),
              "  10 10.0.0.9        02:00:00:00:00:0b Ethernet2       default\n");
    EXPECT_EQ(shown(" 10.0.0.9 10"), shown(" 10.0.0.9"));
    EXPECT_EQ(shown(" 10.0.0.9 9"), "");
    EXPECT_EQ(shown(" 10.0.0.77"), "");
    EXPECT_EQ(shown(" 77 -j"), "[]\n");
}

TEST_F(ShowLocalBindingsTest, AnIpv6AddressNeedsMoreRoom) {
    startRoad();
    bindingIs(IpGenAddr("2001:db8::9"), "02:00:00:00:00:0b");
    bindingIs(IpGenAddr("fe80::9"), "02:00:00:00:00:0b");
    bindingIs(IpGenAddr("10.0.0.9"), "02:00:00:00:00:0b");
    std::string room(28, ' ');
    EXPECT_EQ(shown(), "  10 10.0.0.9    " + room + "02:00:00:00:00:0b -               default\n" +
                           "  10 2001:db8::9 " + room +
                           "02:00:00:00:00:0b -               default\n" + "  10 fe80::9     " +
                           room + "02:00:00:00:00:0b -               default\n");
}

TEST_F(ShowLocalBindingsTest, ThousandsComeWholeAndInOrder) {
    startRoad();
    constexpr uint32_t count = 5000;
    for (uint32_t host = 0; host < count; ++host) {
        bindingIs(IpGenAddr(0x0a010000 + host), "02:00:00:00:01:00");
    }
    const auto all = json::parse(shown(" -j")).as_array();
    ASSERT_EQ(all.size(), count);
    for (uint32_t host = 0; host < count; ++host) {
        EXPECT_EQ(all[host].at("ip").as_string(), IpGenAddr(0x0a010000 + host).toStrep());
    }
    std::string text = shown();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), count);
}

TEST_F(ShowLocalBindingsTest, WhileSuppressionDoesNotRunThereAreNone) {
    startWithThree();
    stop();
    EXPECT_EQ(shown(), "");
    EXPECT_EQ(shown(" -j"), "[]\n");
}

TEST_F(ShowLocalBindingsTest, WhatMakesNoSenseIsRefused) {
    startRoad();
    auto callback = agent->commandRequestDirSm().callback("showBindingsLocal");
    EXPECT_EQ(callback->refusal("show bindings local all"),
              "\"all\" is not expected where one IP address, one VLAN, 1 to 4094, or -j may "
              "stand");
    EXPECT_EQ(callback->refusal("show bindings local -j 10 10.0.0.1"), "");
    EXPECT_NE(callback->refusal("show bindings local 10 20"), "");
}

} // namespace
} // namespace ArpSuppression
