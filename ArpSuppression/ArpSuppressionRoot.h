#pragma once

#include "ArpSuppression/ArpInputConfigTrigger.h"
#include "ArpSuppression/ArpSuppression.h"
#include "ArpSuppression/LocalBinding.h"
#include "ArpSuppression/LocalRequestRecord.h"
#include "ArpSuppression/RemoteBindingStatus.h"
#include "ArpSuppression/TrappedMessage.h"
#include "Platform/Model/Interface/DeviceIntfStatus.h"

namespace ArpSuppression {

/// What the machines share; exists exactly while suppression runs.
class ArpSuppressionRoot final : public Vela::Entity {
  public:
    /// The clock outlives what is made here.
    explicit ArpSuppressionRoot(const Vela::Clock& clock) : clock_(clock) {}

    const char* typeName() const noexcept override { return "ArpSuppressionRoot"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const Vela::Ptr<EnabledVlans>& enabledVlans() const { return enabledVlans_.ptr(); }
    const Vela::Ptr<VlanL3InfoStatus>& vlanL3InfoStatus() const { return vlanL3InfoStatus_.ptr(); }
    const Vela::Ptr<LocalBindingRecord>& localBindingRecord() const {
        return localBindingRecord_.ptr();
    }
    const Vela::Ptr<RemoteBindingStatus>& remoteBindingStatus() const {
        return remoteBindingStatus_.ptr();
    }
    const Vela::Ptr<MessageTrap>& receivedRequestTrapV4() const {
        return receivedRequestTrapV4_.ptr();
    }
    const Vela::Ptr<MessageTrap>& receivedRequestTrapV6() const {
        return receivedRequestTrapV6_.ptr();
    }
    const Vela::Ptr<MessageQueue>& reinjectMessageQueue() const {
        return reinjectMessageQueue_.ptr();
    }
    const Vela::Ptr<LocalRequestRecord>& localRequestRecord() const {
        return localRequestRecord_.ptr();
    }
    const Vela::Ptr<ArpInputConfigTrigger>& arpInputConfigTrigger() const {
        return arpInputConfigTrigger_.ptr();
    }
    const Vela::Ptr<Interface::DeviceIntfStatusDir>& deviceIntfStatusDir() const {
        return deviceIntfStatusDir_.ptr();
    }

    void enabledVlansDel() { enabledVlans_.reset(); }
    void vlanL3InfoStatusDel() { vlanL3InfoStatus_.reset(); }
    void localBindingRecordDel() { localBindingRecord_.reset(); }
    void remoteBindingStatusDel() { remoteBindingStatus_.reset(); }
    void receivedRequestTrapV4Del() { receivedRequestTrapV4_.reset(); }
    void receivedRequestTrapV6Del() { receivedRequestTrapV6_.reset(); }
    void reinjectMessageQueueDel() { reinjectMessageQueue_.reset(); }
    void localRequestRecordDel() { localRequestRecord_.reset(); }
    void arpInputConfigTriggerDel() { arpInputConfigTrigger_.reset(); }
    void deviceIntfStatusDirDel() { deviceIntfStatusDir_.reset(); }

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;

  private:
    const Vela::Clock& clock_;
    Vela::Owned<EnabledVlans> enabledVlans_;
    Vela::Owned<VlanL3InfoStatus> vlanL3InfoStatus_;
    Vela::Owned<LocalBindingRecord> localBindingRecord_;
    Vela::Owned<RemoteBindingStatus> remoteBindingStatus_;
    Vela::Owned<MessageTrap> receivedRequestTrapV4_;
    Vela::Owned<MessageTrap> receivedRequestTrapV6_;
    Vela::Owned<MessageQueue> reinjectMessageQueue_;
    Vela::Owned<LocalRequestRecord> localRequestRecord_;
    Vela::Owned<ArpInputConfigTrigger> arpInputConfigTrigger_;
    Vela::Owned<Interface::DeviceIntfStatusDir> deviceIntfStatusDir_;
};

Vela::Ptr<ArpSuppressionRoot> arpSuppressionRootFactory(const Vela::Clock& clock);

} // namespace ArpSuppression
