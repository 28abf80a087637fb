// arpsupd and arpsupctl as an operator has them: the real programs in processes of their own.

#include "Platform/Model/ArpSuppression/ArpSuppressionStatus.h"
#include "Platform/Model/KernelNetInfo/Status.h"
#include "Platform/Quarry/AttachedTable.h"
#include "Platform/StateDb/PersistedImage.h"
#include "Platform/Value/IntfNameTable.h"
#include "Testing/ChildProcess.h"
#include "Testing/Eventually.h"
#include "Testing/IpCommand.h"
#include "Testing/NamedNetNs.h"
#include "Testing/TemporaryDirectory.h"

#include <algorithm>
#include <boost/json.hpp>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Host {
namespace {

namespace fs = std::filesystem;
using Testing::ChildProcess;
using Testing::eventually;

struct Answer {
    int status = -1;
    std::string output;
    std::string errors;
};

bool holds(const std::string& text, std::string_view piece) {
    return text.find(piece) != text.npos;
}
long lines(const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
}

class DaemonTest : public ::testing::Test {
  protected:
    DaemonTest() {
        for (const char* name : {"SWIFTLOGDIR", "VELA_TRACE", "ARPSUP_RUNTIME_DIRECTORY"}) {
            unsetenv(name);
        }
        configure();
    }

    std::string path(const std::string& name) const { return directory_.path() + "/" + name; }
    std::string file() const { return path("arpsupd.toml"); }
    std::string directories() const {
        return "runtime_directory = \"" + path("run") + "\"\nlog_directory = \"" + path("log") +
               "\"\ntoggle_directory = \"" + path("toggles") + "\"\n";
    }
    /// Writes the configuration: the directories of this test, the agent and `rest`.
    void configure(const std::string& rest = "", const std::string& agent = AGENT_LIBRARY) {
        writeFile(directories() + "agent_library = \"" + agent + "\"\n" + rest);
    }
    void writeFile(const std::string& text) const { std::ofstream(file()) << text; }

    /// arpsupd with its mounts complete.
    void start() {
        startOnly();
        ASSERT_TRUE(eventually([this] { return isReady(); })) << daemon_->errors();
    }
    bool isReady() const { return holds(techSupport().output, "ArpSuppressionMounts"); }
    void startOnly() { daemon_.emplace(ARPSUPD, std::vector<std::string>{"--config", file()}); }

    void stop() {
        daemon_->signal(SIGTERM);
        ASSERT_EQ(daemon_->status(), 0) << daemon_->errors();
    }
    void killIt() {
        daemon_->signal(SIGKILL);
        ASSERT_EQ(daemon_->status(), -SIGKILL);
    }
    /// Has the configuration read again, and waits until that is done.
    void reload() {
        size_t before = daemon_->errors().size();
        daemon_->signal(SIGHUP);
        ASSERT_TRUE(eventually([&] {
            std::string said = daemon_->errors().substr(before);
            return holds(said, "again") || holds(said, "stays");
        })) << daemon_->errors();
    }

    static Answer run(const std::string& program, const std::vector<std::string>& arguments) {
        ChildProcess child(program, arguments);
        auto status = child.status();
        EXPECT_TRUE(status) << program << " does not end";
        return {status.value_or(-1000), child.output(), child.errors()};
    }
    Answer arpsupd(const std::vector<std::string>& arguments) const {
        return run(ARPSUPD, arguments);
    }
    Answer arpsupctl(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--runtime-directory", path("run")});
        return run(ARPSUPCTL, arguments);
    }
    Answer techSupport() const { return arpsupctl({"show", "tech-support"}); }
    Answer trace() const { return arpsupctl({"trace", "--log-directory", path("log")}); }
    void expectNoStart(const std::string& why) {
        Answer answer = arpsupd({"--config", file()});
        EXPECT_EQ(answer.status, 1);
        EXPECT_EQ(answer.output, "");
        EXPECT_EQ(answer.errors, "arpsupd: " + why + "\n");
    }

