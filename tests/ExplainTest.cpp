// What an operator is told of an address, held against what then happens to requests for it: the
// whole agent runs, and answers through the callback that the control socket uses.

#include "ArpSuppression/test/RoadFixture.h"

#include <bit>
#include <boost/json.hpp>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace ArpSuppression {
namespace {

namespace json = boost::json;
using Bridging::EntryType;
using Bridging::VlanId;
using Testing::TrapFrame;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;

class ExplainTest : public RoadFixture {
  protected:
    std::string told(const std::string& command) {
        auto callback = agent->commandRequestDirSm().callback("explain");
        EXPECT_EQ(callback->refusal(command), "");
        Vela::UniqueFd file(memfd_create("answer", MFD_CLOEXEC));
        callback->handleCommand(file.get(), command);
        std::string text(static_cast<size_t>(lseek(file.get(), 0, SEEK_END)), '\0');
        EXPECT_EQ(pread(file.get(), text.data(), text.size(), 0),
                  static_cast<ssize_t>(text.size()));
        return text;
    }
    std::string refusal(const std::string& command) {
        return agent->commandRequestDirSm().callback("explain")->refusal(command);
    }
    json::object document(const std::string& arguments) {
        return json::parse(told("explain " + arguments + " -j")).as_object();
    }
    json::object vlan10(const std::string& address = "10.0.0.2") {
        auto vlans = document(address + " 10").at("vlans").as_array();
        EXPECT_EQ(vlans.size(), 1u);
        return vlans.at(0).as_object();
    }
    std::set<int64_t> vlansOf(const std::string& address) {
        std::set<int64_t> vlans;
        const auto all = document(address).at("vlans").as_array();
        for (const auto& vlan : all) {
            vlans.insert(vlan.at("vlan").as_int64());
        }
        return vlans;
    }
    bool tells(const std::string& text, const std::string& piece) {
        return text.find(piece) != text.npos;
    }

    void localHostIs(const std::string& mac, IntfId intf = IntfId("Ethernet2")) {
        neighborIs("10.0.0.2", mac);
        fdbIs(mac, intf, EntryType::learnedDynamic);
    }
    void segmentIs(bool hasForwarder) {
        auto segment = state().evpnStatus->segmentStatusIs(ethernet2);
        if (hasForwarder) {
            segment->dfTepIs(VlanId(10), IntfId("Mpls1"));
        }
    }
    Vela::Ptr<VlanL3Info> vlanL3Info() { return vlanL3InfoStatus().vlanL3Info(VlanId(10)); }

    /// A request of that kind for 10.0.0.2.
    TrapFrame request(const std::string& kind) const {
        TrapFrame frame;
        if (kind == "hostOnSamePort") {
            frame.srcIfIndex = 12; // Ethernet2
        } else if (kind == "hostOnUnknownPort") {
            frame.srcIfIndex = 999;
        } else if (kind == "switch") {
            frame.senderMac = bridgeMac;
        } else if (kind == "probe") {
            frame.senderIp = IpGenAddr("0.0.0.0");
        } else if (kind == "announcement") {
            frame.senderIp = IpGenAddr("10.0.0.2");
        } else {
            EXPECT_EQ(kind, "host");
        }
        return frame;
    }
    /// Sends one and says what the decision about it has counted.
    std::set<int64_t> happens(const std::string& kind, std::optional<std::string>& answeredWith) {
        countersMoved();
        ports.sent(fabric);
        ports.inject(arpsnoop, request(kind).bytes());
        runUntilIdle();
        for (const auto& frame : ports.sent(fabric)) {
            EthAddr::Bytes mac{};
            std::copy_n(frame.begin() + 26, mac.size(), mac.begin());
            answeredWith = EthAddr(mac).toStrep();
        }
        std::set<int64_t> counted;
        for (auto [id, count] : countersMoved()) {
            if (id >= Id::answeredFromRemoteBinding && id <= Id::unused24) {
                EXPECT_EQ(count, 1u) << kind;
                counted.insert(static_cast<int64_t>(id));
            }
        }
        return counted;
    }
    /// Every kind of request does what is told of it; returns what that is, by kind.
    std::map<std::string, std::string> expectAsTold() {
        std::map<std::string, std::string> actions;
        const auto outcomes = vlan10().at("outcomes").as_array();
        for (const auto& outcome : outcomes) {
            auto kind = json::value_to<std::string>(outcome.at("request"));
            auto action = json::value_to<std::string>(outcome.at("action"));
            std::set<int64_t> counted;
            for (const auto& counter : outcome.at("counters").as_array()) {
                counted.insert(counter.at("id").as_int64());
                EXPECT_EQ(counter.at("name").as_string(), toStrep(Id(counter.at("id").as_int64())));
            }
            std::optional<std::string> answeredWith;
            EXPECT_EQ(happens(kind, answeredWith), counted) << kind;
            bool sends = action == "reply" && !counted.count(14);
            EXPECT_EQ(answeredWith.has_value(), sends) << kind;
            if (answeredWith) {
                EXPECT_EQ(outcome.at("mac").as_string(), *answeredWith) << kind;
            }
            actions[kind] = action + " " + json::value_to<std::string>(outcome.at("rule"));
        }
        return actions;
    }
    using Actions = std::map<std::string, std::string>;
    static Actions actions(const std::string& host, const std::string& ofSwitch) {
        return {{"host", host},
                {"switch", ofSwitch},
                {"probe", "sendToRemoteTeps probe"},
                {"announcement", "sendToRemoteTeps announcement"}};
    }

