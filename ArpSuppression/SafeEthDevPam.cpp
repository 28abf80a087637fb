#include "ArpSuppression/SafeEthDevPam.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/State/DumpContext.h"

#include <exception>
#include <ostream>
#include <utility>

namespace ArpSuppression {

namespace {
constexpr double retryDelay = 5.0; // seconds
}

SafeEthDevPamEnableSm::SafeEthDevPamEnableSm(Vela::Ptr<Vela::TaskScheduler> scheduler,
                                             SafeEthDevPam& safeEthDevPam)
    : scheduler_(std::move(scheduler)), safeEthDevPam_(safeEthDevPam) {}

void SafeEthDevPamEnableSm::formatDerivedType(std::ostream& out) const {
    out << safeEthDevPam_.name();
}

void SafeEthDevPamEnableSm::handleInitialized() {
    TRACE(trace, 8, this, "handleInitialized");
    enableTask_ =
        Vela::make<Vela::TimerTask>(scheduler_, 3, "SafeEthDevPam-" + safeEthDevPam_.name());
    run_ = enableTask_->runAttribute().react(this, [this] { handleEnableTaskRun(); });
    enableTask_->schedule();
}

void SafeEthDevPamEnableSm::handleDestroy() noexcept {
    TRACE(trace, 8, this, "handleDestroy");
    enableTask_.reset();
}

/// It may be up again already, or made anew.
void SafeEthDevPamEnableSm::handleDeviceDown() {
    TRACE(trace, 8, this, "handleDeviceDown");
    enableTask_->schedule();
}

void SafeEthDevPamEnableSm::handleEnableTaskRun() {
    try {
        safeEthDevPam_.enabledIs(true);
        TRACE(trace, 8, this, "enabled");
    } catch (const std::exception& error) {
        TRACE(trace, 2, this, "what=" << error.what());
        enableTask_->scheduleAfter(retryDelay);
    }
}

SafeEthDevPam::SafeEthDevPam(std::string name, uint16_t ethProtocol, std::string netNs,
                             Vela::Ptr<Vela::TaskScheduler> scheduler, Limits limits)
    : EthDevPam(scheduler, std::move(name)), scheduler_(std::move(scheduler)), limits_(limits) {
    ethProtocolIs(ethProtocol);
    netNsIs(std::move(netNs));
}

void SafeEthDevPam::handleInitialized() {
    enableSm_ = Vela::make<SafeEthDevPamEnableSm>(scheduler_, *this);
    sockPrioIs(limits_.sockPrio);
    socketReadLimitIs(limits_.socketReadLimit);
}

void SafeEthDevPam::handleDestroy() noexcept {
    enableSm_.reset();
    EthDevPam::handleDestroy();
}

void SafeEthDevPam::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "SafeEthDevPam %s %s\n", name().c_str(),
                  enabled() ? "enabled" : "disabled");
    context.print(indent + 2, "ethProtocol %u\n", ethProtocol());
    context.print(indent + 2, "netNs %s\n", netNs().c_str());
}

Vela::Ptr<SafeEthDevPam> safeEthDevPamFactory(std::string name, uint16_t ethProtocol,
                                              std::string netNs,
                                              Vela::Ptr<Vela::TaskScheduler> scheduler,
                                              SafeEthDevPam::Limits limits) {
    return Vela::make<SafeEthDevPam>(std::move(name), ethProtocol, std::move(netNs),
                                     std::move(scheduler), limits);
}

} // namespace ArpSuppression
