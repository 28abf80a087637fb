// The road through a whole fabric: a host asks for hosts behind another leaf, over a bridge with a
// VXLAN tunnel, and who answers is in turn the kernel's own neighbour suppression, a program
// without any logic on the forwarding plane, and the agent. Needs root and two cores.

#include "Linux/ForwardingPlane.h"
#include "Testing/NamedNetNs.h"
#include "Testing/TemporaryDirectory.h"
#include "benchmarks/Requester.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <net/if.h>
#include <optional>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace Benchmarks;

namespace {

constexpr unsigned rounds = 3;
constexpr size_t askingCore = 0;
constexpr size_t answeringCore = 1;

constexpr Mac switchMac = {2, 0, 0, 0, 0x0b, 0x0b};

std::string text(const Ip& ip) {
    std::array<char, 16> text;
    std::snprintf(text.data(), text.size(), "%u.%u.%u.%u", ip[0], ip[1], ip[2], ip[3]);
    return text.data();
}
std::string text(const Mac& mac) {
    std::array<char, 18> text;
    std::snprintf(text.data(), text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                  mac[3], mac[4], mac[5]);
    return text.data();
}

void shell(const std::string& script) {
    if (std::system(("set -e; " + script).c_str()) != 0) {
        throw std::runtime_error("failed: " + script);
    }
}

void pinTo(size_t core) {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(core, &cores);
    if (sched_setaffinity(0, sizeof cores, &cores) != 0) {
        fail("two cores");
    }
}

/// A leaf in this process's namespace, with VLAN 10, a host on its port et1, and behind its tunnel
/// what EVPN would have told of hosts behind another leaf.
class Fabric {
  public:
    Fabric() : host_("host"), spine_("spine") {
        for (const char* in : {"", "ip netns exec host ", "ip netns exec spine "}) {
            // No frames but those that are asked for.
            shell(std::string(in) + "sh -c 'for each in all default; do "
                                    "echo 1 >/proc/sys/net/ipv6/conf/$each/disable_ipv6; done'");
        }
        shell(R"(
            ip link add underlay type veth peer name leaf netns spine
            ip -n spine address add 192.0.2.2/24 dev leaf
            ip -n spine link set leaf address 02:00:00:00:0f:02 up
            ip address add 192.0.2.1/24 dev underlay
            ip neighbour add 192.0.2.2 lladdr 02:00:00:00:0f:02 dev underlay
            ip link set underlay up
            ip link add et1 type veth peer name host0 netns host
            ip -n host link set host0 address )" +
              text(requesterMac) + R"( up
            ip link add Vlan10 address )" +
              text(switchMac) + R"( type bridge mcast_snooping 0
            ip link set et1 master Vlan10 up
            ip link add vxlan10 type vxlan id 1010 local 192.0.2.1 dstport 4789 nolearning
            bridge fdb append 00:00:00:00:00:00 dev vxlan10 dst 192.0.2.2
            ip link set vxlan10 master Vlan10 up
            bridge link set dev vxlan10 learning off
            ip link set Vlan10 up
            ip address add 10.10.0.1/16 dev Vlan10)");
        remoteHosts();
        kernelSuppressionIs(false);
    }

    static void kernelSuppressionIs(bool on) {
        shell(std::string("bridge link set dev vxlan10 neigh_suppress ") + (on ? "on" : "off"));
    }
    /// Runs a piece of code in the host's namespace.
    static void inHost(const std::function<void()>& code) {
        Vela::UniqueFd here(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
        Vela::UniqueFd there(open("/run/netns/host", O_RDONLY | O_CLOEXEC));
        if (!here || setns(there.get(), CLONE_NEWNET) != 0) {
            fail("the host's namespace");
        }
        code();
        if (setns(here.get(), CLONE_NEWNET) != 0) {
            fail("the leaf's namespace");
        }
    }

  private:
    static void remoteHosts() {
        Testing::TemporaryDirectory directory;
        std::ofstream neighbors(directory.path() + "/neighbors");
        std::ofstream fdb(directory.path() + "/fdb");
        for (uint32_t host = 0; host < hosts; ++host) {
            Ip ip = ipOf(host);
            neighbors << "neighbor replace " << text(ip) << " lladdr " << text(macOf(ip))
                      << " dev Vlan10 nud noarp extern_learn protocol zebra\n";
            fdb << "fdb replace " << text(macOf(ip))
                << " dev vxlan10 dst 192.0.2.2 self master dynamic extern_learn\n";
        }
        neighbors.close();
        fdb.close();
        shell("ip -batch " + directory.path() + "/neighbors");
        shell("bridge -batch " + directory.path() + "/fdb");
    }

    Testing::NamedNetNs host_;
    Testing::NamedNetNs spine_;
};

