// arpsupd and arpsupctl as an operator has them: the real programs in processes of their own.

#include "Platform/Model/ArpSuppression/ArpSuppressionStatus.h"
#include "Platform/Model/KernelNetInfo/Status.h"
#include "Platform/Quarry/AttachedTable.h"
#include "Platform/StateDb/PersistedImage.h"
#include "Platform/Value/IntfNameTable.h"
#include "Testing/IpCommand.h"
#include "Testing/NamedNetNs.h"
#include "tests/DaemonFixture.h"

#include <algorithm>
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

using DaemonTest = DaemonFixture;

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

TEST_F(DaemonTest, WithoutTheKernelNobodyCarriesNeighbourEntriesOut) {
    start();
    EXPECT_EQ(arpsupctl({"show", "neighbours"}).output,
              "nobody carries entries out: the kernel is not the switch\n");
    EXPECT_EQ(arpsupctl({"show", "neighbours", "-j"}).output,
              "{\"carriedOut\":false,\"entries\":[],\"counters\":{}}\n");
    stop();
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

TEST_F(DaemonTest, OnLinuxItSaysWhatPrivilegeItLacks) {
    Testing::enterOwnNamespaces();
    configure("[linux]\n");
    const std::pair<const char*, const char*> lacking[] = {
        // CAP_SYS_ADMIN includes the other.
        {"-bpf,-sys_admin", "arpsupd: the forwarding plane cannot be loaded: Operation not "
                            "permitted; that takes CAP_BPF and CAP_NET_ADMIN\n"},
        {"-net_admin", "arpsupd: the forwarding plane cannot make the devices arpsnoop and "
                       "arpsnoop-fp: Operation not permitted; that takes CAP_NET_ADMIN\n"}};
    for (const auto& [capabilities, text] : lacking) {
        SCOPED_TRACE(capabilities);
        ChildProcess daemon("/usr/bin/env",
                            {"setpriv", "--bounding-set", capabilities, "--inh-caps", capabilities,
                             ARPSUPD, "--config", file()});
        EXPECT_EQ(daemon.status(), 1);
        EXPECT_EQ(daemon.errors().rfind(text, 0), 0u) << daemon.errors();
    }
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
