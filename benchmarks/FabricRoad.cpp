// The road through a whole fabric: a host asks for hosts behind another leaf, over a bridge with a
// VXLAN tunnel, and who answers is in turn the kernel's own neighbour suppression, a program
// without any logic on the forwarding plane, and the agent. Needs root and two cores.

#include "Linux/ForwardingPlane.h"
#include "Testing/NamedNetNs.h"
#include "Testing/TemporaryDirectory.h"

#include <algorithm>
#include <arpa/inet.h>
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
#include <linux/if_packet.h>
#include <memory>
#include <net/if.h>
#include <random>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Mac = std::array<uint8_t, 6>;
using Ip = std::array<uint8_t, 4>;

constexpr uint32_t hosts = 1000;
constexpr unsigned window = 64; // requests under way; a socket's default buffer holds some 250
constexpr unsigned rounds = 3;
constexpr size_t askingCore = 0;
constexpr size_t answeringCore = 1;
constexpr uint16_t arpEtherType = 0x0806;
constexpr size_t arpFrameBytes = 42;

const Mac switchMac = {2, 0, 0, 0, 0x0b, 0x0b};
const Mac requesterMac = {2, 0, 0, 0, 0, 1};
const Ip requesterIp = {10, 10, 255, 1};

/// A host's MAC address holds its address, so that it can be told without a table.
Ip ipOf(uint32_t host) {
    return {10, 10, static_cast<uint8_t>(1 + host / 250), static_cast<uint8_t>(1 + host % 250)};
}
Mac macOf(const Ip& ip) {
    return {2, 1, ip[0], ip[1], ip[2], ip[3]};
}
/// `hosts` if there is none.
uint32_t hostOf(const Ip& ip) {
    uint32_t host = (ip[2] - 1u) * 250 + ip[3] - 1u;
    return host < hosts && ipOf(host) == ip ? host : hosts;
}

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

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
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