volatile std::sig_atomic_t stopped = 0;
// Read before the process has a file system view of its own, where it may be another.
const auto buildDirectory =
    std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
const std::string runDirectory = "/run/arpsupd"; // where nobody else sees it

/// A process on the answering core, which is asked to end when this object does.
class Process {
  public:
    Process(const char* name, void (*program)()) : process_(fork()) {
        if (process_ != 0) {
            return;
        }
        try {
            prctl(PR_SET_NAME, name);
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            std::signal(SIGTERM, [](int) { stopped = 1; });
            pinTo(answeringCore);
            program();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s: %s\n", name, error.what());
            _exit(1);
        }
        _exit(0);
    }
    ~Process() {
        kill(process_, SIGTERM);
        waitpid(process_, nullptr, 0);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// Microseconds of processor time until now.
    double time() const {
        clockid_t clock;
        timespec time;
        if (clock_getcpuclockid(process_, &clock) != 0 || clock_gettime(clock, &time) != 0) {
            fail("a processor's time");
        }
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
    }

  private:
    const pid_t process_;
};

/// A forwarding plane that serves whoever opens its devices.
void plane() {
    Vela::SystemClock clock;
    auto scheduler = Vela::make<Vela::TaskScheduler>(clock, Vela::TaskScheduler::Settings());
    Vela::Attribute<uint64_t> turns;
    auto topology = Vela::make<Linux::Topology>();
    auto suppression = Vela::make<ArpSuppression::ArpSuppressionStatus>();
    auto bridgingConfig = Vela::make<Bridging::Config>();
    Bridging::VlanId vlan(10);
    topology->vlanBridgeIs(vlan, {if_nametoindex("Vlan10"), Zinc::EthAddr(switchMac)});
    topology->bridgePortIs(if_nametoindex("vxlan10"), {vlan, Zinc::IntfId("vxlan10"), true});
    bridgingConfig->bridgeMacAddrIs(Zinc::EthAddr(switchMac));
    suppression->vlanIdIs(vlan, true);
    auto plane = Vela::make<Linux::ForwardingPlane>(
        Linux::ForwardingPlane::Inputs{scheduler, turns, topology, suppression, bridgingConfig,
                                       Vela::make<Routing::Fhrp::VirtualRouterMacStatus>()});
    while (!stopped) {
        scheduler->turn(Linux::ForwardingPlane::heartbeatInterval);
        turns.setAlways(turns.get() + 1);
    }
    plane->destroy();
}

/// Reads a trapped request, and answers for whoever is asked for.
void echo() {
    std::signal(SIGTERM, SIG_DFL);
    while (if_nametoindex("fabric") == 0) {
        usleep(1000); // until there is a plane
    }
    auto in = openOn("arpsnoop", Linux::Plane::trapEtherType);
    auto inject = openOn("arpinject", Linux::Plane::trapEtherType); // or the plane believes nothing
    auto out = openOn("fabric", 0);
    std::array<uint8_t, 10000> request;
    std::array<uint8_t, 46> reply{};
    const std::array<uint8_t, 8> arp = {0, 1, 8, 0, 6, 4, 0, 2};
    while (true) {
        if (read(in.get(), request.data(), request.size()) < 58) {
            continue;
        }
        std::copy_n(&request[6], 6, &reply[0]);
        const Mac mac = macOf({request[54], request[55], request[56], request[57]});
        std::copy_n(&mac[0], 6, &reply[6]);
        reply[12] = 0x81;
        reply[14] = request[18];
        reply[15] = request[19];
        reply[16] = 8;
        reply[17] = 6;
        std::copy_n(&arp[0], 8, &reply[18]);
        std::copy_n(&mac[0], 6, &reply[26]);
        std::copy_n(&request[54], 4, &reply[32]);
        std::copy_n(&request[38], 10, &reply[36]);
        if (write(out.get(), reply.data(), reply.size()) < 0) {
            fail("write");
        }
    }
}

/// Becomes the daemon of this build, with the kernel as its switch.
void daemon() {
    std::signal(SIGTERM, SIG_DFL); // the daemon has its own way
    std::string program = buildDirectory / "Host" / "arpsupd";
    std::string file = runDirectory + "/arpsupd.toml";
    std::ofstream(file) << "runtime_directory = \"" << runDirectory << "/run\"\nlog_directory = \""
                        << runDirectory << "/log\"\ntoggle_directory = \"" << runDirectory
                        << "/toggles\"\n[linux]\n[evpn]\nmpls = true\n";
    execl(program.c_str(), program.c_str(), "--config", file.c_str(), nullptr);
    fail(program);
}

struct Result {
    double rate;
    double median;
    double p99;
    double processor; ///< microseconds of the answering process per answer
    uint64_t unanswered;
};

/// The answering process is null where the kernel answers in the requester's.
Result measure(const Process* answering) {
    auto processor = [&] { return answering ? answering->time() : 0; };
    std::optional<Requester> host;
    Fabric::inHost([&] { host.emplace("host0"); });
    Requester& requester = *host;
    requester.waitForTheFirst();
    requester.rate(std::chrono::milliseconds(300));
    requester.unanswered();
    Result result{};
    uint64_t answered = requester.answered();
    double before = processor();
    result.rate = requester.rate(std::chrono::seconds(2));
    result.processor =
        (processor() - before) / static_cast<double>(requester.answered() - answered);
    result.unanswered = requester.unanswered();
    auto latencies = requester.latencies(20'000);
    result.unanswered += requester.unanswered();
    result.median = latencies[latencies.size() / 2];
    result.p99 = latencies[latencies.size() * 99 / 100];
    return result;
}

struct Contestant {
    const char* name;
    /// The last one answers; with none the kernel does.
    std::vector<std::pair<const char*, void (*)()>> programs;
    std::vector<Result> results{};

    void run() {
        std::vector<std::unique_ptr<Process>> processes;
        Fabric::kernelSuppressionIs(programs.empty());
        for (const auto& [process, program] : programs) {
            processes.push_back(std::make_unique<Process>(process, program));
        }
        Result result = measure(processes.empty() ? nullptr : processes.back().get());
        print("", result);
        // Without loss or not at all.
        if (result.unanswered == 0) {
            results.push_back(result);
        }
        while (!processes.empty()) {
            processes.pop_back();
        }
        if (if_nametoindex("fabric") != 0) {
            throw std::runtime_error("the forwarding plane stays behind");
        }
    }
    double median(double Result::*what) const {
        std::vector<double> all;
        for (const Result& result : results) {
            all.push_back(result.*what);
        }
        std::sort(all.begin(), all.end());
        return all.empty() ? 0 : all[all.size() / 2];
    }
    void print(const char* prefix, const Result& result) const {
        std::printf("%-8s%-8s %12.0f %12.1f %12.1f %12.1f %12llu\n", prefix, name, result.rate,
                    result.median, result.p99, result.processor,
                    static_cast<unsigned long long>(result.unanswered));
        std::fflush(stdout);
    }
};

void compare() {
    Testing::enterOwnNamespaces();
    Fabric fabric;
    pinTo(askingCore);
    Contestant kernel{"kernel", {}};
    Contestant echoes{"echo", {{"plane", plane}, {"echo", echo}}};
    Contestant agents{"agent", {{"arpsupd", daemon}}};
    std::filesystem::create_directories(runDirectory + "/log");
    std::filesystem::create_directories(runDirectory + "/toggles");
    std::printf("%-16s %12s %12s %12s %12s %12s\n", "", "answers/s", "median us", "p99 us",
                "processor us", "unanswered");
    for (unsigned round = 0; round < rounds; ++round) {
        for (Contestant* contestant : {&kernel, &echoes, &agents}) {
            contestant->run();
        }
    }
    for (const Contestant* contestant : {&kernel, &echoes, &agents}) {
        if (contestant->results.empty()) {
            throw std::runtime_error(std::string(contestant->name) + ": no round without loss");
        }
        contestant->print("median: ",
                          {contestant->median(&Result::rate), contestant->median(&Result::median),
                           contestant->median(&Result::p99), contestant->median(&Result::processor),
                           0});
    }
    std::printf("agent / echo, answers per second: %.0f %% (goal: at least 90 %%)\n",
                100 * agents.median(&Result::rate) / echoes.median(&Result::rate));
    std::printf("agent - echo, median latency: %.1f us (goal: at most 3 us)\n",
                agents.median(&Result::median) - echoes.median(&Result::median));
    std::printf("echo / kernel, answers per second: %.0f %%\n",
                100 * echoes.median(&Result::rate) / kernel.median(&Result::rate));
}

} // namespace

int main() {
    try {
        compare();
    } catch (const std::exception& error) {
        std::fflush(stdout);
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
