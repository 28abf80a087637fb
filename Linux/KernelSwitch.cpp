#include "Linux/KernelSwitch.h"

#include "Linux/NeighborSocket.h"
#include "Linux/NetNsId.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Trace.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <set>
#include <system_error>
#include <utility>

namespace Linux {

namespace {

const Vela::TraceHandle switchTrace("KernelSwitch");

constexpr const char* inputConfigPath = "arp/input/config/arpSuppression";

Vela::UniqueFd openOwnNetNs() {
    Vela::UniqueFd fd(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
    if (!fd) {
        throw std::system_error(errno, std::generic_category(), "the own network namespace");
    }
    return fd;
}

std::set<std::string> namesOf(const LinuxConfiguration& configuration) {
    std::set<std::string> names{ownNetNs};
    for (const VrfSetting& vrf : configuration.vrfs) {
        names.insert(vrf.netNs);
    }
    return names;
}

} // namespace

KernelSwitch::KernelSwitch(Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::SwitchState& state,
                           LinuxConfiguration configuration)
    : scheduler_(std::move(scheduler)), state_(state), ownNetNsFd_(openOwnNetNs()),
      topology_(Vela::make<Topology>()), configuredBindings_(Vela::make<ConfiguredBindings>()) {
    mountTables(configuration);
    configuredBindings_->keysAre(configuration.remoteBindings);
    localMultihomedSm_ = Vela::make<LocalMultihomedSm>(
        scheduler_, topology_, state_.bridgingConfig, state_.bridgingStatus,
        state_.remoteBindingConfig, configuredBindings_);
    fdb_ = Vela::make<FdbProvider>(scheduler_, topology_, state_.bridgingConfig,
                                   state_.bridgingStatus, localMultihomedSm_.ptr(),
                                   [this] { requestResync(ownNetNs, NetlinkKind::fdb); });
    neighbors_ = Vela::make<NeighborProvider>(
        scheduler_, topology_, state_.arpStatus, state_.remoteBindingConfig, configuredBindings_,
        localMultihomedSm_.ptr(),
        [this](const std::string& netNs) { requestResync(netNs, NetlinkKind::neighbors); });
    writer_ = Vela::make<NeighborWriter>(
        NeighborWriter::Inputs{.scheduler = scheduler_,
                               .inputConfig = state_.arpInputConfig,
                               .topology = topology_,
                               .ip6Status = state_.ip6Status,
                               .arpStatus = state_.arpStatus,
                               .remoteBindingConfig = state_.remoteBindingConfig,
                               .configuredBindings = configuredBindings_,
                               .bridgingConfig = state_.bridgingConfig,
                               .bridgingStatus = state_.bridgingStatus});
    writer_->vrfsAre(configuration.vrfs);
    devices_ = Vela::make<DevicePublisher>(
        scheduler_, state_, topology_,
        DevicePublisher::Questions{
            [this](const std::string& netNs) { return netNsId(netNs, ownNetNsFd_.get()); },
            [this](const std::string& netNs, uint32_t ifIndex) {
                if (auto feed = feeds_.find(netNs); feed != feeds_.end()) {
                    feed->second.socket->requestLink(ifIndex);
                }
            }});
    devices_->configurationIs(std::move(configuration));
    watch_ = Vela::make<NetNsWatch>(scheduler_, [this](const std::string& name) { examine(name); });
    task_ = Vela::make<Vela::Task>(scheduler_, 3, "KernelSwitch", this, [this] {
        update();
        return Vela::SliceResult{false, 1};
    });
}

KernelSwitch::~KernelSwitch() = default;

void KernelSwitch::handleInitialized() {
    // An agent that is not to run withdraws what its predecessor left once, when it has its mounts.
    state_.entityManager->populatingIs(inputConfigPath, true);
    settledReaction_ = devices_->settledAttribute().react(this, [this] { task_->schedule(); });
    readBackReaction_ = writer_->startedAttribute().react(this, [this] {
        // Whoever left entries has not cleaned up: killed while it did, it had said otherwise, and
        // what it said may be lost.
        if (state_.arpInputConfig->vrfs() > 0) {
            state_.arpSuppressionStatus->runnableIs(true);
        }
        state_.entityManager->populatingIs(inputConfigPath, false);
        task_->schedule();
    });
    attach(ownNetNs);
    // Those that there are already count for completeness from the start.
    for (const std::string& name : namesOf(devices_->configuration())) {
        if (name != ownNetNs) {
            examine(name);
        }
    }
    followNames();
}

void KernelSwitch::handleDestroy() noexcept {
    task_.reset();
    watch_.reset();
    feeds_.clear();
    writer_.reset();
    devices_.reset();
    neighbors_.reset();
    fdb_.reset();
    localMultihomedSm_.reset();
    configuredBindings_->destroy();
    topology_->destroy();
}

void KernelSwitch::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "Linux::KernelSwitch complete=%d\n", complete());
    for (const auto& [netNs, feed] : feeds_) {
        feed.socket->dumpState(context, indent + 2);
    }
    for (const auto& [netNs, problem] : problems_) {
        context.print(indent + 2, "problem[%s] %s\n", netNs.c_str(), problem.c_str());
    }
    devices_->dumpState(context, indent + 2);
    topology_->dumpState(context, indent + 2);
    fdb_->dumpState(context, indent + 2);
    neighbors_->dumpState(context, indent + 2);
    writer_->dumpState(context, indent + 2);
    localMultihomedSm_->dumpState(context, indent + 2);
}