/// Receives nothing with protocol 0.
Vela::UniqueFd openOn(const char* device, uint16_t protocol) {
    Vela::UniqueFd fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    int on = 1;
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(protocol);
    address.sll_ifindex = static_cast<int>(if_nametoindex(device));
    const void* generic = &address;
    if (!fd || setsockopt(fd.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on) != 0 ||
        bind(fd.get(), static_cast<const sockaddr*>(generic), sizeof address) != 0) {
        fail(device);
    }
    return fd;
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

/// The host that asks, and looks closely at what it is told.
class Requester {
  public:
    Requester() {
        Fabric::inHost([this] {
            out_ = openOn("host0", 0);
            in_ = openOn("host0", arpEtherType);
        });
        std::mt19937 random(1);
        for (unsigned i = 0; i < 4096; ++i) {
            requests_.push_back(requestFor(static_cast<uint32_t>(random() % hosts)));
        }
        for (size_t i = 0; i < window; ++i) {
            inPlaces_[i] = {frames_[i].data(), frames_[i].size()};
            outMessages_[i].msg_hdr.msg_iov = &outPlaces_[i];
            inMessages_[i].msg_hdr.msg_iov = &inPlaces_[i];
            outMessages_[i].msg_hdr.msg_iovlen = inMessages_[i].msg_hdr.msg_iovlen = 1;
        }
    }

    /// Waits until there is an answer at all.
    void waitForTheFirst() {
        for (unsigned i = 0; i < 1000; ++i) {
            ask(1);
            if (answers(std::chrono::milliseconds(20)) > 0) {
                unanswered();
                return;
            }
        }
        throw std::runtime_error("nobody answers");
    }

    /// Right answers so far.
    uint64_t answered() const { return answered_; }

    /// Answers per second with a number of requests under way all the time.
    double rate(std::chrono::milliseconds time) {
        unsigned underWay = 0;
        uint64_t before = answered_;
        auto begin = Clock::now();
        auto last = begin;
        while (last < begin + time) {
            ask(window - underWay);
            underWay = window;
            // Several at once cost the requester less than one by one: it is not to be the limit.
            unsigned more = answers(std::chrono::milliseconds(200), window / 4);
            underWay = more == 0 ? 0 : underWay - std::min(more, underWay); // else they are lost
            last = Clock::now();
        }
        return static_cast<double>(answered_ - before) /
               std::chrono::duration<double>(last - begin).count();
    }
    /// Microseconds from request to answer, one at a time, in order of size.
    std::vector<double> latencies(size_t count) {
        std::vector<double> all;
        while (all.size() < count) {
            auto begin = Clock::now();
            ask(1);
            if (answers(std::chrono::milliseconds(200)) > 0) {
                all.push_back(
                    std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
            } else {
                all.push_back(200'000);
            }
        }
        std::sort(all.begin(), all.end());
        return all;
    }
    /// Requests since the last call that nobody has answered, however long they are waited for.
    uint64_t unanswered() {
        while (answers(std::chrono::milliseconds(200)) > 0) {
        }
        uint64_t count = 0;
        for (uint32_t& waiting : waiting_) {
            count += waiting;
            waiting = 0;
        }
        return count;
    }

  private:
    using Request = std::array<uint8_t, arpFrameBytes>;

    static Request requestFor(uint32_t host) {
        Request frame{0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0, 0, 0, 0, 0,
                      0,    8,    6,    0,    1,    8,    0, 6, 4, 0, 1};
        std::copy_n(requesterMac.begin(), 6, &frame[6]);
        std::copy_n(requesterMac.begin(), 6, &frame[22]);
        std::copy_n(requesterIp.begin(), 4, &frame[28]);
        Ip target = ipOf(host);
        std::copy_n(target.begin(), 4, &frame[38]);
        return frame;
    }
    void ask(unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            Request& request = requests_[next_++ % requests_.size()];
            ++waiting_[hostOf({request[38], request[39], request[40], request[41]})];
            outPlaces_[i] = {request.data(), request.size()};
        }
        for (unsigned sent = 0; sent < count;) {
            int more = sendmmsg(out_.get(), &outMessages_[sent], count - sent, 0);
            if (more < 0) {
                fail("send");
            }
            sent += static_cast<unsigned>(more);
        }
    }
    /// Takes what has come; waits for so many without letting go of the core.
    unsigned answers(std::chrono::milliseconds longest, unsigned atLeast = 1) {
        unsigned count = 0;
        for (auto end = Clock::now() + longest; count < atLeast && Clock::now() < end;) {
            int more = recvmmsg(in_.get(), inMessages_.data(), window, MSG_DONTWAIT, nullptr);
            if (more < 0 && errno != EAGAIN) {
                fail("receive");
            }
            for (int i = 0; i < more; ++i, ++count) {
                auto place = static_cast<size_t>(i);
                check(frames_[place].data(), inMessages_[place].msg_len);
            }
        }
        return count;
    }
    void check(const uint8_t* frame, size_t length) {
        const std::array<uint8_t, 10> expected = {8, 6, 0, 1, 8, 0, 6, 4, 0, 2};
        if (length < arpFrameBytes ||
            !std::equal(requesterMac.begin(), requesterMac.end(), frame) ||
            !std::equal(expected.begin(), expected.end(), frame + 12) ||
            !std::equal(requesterMac.begin(), requesterMac.end(), frame + 32) ||
            !std::equal(requesterIp.begin(), requesterIp.end(), frame + 38)) {
            throw std::runtime_error("a frame that is no answer");
        }
        Ip ip = {frame[28], frame[29], frame[30], frame[31]};
        Mac mac = macOf(ip);
        uint32_t host = hostOf(ip);
        if (host == hosts || waiting_[host] == 0) {
            throw std::runtime_error("an answer that nobody has asked for");
        }
        if (!std::equal(mac.begin(), mac.end(), frame + 22)) {
            throw std::runtime_error("a wrong MAC address");
        }
        --waiting_[host];
        ++answered_;
    }

    Vela::UniqueFd out_;
    Vela::UniqueFd in_;
    std::vector<Request> requests_;
    size_t next_ = 0;
    std::array<std::array<uint8_t, 2048>, window> frames_;
    std::array<iovec, window> outPlaces_{};
    std::array<iovec, window> inPlaces_{};
    std::array<mmsghdr, window> outMessages_{};
    std::array<mmsghdr, window> inMessages_{};
    std::array<uint32_t, hosts> waiting_{};
    uint64_t answered_ = 0;
};

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
    Requester requester;
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
