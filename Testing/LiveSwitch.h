#pragma once

#include "Platform/Agent/Agent.h"
#include "Platform/Agent/SwitchState.h"
#include "Testing/TemporaryDirectory.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Testing {

/// A switch for an agent to run on, in real time and with the kernel's sockets: database, tables
/// and all published models, to be filled by hand through `state()`. SwitchFixture is the same
/// under a simulated clock. The agent ends before this object does.
class LiveSwitch {
  public:
    explicit LiveSwitch(Vela::TaskScheduler::Settings settings = {});
    ~LiveSwitch();
    LiveSwitch(const LiveSwitch&) = delete;
    LiveSwitch& operator=(const LiveSwitch&) = delete;

    Vela::SwitchState& state() { return *state_; }
    const Vela::Ptr<Vela::TaskScheduler>& scheduler() const { return scheduler_; }
    const Vela::Ptr<Quarry::ChangeLog>& changeLog() const { return tableService_->changeLog(); }
    /// Where its files are: the tables below "tables", the ring-buffer file in "log".
    const std::string& directory() const { return directory_.path(); }

    /// Gives the platform to an agent, initialises it and lets it come to mounts complete.
    void start(Vela::Agent& agent, bool physicalHardware);

    /// Turns until the condition holds. False if it does not within a minute.
    bool turnUntil(const std::function<bool()>& condition);
    /// Turns until nothing is ready. False if there still is something after a minute.
    bool turnUntilIdle();

  private:
    TemporaryDirectory directory_;
    std::vector<uint8_t> statusImage_;
    Vela::SystemClock clock_;
    Vela::Ptr<Vela::TaskScheduler> scheduler_;
    Vela::Ptr<Quarry::TableService> tableService_;
    Vela::Ptr<Vela::EntityManager> entityManager_;
    std::unique_ptr<Vela::SwitchState> state_;
};

} // namespace Testing
