#pragma once

#include "Platform/Scheduler/WalkSmBase.h"

#include <functional>
#include <string>

namespace Vela {

/// What a specimen answers, and what it does when it is asked or told.
struct SpecimenBehavior {
    double initialScheduleDelay = 0;
    bool untilNoMoreWork = false;
    bool allowWalkRestarts = false;
    bool runs = true;
    std::function<WalkRet()> walk = [] { return WalkRet{0, 0}; };
    std::function<void()> scheduled;
    std::function<void()> aborted;
    std::function<void()> started;
    std::function<void()> finished;
};

/// A walk machine that writes down what the base does with it: trace events as "<started>",
/// operations as "started". Log and behavior are the test's and outlive the machine.
class SpecimenSm final : public WalkSmBase {
  public:
    SpecimenSm(Ptr<TaskScheduler> scheduler, std::string& log, const SpecimenBehavior& behavior)
        : WalkSmBase(std::move(scheduler), 3, "SpecimenSm"), log_(log), behavior_(behavior) {}

    const char* typeName() const noexcept override { return "SpecimenSm"; }

    using WalkSmBase::mustYield;
    using WalkSmBase::scheduleWalk;
    using WalkSmBase::scheduleWalkDelay;

  private:
    double initialScheduleDelay() const override { return behavior_.initialScheduleDelay; }
    bool untilNoMoreWork() const override { return behavior_.untilNoMoreWork; }
    bool allowWalkRestarts() const override { return behavior_.allowWalkRestarts; }
    void walkScheduledNotification() override { note("scheduled", behavior_.scheduled); }
    void walkAbortedNotification() override { note("aborted", behavior_.aborted); }
    bool walkStartedNotification() override {
        note("started", behavior_.started);
        return behavior_.runs;
    }
    WalkRet walk() override {
        log_ += "walk ";
        auto call = behavior_.walk; // which may replace itself
        return call();
    }
    void walkFinishedNotification() override { note("finished", behavior_.finished); }
    void traceEvent(TraceEvent event) override {
        log_ += '<' + std::string(toString(event)) + "> ";
    }

    void note(const char* operation, std::function<void()> then) {
        log_ += operation + std::string(" ");
        if (then) {
            then();
        }
    }

    std::string& log_;
    const SpecimenBehavior& behavior_;
};

} // namespace Vela
