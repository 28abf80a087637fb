#include "ArpSuppression/ArpSuppressionRoot.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/State/DumpContext.h"

namespace ArpSuppression {

void ArpSuppressionRoot::handleInitialized() {
    TRACE(trace, 8, this, "handleInitialized");
    enabledVlans_ = Vela::make<EnabledVlans>();
    vlanL3InfoStatus_ = Vela::make<VlanL3InfoStatus>();
    localBindingRecord_ = localBindingRecordFactory(vlanL3InfoStatus_.ptr());
    remoteBindingStatus_ = Vela::make<RemoteBindingStatus>(vlanL3InfoStatus_.ptr());
    receivedRequestTrapV4_ = Vela::make<MessageTrap>();
    receivedRequestTrapV6_ = Vela::make<MessageTrap>();
    reinjectMessageQueue_ = Vela::make<MessageQueue>();
    localRequestRecord_ = Vela::make<LocalRequestRecord>(clock_);
    arpInputConfigTrigger_ = arpInputConfigTriggerFactory();
    deviceIntfStatusDir_ = Vela::make<Interface::DeviceIntfStatusDir>("");
}

void ArpSuppressionRoot::handleDestroy() noexcept {
    TRACE(trace, 8, this, "handleDestroy");
    deviceIntfStatusDirDel();
    arpInputConfigTriggerDel();
    localRequestRecordDel();
    reinjectMessageQueueDel();
    receivedRequestTrapV6Del();
    receivedRequestTrapV4Del();
    remoteBindingStatusDel();
    localBindingRecordDel();
    vlanL3InfoStatusDel();
    enabledVlansDel();
}

void ArpSuppressionRoot::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "ArpSuppressionRoot\n");
    int inner = indent + 2;
    context.child(inner, "enabledVlans", enabledVlans_.ptr().get());
    context.child(inner, "vlanL3InfoStatus", vlanL3InfoStatus_.ptr().get());
    context.child(inner, "localBindingRecord", localBindingRecord_.ptr().get());
    context.child(inner, "remoteBindingStatus", remoteBindingStatus_.ptr().get());
    context.child(inner, "receivedRequestTrapV4", receivedRequestTrapV4_.ptr().get());
    context.child(inner, "receivedRequestTrapV6", receivedRequestTrapV6_.ptr().get());
    context.child(inner, "reinjectMessageQueue", reinjectMessageQueue_.ptr().get());
    context.child(inner, "localRequestRecord", localRequestRecord_.ptr().get());
    context.child(inner, "arpInputConfigTrigger", arpInputConfigTrigger_.ptr().get());
    context.child(inner, "deviceIntfStatusDir", deviceIntfStatusDir_.ptr().get());
}

Vela::Ptr<ArpSuppressionRoot> arpSuppressionRootFactory(const Vela::Clock& clock) {
    return Vela::make<ArpSuppressionRoot>(clock);
}

} // namespace ArpSuppression
