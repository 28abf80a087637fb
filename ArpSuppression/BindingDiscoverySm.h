#pragma once

#include "ArpSuppression/ArpInputConfigTrigger.h"
#include "ArpSuppression/ArpSuppression.h"
#include "ArpSuppression/BindingDiscoveryVarpReplySm.h"
#include "ArpSuppression/LocalBinding.h"
#include "ArpSuppression/RemoteBindingStatus.h"
#include "ArpSuppression/TrappedMessage.h"
#include "Platform/Model/Arp/InputConfig.h"
#include "Platform/Model/Arp/TableStatus.h"
#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"
#include "Platform/Model/Bridging/Config.h"
#include "Platform/Model/Bridging/FdbStatus.h"
#include "Platform/Model/Evpn/EvpnStatus.h"
#include "Platform/Model/Routing/Fhrp/VirtualRouterMacStatus.h"
#include "Platform/Scheduler/TaskScheduler.h"

namespace ArpSuppression {

/// Whether hosts that are multihomed to this switch are left to their remote bindings.
bool toggleLocalMultihomeSelectiveArpInstallEnabled();

/// Finds out which bindings are those of hosts of this switch, and keeps the local binding record.
/// They are learnt from the senders of trapped requests, and from remote bindings whose MAC address
/// turns up on a port of this switch. They go when the MAC address leaves that port, or when a
/// remote binding claims the address. Each change is dealt with at once.
///
/// Replies that hosts send to the virtual router come past no trap: while there is a virtual router
/// MAC address, each VLAN with L3 information has a pair of listeners for them, which are owned
/// here and call createLocalBinding.
class BindingDiscoverySm final : public Vela::Entity {
  public:
    using VarpReplyV4SmCollection =
        Vela::Map<Bridging::VlanId, Vela::Ptr<BindingDiscoveryVarpReplyV4Sm>>;
    using VarpReplyV6SmCollection =
        Vela::Map<Bridging::VlanId, Vela::Ptr<BindingDiscoveryVarpReplyV6Sm>>;

    /// The kernel's neighbours and those asked for are the business of who writes neighbour
    /// entries; discovery is given them and has no use for them.
    BindingDiscoverySm(Vela::Ptr<Vela::TaskScheduler> scheduler,
                       Vela::Ptr<const MessageTrap> receivedRequestTrapV4,
                       Vela::Ptr<const MessageTrap> receivedRequestTrapV6,
                       Vela::Ptr<const Bridging::Config> bridgingConfig,
                       Vela::Ptr<const Quarry::Bridging::Status> bridgingStatus,
                       Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus,
                       Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus,
                       Vela::Ptr<const RemoteBindingStatus> remoteBindingStatus,
                       const Vela::Ptr<const Arp::Table::Status>& arpStatus,
                       Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpVrMacStatus,
                       const Vela::Ptr<const Arp::InputConfig>& arpInputConfig,
                       Vela::Ptr<LocalBindingRecord> localBindingRecord,
                       Vela::Ptr<const Evpn::EvpnStatus> evpnStatus,
                       Vela::Ptr<ArpInputConfigTrigger> arpInputConfigTrigger);

    const char* typeName() const noexcept override { return "BindingDiscoverySm"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// Takes a candidate into the record, or counts why not. A binding that stands already stays,
    /// and its address is posted to be looked at again. The flag says whether a frame was seen; it
    /// changes nothing.
    void createLocalBinding(Bridging::VlanId vlanId, const Zinc::IpGenAddr& ipAddress,
                            const Zinc::EthAddr& macAddress, bool bindingDiscoveryEvent);
    /// Removes a binding of the record, and counts it.
    void deleteLocalBinding(const Vela::Ptr<LocalBinding>& binding);

    /// A VLAN has both listeners or neither.
    const VarpReplyV4SmCollection& varpReplyV4SmCollection() const { return varpReplyV4Sm_; }
    const VarpReplyV6SmCollection& varpReplyV6SmCollection() const { return varpReplyV6Sm_; }
    Vela::Ptr<BindingDiscoveryVarpReplyV4Sm> varpReplyV4Sm(Bridging::VlanId vlanId) const {
        return varpReplyV4Sm_.value(vlanId);
    }
    Vela::Ptr<BindingDiscoveryVarpReplyV6Sm> varpReplyV6Sm(Bridging::VlanId vlanId) const {
        return varpReplyV6Sm_.value(vlanId);
    }
    /// Find or create the listener of a VLAN that has L3 information.
    Vela::Ptr<BindingDiscoveryVarpReplyV4Sm> varpReplyV4SmIs(Bridging::VlanId vlanId);
    Vela::Ptr<BindingDiscoveryVarpReplyV6Sm> varpReplyV6SmIs(Bridging::VlanId vlanId);
    void varpReplyV4SmDel(Bridging::VlanId vlanId);
    void varpReplyV6SmDel(Bridging::VlanId vlanId);
    void varpReplyV4SmDelAll();
    void varpReplyV6SmDelAll();

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;

  private:
    void handleTrappedRequest(const MessageTrap& trap);
    bool isLocalMultihomedHost(const Vela::Ptr<const TrappedMessage>& trappedRequest);
    void handleFdbStatus(const Bridging::HostKey& hostKey);
    void processLocalMac(const VlanIdMacAddress& vlanIdMacAddress, Zinc::IntfId intfId);
    void processRemoteMac(const VlanIdMacAddress& vlanIdMacAddress);
    void handleRemoteBinding();
    void handleVlanL3Info(Bridging::VlanId vlanId);
    void handleVarpVirtualMac();
    void updateAllVlans();
    template <class Listener>
    Vela::Ptr<Listener> listener(Zinc::AddressFamily af, Bridging::VlanId vlanId);
    bool remoteIpToMacIsLocalMultihomed(const Vela::Ptr<const VlanL3Info>& vlanL3Info,
                                        const Zinc::IpGenAddr& ipAddress,
                                        const Zinc::EthAddr& macAddress) const;
    bool macIsLocalMultihomed(const RemoteMacToIp& remoteMacToIp, Zinc::IntfId intfId,
                              const Vela::Ptr<const VlanL3Info>& vlanL3Info) const;
    void count(ArpSuppressionCounterId id) { arpSuppressionCounterStatus_->increment(id); }

    const Vela::Ptr<Vela::TaskScheduler> scheduler_;
    const Vela::Ptr<const MessageTrap> receivedRequestTrapV4_;
    const Vela::Ptr<const MessageTrap> receivedRequestTrapV6_;
    const Vela::Ptr<const Bridging::Config> bridgingConfig_;
    const Vela::Ptr<const Quarry::Bridging::Status> bridgingStatus_;
    const Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus_;
    const Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus_;
    const Vela::Ptr<const RemoteBindingStatus> remoteBindingStatus_;
    const Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpVrMacStatus_;
    const Vela::Ptr<LocalBindingRecord> localBindingRecord_;
    const Vela::Ptr<const Evpn::EvpnStatus> evpnStatus_;
    const Vela::Ptr<ArpInputConfigTrigger> arpInputConfigTrigger_;
    Vela::Reaction trappedV4_;
    Vela::Reaction trappedV6_;
    Vela::Reaction fdbStatus_;
    Vela::Reaction remoteBinding_;
    Vela::Reaction vlanL3Info_;
    Vela::Reaction varpVirtualMac_;
    VarpReplyV4SmCollection varpReplyV4Sm_;
    VarpReplyV6SmCollection varpReplyV6Sm_;
};

} // namespace ArpSuppression
