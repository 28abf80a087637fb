// The road over real devices, beside the least that any program could do: two processes take turns
// at one pair of veth devices in a network namespace of their own, the agent with its bindings, and
// a loop that reads each frame, swaps its fields and writes it back. Needs root.

#include "Platform/Packet/Headers.h"
#include "benchmarks/LeafSwitch.h"

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <random>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace {

using Clock = std::chrono::steady_clock;
constexpr uint32_t hosts = 1000;
constexpr uint16_t allProtocols = 3; // the kernel takes the tag off before it asks for one protocol

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::exit(1);
}

void run(const char* command) {
    if (std::system(command) != 0) {
        std::fprintf(stderr, "failed: %s\n", command);
        std::exit(1);
    }
}

Vela::UniqueFd openOn(const char* device, uint16_t protocol) {
    Vela::UniqueFd fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(protocol)));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(protocol);
    address.sll_ifindex = static_cast<int>(if_nametoindex(device));
    const void* generic = &address;
    if (!fd || bind(fd.get(), static_cast<const sockaddr*>(generic), sizeof address) != 0) {
        fail(device);
    }
    return fd;
}

/// Reads a trapped request, and answers for whoever is asked for.
[[noreturn]] void echo() {
    auto in = openOn("arpsnoop", Vela::EtherType::norvelArpSnoop);
    auto out = openOn("fabric", 0);
    std::array<uint8_t, 10000> request;
    std::array<uint8_t, 46> reply{};
    while (true) {
        if (read(in.get(), request.data(), request.size()) < 58) {
            continue;
        }
        std::copy_n(&request[6], 6, &reply[0]);
        std::copy_n(&request[0], 6, &reply[6]);
        reply[12] = 0x81;
        reply[15] = request[19];
        reply[16] = 8;
        reply[17] = 6;
        std::copy_n(&request[30], 8, &reply[18]);
        reply[25] = 2;
        std::copy_n(&request[54], 4, &reply[32]);
        std::copy_n(&request[38], 10, &reply[36]);
        if (write(out.get(), reply.data(), reply.size()) < 0) {
            fail("write");
        }
    }
}

[[noreturn]] void agent() {
    Benchmarks::LeafSwitch leaf(hosts, if_nametoindex("arpsnoop"), if_nametoindex("fabric"));
    while (true) {
        leaf.scheduler()->turn(std::chrono::milliseconds(500));
    }
}

/// Asks the process behind the devices.
class Load {
  public:
    Load() : out_(openOn("snoop0", 0)), in_(openOn("fabric0", allProtocols)) {
        Testing::TrapFrame frame;
        std::mt19937 random(1);
        for (unsigned i = 0; i < 4096; ++i) {
            frame.targetIp = Zinc::IpGenAddr(0x0B000000u + static_cast<uint32_t>(random() % hosts));
            requests_.push_back(frame.bytes());
        }
    }

    /// Waits until there is an answer at all.
    void waitForTheFirst() {
        for (unsigned i = 0; i < 500; ++i) {
            ask();
            if (answered(20)) {
                while (answered(20)) {
                }
                return;
            }
        }
        std::fprintf(stderr, "nobody answers\n");
        std::exit(1);
    }
    /// Answers per second with a number of requests under way all the time.
    double rate(std::chrono::milliseconds time) {
        unsigned underWay = 0;
        uint64_t answers = 0;
        auto begin = Clock::now();
        auto end = begin + time;
        while (Clock::now() < end) {
            for (; underWay < 64; ++underWay) {
                ask();
            }
            while (underWay > 0 && answered(underWay == 64 ? 100 : 0)) {
                --underWay;
                ++answers;
            }
        }
        while (answered(20)) {
        }
        return static_cast<double>(answers) /
               std::chrono::duration<double>(Clock::now() - begin).count();
    }
    /// Microseconds from request to answer, one at a time, in order of size.
    std::vector<double> latencies(size_t count) {
        std::vector<double> all;
        while (all.size() < count) {
            auto begin = Clock::now();
            ask();
            if (!answered(1000)) {
                std::fprintf(stderr, "a request was not answered\n");
                std::exit(1);
            }
            all.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
        }
        std::sort(all.begin(), all.end());
        return all;
    }

  private:
    void ask() {
        const auto& request = requests_[next_++ % requests_.size()];
        if (write(out_.get(), request.data(), request.size()) < 0) {
            fail("write");
        }
    }
    bool answered(int milliseconds) {
        std::array<uint8_t, 2048> frame;
        while (true) {
            ssize_t length = recv(in_.get(), frame.data(), frame.size(), MSG_DONTWAIT);
            if (length >= 0) {
                return true;
            }
            pollfd poll{in_.get(), POLLIN, 0};
            if (milliseconds == 0 || ::poll(&poll, 1, milliseconds) == 0) {
                return false;
            }
        }
    }

    Vela::UniqueFd out_;
    Vela::UniqueFd in_;
    std::vector<std::vector<uint8_t>> requests_;
    size_t next_ = 0;
};

struct Result {
    double rate;
    double median;
    double p99;
};

Result measure(void (*program)()) {
    pid_t child = fork();
    if (child == 0) {
        program();
    }
    Load load;
    load.waitForTheFirst();
    load.rate(std::chrono::milliseconds(300));
    Result result{load.rate(std::chrono::seconds(2)), 0, 0};
    auto latencies = load.latencies(20'000);
    result.median = latencies[latencies.size() / 2];
    result.p99 = latencies[latencies.size() * 99 / 100];
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    std::filesystem::remove_all(Benchmarks::LeafSwitch::directoryOf(child));
    return result;
}

} // namespace

int main() {
    if (unshare(CLONE_NEWNET) != 0) {
        fail("a network namespace (this needs root)");
    }
    run("echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6"); // no frames of its own
    run("ip link add arpsnoop type veth peer name snoop0");
    run("ip link add fabric type veth peer name fabric0");
    run("for d in arpsnoop snoop0 fabric fabric0; do ip link set $d up; done");
    std::printf("%-8s %12s %12s %12s\n", "", "answers/s", "median us", "p99 us");
    double least = 0;
    for (unsigned round = 0; round < 3; ++round) {
        Result echoed = measure(echo);
        Result answered = measure(agent);
        std::printf("%-8s %12.0f %12.1f %12.1f\n", "echo", echoed.rate, echoed.median, echoed.p99);
        std::printf("%-8s %12.0f %12.1f %12.1f\n", "agent", answered.rate, answered.median,
                    answered.p99);
        least = std::max(least, answered.rate / echoed.rate);
    }
    std::printf("best round: the agent reaches %.0f %% of the echo's rate\n", least * 100);
}