    Testing::TemporaryDirectory directory_;
    std::optional<ChildProcess> daemon_;
};

TEST_F(DaemonTest, ItComesToMountsComplete) {
    configure("[bridging]\nmac = \"02:00:00:00:00:77\"\n");
    start();
    Answer answer = techSupport();
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.errors, "");
    for (const std::string& piece :
         {"arpsupd " + path("run") + "\n", "process=" + std::to_string(daemon_->pid()) + "\n",
          "configuration=" + file() + "\n",
          "ringBufferFile=" + path("log") + "/ArpSuppression.sl\n",
          std::string("bridgeMacAddr=02:00:00:00:00:77"), std::string("ArpSuppressionRootSm"),
          std::string("ArpSuppressionMounts")}) {
        EXPECT_TRUE(holds(answer.output, piece)) << piece << "\n" << answer.output;
    }
    EXPECT_EQ(daemon_->errors(), "arpsupd: running in " + path("run") + "\n");
    answer = trace();
    EXPECT_EQ(answer.status, 0);
    EXPECT_TRUE(holds(answer.output, "doMountsComplete allMounted=yes staleVlans=0"))
        << answer.output;
}

TEST_F(DaemonTest, CountersAreThereWhileItRunsAndAfterwards) {
    Answer answer = arpsupctl({"show", "counters"});
    EXPECT_EQ(answer.status, 1);
    EXPECT_TRUE(holds(answer.errors, "no agent has run in " + path("run"))) << answer.errors;

    start();
    answer = arpsupctl({"show", "counters", "--all"});
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(lines(answer.output), 58);
    EXPECT_TRUE(holds(answer.output, "answeredFromRemoteBinding")) << answer.output;
    EXPECT_EQ(answer.errors, "");

    pid_t pid = daemon_->pid();
    killIt();
    answer = arpsupctl({"show", "counters", "--all"});
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(lines(answer.output), 58);
    EXPECT_EQ(answer.errors, "note: arpsupd (process " + std::to_string(pid) +
                                 ") is dead; these are its counters at the end\n");

    start();
    stop();
    answer = arpsupctl({"show", "counters", "--all"});
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(lines(answer.output), 58);
    EXPECT_EQ(answer.errors, "note: arpsupd has stopped; these are its counters at the end\n");
}

TEST_F(DaemonTest, ATraceOutlivesTheProcess) {
    start();
    killIt();
    Answer answer = trace();
    EXPECT_EQ(answer.status, 0);
    EXPECT_TRUE(holds(answer.output, "doMountsComplete allMounted=yes")) << answer.output;
}

TEST_F(DaemonTest, ASignalStopsIt) {
    for (int signal : {SIGTERM, SIGINT}) {
        start();
        daemon_->signal(signal);
        EXPECT_EQ(daemon_->status(), 0);
        EXPECT_EQ(daemon_->errors(),
                  "arpsupd: running in " + path("run") + "\narpsupd: stopping\n");
        EXPECT_FALSE(fs::exists(path("run/control")));
        Answer answer = techSupport();
        EXPECT_EQ(answer.status, 1);
        EXPECT_EQ(answer.errors,
                  "error: no arpsupd runs in " + path("run") + " (no such socket)\n");
    }
    start();
    killIt();
    EXPECT_EQ(techSupport().errors, "error: no arpsupd runs in " + path("run") +
                                        " any more (nobody listens on its socket)\n");
}

// --- What arpsupctl shows