    const std::string localMac = "02:00:00:00:00:0a";
    const std::string remoteMac = "02:00:00:00:00:0b";
};

// What is told is what happens

TEST_F(ExplainTest, AnAddressThatNobodyKnows) {
    startRoad();
    EXPECT_EQ(expectAsTold(),
              actions("sendToRemoteTeps noRemoteBinding", "sendToRemoteTeps noRemoteBinding"));
}

TEST_F(ExplainTest, AHostElsewhere) {
    startRoad();
    remoteBindingIs("10.0.0.2", remoteMac);
    auto expected = actions("reply remoteBinding", "bind remoteBinding");
    expected["hostOnUnknownPort"] = "unknownSourcePort remoteBinding";
    EXPECT_EQ(expectAsTold(), expected);
    fdbIs(remoteMac, ethernet2, EntryType::evpnDynamicRemote);
    expected["hostOnSamePort"] = "samePort remoteBinding";
    EXPECT_EQ(expectAsTold(), expected);
}

TEST_F(ExplainTest, AHostElsewhereOverVxlan) {
    startRoad();
    remoteBindingIs("10.0.0.2", remoteMac, true);
    Actions expected;
    for (const char* kind : {"host", "switch", "probe", "announcement"}) {
        expected[kind] = "nothing remoteVxlan";
    }
    EXPECT_EQ(expectAsTold(), expected);
}

TEST_F(ExplainTest, AnAddressOfTheSwitch) {
    startRoad();
    vlanL3Info()->ipAddressIs(IpGenAddr("10.0.0.2"), true);
    remoteBindingIs("10.0.0.2", remoteMac);
    Actions expected;
    for (const char* kind : {"host", "switch", "probe", "announcement"}) {
        expected[kind] = "nothing targetIsMine";
    }
    EXPECT_EQ(expectAsTold(), expected);
}

TEST_F(ExplainTest, AHostOnAPort) {
    startRoad();
    localHostIs(localMac);
    remoteBindingIs("10.0.0.2", remoteMac);
    EXPECT_EQ(expectAsTold(), actions("nothing localSinglehomed", "nothing localSinglehomed"));
}

TEST_F(ExplainTest, AHostOnASegmentWithADesignatedForwarder) {
    startRoad();
    localHostIs(localMac);
    segmentIs(true);
    EXPECT_EQ(expectAsTold(),
              actions("nothing segmentWithForwarder", "nothing segmentWithForwarder"));
    remoteBindingIs("10.0.0.2", remoteMac);
    EXPECT_EQ(expectAsTold(),
              actions("nothing segmentWithForwarder", "bind switchAsksOnSegmentWithForwarder"));
}

TEST_F(ExplainTest, AHostOnASegmentWithoutADesignatedForwarder) {
    startRoad();
    localHostIs(localMac);
    segmentIs(false);
    auto expected =
        actions("reply segmentWithoutForwarder", "sendToRemoteTeps switchAsksWithoutRemoteBinding");
    expected["hostOnSamePort"] = "samePort segmentWithoutForwarder";
    expected["hostOnUnknownPort"] = "unknownSourcePort segmentWithoutForwarder";
    EXPECT_EQ(expectAsTold(), expected);
    remoteBindingIs("10.0.0.2", remoteMac);
    expected["switch"] = "bind switchAsksOnSegmentWithoutForwarder";
    EXPECT_EQ(expectAsTold(), expected);
}

TEST_F(ExplainTest, AHostOfARemoteBindingOnASegmentWithoutADesignatedForwarder) {
    startRoad();
    remoteBindingIs("10.0.0.2", remoteMac);
    fdbIs(remoteMac, ethernet2, EntryType::learnedDynamic);
    segmentIs(false);
    EXPECT_EQ(expectAsTold().at("switch"), "bind segmentWithoutForwarder");
}

TEST_F(ExplainTest, WhereNoReplyCanBeSent) {
    startRoad();
    remoteBindingIs("10.0.0.2", remoteMac);
    Testing::deviceIs(state(), "fabric", 0);
    runUntilIdle();
    EXPECT_EQ(expectAsTold().at("host"), "reply remoteBinding");
    auto vlan = vlan10();
    EXPECT_EQ(json::serialize(vlan.at("outcomes").as_array().at(0).at("counters")),
              R"([{"id":6,"name":"answeredFromRemoteBinding"},)"
              R"({"id":14,"name":"replyFabricNotUsable"}])");
    EXPECT_FALSE(vlan.at("suppressing").as_bool());
    EXPECT_EQ(vlan.at("requests"), "decided");
    EXPECT_TRUE(tells(told("explain 10.0.0.2 10"),
                      "  request of a host        not answered, as the device for replies is not "
                      "usable: there is a remote binding; counts 6 answeredFromRemoteBinding, 14 "
                      "replyFabricNotUsable\n"));
}

TEST_F(ExplainTest, ANeighbourEntryThatTheSwitchDoesNotGet) {
    startRoad();
    for (const auto& [mac, counter] : std::map<std::string, int64_t>{{bridgeMac.toStrep(), 20},
                                                                     {varpMac.toStrep(), 21},
                                                                     {"01:00:5e:00:00:01", 18},
                                                                     {"00:00:00:00:00:00", 18}}) {
        remoteBindingIs("10.0.0.2", mac);
        runUntilIdle();
        EXPECT_EQ(expectAsTold().at("switch"), "bind remoteBinding");
        const auto outcomes = vlan10().at("outcomes").as_array();
        for (const auto& outcome : outcomes) {
            if (outcome.at("request") == "switch") {
                EXPECT_EQ(outcome.at("counters").as_array().at(1).at("id"), counter);
            }
        }
    }
    EXPECT_TRUE(tells(told("explain 10.0.0.2 10"), "not answered, and no neighbour entry with "));
}

TEST_F(ExplainTest, AStaticNeighbourIsNoLocalHost) {
    startRoad();
    neighborIs("10.0.0.2", localMac, true);
    fdbIs(localMac, ethernet2, EntryType::learnedDynamic);
    EXPECT_EQ(expectAsTold().at("host"), "sendToRemoteTeps noRemoteBinding");
    EXPECT_TRUE(tells(told("explain 10.0.0.2 10"),
                      "  kernel's neighbour       02:00:00:00:00:0a static, which is no local "
                      "binding\n"));
}

// Where nothing is decided

TEST_F(ExplainTest, WhileSuppressionIsNotAtWorkRequestsPass) {
    startRoad();
    remoteBindingIs("10.0.0.2", remoteMac);
    Testing::deviceIs(state(), "arpsnoop", 0);
    runUntilIdle();
    auto vlan = vlan10();
    EXPECT_FALSE(vlan.at("suppressing").as_bool());
    EXPECT_EQ(vlan.at("lacks"), json::array({"trapSocket"}));
    EXPECT_EQ(vlan.at("requests"), "passed");
    EXPECT_EQ(vlan.at("outcomes"), json::array());
    EXPECT_EQ(vlan.at("remoteBinding").at("mac").as_string(), remoteMac);
    std::string text = told("explain 10.0.0.2 10");
    EXPECT_TRUE(tells(text, "VLAN 10: not suppressing, lacks: trap socket\n"));
    EXPECT_TRUE(tells(text,
                      "  any request              passed by the forwarding plane: suppression "
                      "is not at work\n"));
    EXPECT_FALSE(tells(text, "counts"));
}

TEST_F(ExplainTest, AVlanWithoutSuppression) {
    startRoad();
    EXPECT_EQ(document("10.0.0.2 77").at("vlans").as_array().at(0).at("requests"), "passed");
}

TEST_F(ExplainTest, WhileTheAgentDoesNotRun) {
    startRoad();
    remoteBindingIs("10.0.0.2", remoteMac);
    stop();
    auto vlan = vlan10();
    EXPECT_EQ(vlan.at("lacks"), json::array({"evpnMpls"}));
    EXPECT_EQ(vlan.at("requests"), "passed");
    EXPECT_EQ(vlan.at("remoteBinding").at("mac").as_string(), remoteMac);
    EXPECT_TRUE(vlan.at("targetIsMine").is_null());
    EXPECT_TRUE(vlan.at("connection").is_null());
    EXPECT_TRUE(tells(told("explain 10.0.0.2 10"), "  MAC table entry          not looked at\n"));
}

TEST_F(ExplainTest, AnIpv6SolicitationIsNeverAnswered) {
    startRoad();
    state().remoteBindingConfig->remoteBindingIs(
        {{VlanId(10), IpGenAddr("2001:db8::2")}, EthAddr(remoteMac), 0, 1});
    runUntilIdle();
    auto vlan = vlan10("2001:db8::2");
    EXPECT_TRUE(vlan.at("suppressing").as_bool());
    EXPECT_EQ(vlan.at("requests"), "copied");
    EXPECT_EQ(vlan.at("outcomes"), json::array());
    EXPECT_EQ(json::serialize(vlan.at("remoteBinding")),
              R"({"mac":"02:00:00:00:00:0b","vxlan":false,"localMultihomed":true})");
    EXPECT_EQ(json::serialize(vlan.at("wantedEntry")),
              R"({"type":"permanent","mac":"02:00:00:00:00:0b","interface":"","vrf":"default",)"
              R"("refresh":"none"})");
    EXPECT_EQ(vlansOf("2001:db8::2"), std::set<int64_t>{10});
    EXPECT_TRUE(tells(told("explain 2001:db8::2"),
                      "  any solicitation         passed by the forwarding plane: the agent learns "
                      "the sender from a copy and answers none; counts 52 "
                      "trapNeighborSolicitation\n"));
}

// Which VLANs

TEST_F(ExplainTest, WithoutAVlanThoseThatKnowTheAddress) {
    startRoad();
    EXPECT_EQ(vlansOf("10.0.0.2"), std::set<int64_t>{10}) << "it is suppressing";
    EXPECT_TRUE(
        tells(told("explain 10.0.0.2"),
              "10.0.0.2: known on no VLAN; these are suppressing\n\nVLAN 10: suppressing\n"));
    Testing::routedVlanIs(state(), VlanId(20), 1020);
    Testing::routedVlanIs(state(), VlanId(30), 1030);
    runUntilIdle();
    EXPECT_EQ(vlansOf("10.0.0.2"), (std::set<int64_t>{10, 20, 30}));
    remoteBindingIs("10.0.0.2", remoteMac, false, 400);
    EXPECT_EQ(vlansOf("10.0.0.2"), std::set<int64_t>{400});
    root().localBindingRecord()->createLocalBinding(
        VrfIpAddress::fromVlanL3Info(vlanL3Info(), IpGenAddr("10.0.0.2")),
        {VlanId(20), EthAddr(localMac)});
    EXPECT_EQ(vlansOf("10.0.0.2"), (std::set<int64_t>{20, 400}));
    neighborIs("10.0.0.2", localMac);
    EXPECT_EQ(vlansOf("10.0.0.2"), (std::set<int64_t>{10, 20, 400}));
    vlanL3InfoStatus().vlanL3Info(VlanId(30))->ipAddressIs(IpGenAddr("10.0.0.2"), true);
    EXPECT_EQ(vlansOf("10.0.0.2"), (std::set<int64_t>{10, 20, 30, 400}));
    EXPECT_EQ(told("explain 10.0.0.2").find("10.0.0.2\n\nVLAN 10: "), 0u);
    EXPECT_EQ(vlansOf("10.0.0.3"), (std::set<int64_t>{10, 20, 30}));
}

TEST_F(ExplainTest, WhereNoVlanIsSuppressing) {
    startRoad();
    stop();
    EXPECT_EQ(told("explain 10.0.0.9"), "10.0.0.9: known on no VLAN, and none is suppressing\n");
    EXPECT_EQ(told("explain 10.0.0.9 -j"), "{\"address\":\"10.0.0.9\",\"vlans\":[]}\n");
}

// The answers as a whole

TEST_F(ExplainTest, ForPeople) {
    startRoad();
    remoteBindingIs("10.0.0.2", remoteMac);
    fdbIs(remoteMac, ethernet2, EntryType::evpnDynamicRemote);
    runUntilIdle();
    EXPECT_EQ(
        told("explain 10.0.0.2 10"),
        "10.0.0.2\n"
        "\n"
        "VLAN 10: suppressing\n"
        "  address of the switch    no\n"
        "  remote binding           02:00:00:00:00:0b\n"
        "  kernel's neighbour       none\n"
        "  local binding            none\n"
        "  MAC table entry          02:00:00:00:00:0b on Ethernet2, evpnDynamicRemote, of EVPN\n"
        "  Ethernet segment         none\n"
        "  connection               remote\n"
        "  neighbour entry wanted   permanent, 02:00:00:00:00:0b on Vlan10, VRF default, refresh "
        "none\n"
        "  request of a host        answered with 02:00:00:00:00:0b: there is a remote binding; "
        "counts 6 answeredFromRemoteBinding\n"
        "  unless from Ethernet2    not answered, as the target is there: there is a remote "
        "binding; counts 6 answeredFromRemoteBinding, 10 sourceAndTargetOnSamePort\n"
        "  unless from unknown port not answered: there is a remote binding; counts 6 "
        "answeredFromRemoteBinding, 9 unknownSourcePort\n"
        "  request of the switch    not answered, a neighbour entry with 02:00:00:00:00:0b "
        "instead: there is a remote binding; counts 6 answeredFromRemoteBinding, 17 "
        "staticBindingTriggered\n"
        "  probe                    sent on to the remote end points: a probe goes on whatever is "
        "known; counts 11 sentToRemoteTeps\n"
        "  gratuitous ARP           sent on to the remote end points: a gratuitous ARP goes on "
        "whatever is known; counts 11 sentToRemoteTeps\n");
}

TEST_F(ExplainTest, EachFactHasItsLine) {
    startRoad();
    localHostIs(localMac);
    segmentIs(true);
    auto binding = root().localBindingRecord()->createLocalBinding(
        VrfIpAddress::fromVlanL3Info(vlanL3Info(), IpGenAddr("10.0.0.2")),
        {VlanId(10), EthAddr(localMac)});
    binding->arpStatusHasDynamicEntryIs(true);
    std::string text = told("explain 10.0.0.2 10");
    for (const char* line :
         {"  kernel's neighbour       02:00:00:00:00:0a dynamic\n",
          "  local binding            02:00:00:00:00:0a on VLAN 10 kernelLearnt\n",
          "  MAC table entry          02:00:00:00:00:0a on Ethernet2, learnedDynamic\n",
          "  Ethernet segment         Ethernet2, designated forwarder Mpls1\n",
          "  connection               localMultihomedDf\n",
          "  request of a host        left to the local host: the host is on an Ethernet segment "
          "with a designated forwarder; counts 13 localTargetNotAnswered\n"}) {
        EXPECT_TRUE(tells(text, line)) << line << text;
    }
    state().evpnStatus->segmentStatus(ethernet2)->dfTepDel(VlanId(10));
    EXPECT_TRUE(tells(told("explain 10.0.0.2 10"), "Ethernet2, no designated forwarder\n"));
    vlanL3Info()->ipAddressIs(IpGenAddr("10.0.0.2"), true);
    text = told("explain 10.0.0.2 10");
    EXPECT_TRUE(tells(text, "  address of the switch    yes\n"));
    EXPECT_TRUE(tells(text, "  request of a host        left to the switch: the address is the "
                            "switch's own; counts 23 targetIsMine\n"));
    remoteBindingIs("10.0.0.3", remoteMac, true);
    text = told("explain 10.0.0.3 10");
    EXPECT_TRUE(tells(text, "  remote binding           02:00:00:00:00:0b vxlan\n"));
    EXPECT_TRUE(tells(text,
                      "  request of a host        ignored: the remote binding was learnt over "
                      "VXLAN\n"));
}

TEST_F(ExplainTest, ForPrograms) {
    startRoad();
    localHostIs(localMac);
    segmentIs(true);
    root().localBindingRecord()->createLocalBinding(
        VrfIpAddress::fromVlanL3Info(vlanL3Info(), IpGenAddr("10.0.0.2")),
        {VlanId(10), EthAddr(localMac)}); // which the kernel knows already
    state().arpInputConfig->vrfIs("default")->afEntryDynamicIs(
        {IpGenAddr("10.0.0.2"), IntfId("Vlan10")}, EthAddr(localMac),
        Arp::ArpSource::arpSuppression, Arp::QuickRefresh::immediate);
    auto expected = json::parse(R"({"address":"10.0.0.2","vlans":[
        {"vlan":10,"suppressing":true,"lacks":[],"remoteBinding":null,
         "kernelNeighbor":{"mac":"02:00:00:00:00:0a","static":false},
         "localBinding":{"mac":"02:00:00:00:00:0a","vlan":10,"kernelLearnt":true},
         "wantedEntry":{"type":"dynamic","mac":"02:00:00:00:00:0a","interface":"Vlan10",
                        "vrf":"default","refresh":"immediate"},
         "targetIsMine":false,"connection":"localMultihomedDf",
         "fdb":{"mac":"02:00:00:00:00:0a","interface":"Ethernet2","type":"learnedDynamic",
                "evpn":false},
         "segment":{"interface":"Ethernet2","designatedForwarder":"Mpls1"},
         "requests":"decided",
         "outcomes":[
          {"request":"host","action":"nothing","rule":"segmentWithForwarder","mac":"",
           "counters":[{"id":13,"name":"localTargetNotAnswered"}]},
          {"request":"switch","action":"nothing","rule":"segmentWithForwarder","mac":"",
           "counters":[{"id":13,"name":"localTargetNotAnswered"}]},
          {"request":"probe","action":"sendToRemoteTeps","rule":"probe","mac":"",
           "counters":[{"id":11,"name":"sentToRemoteTeps"}]},
          {"request":"announcement","action":"sendToRemoteTeps","rule":"announcement","mac":"",
           "counters":[{"id":11,"name":"sentToRemoteTeps"}]}]}]})");
    std::string text = told("explain 10.0.0.2 -j");
    EXPECT_EQ(json::parse(text), expected) << text;
    EXPECT_EQ(told("explain 10.0.0.2 -j"), text);
    EXPECT_EQ(told("explain -j 10 10.0.0.2"), text);
}

