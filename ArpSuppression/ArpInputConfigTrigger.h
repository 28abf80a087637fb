#pragma once

#include "ArpSuppression/ArpSuppression.h"
#include "Platform/State/Attribute.h"

#include <cstdint>
#include <string>

namespace ArpSuppression {

/// Where a machine posts an address whose ARP input configuration is to be written anew. Whoever
/// writes it reacts to `trigger` and is done before `event` returns: no queue is kept.
class ArpInputConfigTrigger final : public Vela::Entity {
  public:
    const char* typeName() const noexcept override { return "ArpInputConfigTrigger"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;
    /// <vrfIpAddress=<...> suppressionEvent=no trigger=1>
    std::string toStrep() const;

    /// Address and flag of the last event.
    const VrfIpAddress& vrfIpAddress() const { return vrfIpAddress_; }
    bool suppressionEvent() const { return suppressionEvent_; }

    /// Announces every event, be it the same as the one before.
    void event(const VrfIpAddress& vrfIpAddress, bool suppressionEvent);

    /// Counts the events. Both setters announce only a change.
    uint32_t trigger() const { return trigger_.get(); }
    const Vela::Attribute<uint32_t>& triggerAttribute() const { return trigger_; }
    void triggerIs(uint32_t value) { trigger_.set(value); }
    void triggerInc(uint32_t step) { trigger_.set(trigger() + step); }

  private:
    VrfIpAddress vrfIpAddress_;
    bool suppressionEvent_ = false;
    Vela::Attribute<uint32_t> trigger_;
};

Vela::Ptr<ArpInputConfigTrigger> arpInputConfigTriggerFactory();

} // namespace ArpSuppression