void KernelSwitch::configurationIs(LinuxConfiguration configuration) {
    mountTables(configuration);
    configuredBindings_->keysAre(configuration.remoteBindings);
    std::set<std::string> before = namesOf(devices_->configuration());
    std::set<std::string> after = namesOf(configuration);
    bool bufferChanged = configuration.receiveBuffer != devices_->configuration().receiveBuffer;
    if (configuration.vrfs != devices_->configuration().vrfs) {
        writer_->vrfsAre(configuration.vrfs);
    }
    devices_->configurationIs(std::move(configuration));
    for (const std::string& name : before) {
        if (!after.contains(name)) {
            if (feeds_.contains(name)) {
                detach(name);
            }
            problems_.erase(name);
            state_.kernelNetInfoDel(name);
        }
    }
    if (bufferChanged) {
        for (const auto& [netNs, feed] : feeds_) {
            feed.socket->receiveBufferIs(devices_->configuration().receiveBuffer);
        }
    }
    followNames();
    task_->schedule();
}

bool KernelSwitch::synchronized() const {
    return std::all_of(feeds_.begin(), feeds_.end(),
                       [](const auto& entry) { return entry.second.socket->synchronized(); });
}

const Rtnetlink* KernelSwitch::socket(const std::string& netNs) const {
    auto feed = feeds_.find(netNs);
    return feed == feeds_.end() ? nullptr : feed->second.socket.ptr().get();
}

/// All that can fail for want of room, before anything else is done.
void KernelSwitch::mountTables(const LinuxConfiguration& configuration) {
    for (const std::string& name : namesOf(configuration)) {
        state_.kernelNetInfoIs(name);
    }
}

void KernelSwitch::followNames() {
    std::set<std::string> names = namesOf(devices_->configuration());
    names.erase(ownNetNs);
    watch_->namesAre(std::move(names));
}

void KernelSwitch::examine(const std::string& netNs) {
    uint64_t inode = NetNsWatch::inode(netNs);
    if (const Rtnetlink* attached = socket(netNs); attached && attached->netNsInode() != inode) {
        detach(netNs);
    }
    if (inode == 0) {
        problems_.erase(netNs);
    } else if (!feeds_.contains(netNs)) {
        try {
            attach(netNs);
            problems_.erase(netNs);
        } catch (const std::exception& error) {
            // It may be gone again, or the process be out of descriptors.
            if (std::string& problem = problems_[netNs]; problem != error.what()) {
                problem = error.what();
                TRACE(switchTrace, 0, nullptr, problem);
            }
            watch_->announceAgain(netNs);
        }
    }
}

void KernelSwitch::attach(const std::string& netNs) {
    auto socket =
        Vela::make<Rtnetlink>(scheduler_, state_.entityManager->tableService()->changeLog(), netNs,
                              devices_->configuration().receiveBuffer);
    auto channel = std::make_unique<NeighborSocket>(netNs);
    devices_->netNsIs(netNs);
    writer_->netNsIs(netNs, std::move(channel));
    TRACE(switchTrace, 1, nullptr, "attached to " << netNs << ", inode " << socket->netNsInode());
    Feed& feed = feeds_[netNs];
    feed.socket = socket;
    feed.synchronizedReaction =
        socket->synchronizedAttribute().react(this, [this] { task_->schedule(); });
    socket->consumerIs(NetlinkKind::links, devices_->links(netNs));
    socket->consumerIs(NetlinkKind::addresses, devices_->addresses(netNs));
}

void KernelSwitch::detach(const std::string& netNs) {
    TRACE(switchTrace, 1, nullptr, "detached from " << netNs);
    bool entries = feeds_.at(netNs).entries;
    feeds_.erase(netNs); // the socket, which keeps the namespace, first
    writer_->netNsDel(netNs);
    devices_->netNsDel(netNs);
    if (entries) {
        neighbors_->consumerDel(netNs);
    }
    task_->schedule();
}

void KernelSwitch::update() {
    if (!devices_->settled()) {
        if (synchronized()) {
            devices_->publish();
        }
        return;
    }
    bool entries = true;
    for (auto& [netNs, feed] : feeds_) {
        if (!feed.entries && feed.socket->synchronized()) {
            followEntries(netNs, feed);
        }
        entries = entries && feed.entries;
    }
    if (entries && synchronized() && !writer_->started()) {
        writer_->start();
    } else if (entries && synchronized()) {
        state_.tablesCompleteIs();
        complete_.set(true);
    }
}

/// Only now: they are entries of devices that are known by now.
void KernelSwitch::followEntries(const std::string& netNs, Feed& feed) {
    feed.entries = true;
    feed.socket->consumerIs(NetlinkKind::neighbors, neighbors_->consumerIs(netNs));
    if (netNs == ownNetNs) {
        feed.socket->consumerIs(NetlinkKind::fdb, *fdb_);
    }
}

void KernelSwitch::requestResync(const std::string& netNs, NetlinkKind kind) {
    if (auto feed = feeds_.find(netNs); feed != feeds_.end()) {
        feed->second.socket->requestResync(kind);
    }
}

} // namespace Linux
