#include "ArpSuppression/ArpInputConfigTrigger.h"

#include "Platform/State/DumpContext.h"

namespace ArpSuppression {

void ArpInputConfigTrigger::event(const VrfIpAddress& vrfIpAddress, bool suppressionEvent) {
    vrfIpAddress_ = vrfIpAddress;
    suppressionEvent_ = suppressionEvent;
    trigger_.setAlways(trigger() + 1);
}

std::string ArpInputConfigTrigger::toStrep() const {
    return "<vrfIpAddress=" + vrfIpAddress_.toStrep() +
           " suppressionEvent=" + (suppressionEvent_ ? "yes" : "no") +
           " trigger=" + std::to_string(trigger()) + ">";
}

void ArpInputConfigTrigger::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "ArpInputConfigTrigger %s\n", toStrep().c_str());
}

Vela::Ptr<ArpInputConfigTrigger> arpInputConfigTriggerFactory() {
    return Vela::make<ArpInputConfigTrigger>();
}

} // namespace ArpSuppression
