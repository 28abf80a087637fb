// The input configuration into the kernel's neighbour table, beside a loop that makes and removes
// the same entries with no state at all. In namespaces of its own; needs root.

#include "Linux/KernelSwitch.h"
#include "Linux/NeighborSocket.h"
#include "Platform/State/DumpContext.h"
#include "Testing/IpCommand.h"
#include "Testing/LiveSwitch.h"
#include "Testing/NamedNetNs.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <linux/neighbour.h>
#include <net/if.h>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Linux::NeighborRequest;
constexpr uint32_t hosts = 100'000;
const Zinc::EthAddr mac("02:00:00:00:00:0a");

Zinc::IpGenAddr hostAt(uint32_t i) {
    return Zinc::IpGenAddr(0x0a010000u + i);
}

double microsecondsEach(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count() / hosts;
}

void must(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "failed: %s\n", what);
        std::exit(1);
    }
}

double bareLoop(NeighborRequest::Verb verb) {
    Linux::NeighborSocket socket("default");
    auto start = Clock::now();
    std::vector<NeighborRequest> requests;
    for (uint32_t i = 0; i < hosts; ++i) {
        requests.push_back({.verb = verb,
                            .ifIndex = if_nametoindex("Vlan10"),
                            .address = hostAt(i),
                            .macAddress = mac,
                            .state = NUD_PERMANENT,
                            .protocol = 110});
        if (requests.size() == Linux::NeighborWriter::batch || i + 1 == hosts) {
            for (const auto& answer : socket.exchange(requests)) {
                must(answer.error == 0, "a request of the bare loop");
            }
            requests.clear();
        }
    }
    return microsecondsEach(start);
}

void waitUntil(Testing::LiveSwitch& live, const std::function<bool()>& condition) {
    for (int waits = 0; waits < 12; ++waits) { // of five seconds
        if (live.turnUntil(condition)) {
            return;
        }
    }
    must(false, "the writer did not finish within a minute");
}

} // namespace

int main() {
    Testing::enterOwnNamespaces();
    Testing::ip({"link", "add", "Vlan10", "type", "bridge"});
    Testing::ip({"link", "set", "Vlan10", "up"});
    std::printf("%u permanent entries, microseconds each\n", hosts);
    double made = bareLoop(NeighborRequest::Verb::add);
    double removed = bareLoop(NeighborRequest::Verb::remove);
    std::printf("bare loop    made %5.2f  removed %5.2f\n", made, removed);

    Testing::LiveSwitch live;
    Linux::LinuxConfiguration configuration;
    configuration.vrfs = {{"default", Vrf::VrfId(1), "default"}};
    auto kernel = Vela::make<Linux::KernelSwitch>(live.scheduler(), live.state(), configuration);
    waitUntil(live, [&] { return kernel->complete(); });
    const auto& table = live.state().arpStatus->arpEntryCollection();
    Linux::NeighborWriter& writer = kernel->neighborWriter();
    for (int round = 0; round < 3; ++round) {
        auto start = Clock::now();
        auto vrf = live.state().arpInputConfig->vrfIs("default");
        for (uint32_t i = 0; i < hosts; ++i) {
            vrf->afEntryPermanentIs({hostAt(i), Zinc::IntfId("Vlan10")}, mac,
                                    Arp::ArpSource::arpSuppression);
        }
        double asked = microsecondsEach(start);
        waitUntil(live, [&] { return writer.idle(); });
        double written = microsecondsEach(start);
        waitUntil(live, [&] { return kernel->synchronized() && table.count() == hosts; });
        double told = microsecondsEach(start);
        start = Clock::now();
        live.state().arpInputConfig->vrfDelAll();
        double withdrawn = microsecondsEach(start);
        waitUntil(live, [&] { return writer.idle() && table.count() == 0; });
        std::printf("writer       asked for %5.2f  made %5.2f  in the tables %5.2f  |  withdrawn "
                    "%5.2f  gone everywhere %5.2f\n",
                    asked, written, told, withdrawn, microsecondsEach(start));
    }
    Vela::DumpContext tasks;
    live.scheduler()->dumpState(tasks, 0);
    std::printf("%s", tasks.text().c_str());
    kernel->destroy();
}
