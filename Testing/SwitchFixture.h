#pragma once

#include "Platform/Agent/Agent.h"
#include "Platform/Agent/SwitchState.h"
#include "Testing/CoreFixture.h"
#include "Testing/TemporaryDirectory.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace Testing {

/// A switch for an agent to run on: database, tables and all published models, which the test fills
/// by hand through `state()`. Its tables are in a directory of the test's own.
class SwitchFixture : public CoreFixture {
  protected:
    SwitchFixture();
    ~SwitchFixture() override;

    Vela::SwitchState& state() { return *state_; }
    const Vela::Ptr<Vela::EntityManager>& entityManager() const { return entityManager_; }
    const Vela::Ptr<Quarry::TableService>& tableService() const { return tableService_; }
    const std::string& directory() const { return directory_.path(); }
    /// What the published status survives in.
    std::vector<uint8_t>& statusImage() { return statusImage_; }

    /// Gives the platform to an agent, initialises it and lets it come to mounts complete.
    void start(Vela::Agent& agent, bool physicalHardware = false);
    /// Withdraws everything published and publishes it anew, empty but for the status image: what
    /// an agent finds whose predecessor died with its process.
    void restartSwitch();

  private:
    void makeState();
    void dropState();

    TemporaryDirectory directory_;
    std::vector<uint8_t> statusImage_;
    Vela::Ptr<Quarry::TableService> tableService_;
    Vela::Ptr<Vela::EntityManager> entityManager_;
    std::unique_ptr<Vela::SwitchState> state_;
};

} // namespace Testing
