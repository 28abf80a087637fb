#include "Testing/LiveSwitch.h"

#include "Platform/Trace/Swiftlog.h"

namespace Testing {

namespace {

constexpr Vela::MonotonicTime longest = std::chrono::minutes(1);

} // namespace

LiveSwitch::LiveSwitch(Vela::TaskScheduler::Settings settings)
    : statusImage_(ArpSuppression::ArpSuppressionStatus::imageBytes),
      scheduler_(Vela::make<Vela::TaskScheduler>(clock_, settings)),
      tableService_(Vela::make<Quarry::TableService>(scheduler_, directory() + "/tables")),
      entityManager_(Vela::make<Vela::EntityManager>(scheduler_, tableService_)),
      state_(std::make_unique<Vela::SwitchState>(entityManager_, statusImage_)) {
    Vela::Swiftlog::defaultDirectoryIs(directory() + "/log");
}

LiveSwitch::~LiveSwitch() {
    state_.reset();
    entityManager_->destroy();
    tableService_->destroy();
    Vela::Swiftlog::close();
}

void LiveSwitch::start(Vela::Agent& agent, bool physicalHardware) {
    state_->tablesCompleteIs();
    agent.platformIs({scheduler_, entityManager_, physicalHardware});
    agent.doInit();
    turnUntilIdle();
}

bool LiveSwitch::turnUntil(const std::function<bool()>& condition) {
    Vela::MonotonicTime deadline = clock_.now() + longest;
    while (!condition()) {
        if (clock_.now() > deadline) {
            return false;
        }
        // What the condition looks at need not be a descriptor of the scheduler's.
        scheduler_->turn(std::chrono::milliseconds(1));
    }
    return true;
}

bool LiveSwitch::turnUntilIdle() {
    return turnUntil([this] { return !scheduler_->turn(Vela::MonotonicTime(0)); });
}

} // namespace Testing
