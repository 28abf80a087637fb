// What arpsupctl shows of a real arpsupd.

#include "tests/DaemonFixture.h"

#include <boost/json.hpp>
#include <set>
#include <string>
#include <vector>

namespace Host {
namespace {

using CtlTest = DaemonFixture;

TEST_F(CtlTest, EveryAnswerIsThereAsJson) {
    configure("[evpn]\nmpls = true\n[[evpn.vlan]]\nvlan = 10\n"
              "[[interface]]\nname = \"Vlan10\"\nipv4 = [\"10.0.0.1/24\"]\nifindex = 3\n"
              "[[remote_binding]]\nvlan = 20\nip = \"10.0.0.60\"\nmac = \"02:00:00:00:20:60\"\n");
    start();
    auto shown = [this](std::vector<std::string> arguments) {
        arguments.push_back("-j");
        Answer answer = arpsupctl(arguments);
        EXPECT_EQ(answer.status, 0) << answer.errors;
        boost::system::error_code error;
        auto value = boost::json::parse(answer.output, error);
        EXPECT_FALSE(error) << answer.output;
        return value;
    };
    auto status = shown({"show", "status", "10"});
    EXPECT_TRUE(status.at("agent").at("running").at("holds").as_bool());
    EXPECT_FALSE(status.at("agent").at("trapSocket").at("holds").as_bool());
    auto vlan = status.at("vlans").at(0);
    EXPECT_EQ(vlan.at("vlan"), 10);
    EXPECT_FALSE(vlan.at("suppressing").as_bool());
    EXPECT_TRUE(vlan.at("conditions").at("evpn").at("holds").as_bool());
    EXPECT_TRUE(vlan.at("conditions").at("routedInterface").at("holds").as_bool());

    auto vlans = shown({"show", "vlans"}).as_array();
    ASSERT_EQ(vlans.size(), 2u);
    EXPECT_EQ(vlans[1].at("vlan"), 20);
    EXPECT_EQ(vlans[1].at("remoteBindings"), 1);

    EXPECT_EQ(shown({"show", "bindings", "remote"}),
              boost::json::parse(
                  R"([{"vlan":20,"ip":"10.0.0.60","mac":"02:00:00:00:20:60","vxlan":false,)"
                  R"("localMultihomed":false}])"));
    EXPECT_EQ(shown({"show", "bindings", "local"}).as_array().size(), 0u);
    auto explained = shown({"explain", "10.0.0.60", "--log-directory", path("log")});
    ASSERT_EQ(explained.at("now").at("vlans").as_array().size(), 1u);
    EXPECT_EQ(explained.at("now").at("vlans").at(0).at("vlan"), 20);
    EXPECT_EQ(explained.at("now").at("vlans").at(0).at("remoteBinding").at("mac"),
              "02:00:00:00:20:60");
    EXPECT_EQ(explained.at("events"), boost::json::array());
    EXPECT_EQ(shown({"show", "counters"}).as_array().size(), 58u);

    auto sections = shown({"show", "tech-support"}).at("sections").as_array();
    std::set<std::string> titles;
    for (const auto& section : sections) {
        titles.insert(boost::json::value_to<std::string>(section.at("title")));
    }
    EXPECT_EQ(titles.size(), sections.size());
    for (const std::string& title : {"arpsupd " + path("run"), std::string("ArpSuppressionRootSm"),
                                     std::string("Evpn::EvpnStatus")}) {
        EXPECT_TRUE(titles.count(title)) << title;
    }
    auto trace = run(ARPSUPCTL, {"trace", "-j", "--log-directory", path("log")});
    bool mounted = false;
    const auto records = boost::json::parse(trace.output).as_array();
    for (const auto& record : records) {
        mounted = mounted || record.at("event") == "doMountsComplete";
    }
    EXPECT_TRUE(mounted) << trace.output;
}

TEST_F(CtlTest, AnswersForPeople) {
    configure("[evpn]\nmpls = true\n[[evpn.vlan]]\nvlan = 10\n");
    start();
    Answer answer = arpsupctl({"show", "status", "10"});
    EXPECT_EQ(answer.status, 0);
    EXPECT_TRUE(holds(answer.output, "VLAN 10: not suppressing, lacks: ")) << answer.output;
    EXPECT_EQ(answer.errors, "");
    answer = arpsupctl({"show", "vlans"});
    EXPECT_EQ(answer.output.find("VLAN EVPN "), 0u);
    EXPECT_EQ(lines(answer.output), 2) << answer.output;
    answer = arpsupctl({"show", "bindings", "remote"});
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.errors, "note: there is no remote binding\n");
    answer = arpsupctl({"show", "forwarding-plane"});
    EXPECT_EQ(answer.status, 1);
    EXPECT_EQ(answer.errors, "error: this arpsupd has no forwarding plane\n");
    killIt();
    answer = arpsupctl({"show", "bindings", "remote"});
    EXPECT_TRUE(holds(answer.errors, "is dead; these are its remote bindings at the end"))
        << answer.errors;
    EXPECT_EQ(arpsupctl({"show", "vlans"}).status, 1);
}

TEST_F(CtlTest, AnAddressIsExplainedWithItsEvents) {
    // A binding on a routed VLAN gets a neighbour entry: an event with its address.
    configure("[evpn]\nmpls = true\n[[evpn.vlan]]\nvlan = 10\n"
              "[[interface]]\nname = \"Vlan10\"\nipv4 = [\"10.0.0.1/24\"]\nifindex = 3\n"
              "[[remote_binding]]\nvlan = 10\nip = \"10.0.0.60\"\nmac = \"02:00:00:00:10:60\"\n"
              "[[remote_binding]]\nvlan = 10\nip = \"10.0.0.6\"\nmac = \"02:00:00:00:10:06\"\n");
    start();
    const std::vector<std::string> command = {"explain", "10.0.0.60",       "--vlan",
                                              "10",      "--log-directory", path("log")};
    Answer answer;
    ASSERT_TRUE(eventually([&] {
        answer = arpsupctl(command);
        return holds(answer.output, " updateEntry ");
    })) << answer.output;
    EXPECT_EQ(answer.status, 0) << answer.errors;
    EXPECT_EQ(answer.output.find("10.0.0.60\n\nVLAN 10: not suppressing, lacks: "), 0u)
        << answer.output;
    EXPECT_TRUE(holds(answer.output, "  remote binding           02:00:00:00:10:60\n"));
    EXPECT_TRUE(holds(answer.output,
                      "  neighbour entry wanted   permanent, 02:00:00:00:10:60 on Vlan10, "));
    std::string events = answer.output.substr(answer.output.find("\nlast events\n"));
    EXPECT_TRUE(holds(events, "ipAddress=10.0.0.60 ")) << events;
    EXPECT_FALSE(holds(events, "ipAddress=10.0.0.6 ")) << events;
    EXPECT_TRUE(answer.errors.starts_with("from " + path("log"))) << answer.errors;

    killIt();
    answer = arpsupctl(command);
    EXPECT_EQ(answer.status, 1);
    EXPECT_EQ(answer.output, events.substr(1)) << "what happened is known all the same";
}

TEST_F(CtlTest, AWatchEndsCleanlyWhenInterrupted) {
    start();
    for (int signal : {SIGINT, SIGTERM}) {
        ChildProcess watch(ARPSUPCTL, {"--runtime-directory", path("run"), "show", "counters",
                                       "--all", "--watch", "0.1"});
        ASSERT_TRUE(eventually([&] { return lines(watch.output()) > 3 * 58; })) << watch.errors();
        EXPECT_TRUE(holds(watch.output(), "0.0/s\n"));
        watch.signal(signal);
        EXPECT_EQ(watch.status(), 0);
        EXPECT_EQ(watch.errors(), "");
        // Whole rounds of 58 lines, a blank one between them.
        EXPECT_EQ((lines(watch.output()) + 1) % 59, 0);
    }
}

TEST_F(CtlTest, AReaderThatHasSeenEnoughIsNoError) {
    std::string many;
    for (int i = 1; i <= 2000; ++i) {
        many += "[[remote_binding]]\nvlan = " + std::to_string(i) +
                "\nip = \"10.0.0.60\"\nmac = \"02:00:00:00:20:60\"\n";
    }
    configure(many);
    start();
    for (const char* command : {"show bindings remote -j", "show tech-support", "show status",
                                "show tech-support -j", "show counters --all --watch 0.1"}) {
        // Also where the signal is ignored, as services have it.
        for (const char* trap : {"", "trap '' PIPE; "}) {
            Answer answer =
                run("/bin/bash", {"-c", std::string(trap) + ARPSUPCTL + " --runtime-directory " +
                                            path("run") + " " + command +
                                            " | head -1 > /dev/null; "
                                            "echo ${PIPESTATUS[0]}"});
            EXPECT_EQ(answer.output, "0\n") << command;
            EXPECT_TRUE(answer.errors.empty() || answer.errors.starts_with("note: "))
                << answer.errors;
        }
    }
}

TEST_F(CtlTest, WhatMakesNoSenseIsRefused) {
    start();
    EXPECT_EQ(arpsupctl({"show", "status", "4095"}).status, 2);
    EXPECT_EQ(arpsupctl({"show", "bindings", "remote", "10.0.0.256"}).status, 2);
    EXPECT_EQ(arpsupctl({"explain"}).status, 2);
    EXPECT_EQ(arpsupctl({"explain", "10.0.0.256"}).status, 2);
    Answer answer = arpsupctl({"show", "status", "77"});
    EXPECT_EQ(answer.status, 0);
    EXPECT_TRUE(holds(answer.output, "VLAN 77: not suppressing, lacks: EVPN over MPLS\n"))
        << answer.output;
}

} // namespace
} // namespace Host
