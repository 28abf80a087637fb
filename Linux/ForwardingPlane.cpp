#include "Linux/ForwardingPlane.h"

#include "Linux/PlaneDevice.h"
#include "Linux/PlaneError.h"
#include "Linux/PlaneProgram.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Trace.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace Linux {

namespace {

const Vela::TraceHandle trace("Linux");

constexpr double retrySeconds = 1;

uint64_t asNumber(const Zinc::EthAddr& address) {
    uint64_t number = 0;
    for (uint8_t byte : address.bytes()) {
        number = number << 8 | byte;
    }
    return number;
}

} // namespace

/// What stands in the kernel for this object.
struct ForwardingPlane::Kernel {
    struct Device {
        const char* name;
        void (PlaneProgram::*attach)(uint32_t farIfIndex);
        std::optional<PlaneDevice> device = std::nullopt;

        bool missing() const { return !device || device->gone(); }
        bool running() const { return device && device->running(); }
    };

    void make(Device& which) {
        which.device.reset();
        which.device.emplace(which.name, Plane::deviceMtu);
        try {
            (program.*which.attach)(which.device->farIfIndex());
        } catch (const PlaneError&) {
            which.device.reset(); // the agent would talk to nobody
            throw;
        }
    }

    PlaneProgram program;
    PacketSocketList packetSockets;
    Device snoop{"arpsnoop", &PlaneProgram::attachTrap};
    Device inject{"arpinject", &PlaneProgram::attachInject};
    Device fabric{"fabric", &PlaneProgram::attachFabric};
    const std::array<Device*, 3> devices{&snoop, &inject, &fabric};
};

const char* PlaneCounters::name(Plane::Counter counter) {
    constexpr std::array<const char*, Plane::counterLimit> names = {
        "trapped",          "copied",
        "passedInactive",   "passedSilent",
        "passedNoDevice",   "delivered",
        "injected",         "droppedUntagged",
        "droppedNoBridge",  "droppedUnknownDestination",
        "droppedMalformed", "droppedNoTunnel",
        "droppedNoMemory"};
    return names[counter];
}

ForwardingPlane::ForwardingPlane(const Inputs& inputs)
    : inputs_(inputs), kernel_(std::make_unique<Kernel>()) {
    kernel_->program.state().heartbeatLimit = static_cast<uint64_t>(heartbeatLimit.count());
    kernel_->program.detachLeftovers();
    for (Kernel::Device* device : kernel_->devices) {
        kernel_->make(*device);
    }
}

ForwardingPlane::~ForwardingPlane() = default;

void ForwardingPlane::handleInitialized() {
    task_ = Vela::make<Vela::Task>(inputs_.scheduler, 3, "ForwardingPlane", this,
                                   [this] { return work(); });
    turnReaction_ = inputs_.turns.react(this, [this] { handleTurn(); });
    vlanBridgeReaction_ = inputs_.topology->vlanBridgeCollection().react(
        this, [this](Bridging::VlanId vlanId) { handleVlan(vlanId); });
    bridgePortReaction_ = inputs_.topology->bridgePortCollection().react(
        this, [this](uint32_t ifIndex) { handlePort(ifIndex); });
    suppressionReaction_ = inputs_.suppression->vlanIdCollection().react(
        this, [this](Bridging::VlanId vlanId) { handleVlan(vlanId); });
    bridgeMacReaction_ = inputs_.bridgingConfig->bridgeMacAddrAttribute().react(
        this, [this] { handleOwnAddresses(); });
    virtualMacReaction_ = inputs_.virtualRouterMac->varpVirtualMacAttribute().react(
        this, [this] { handleOwnAddresses(); });

    handleOwnAddresses();
    for (auto cursor = inputs_.topology->bridgePortCollection().first(); cursor; ++cursor) {
        handlePort(cursor.key());
    }
    for (auto cursor = inputs_.topology->vlanBridgeCollection().first(); cursor; ++cursor) {
        handleVlan(cursor.key());
    }
    for (auto cursor = inputs_.suppression->vlanIdCollection().first(); cursor; ++cursor) {
        handleVlan(cursor.key());
    }
}

