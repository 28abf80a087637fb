// What the agent tells an operator of itself, read back as JSON: its state is put in by hand, so
// that one condition after the other can be taken away.

#include "ArpSuppression/ShowStatus.h"

#include "ArpSuppression/ArpSuppressionAgent.h"
#include "ArpSuppression/MessageReinjectSm.h"
#include "ArpSuppression/MessageTrapSm.h"
#include "Testing/PacketPorts.h"
#include "Testing/SwitchFixture.h"

#include <bit>
#include <boost/json.hpp>
#include <cerrno>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace ArpSuppression {
namespace {

namespace json = boost::json;
using Bridging::VlanId;
using Names = std::vector<std::string>;

/// What a descriptor got from what was called with it.
template <class Write>
std::string writtenBy(Write write) {
    Vela::UniqueFd file(memfd_create("answer", MFD_CLOEXEC));
    write(file.get());
    std::string text(static_cast<size_t>(lseek(file.get(), 0, SEEK_END)), '\0');
    EXPECT_EQ(pread(file.get(), text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    return text;
}

class ShowStatusTest : public Testing::SwitchFixture {
  protected:
    ShowStatusTest() {
        group_->mount<RemoteBindingConfig>("arpSuppression/remoteBindingConfig/evpn",
                                           Quarry::MountType::reader);
        group_->mount<ArpSuppressionCounterStatus>("arpSuppression/counter",
                                                   Quarry::MountType::writer);
        bindingGroup_->mount<RemoteBindingConfig>("arpSuppression/remoteBindingConfig/evpn",
                                                  Quarry::MountType::reader);
        bindingGroup_->close();
        counters_ = group_->entity<ArpSuppressionCounterStatus>("arpSuppression/counter");
        mounts_ = arpSuppressionMountsFactory(
            entityManager(), state().remoteBindingConfig, bindingGroup_,
            state().arpSuppressionStatus, counters_, state().allVrfStatusLocal, state().vrfIdMap,
            Vela::Ptr<const Vrf::VrfIdMap::NameToIdMap>(), state().arpStatus, state().ipStatus,
            state().ip6Status, state().bridgingConfig, state().bridgingStatus, state().evpnStatus,
            state().evpnMplsConfig, state().fhrpVrMacStatus, state().arpInputConfig,
            state().allIntfStatusDir, state().allIntfStatusLocalDir, state().l2VpnConfig,
            state().intfEncapServiceIntf);
    }
    ~ShowStatusTest() override {
        stop();
        mounts_->destroy();
        bindingGroup_->destroy();
        group_->destroy();
    }

    void start() {
        root_ = arpSuppressionRootFactory(scheduler()->clock());
        auto defaultVrf = vrfInfoIs("default");
        reinject_ = Vela::make<MessageReinjectSmMimic>(scheduler(), root_->vlanL3InfoStatus(),
                                                       root_->reinjectMessageQueue(), counters_);
        trap_ = Vela::make<MessageTrapSmMimic>(
            scheduler(), root_->vlanL3InfoStatus(), root_->receivedRequestTrapV4(),
            root_->receivedRequestTrapV6(), root_->reinjectMessageQueue(),
            state().arpSuppressionStatus, counters_, root_->deviceIntfStatusDir(),
            state().intfEncapServiceIntf);
        root_->vlanL3InfoStatus()->findOrCreateVrfInterfaceWatch("fabric", "default");
    }
    void stop() {
        trap_.reset();
        reinject_.reset();
        root_.reset();
    }
    Vela::Ptr<VrfInfo> vrfInfoIs(const char* name, uint32_t id = 0) {
        auto vrfInfo = root_->vlanL3InfoStatus()->vrfInfoIs(name);
        vrfInfo->vrfIdIs(Vrf::VrfId(id));
        vrfInfo->netNsIs(name);
        vrfInfo->netlinkSocketIs(7);
        return vrfInfo;
    }
    Vela::Ptr<VlanL3Info> recordIs(unsigned vlan, const char* vrf, uint32_t ifIndex) {
        auto& status = *root_->vlanL3InfoStatus();
        auto record = status.vlanL3InfoIs(status.vrfInfo(vrf), VlanId(vlan));
        status.addVrfInterfaceWatch(record);
        record->kniIntfIfIndexIs(ifIndex);
        return record;
    }
    void recordDel(unsigned vlan) {
        auto& status = *root_->vlanL3InfoStatus();
        status.delVrfInterfaceWatch(status.vlanL3Info(VlanId(vlan)));
        status.vlanL3InfoDel(VlanId(vlan));
    }
    void deviceIs(const char* name, uint32_t ifIndex) {
        root_->vlanL3InfoStatus()->vrfInterfaceWatch(name)->kniIntfIfIndexIs(ifIndex);
    }
    VlanL3Info& record(unsigned vlan) {
        return *root_->vlanL3InfoStatus()->vlanL3Info(VlanId(vlan));
    }
    VrfInfo& vrf(const char* name) { return *root_->vlanL3InfoStatus()->vrfInfo(name); }

    /// VLAN 10 as it is when suppression is at work: EVPN serves it, its interface is usable, it
    /// has no remote bindings.
    void suppressOnVlan10() {
        state().evpnStatus->mplsConfiguredIs(true);
        state().evpnStatus->vlanToDot1qIs(VlanId(10), {});
        state().remoteBindingConfig->completeIs(true);
        state().ipStatus->ipIntfStatusIs(Zinc::IntfId("Vlan10"), "red");
        auto vrfStatus = state().allVrfStatusLocal->vrfIs("red");
        vrfStatus->stateIs(Ip::VrfState::active);
        start();
        root_->remoteBindingStatus()->initialPopulationCompleteIs(true);
        root_->enabledVlans()->vlanIdIs(VlanId(10));
        vrfInfoIs("red", 3);
        recordIs(10, "red", 1010);
        state().arpSuppressionStatus->vlanIdIs(VlanId(10), true);
        deviceIs("arpsnoop", 101);
        deviceIs("arpinject", 102);
        deviceIs("fabric", 100);
        runUntilIdle();
    }

    StatusView view() const {
        return StatusView(*mounts_, root_.ptr().get(), trap_.ptr().get(), reinject_.ptr().get());
    }
    std::string statusText(const std::string& arguments) const {
        return writtenBy([&](int fd) {
            writeStatus(view(),
                        ShowArguments::of("show status", "show status " + arguments,
                                          ShowArguments::Takes::vlan),
                        fd);
        });
    }
    std::string vlansText(const std::string& arguments) const {
        return writtenBy([&](int fd) {
            writeVlans(view(),
                       ShowArguments::of("show vlans", "show vlans " + arguments,
                                         ShowArguments::Takes::nothing),
                       fd);
        });
    }
    json::object status(const std::string& arguments = "10") const {
        return json::parse(statusText(arguments + " -j")).as_object();
    }

    /// All conditions of VLAN 10 and of the agent: "yes" or "no", and the value.
    std::map<std::string, std::string> conditions() const {
        json::object answer = status();
        std::map<std::string, std::string> all;
        for (const auto& where :
             {answer.at("agent").as_object(), vlan10(answer).at("conditions").as_object()}) {
            for (const auto& [name, condition] : where) {
                const auto& fields = condition.as_object();
                std::string text = fields.at("holds").as_bool() ? "yes" : "no";
                if (fields.contains("value")) {
                    text += " " + json::value_to<std::string>(fields.at("value"));
                }
                EXPECT_TRUE(all.emplace(name, text).second) << name;
            }
        }
        return all;
    }
    static json::object vlan10(const json::object& answer) {
        EXPECT_EQ(answer.at("vlans").as_array().size(), 1u);
        return answer.at("vlans").as_array().at(0).as_object();
    }
    bool suppressing() const { return vlan10(status()).at("suppressing").as_bool(); }
    Names lacks() const { return json::value_to<Names>(vlan10(status()).at("lacks")); }

    /// From a state where suppression is at work: `change` makes these conditions, and no other,
    /// what is said here.
    void expectChange(const std::function<void()>& change,
                      const std::map<std::string, std::string>& changed, const Names& lacking) {
        suppressOnVlan10();
        ASSERT_TRUE(suppressing());
        auto expected = conditions();
        change();
        runUntilIdle();
        for (const auto& [name, text] : changed) {
            ASSERT_TRUE(expected.count(name)) << name;
            EXPECT_NE(expected[name], text) << name;
            expected[name] = text;
        }
        EXPECT_EQ(conditions(), expected);
        EXPECT_EQ(lacks(), lacking);
        EXPECT_EQ(suppressing(), lacking.empty());
    }

    Testing::PacketPorts ports_;
    Vela::Ptr<Quarry::MountGroup> group_ = tableService()->mountGroup();
    Vela::Ptr<Quarry::MountGroup> bindingGroup_ = tableService()->mountGroup();
    Vela::Ptr<ArpSuppressionCounterStatus> counters_;
    Vela::Ptr<ArpSuppressionMounts> mounts_;
    Vela::Owned<ArpSuppressionRoot> root_;
    Vela::Owned<MessageReinjectSmMimic> reinject_;
    Vela::Owned<MessageTrapSmMimic> trap_;
};

TEST_F(ShowStatusTest, AllConditionsOfAVlanWhereItIsAtWork) {
    suppressOnVlan10();
    EXPECT_EQ(conditions(), (std::map<std::string, std::string>{
                                {"evpnMpls", "yes"},
                                {"running", "yes"},
                                {"remoteBindingsComplete", "yes 0 in the table"},
                                {"initialPopulation", "yes"},
                                {"trapSocket", "yes arpsnoop, ifindex 101"},
                                {"reinjectSocket", "yes arpinject, ifindex 102"},
                                {"fabricDevice", "yes fabric, ifindex 100"},
                                {"evpn", "yes"},
                                {"remoteBindings", "no"},
                                {"enabled", "yes"},
                                {"routedInterface", "yes Vlan10"},
                                {"vrf", "yes red"},
                                {"vrfId", "yes 3"},
                                {"vrfActive", "yes namespace red"},
                                {"netlinkSocket", "yes"},
                                {"device", "yes Vlan10, ifindex 1010"},
                                {"usable", "yes"},
                                {"published", "yes active"},
                            }));
    EXPECT_EQ(lacks(), Names{});
    EXPECT_TRUE(suppressing());
}

// --- One condition after the other. What the agent's machines would make of the change is not
// --- part of it: the published entry stays unless it is what is taken away.

TEST_F(ShowStatusTest, WithoutEvpnOverMpls) {
    expectChange(
        [&] {
            stop();
            state().evpnStatus->mplsConfiguredIs(false);
        },
        {{"evpnMpls", "no"},
         {"running", "no"},
         {"initialPopulation", "no"},
         {"trapSocket", "no"},
         {"reinjectSocket", "no"},
         {"fabricDevice", "no"},
         {"enabled", "no"},
         {"vrf", "no"},
         {"vrfId", "no"},
         {"vrfActive", "no"},
         {"netlinkSocket", "no"},
         {"device", "no Vlan10"},
         {"usable", "no"}},
        {"evpnMpls"});
}

TEST_F(ShowStatusTest, WhileTheAgentDoesNotRun) {
    suppressOnVlan10();
    stop();
    EXPECT_EQ(lacks(), Names{"running"});
    EXPECT_EQ(conditions()["evpnMpls"], "yes");
    EXPECT_EQ(conditions()["running"], "no");
}

TEST_F(ShowStatusTest, WhileTheTableOfBindingsIsIncomplete) {
    expectChange([&] { state().remoteBindingConfig->completeIs(false); },
                 {{"remoteBindingsComplete", "no 0 in the table"}}, {});
}

TEST_F(ShowStatusTest, BeforeTheInitialPopulation) {
    expectChange([&] { root_->remoteBindingStatus()->initialPopulationCompleteIs(false); },
                 {{"initialPopulation", "no"}}, {});
}

TEST_F(ShowStatusTest, WithoutTheTrapDevice) {
    expectChange([&] { deviceIs("arpsnoop", 0); },
                 {{"trapSocket", "no arpsnoop: no such device is running"}}, {"trapSocket"});
}

TEST_F(ShowStatusTest, WithATrapSocketThatCannotBeOpened) {
    expectChange(
        [&] {
            ports_.openError = EMFILE;
            deviceIs("arpsnoop", 111);
        },
        {{"trapSocket", "no arpsnoop: the socket could not be opened"}}, {"trapSocket"});
}

TEST_F(ShowStatusTest, WithoutTheInjectionDevice) {
    expectChange([&] { deviceIs("arpinject", 0); },
                 {{"reinjectSocket", "no arpinject: no such device is running"}},
                 {"reinjectSocket"});
}

TEST_F(ShowStatusTest, WithAnInjectionSocketThatCannotBeOpened) {
    expectChange(
        [&] {
            ports_.bindError = ENODEV;
            deviceIs("arpinject", 111);
        },
        {{"reinjectSocket", "no arpinject: the socket could not be opened"}}, {"reinjectSocket"});
}

TEST_F(ShowStatusTest, WithoutTheDeviceForReplies) {
    expectChange([&] { deviceIs("fabric", 0); },
                 {{"fabricDevice", "no fabric: no such device is running"}}, {"fabricDevice"});
}

TEST_F(ShowStatusTest, WhereTheDevicesVrfIsNotActive) {
    expectChange([&] { vrf("default").netNsIs(""); },
                 {{"fabricDevice", "no fabric: its VRF is not active"}}, {"fabricDevice"});
}

TEST_F(ShowStatusTest, WithoutEvpnOnTheVlan) {
    expectChange(
        [&] {
            state().evpnStatus->vlanToDot1qDel(VlanId(10));
            state().arpSuppressionStatus->vlanIdDel(VlanId(10));
        },
        {{"evpn", "no"}, {"published", "no no entry"}}, {"evpn", "remoteBindings"});
}

TEST_F(ShowStatusTest, WithRemoteBindings) {
    expectChange([&] { root_->remoteBindingStatus()->vlanIdIs(VlanId(10)); },
                 {{"remoteBindings", "yes"}}, {});
}

TEST_F(ShowStatusTest, RemoteBindingsNeedNoInterface) {
    expectChange(
        [&] {
            root_->remoteBindingStatus()->vlanIdIs(VlanId(10));
            record(10).kniIntfIfIndexIs(0);
        },
        {{"remoteBindings", "yes"}, {"device", "no Vlan10"}, {"usable", "no"}}, {});
    state().arpSuppressionStatus->vlanIdDel(VlanId(10));
    EXPECT_EQ(lacks(), Names{"published"});
}

TEST_F(ShowStatusTest, WhereItIsNotWanted) {
    expectChange([&] { root_->enabledVlans()->vlanIdDel(VlanId(10)); }, {{"enabled", "no"}}, {});
}

TEST_F(ShowStatusTest, WithoutARoutedInterface) {
    expectChange(
        [&] {
            recordDel(10);
            state().ipStatus->ipIntfStatusDel(Zinc::IntfId("Vlan10"));
            state().arpSuppressionStatus->vlanIdDel(VlanId(10));
        },
        {{"routedInterface", "no Vlan10"},
         {"vrf", "no"},
         {"vrfId", "no"},
         {"vrfActive", "no"},
         {"netlinkSocket", "no"},
         {"device", "no Vlan10"},
         {"usable", "no"},
         {"published", "no no entry"}},
        {"routedInterface"});
}

TEST_F(ShowStatusTest, AnInterfaceOfIpv6AloneIsRouted) {
    expectChange(
        [&] {
            recordDel(10);
            state().ipStatus->ipIntfStatusDel(Zinc::IntfId("Vlan10"));
            state().ip6Status->intfIs(Zinc::IntfId("Vlan10"), "red");
            state().arpSuppressionStatus->vlanIdIs(VlanId(10), false);
        },
        {{"vrf", "no"},
         {"vrfId", "no"},
         {"vrfActive", "no"},
         {"netlinkSocket", "no"},
         {"device", "no Vlan10"},
         {"usable", "no"},
         {"published", "no not active"}},
        {"vrf"});
}

TEST_F(ShowStatusTest, WhereTheFamiliesDisagreeAboutTheVrf) {
    expectChange(
        [&] {
            recordDel(10);
            state().ip6Status->intfIs(Zinc::IntfId("Vlan10"), "blue");
            state().arpSuppressionStatus->vlanIdDel(VlanId(10));
        },
        {{"vrf", "no IPv4 in red, IPv6 in blue"},
         {"vrfId", "no"},
         {"vrfActive", "no"},
         {"netlinkSocket", "no"},
         {"device", "no Vlan10"},
         {"usable", "no"},
         {"published", "no no entry"}},
        {"vrf"});
}

TEST_F(ShowStatusTest, WhereTheVrfHasNoId) {
    expectChange(
        [&] {
            vrf("red").vrfIdIs(Vrf::VrfId());
            state().arpSuppressionStatus->vlanIdDel(VlanId(10));
        },
        {{"vrfId", "no"}, {"published", "no no entry"}}, {"vrfId"});
}

TEST_F(ShowStatusTest, WhereTheVrfIsNotActive) {
    expectChange(
        [&] {
            vrf("red").netNsIs("");
            state().allVrfStatusLocal->vrf("red")->stateIs(Ip::VrfState::deleting);
            state().arpSuppressionStatus->vlanIdDel(VlanId(10));
        },
        {{"vrfActive", "no deleting"}, {"usable", "no"}, {"published", "no no entry"}},
        {"vrfActive"});
    state().allVrfStatusLocal->vrfDel("red");
    EXPECT_EQ(conditions()["vrfActive"], "no not set up");
}

TEST_F(ShowStatusTest, WithoutANetlinkSocket) {
    expectChange(
        [&] {
            vrf("red").netlinkSocketIs(0);
            state().arpSuppressionStatus->vlanIdDel(VlanId(10));
        },
        {{"netlinkSocket", "no"}, {"usable", "no"}, {"published", "no no entry"}},
        {"netlinkSocket"});
}

TEST_F(ShowStatusTest, WhereTheDeviceDoesNotRun) {
    expectChange(
        [&] {
            record(10).kniIntfIfIndexIs(0);
            state().arpSuppressionStatus->vlanIdDel(VlanId(10));
        },
        {{"device", "no Vlan10"}, {"usable", "no"}, {"published", "no no entry"}}, {"device"});
}

TEST_F(ShowStatusTest, WithoutAPublishedEntryThatThereShouldBe) {
    expectChange([&] { state().arpSuppressionStatus->vlanIdDel(VlanId(10)); },
                 {{"published", "no no entry"}}, {"published"});
    state().arpSuppressionStatus->vlanIdIs(VlanId(10), false);
    EXPECT_EQ(conditions()["published"], "no not active");
    EXPECT_EQ(lacks(), Names{"published"});
}

TEST_F(ShowStatusTest, SeveralThingsAreLackingAtOnce) {
    suppressOnVlan10();
    vrf("red").netNsIs("");
    record(10).kniIntfIfIndexIs(0);
    state().arpSuppressionStatus->vlanIdDel(VlanId(10));
    deviceIs("arpsnoop", 0);
    deviceIs("fabric", 0);
    EXPECT_EQ(lacks(), (Names{"vrfActive", "trapSocket", "fabricDevice"}));
}

// --- The answers as a whole

TEST_F(ShowStatusTest, ForPeople) {
    suppressOnVlan10();
    EXPECT_EQ(statusText("10"), "Agent\n"
                                "  EVPN over MPLS                   yes\n"
                                "  agent runs                       yes\n"
                                "  remote bindings complete         yes  0 in the table\n"
                                "  initial population complete      yes\n"
                                "  trap socket                      yes  arpsnoop, ifindex 101\n"
                                "  injection socket                 yes  arpinject, ifindex 102\n"
                                "  device for replies               yes  fabric, ifindex 100\n"
                                "\n"
                                "VLAN 10: suppressing\n"
                                "  EVPN serves the VLAN             yes\n"
                                "  remote bindings                  no\n"
                                "  suppression wanted               yes\n"
                                "  routed interface                 yes  Vlan10\n"
                                "  VRF of the interface             yes  red\n"
                                "  id of the VRF                    yes  3\n"
                                "  VRF active                       yes  namespace red\n"
                                "  netlink socket                   yes\n"
                                "  device running                   yes  Vlan10, ifindex 1010\n"
                                "  usable interface                 yes\n"
                                "  published as active              yes  active\n");
    deviceIs("arpsnoop", 0);
    state().arpSuppressionStatus->vlanIdDel(VlanId(10));
    std::string text = statusText("10");
    EXPECT_NE(text.find("VLAN 10: not suppressing, lacks: published as active; trap socket\n"),
              text.npos)
        << text;
    EXPECT_NE(text.find("  trap socket                      no   arpsnoop: no such device is "
                        "running\n"),
              text.npos)
        << text;
}

TEST_F(ShowStatusTest, AVlanThatNothingKnows) {
    suppressOnVlan10();
    json::object answer = status("77");
    json::object vlan = answer.at("vlans").as_array().at(0).as_object();
    EXPECT_EQ(vlan.at("vlan").as_int64(), 77);
    EXPECT_EQ(json::value_to<Names>(vlan.at("lacks")), (Names{"evpn", "remoteBindings"}));
    for (const auto& [name, condition] : vlan.at("conditions").as_object()) {
        EXPECT_FALSE(condition.as_object().at("holds").as_bool()) << name;
    }
    EXPECT_EQ(answer.at("agent").as_object().size(), 7u);
}

TEST_F(ShowStatusTest, LookingAtAVlanEntersNoNameOfAnInterface) {
    suppressOnVlan10();
    // They are numbered as they come.
    auto before = std::bit_cast<uint32_t>(Zinc::IntfId("before"));
    for (unsigned vlan = 1; vlan <= 4094; vlan += 7) {
        status(std::to_string(vlan));
    }
    vlansText("");
    EXPECT_EQ(std::bit_cast<uint32_t>(Zinc::IntfId("after")), before + 1);
}

TEST_F(ShowStatusTest, WithoutAVlanAllThatAreKnown) {
    suppressOnVlan10();
    state().evpnStatus->vlanToDot1qIs(VlanId(20), {});
    root_->remoteBindingStatus()->vlanIdIs(VlanId(30));
    root_->enabledVlans()->vlanIdIs(VlanId(40));
    state().arpSuppressionStatus->vlanIdIs(VlanId(50), false);
    state().ipStatus->ipIntfStatusIs(Zinc::IntfId("Vlan60"), "red");
    state().ip6Status->intfIs(Zinc::IntfId("Vlan70"), "red");
    recordIs(80, "red", 0);
    for (const char* none : {"Vlan0", "Vlan4095", "Ethernet1", "Vlan99999999999"}) {
        state().ipStatus->ipIntfStatusIs(Zinc::IntfId(none), "red");
    }
    std::vector<int64_t> vlans;
    const json::object answer = status("");
    for (const auto& vlan : answer.at("vlans").as_array()) {
        vlans.push_back(vlan.as_object().at("vlan").as_int64());
    }
    EXPECT_EQ(vlans, (std::vector<int64_t>{10, 20, 30, 40, 50, 60, 70, 80}));
    std::string text = statusText("");
    for (int64_t vlan : vlans) {
        EXPECT_NE(text.find("\n\nVLAN " + std::to_string(vlan) + ": "), text.npos) << vlan;
    }
}

TEST_F(ShowStatusTest, OfASwitchWithoutAnything) {
    json::object answer = status("");
    EXPECT_EQ(answer.at("vlans").as_array().size(), 0u);
    for (const auto& [name, condition] : answer.at("agent").as_object()) {
        EXPECT_FALSE(condition.as_object().at("holds").as_bool()) << name;
    }
    EXPECT_EQ(vlansText("-j"), "[]\n");
}

TEST_F(ShowStatusTest, VlansInALineEach) {
    suppressOnVlan10();
    auto bind = [&](unsigned vlan, const char* ip) {
        state().remoteBindingConfig->remoteBindingIs(
            {{VlanId(vlan), Zinc::IpGenAddr(ip)}, Zinc::EthAddr("02:00:00:00:00:01"), 0, 0});
    };
    bind(10, "10.0.0.1");
    bind(10, "10.0.0.2");
    bind(4094, "10.0.0.1"); // known from the table alone
    state().evpnStatus->vlanToDot1qIs(VlanId(20), {});
    state().arpSuppressionStatus->vlanIdIs(VlanId(20), false);
    EXPECT_EQ(vlansText(""),
              "VLAN EVPN Wanted Bindings  Routed   VRF             Ifindex Usable Active\n"
              "  10 yes  yes           2  Vlan10   red                1010 yes    yes\n"
              "  20 yes  no            0  -        -                     0 no     no\n"
              "4094 no   no            1  -        -                     0 no     no\n");
    auto expected = json::parse(R"([
        {"vlan":10,"evpn":true,"enabled":true,"remoteBindings":2,"interface":"Vlan10","vrf":"red",
         "ifIndex":1010,"usable":true,"active":true},
        {"vlan":20,"evpn":true,"enabled":false,"remoteBindings":0,"interface":"","vrf":"",
         "ifIndex":0,"usable":false,"active":false},
        {"vlan":4094,"evpn":false,"enabled":false,"remoteBindings":1,"interface":"","vrf":"",
         "ifIndex":0,"usable":false,"active":null}])");
    EXPECT_EQ(json::parse(vlansText("-j")), expected) << vlansText("-j");
}

TEST_F(ShowStatusTest, WhatStandsBehindTheCommand) {
    auto of = [](const std::string& words) {
        return ShowArguments::of("show status", "show status" + words, ShowArguments::Takes::vlan);
    };
    EXPECT_EQ(of("").error, "");
    EXPECT_FALSE(of("").json);
    EXPECT_FALSE(of("").vlanId);
    EXPECT_EQ(of(" 10 -j").vlanId, VlanId(10));
    EXPECT_TRUE(of(" 10 -j").json);
    EXPECT_EQ(of("  -j   4094 ").vlanId, VlanId(4094));
    for (const char* wrong :
         {" 0", " 4095", " 10 20", " ten", " 10x", " -1", " 99999999999", " --json", " 0x10"}) {
        EXPECT_NE(of(wrong).error, "") << wrong;
    }
    EXPECT_EQ(of(" 5000").error,
              "\"5000\" is not expected where one VLAN, 1 to 4094, or -j may stand");
    auto ofVlans = [](const std::string& command) {
        return ShowArguments::of("show vlans", command, ShowArguments::Takes::nothing);
    };
    EXPECT_EQ(ofVlans("show vlans 10").error, "\"10\" is not expected; only -j may stand there");
    EXPECT_EQ(ofVlans("show vlans -j").error, "");
}

} // namespace
} // namespace ArpSuppression
