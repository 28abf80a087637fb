#include "tests/netns/PlaneLeaf.h"

#include "Platform/Packet/PacketSockets.h"
#include "Testing/ChildProcess.h"
#include "Testing/Eventually.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <system_error>

namespace Netns {

const std::string PlaneLeaf::bridgeMac = "02:00:00:00:0b:0b";

namespace {

constexpr size_t vxlanBytes = 14 + 20 + 8 + 8; // in front of the frame within

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void pinToOneCore() {
    // Frames keep their order from one end of the leaf to the other.
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &cores);
    sched_setaffinity(0, sizeof cores, &cores);
}

Vela::UniqueFd boundSocket(const std::string& device) {
    Vela::UniqueFd fd = Vela::packetSockets().open(Linux::Plane::trapEtherType);
    if (!fd || Vela::packetSockets().bind(fd.get(), Linux::Plane::trapEtherType,
                                          if_nametoindex(device.c_str())) != 0) {
        fail("a socket on " + device);
    }
    int on = 1;
    setsockopt(fd.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on);
    return fd;
}

Frame marker() {
    Frame frame(60, 0x5a);
    std::fill_n(frame.begin(), 6, 0xff);
    frame[6] = 0x02;
    frame[12] = 0x88;
    frame[13] = 0xb5;
    return frame;
}

} // namespace

std::string shell(const std::string& script) {
    Testing::ChildProcess child("/bin/sh", {"-ec", script});
    if (child.status() != 0) {
        throw std::runtime_error(script + ": " + child.errors());
    }
    return child.output();
}

Frame withoutTrapHeader(Frame frame) {
    frame.erase(frame.begin() + 12, frame.begin() + 28);
    return frame;
}

Frame hostFrame(const Testing::TrapFrame& trap) {
    return withoutTrapHeader(trap.bytes());
}