TEST_F(DaemonTest, EveryAnswerIsThereAsJson) {
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

TEST_F(DaemonTest, AnswersForPeople) {
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

TEST_F(DaemonTest, AWatchEndsCleanlyWhenInterrupted) {
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

TEST_F(DaemonTest, AReaderThatHasSeenEnoughIsNoError) {
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

TEST_F(DaemonTest, WhatMakesNoSenseIsRefused) {
    start();
    EXPECT_EQ(arpsupctl({"show", "status", "4095"}).status, 2);
    EXPECT_EQ(arpsupctl({"show", "bindings", "remote", "10.0.0.256"}).status, 2);
    Answer answer = arpsupctl({"show", "status", "77"});
    EXPECT_EQ(answer.status, 0);
    EXPECT_TRUE(holds(answer.output, "VLAN 77: not suppressing, lacks: EVPN over MPLS\n"))
        << answer.output;
}

// --- Reload

TEST_F(DaemonTest, AReloadAppliesWhatChanged) {
    configure("[bridging]\nmac = \"02:00:00:00:00:01\"\n");
    start();
    EXPECT_TRUE(holds(techSupport().output, "bridgeMacAddr=02:00:00:00:00:01"));
    configure("[bridging]\nmac = \"02:00:00:00:00:02\"\n");
    reload();
    EXPECT_TRUE(holds(techSupport().output, "bridgeMacAddr=02:00:00:00:00:02"));
    EXPECT_EQ(daemon_->errors(),
              "arpsupd: running in " + path("run") + "\narpsupd: read " + file() + " again\n");
}

TEST_F(DaemonTest, TheTablesOfANamespaceThatAReloadBringsAreComplete) {
    start();
    configure("[[vrf]]\nname = \"blue\"\n[[interface]]\nname = \"Vlan20\"\nvrf = \"blue\"\n"
              "ifindex = 4\n");
    reload();
    Quarry::AttachedTable<KernelNetInfo::InterfaceStatus> table(
        path("run/tables/kni/ns/blue/status/interface"));
    EXPECT_TRUE(table.complete());
    EXPECT_EQ(table.value({4}).deviceName(), "Vlan20");
}

TEST_F(DaemonTest, AConfigurationWithMistakesChangesNothing) {
    configure("[bridging]\nmac = \"02:00:00:00:00:01\"\n");
    start();
    std::string before = techSupport().output;
    configure("[bridging]\nmac = \"02:00:00:00:00:02\"\nfib = 3\n[[vrf]]\nname = \"\"\n");
    reload();
    EXPECT_EQ(daemon_->errors().find("arpsupd: running in " + path("run") +
                                     "\narpsupd: the configuration stays as it was:\n" + file() +
                                     ":7:1: unknown key \"fib\""),
              0u)
        << daemon_->errors();
    EXPECT_TRUE(holds(daemon_->errors(), "\n" + file() + ":9:8: ")) << daemon_->errors();
    EXPECT_TRUE(holds(techSupport().output, "bridgeMacAddr=02:00:00:00:00:01"));

    fs::remove(file());
    reload();
    EXPECT_TRUE(holds(daemon_->errors(), file() + ": there is no such file")) << daemon_->errors();
    EXPECT_TRUE(holds(techSupport().output, "bridgeMacAddr=02:00:00:00:00:01"));

    // It goes on from where it was.
    configure("[bridging]\nmac = \"02:00:00:00:00:03\"\n");
    reload();
    EXPECT_TRUE(holds(techSupport().output, "bridgeMacAddr=02:00:00:00:00:03"));
}

TEST_F(DaemonTest, AReloadThatFailsLeavesItRunning) {
    start();
    std::ofstream(path("run/tables/kni/ns/blue")) << "in the way";
    configure("[bridging]\nmac = \"02:00:00:00:00:02\"\n[[vrf]]\nname = \"blue\"\n");
    reload();
    EXPECT_TRUE(holds(daemon_->errors(), "arpsupd: the configuration stays as it was:\nthe table "
                                         "kni/ns/blue/status cannot be made\n"))
        << daemon_->errors();
    EXPECT_TRUE(holds(techSupport().output, "bridgeMacAddr=00:00:00:00:00:00"));
    fs::remove(path("run/tables/kni/ns/blue"));
    reload();
    EXPECT_TRUE(holds(techSupport().output, "bridgeMacAddr=02:00:00:00:00:02"));
}

TEST_F(DaemonTest, AReloadSaysWhatNeedsARestart) {
    start();
    std::string changed = directories();
    changed.replace(changed.find(path("log")), path("log").size(), path("other"));
    changed += std::string("agent_library = \"") + AGENT_LIBRARY + "\"\n";
    writeFile(changed + "[control]\ngroup = \"adm\"\n[bridging]\nmac = \"02:00:00:00:00:02\"\n");
    // It is not in effect the second time either.
    for (int i = 0; i < 2; ++i) {
        size_t before = daemon_->errors().size();
        reload();
        EXPECT_TRUE(eventually([&] { return lines(daemon_->errors().substr(before)) == 2; }));
        EXPECT_EQ(daemon_->errors().substr(before),
                  "arpsupd: read " + file() +
                      " again\narpsupd: changed, but used only after a restart: log_directory, "
                      "[control]\n");
    }
    EXPECT_TRUE(holds(techSupport().output, "bridgeMacAddr=02:00:00:00:00:02"));
    configure();
    size_t before = daemon_->errors().size();
    reload();
    stop();
    EXPECT_EQ(daemon_->errors().substr(before),
              "arpsupd: read " + file() + " again\narpsupd: stopping\n");
}

TEST_F(DaemonTest, OnLinuxTheKernelIsTheSwitch) {
    Testing::enterOwnNamespaces();
    Testing::ip({"link", "add", "br30", "address", "02:00:00:00:0b:0b", "type", "bridge"});
    Testing::ip({"link", "add", "Vlan10", "address", "02:00:00:00:0b:0b", "type", "bridge"});
    Testing::ip({"addr", "add", "10.10.0.1/24", "dev", "Vlan10"});
    Testing::ip({"link", "add", "vx30", "type", "vxlan", "id", "30", "dstport", "4789"});
    Testing::ip({"link", "set", "vx30", "master", "br30"});
    configure("[linux]\n[[vrf]]\nname = \"blue\"\nnamespace = \"ns-blue\"\n");
    start();
    auto shows = [&](std::string_view piece) {
        return eventually([&] { return holds(techSupport().output, piece); });
    };
    EXPECT_TRUE(shows("Linux::KernelSwitch complete=1"));
    std::string dump = techSupport().output;
    EXPECT_TRUE(holds(dump, "bridgeMacAddr=02:00:00:00:0b:0b")) << dump;
    EXPECT_TRUE(holds(dump, "10.10.0.1/24")) << dump;
    EXPECT_FALSE(holds(dump, "vlanBridge[30]"));

    // What stands in the section counts at once, whether it is there only at the start.
    configure("[linux]\n[[linux.vlan]]\nvlan = 30\nbridge = \"br30\"\n"
              "[[vrf]]\nname = \"blue\"\nnamespace = \"ns-blue\"\n");
    reload();
    EXPECT_TRUE(shows("vlanBridge[30]"));
    EXPECT_FALSE(holds(techSupport().output, "netNs[ns-blue]"));
    {
        Testing::NamedNetNs blue("ns-blue");
        EXPECT_TRUE(shows("netNs[ns-blue]"));
    }
    EXPECT_TRUE(eventually([&] { return !holds(techSupport().output, "netNs[ns-blue]"); }));
    configure();
    reload();
    EXPECT_TRUE(holds(daemon_->errors(), "used only after a restart: [linux]\n"));
    EXPECT_TRUE(shows("vlanBridge[10]"));
    EXPECT_FALSE(holds(techSupport().output, "netNs[ns-blue]"));
    stop();
}

TEST_F(DaemonTest, TraceLevelsAreThoseOfTheConfiguration) {
    start();
    EXPECT_FALSE(holds(daemon_->errors(), "doMountsComplete")) << daemon_->errors();
    stop();
    configure("trace = \"ArpSuppression=8\"\n");
    start();
    EXPECT_TRUE(holds(daemon_->errors(), "doMountsComplete")) << daemon_->errors();
}

// --- One after the other in a directory

TEST_F(DaemonTest, ASecondOneInTheDirectoryIsRefused) {
    start();
    expectNoStart(path("run/lock") + " is held by process " + std::to_string(daemon_->pid()) +
                  ": another arpsupd runs in this directory");
    EXPECT_TRUE(isReady()) << "the first one runs on";
    EXPECT_TRUE(fs::exists(path("run/control")));
    stop();
}

TEST_F(DaemonTest, ThePublishedStatusSurvives) {
    configure("");
    start();
    stop();
    constexpr size_t bytes = ArpSuppression::ArpSuppressionStatus::imageBytes;
    auto imageOf = [this] {
        Vela::PersistedImage image(path("run/status"), bytes);
        EXPECT_TRUE(image.found()) << image.replaced();
        return std::vector<uint8_t>(image.bytes().begin(), image.bytes().end());
    };
    {
        Vela::PersistedImage image(path("run/status"), bytes);
        ASSERT_TRUE(image.found()) << image.replaced();
        EXPECT_TRUE(std::all_of(image.bytes().begin(), image.bytes().end(),
                                [](uint8_t byte) { return byte == 0; }));
        image.bytes()[0] = 1;
        image.bytes()[10] = 2;
        image.bytes()[20] = 1;
    }
    configure("[evpn]\nmpls = true\n");
    start();
    EXPECT_TRUE(holds(trace().output, "doMountsComplete allMounted=yes staleVlans=2"))
        << trace().output;
    std::vector<uint8_t> expected(bytes);
    expected[0] = 1;
    EXPECT_EQ(imageOf(), expected);
    killIt();
    EXPECT_EQ(imageOf(), expected);
    start();
    EXPECT_TRUE(holds(techSupport().output, "runnable=yes"));
    EXPECT_EQ(imageOf(), expected);
    killIt();
    // Its successor is not to run: it withdraws what was left.
    configure("");
    start();
    EXPECT_TRUE(holds(techSupport().output, "runnable=no"));
    expected[0] = 0;
    EXPECT_EQ(imageOf(), expected);
}

TEST_F(DaemonTest, OneRingBufferFileIsKeptOfTheRunsBefore) {
    configure("");
    for (unsigned run = 0; run < 3; ++run) {
        start();
        killIt();
    }
    std::set<std::string> files;
    for (const auto& entry : fs::directory_iterator(path("log"))) {
        files.insert(entry.path().filename());
    }
    EXPECT_EQ(files, (std::set<std::string>{"ArpSuppression.sl", "ArpSuppression.sl.1"}));
}

TEST_F(DaemonTest, SuppressionFollowsTheConfiguration) {
    configure("");
    start();
    EXPECT_TRUE(holds(techSupport().output, "arpSuppressionSm=NULL"));
    configure("[evpn]\nmpls = true\n");
    reload();
    std::string running = techSupport().output;
    EXPECT_TRUE(holds(running, "runnable=yes"));
    EXPECT_TRUE(holds(running, "MessageTrapSmMimic"));
    configure("");
    reload();
    EXPECT_TRUE(holds(techSupport().output, "runnable=no"));
}

TEST_F(DaemonTest, AStatusThatIsNoneIsReported) {
    fs::create_directories(path("run"));
    std::ofstream(path("run/status")) << "garbage";
    start();
    EXPECT_EQ(daemon_->errors(),
              "arpsupd: the status of an earlier run is lost: " + path("run/status") +
                  " is no image\narpsupd: running in " + path("run") + "\n");
}

TEST_F(DaemonTest, InterfacesKeepTheirIdsThroughARestart) {
    auto idOf = [this](const char* name) {
        return Zinc::IntfNameTable::readerOf(path("run/interfaces"))->idOf(name);
    };
    auto interface = [](const std::string& name) {
        return "[[interface]]\nname = \"" + name + "\"\n";
    };
    configure(interface("Vlan10") + interface("Vlan20"));
    start();
    uint32_t vlan10 = idOf("Vlan10");
    uint32_t vlan20 = idOf("Vlan20");
    EXPECT_NE(vlan10, vlan20);
    killIt();
    configure(interface("Vlan30") + interface("Vlan20") + interface("Vlan10"));
    start();
    EXPECT_EQ(idOf("Vlan10"), vlan10);
    EXPECT_EQ(idOf("Vlan20"), vlan20);
    EXPECT_GT(idOf("Vlan30"), std::max(vlan10, vlan20));
}

// --- What an operator can do wrong

TEST_F(DaemonTest, CheckNamesEveryMistake) {
    Answer answer = arpsupd({"--check", "--config", SAMPLE_CONFIGURATION});
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.output, std::string(SAMPLE_CONFIGURATION) + ": no mistakes\n");
    EXPECT_EQ(answer.errors, "");

    writeFile("trace = 3\n[bridging]\nmac = \"no\"\n[[fdb]]\nvlan = 4095\n");
    answer = arpsupd({"--check", "--config", file()});
    EXPECT_EQ(answer.status, 1);
    EXPECT_EQ(answer.output, "");
    EXPECT_EQ(lines(answer.errors), 5) << answer.errors;
    for (const char* place : {":1:9: ", ":3:7: ", ":4:1: ", ":5:8: "}) {
        EXPECT_TRUE(holds(answer.errors, file() + place)) << place << "\n" << answer.errors;
    }
    EXPECT_FALSE(fs::exists(path("run"))) << "it only checks";

    answer = arpsupd({"--check", "--config", path("none.toml")});
    EXPECT_EQ(answer.status, 1);
    EXPECT_TRUE(holds(answer.errors, path("none.toml") + ": there is no such file"))
        << answer.errors;
}

TEST_F(DaemonTest, WithMistakesItDoesNotStart) {
    writeFile("trace = 3\n");
    Answer answer = arpsupd({"--config", file()});
    EXPECT_EQ(answer.status, 1);
    EXPECT_TRUE(holds(answer.errors, file() + ":1:9: ")) << answer.errors;
}

TEST_F(DaemonTest, WrongUsageIsTwo) {
    const std::vector<std::vector<std::string>> wrong = {
        {"--no-such-option"}, {"--config"}, {"some", "words"}};
    for (const auto& arguments : wrong) {
        Answer answer = arpsupd(arguments);
        EXPECT_EQ(answer.status, 2) << arguments[0];
        EXPECT_EQ(answer.output, "");
        EXPECT_NE(answer.errors, "");
    }
    Answer help = arpsupd({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.errors, "");
    for (const char* piece : {"--config", "--check", "/etc/arpsup/arpsupd.toml", "SIGHUP"}) {
        EXPECT_TRUE(holds(help.output, piece)) << piece;
    }
}

TEST_F(DaemonTest, WhatIsNoAgentIsRefused) {
    std::string garbage = path("garbage.so");
    std::ofstream(garbage) << "garbage";
    configure("", garbage);
    expectNoStart("agent_library: " + garbage + ": file too short");
    configure("", path("none.so"));
    expectNoStart("agent_library: " + path("none.so") +
                  ": cannot open shared object file: No such file or directory");
    configure("", PLATFORM_LIBRARY);
    expectNoStart(std::string("agent_library: ") + PLATFORM_LIBRARY +
                  ": is no agent: it has no velaAgentFactory");
    configure("", STRANGE_AGENT_LIBRARY);
    expectNoStart(std::string("agent_library: ") + STRANGE_AGENT_LIBRARY +
                  ": was built against other headers of the platform");
    EXPECT_FALSE(fs::exists(path("run/control")));
}

TEST_F(DaemonTest, ARuntimeDirectoryThatCannotBeUsed) {
    std::ofstream(path("run")) << "in the way";
    expectNoStart("runtime directory " + path("run") + ": Not a directory");
    fs::remove(path("run"));

    fs::create_directories(path("run/status/in the way"));
    expectNoStart(path("run/status") + ": cannot be put in place: Is a directory");
    fs::remove_all(path("run/status"));

    fs::remove(path("run/interfaces"));
    fs::create_directories(path("run/interfaces/in the way"));
    Answer answer = arpsupd({"--config", file()});
    EXPECT_EQ(answer.status, 1);
    EXPECT_TRUE(holds(answer.errors, path("run/interfaces") + ": ")) << answer.errors;
    fs::remove_all(path("run/interfaces"));

    std::ofstream(path("run/tables")) << "in the way";
    answer = arpsupd({"--config", file()});
    EXPECT_EQ(answer.status, 1);
    EXPECT_TRUE(holds(answer.errors, path("run/tables") + "/")) << answer.errors;
    fs::remove(path("run/tables"));

    configure("[control]\ngroup = \"no-such-group\"\n");
    expectNoStart("control socket: there is no group \"no-such-group\"");
    configure();
    start();
}

// --- Many clients

TEST_F(DaemonTest, AClientThatReadsNothingHoldsUpNobody) {
    std::string interfaces;
    for (int i = 0; i < 4000; ++i) {
        interfaces += "[[interface]]\nname = \"Vlan" + std::to_string(i) + "\"\n";
    }
    configure(interfaces);
    start();
    std::vector<Vela::UniqueFd> silent;
    for (int i = 0; i < 3; ++i) {
        Vela::UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path("run/control").copy(address.sun_path, sizeof address.sun_path - 1);
        const void* any = &address;
        ASSERT_EQ(connect(fd.get(), static_cast<const sockaddr*>(any), sizeof address), 0) << errno;
        std::string_view command = "show tech-support\n";
        ASSERT_EQ(send(fd.get(), command.data(), command.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(command.size()));
        silent.push_back(std::move(fd));
    }
    // The three have more to read than a socket holds, so each still has its process.
    // Ours is the fourth and last at a time: one asked for at once after another may be refused.
    Answer answer;
    EXPECT_TRUE(eventually([&] {
        answer = techSupport();
        return answer.status == 0 && holds(answer.output, "children=3\n");
    })) << answer.output
        << answer.errors;
    EXPECT_TRUE(holds(answer.output, "ArpSuppressionMounts"));
    stop();
}

} // namespace
} // namespace Host
