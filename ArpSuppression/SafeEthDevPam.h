#pragma once

#include "Platform/Packet/EthDevPam.h"
#include "Platform/Scheduler/Task.h"

#include <cstdint>
#include <string>

namespace ArpSuppression {

class SafeEthDevPam;

/// Enables a SafeEthDevPam, which owns it: soon after its creation, and again when its device went
/// down; from then on every five seconds until that succeeds.
class SafeEthDevPamEnableSm final : public Vela::Entity {
  public:
    SafeEthDevPamEnableSm(Vela::Ptr<Vela::TaskScheduler> scheduler, SafeEthDevPam& safeEthDevPam);

    const char* typeName() const noexcept override { return "SafeEthDevPamEnableSm"; }
    void formatDerivedType(std::ostream& out) const override;

    const Vela::Ptr<Vela::TimerTask>& enableTask() const { return enableTask_.ptr(); }
    /// Called by its SafeEthDevPam, which is disabled now.
    void handleDeviceDown();

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;

  private:
    void handleEnableTaskRun();

    const Vela::Ptr<Vela::TaskScheduler> scheduler_;
    SafeEthDevPam& safeEthDevPam_;
    Vela::Owned<Vela::TimerTask> enableTask_;
    Vela::Reaction run_;
};

/// A receiver of frames that may be had before its device is there, and outlives it: it enables
/// itself when that is possible, and nobody hears of an attempt that fails, but in the trace.
class SafeEthDevPam final : public Zinc::EthDevPam {
  public:
    struct Limits {
        uint32_t sockPrio = 0;
        uint32_t socketReadLimit = 16;
    };

    SafeEthDevPam(std::string name, uint16_t ethProtocol, std::string netNs,
                  Vela::Ptr<Vela::TaskScheduler> scheduler, Limits limits);

    const char* typeName() const noexcept override { return "SafeEthDevPam"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const Vela::Ptr<SafeEthDevPamEnableSm>& enableSm() const { return enableSm_.ptr(); }

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;
    void handleDeviceDown() override { enableSm_->handleDeviceDown(); }

  private:
    const Vela::Ptr<Vela::TaskScheduler> scheduler_;
    const Limits limits_;
    Vela::Owned<SafeEthDevPamEnableSm> enableSm_;
};

/// Throws Vela::RangeError if a limit is outside what EthDevPam allows.
Vela::Ptr<SafeEthDevPam> safeEthDevPamFactory(std::string name, uint16_t ethProtocol,
                                              std::string netNs,
                                              Vela::Ptr<Vela::TaskScheduler> scheduler,
                                              SafeEthDevPam::Limits limits = {0, 16});

} // namespace ArpSuppression