PlaneLeaf::PlaneLeaf()
    : topology_(Vela::make<Linux::Topology>()),
      suppression_(Vela::make<ArpSuppression::ArpSuppressionStatus>()),
      bridgingConfig_(Vela::make<Bridging::Config>()),
      virtualRouterMac_(Vela::make<Routing::Fhrp::VirtualRouterMacStatus>()) {
    pinToOneCore();
    Testing::enterOwnNetworkNamespace();
    netNs_.reset(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
    const char* setting = std::getenv("VELA_ALWAYS_YIELD");
    scheduler_ = Vela::make<Vela::TaskScheduler>(
        clock_,
        Vela::TaskScheduler::Settings{.alwaysYield = setting && std::string_view(setting) == "1"});

    // The kernel's own frames have no business here.
    shell("for each in all default; do echo 1 >/proc/sys/net/ipv6/conf/$each/disable_ipv6; done");
    ports_["underlay"] = std::make_unique<Testing::VethPort>("underlay");
    shell(R"(
        ip link set underlay mtu 9600
        ip link set far-underlay mtu 9600
        ip address add 192.0.2.1/24 dev underlay
        ip neighbour add 192.0.2.2 lladdr 02:00:00:00:0f:02 dev underlay
        ip neighbour add 192.0.2.3 lladdr 02:00:00:00:0f:03 dev underlay
        for vlan in 10 20; do
            ip link add Vlan$vlan address 02:00:00:00:0b:0b type bridge mcast_snooping 0
            ip link add vxlan$vlan type vxlan id 10$vlan local 192.0.2.1 remote 192.0.2.2 \
                dstport 4789 nolearning
            bridge fdb append 00:00:00:00:00:00 dev vxlan$vlan dst 192.0.2.3
            ip link set vxlan$vlan mtu 1500 master Vlan$vlan up
            ip link set Vlan$vlan up
        done)");
    portIs("et1", "Vlan10");
    portIs("et2", "Vlan10");
    portIs("et3", "Vlan20");
    bridgingConfig_->bridgeMacAddrIs(Zinc::EthAddr(bridgeMac));
    for (uint16_t vlanId : std::array<uint16_t, 2>{10, 20}) {
        std::string number = std::to_string(vlanId);
        topology_->vlanBridgeIs(
            Bridging::VlanId(vlanId),
            {if_nametoindex(("Vlan" + number).c_str()), Zinc::EthAddr(bridgeMac)});
        tunnelIs(vlanId, "vxlan" + number);
    }
}

PlaneLeaf::~PlaneLeaf() {
    enter();
    plane_.reset();
}

void PlaneLeaf::enter() const {
    if (setns(netNs_.get(), CLONE_NEWNET) != 0) {
        fail("setns");
    }
}

void PlaneLeaf::portIs(const std::string& name, const std::string& bridge) {
    ports_[name] = std::make_unique<Testing::VethPort>(name);
    shell("ip link set " + name + " mtu 9100; ip link set far-" + name + " mtu 9100; ip link set " +
          name + " master " + bridge);
    // A bridge keeps the MTU of its smallest port, which is the tunnel.
}

void PlaneLeaf::tunnelIs(uint16_t vlanId, const std::string& device) {
    topology_->bridgePortIs(
        if_nametoindex(device.c_str()),
        {.vlanId = Bridging::VlanId(vlanId), .intfId = Zinc::IntfId(device), .tunnel = true});
}

void PlaneLeaf::planeIs() {
    plane_ = Vela::make<Linux::ForwardingPlane>(Linux::ForwardingPlane::Inputs{
        scheduler_, turns_, topology_, suppression_, bridgingConfig_, virtualRouterMac_});
    counters_ = {};
}

void PlaneLeaf::agentIs() {
    trap_ = boundSocket("arpsnoop");
    inject_ = boundSocket("arpinject");
}

void PlaneLeaf::start() {
    planeIs();
    agentIs();
    suppression_->vlanIdIs(Bridging::VlanId(10), true);
    EXPECT_TRUE(
        turnUntil([this] { return plane_->trapping() && plane_->attachedTunnels().size() == 2; }));
}

void PlaneLeaf::turn() {
    while (scheduler_->turn(Vela::MonotonicTime(0))) {
    }
    turns_.setAlways(turns_.get() + 1);
}

bool PlaneLeaf::turnUntil(const std::function<bool()>& condition) {
    return Testing::eventually([&] {
        turn();
        return condition();
    });
}

template <class Take>
std::vector<Frame> PlaneLeaf::take(size_t expected, Take take) {
    std::vector<Frame> frames;
    auto enough = [&] {
        take(frames);
        return frames.size() >= expected;
    };
    EXPECT_TRUE(Testing::eventually(enough)) << frames.size() << " frames instead of " << expected;
    return frames;
}

std::vector<Frame> PlaneLeaf::trapped(size_t expected) {
    return take(expected, [this](std::vector<Frame>& frames) {
        Frame frame(16'384);
        ssize_t length;
        while ((length = recv(trap_.get(), frame.data(), frame.size(), MSG_DONTWAIT)) >= 0) {
            frames.emplace_back(frame.begin(), frame.begin() + length);
        }
    });
}

std::vector<Frame> PlaneLeaf::arrived(const std::string& name, size_t expected) {
    return take(expected, [&](std::vector<Frame>& frames) {
        auto more = port(name).sent();
        frames.insert(frames.end(), more.begin(), more.end());
    });
}

PlaneLeaf::Tunneled PlaneLeaf::tunneled(size_t expected) {
    Tunneled all;
    for (const Frame& frame : arrived("underlay", expected)) {
        if (frame.size() < vxlanBytes || frame[23] != 17 || frame[36] != 0x12 ||
            frame[37] != 0xb5) {
            ADD_FAILURE() << "no VXLAN packet of " << frame.size() << " bytes";
            continue;
        }
        uint32_t network = static_cast<uint32_t>(frame[46] << 16 | frame[47] << 8 | frame[48]);
        all.emplace_back(network, Frame(frame.begin() + vxlanBytes, frame.end()));
    }
    return all;
}

void PlaneLeaf::expectNothingElse() {
    port("et2").inject(marker());
    port("et3").inject(marker());
    Tunneled both = {{1010, marker()}, {1010, marker()}, {1020, marker()}, {1020, marker()}};
    EXPECT_EQ(tunneled(4), both);
    EXPECT_EQ(arrived("et1", 1), std::vector<Frame>{marker()});
    EXPECT_EQ(arrived("et2", 0), std::vector<Frame>{});
    EXPECT_EQ(arrived("et3", 0), std::vector<Frame>{});
    if (trap_) {
        EXPECT_EQ(trapped(0), std::vector<Frame>{});
    }
}

void PlaneLeaf::write(const std::string& device, const Frame& frame) {
    if (device == "arpinject") {
        EXPECT_EQ(::write(inject_.get(), frame.data(), frame.size()),
                  static_cast<ssize_t>(frame.size()));
    } else {
        sendOut(device, frame);
    }
}

void PlaneLeaf::sendOut(const std::string& device, const Frame& frame) {
    Vela::UniqueFd fd = Vela::packetSockets().open(0);
    EXPECT_TRUE(Vela::packetSockets().send(fd.get(), 3, if_nametoindex(device.c_str()), frame));
}

PlaneMoved PlaneLeaf::moved() {
    Linux::PlaneCounters now = plane_->counters();
    PlaneMoved moved;
    for (size_t number = 0; number < now.values.size(); ++number) {
        if (uint64_t count = now.values[number] - counters_.values[number]) {
            moved[static_cast<Linux::Plane::Counter>(number)] = count;
        }
    }
    counters_ = now;
    return moved;
}

} // namespace Netns