void ForwardingPlane::handleDestroy() noexcept {
    enabledIs(false);
    task_.reset();
    for (uint32_t ifIndex : attached_) {
        kernel_->program.detachTunnel(ifIndex);
    }
    attached_.clear();
    kernel_.reset();
}

void ForwardingPlane::enabledIs(bool enabled) {
    enabled_ = enabled;
    if (enabled) {
        lastBeat_ = Vela::MonotonicTime(0); // the next turn says that there are turns
    } else {
        beat();
    }
}

void ForwardingPlane::handleTurn() {
    if (inputs_.scheduler->clock().now() - lastBeat_ >= heartbeatInterval) {
        beat();
    }
}

void ForwardingPlane::beat() {
    lastBeat_ = inputs_.scheduler->clock().now();
    silentBecause_ = whySilent();
    kernel_->program.state().heartbeat = trapping() ? static_cast<uint64_t>(lastBeat_.count()) : 0;
    const auto& devices = kernel_->devices;
    if (enabled_ && std::any_of(devices.begin(), devices.end(),
                                [](const Kernel::Device* device) { return device->missing(); })) {
        task_->schedule();
    }
}

std::string ForwardingPlane::whySilent() const {
    if (!enabled_) {
        return "stopped";
    }
    for (const Kernel::Device* device : kernel_->devices) {
        if (!device->running()) {
            return deviceProblem_.empty() ? device->name + std::string(" is not there or down")
                                          : deviceProblem_;
        }
    }
    std::vector<uint32_t> bound = kernel_->packetSockets.boundDevices(Plane::trapEtherType);
    auto isBound = [&](const Kernel::Device& device) {
        return std::find(bound.begin(), bound.end(), device.device->ifIndex()) != bound.end();
    };
    if (!isBound(kernel_->snoop)) {
        return std::string("nobody reads from ") + kernel_->snoop.name;
    }
    return isBound(kernel_->inject) ? "" : std::string("nobody writes to ") + kernel_->inject.name;
}

void ForwardingPlane::handleOwnAddresses() {
    auto& addresses = kernel_->program.state().ownAddress;
    addresses[0] = asNumber(inputs_.bridgingConfig->bridgeMacAddr());
    addresses[1] = asNumber(inputs_.virtualRouterMac->varpVirtualMac());
}

uint32_t ForwardingPlane::tunnelOf(Bridging::VlanId vlanId) const {
    auto found = std::find_if(tunnels_.begin(), tunnels_.end(),
                              [=](const auto& tunnel) { return tunnel.second == vlanId; });
    return found == tunnels_.end() ? 0 : found->first;
}

void ForwardingPlane::handleVlan(Bridging::VlanId vlanId) {
    auto& vlan = kernel_->program.state().vlans[vlanId.value()];
    vlan.bridgeIfIndex = inputs_.topology->vlanBridge(vlanId).ifIndex;
    vlan.active = inputs_.suppression->vlanIdCollection().value(vlanId);
}

void ForwardingPlane::handlePort(uint32_t ifIndex) {
    BridgePort port = inputs_.topology->bridgePort(ifIndex);
    bool isTunnel = port.intfId && port.tunnel;
    auto& vlans = kernel_->program.state().vlans;

    auto known = tunnels_.find(ifIndex);
    if (known != tunnels_.end() && !(isTunnel && known->second == port.vlanId)) {
        Bridging::VlanId former = known->second;
        tunnels_.erase(known);
        if (vlans[former.value()].tunnelIfIndex == ifIndex) {
            vlans[former.value()].tunnelIfIndex = tunnelOf(former);
        }
    }
    if (isTunnel) {
        tunnels_[ifIndex] = port.vlanId;
        vlans[port.vlanId.value()].tunnelIfIndex = ifIndex;
    }
    if (!isTunnel && !(port.intfId && port.routed)) {
        kernel_->program.portDel(ifIndex);
    } else if (!kernel_->program.portIs(ifIndex, {port.vlanId.value(), isTunnel})) {
        TRACE(trace, 0, this, "no room for ifIndex=" << ifIndex);
    }
    // Also where it is attached: the device may be another one that has got the same index.
    if (isTunnel || attached_.count(ifIndex)) {
        pending_.insert(ifIndex);
        task_->schedule();
    }
}

