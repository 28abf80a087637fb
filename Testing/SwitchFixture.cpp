#include "Testing/SwitchFixture.h"

namespace Testing {

SwitchFixture::SwitchFixture() : statusImage_(ArpSuppression::ArpSuppressionStatus::imageBytes) {
    makeState();
}

SwitchFixture::~SwitchFixture() {
    dropState();
}

void SwitchFixture::makeState() {
    tableService_ = Vela::make<Quarry::TableService>(scheduler(), directory());
    entityManager_ = Vela::make<Vela::EntityManager>(scheduler(), tableService_);
    state_ = std::make_unique<Vela::SwitchState>(entityManager_, statusImage_);
}

void SwitchFixture::dropState() {
    state_.reset();
    entityManager_->destroy();
    tableService_->destroy();
    entityManager_.reset();
    tableService_.reset();
}

void SwitchFixture::start(Vela::Agent& agent, bool physicalHardware) {
    agent.platformIs({scheduler(), entityManager_, physicalHardware});
    agent.doInit();
    runUntilIdle();
}

void SwitchFixture::restartSwitch() {
    dropState();
    makeState();
}

} // namespace Testing