TEST_F(ExplainTest, LookingChangesNothing) {
    startRoad();
    remoteBindingIs("10.0.0.2", remoteMac);
    runUntilIdle();
    countersMoved();
    auto before = std::bit_cast<uint32_t>(IntfId("before"));
    for (const char* arguments : {"10.0.0.2", "10.0.0.2 10", "10.0.0.9 -j", "fe80::1", "ff02::1",
                                  "0.0.0.0", "255.255.255.255 4094", "::"}) {
        told(std::string("explain ") + arguments);
    }
    runUntilIdle();
    EXPECT_EQ(countersMoved(), Moved());
    EXPECT_EQ(ports.sent(fabric).size(), 0u);
    EXPECT_EQ(ports.written(arpinject).size(), 0u);
    EXPECT_EQ(std::bit_cast<uint32_t>(IntfId("after")), before + 1);
}

TEST_F(ExplainTest, WhatMakesNoSenseIsRefused) {
    startRoad();
    const std::string expected = " is not expected where one IP address, one VLAN, 1 to 4094, or "
                                 "-j may stand";
    EXPECT_EQ(refusal("explain"), "an IP address is expected: explain ADDRESS [VLAN] [-j]");
    EXPECT_EQ(refusal("explain 10 -j"), "an IP address is expected: explain ADDRESS [VLAN] [-j]");
    EXPECT_EQ(refusal("explain 10.0.0.256"), "\"10.0.0.256\"" + expected);
    EXPECT_EQ(refusal("explain 10.0.0.2 0"), "\"0\"" + expected);
    EXPECT_EQ(refusal("explain 10.0.0.2 4095"), "\"4095\"" + expected);
    EXPECT_EQ(refusal("explain 10.0.0.2 10 20"), "\"20\"" + expected);
    EXPECT_EQ(refusal("explain 10.0.0.2 10.0.0.3"), "\"10.0.0.3\"" + expected);
    EXPECT_EQ(refusal("explain 10.0.0.2/24"), "\"10.0.0.2/24\"" + expected);
    EXPECT_EQ(refusal("explain 10.0.0.2 -j 10"), "");
}

} // namespace
} // namespace ArpSuppression