Vela::SliceResult ForwardingPlane::work() {
    return makeMissingDevice() ? Vela::SliceResult{true, 1} : attachSlice();
}

/// One that somebody has deleted. The agent hears of the new one as of any other device. Returns
/// whether there was one that could be made.
bool ForwardingPlane::makeMissingDevice() {
    std::string problem;
    for (Kernel::Device* device : kernel_->devices) {
        if (enabled_ && device->missing()) {
            try {
                kernel_->make(*device);
                TRACE(trace, 0, this, device->name << " was deleted and is made anew");
                return true;
            } catch (const PlaneError& error) {
                problem = error.what(); // the next sign of life tries again
            }
        }
    }
    if (problem != deviceProblem_ && !problem.empty()) {
        TRACE(trace, 0, this, problem);
    }
    deviceProblem_ = problem;
    return false;
}

Vela::SliceResult ForwardingPlane::attachSlice() {
    Vela::SliceResult result;
    if (pending_.empty()) {
        std::swap(pending_, failed_);
    }
    while (!pending_.empty()) {
        uint32_t ifIndex = *pending_.begin();
        pending_.erase(pending_.begin());
        failed_.erase(ifIndex);
        if (!attach(ifIndex)) {
            failed_.insert(ifIndex);
        }
        ++result.items;
        if (inputs_.scheduler->mustYield()) {
            break;
        }
    }
    result.moreWork = !pending_.empty();
    if (!result.moreWork && !failed_.empty()) {
        task_->scheduleAfter(retrySeconds);
    }
    return result;
}

/// Attaches or detaches, as the topology wants it now. False if that has to be tried again.
bool ForwardingPlane::attach(uint32_t ifIndex) {
    if (!tunnels_.count(ifIndex)) {
        kernel_->program.detachTunnel(ifIndex);
        attached_.erase(ifIndex);
        problems_.erase(ifIndex);
        return true;
    }
    try {
        kernel_->program.attachTunnel(ifIndex);
        attached_.insert(ifIndex);
        problems_.erase(ifIndex);
        return true;
    } catch (const PlaneError& error) {
        attached_.erase(ifIndex);
        std::string& problem = problems_[ifIndex];
        if (problem != error.what()) {
            problem = error.what();
            TRACE(trace, 0, this, problem);
        }
        return false;
    }
}

PlaneCounters ForwardingPlane::counters() const {
    PlaneCounters counters;
    if (kernel_) {
        const auto& values = std::as_const(kernel_->program).state().counters;
        std::copy(std::begin(values), std::end(values), counters.values.begin());
    }
    return counters;
}

void ForwardingPlane::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "Linux::ForwardingPlane\n");
    context.print(indent + 2, "trapping=%d%s%s\n", trapping(),
                  trapping() ? "" : " silentBecause=", silentBecause_.c_str());
    for (const auto& [ifIndex, vlanId] : tunnels_) {
        context.print(indent + 2, "tunnel[%u] vlanId=%u attached=%zu\n", ifIndex, vlanId.value(),
                      attached_.count(ifIndex));
    }
    for (const auto& [ifIndex, problem] : problems_) {
        context.print(indent + 2, "problem[%u] %s\n", ifIndex, problem.c_str());
    }
    PlaneCounters all = counters();
    for (size_t number = 0; number < all.values.size(); ++number) {
        auto counter = static_cast<Plane::Counter>(number);
        context.print(indent + 2, "%s=%llu\n", PlaneCounters::name(counter),
                      static_cast<unsigned long long>(all[counter]));
    }
}

} // namespace Linux
