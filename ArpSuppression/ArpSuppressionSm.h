#pragma once

#include "ArpSuppression/ArpInputConfigTrigger.h"
#include "ArpSuppression/ArpSuppression.h"
#include "ArpSuppression/LocalRequestRecord.h"
#include "ArpSuppression/SuppressionDecision.h"
#include "ArpSuppression/TrappedMessage.h"
#include "Platform/Model/Arp/TableStatus.h"
#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"
#include "Platform/Model/ArpSuppression/RemoteBindingConfig.h"
#include "Platform/Model/Bridging/Config.h"
#include "Platform/Model/Bridging/FdbStatus.h"
#include "Platform/Model/Evpn/EvpnStatus.h"
#include "Platform/Model/Routing/Fhrp/VirtualRouterMacStatus.h"
#include "Platform/Model/Vrf/NameToIdMap.h"
#include "Platform/Packet/RawTxPam.h"

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace ArpSuppression {

/// Decides what happens to each trapped request: it is answered for a host that EVPN says is
/// elsewhere, goes on to the remote tunnel end points, is left to a host that is here, or, where
/// the switch itself has asked, becomes a neighbour entry. Each request is decided in one call, and
/// nothing is remembered.
class ArpSuppressionSm final : public Vela::Entity {
  public:
    ArpSuppressionSm(Vela::Ptr<const MessageTrap> receivedRequestTrap,
                     Vela::Ptr<MessageQueue> reinjectMessageQueue,
                     Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus,
                     Vela::Ptr<LocalRequestRecord> localRequestRecord,
                     Vela::Ptr<const RemoteBindingConfig> remoteBindingConfig,
                     Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus,
                     Vela::Ptr<const Arp::Table::Status> arpStatus,
                     Vela::Ptr<const Bridging::Config> bridgingConfig,
                     Vela::Ptr<const Quarry::Bridging::Status> bridgingStatus,
                     Vela::Ptr<const Evpn::EvpnStatus> evpnStatus,
                     Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpVrMacStatus,
                     Vela::Ptr<const Vrf::VrfIdMap::NameToIdMap> vrfNameToIdMap,
                     Vela::Ptr<ArpInputConfigTrigger> arpInputConfigTrigger);

    const char* typeName() const noexcept override { return "ArpSuppressionSm"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// The MAC address of a host that the kernel has learnt; zero where it has not, or where the
    /// entry is static.
    Zinc::EthAddr lookupLocalDynamicBinding(Bridging::VlanId vlanId,
                                            const Zinc::IpGenAddr& ipAddress) const;
    MacConnectionType getMacConnectionType(Bridging::VlanId vlanId, const Zinc::EthAddr& macAddress,
                                           const Bridging::QuarryFdbStatus& fdbEntry) const;
    /// Whether the switch itself, or its virtual router, sent the request.
    bool localArpRequest(const TrappedMessage& trappedRequest) const;
    /// What the decision about a request for that address rests on. Looks only.
    TargetFacts targetFacts(Bridging::VlanId vlanId, const Zinc::IpGenAddr& targetIp) const;
    /// What would be counted because a reply could not be sent now; nothing if it could.
    std::optional<ArpSuppressionCounterId> replyHindrance() const;
    /// What maybeCreateStaticBinding would count now: staticBindingTriggered, or why not.
    ArpSuppressionCounterId staticBindingCounter(Bridging::VlanId vlanId,
                                                 const Zinc::IpGenAddr& ipAddress,
                                                 const Zinc::EthAddr& macAddress) const;
    /// Hands a binding to the writer of neighbour entries unless it is of no use.
    void maybeCreateStaticBinding(Bridging::VlanId vlanId, const Zinc::IpGenAddr& ipAddress,
                                  const Zinc::EthAddr& macAddress, bool onlyUpdate);
    /// Sends an ARP reply out of "fabric", tagged with the VLAN; together with those to the
    /// requests that follow at once.
    void sendArpReply(Bridging::VlanId vlanId, const Zinc::IpGenAddr& senderIp,
                      const Zinc::EthAddr& senderMac, const Zinc::IpGenAddr& targetIp,
                      const Zinc::EthAddr& targetMac);

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;

  private:
    void handleTrappedRequest();
    Asker askerOf(const TrappedMessage& trappedRequest, const TargetFacts& facts) const;
    void carryOut(const Vela::Ptr<const TrappedMessage>& trappedRequest, const Decision& decision);
    void issueReply(const TrappedMessage& trappedRequest, const Decision& decision);
    void transmitReplies();
    void sendToRemoteTeps(const Vela::Ptr<const TrappedMessage>& trappedRequest);
    Zinc::EthAddr varpVirtualMac() const;
    void count(ArpSuppressionCounterId id) { arpSuppressionCounterStatus_->increment(id); }

    Vela::Ptr<const MessageTrap> receivedRequestTrap_;
    Vela::Ptr<MessageQueue> reinjectMessageQueue_;
    Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus_;
    Vela::Ptr<LocalRequestRecord> localRequestRecord_;
    Vela::Ptr<const RemoteBindingConfig> remoteBindingConfig_;
    Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus_;
    Vela::Ptr<const Arp::Table::Status> arpStatus_;
    Vela::Ptr<const Bridging::Config> bridgingConfig_;
    Vela::Ptr<const Quarry::Bridging::Status> bridgingStatus_;
    Vela::Ptr<const Evpn::EvpnStatus> evpnStatus_;
    Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpVrMacStatus_;
    Vela::Ptr<const Vrf::VrfIdMap::NameToIdMap> vrfNameToIdMap_;
    Vela::Ptr<ArpInputConfigTrigger> arpInputConfigTrigger_;
    Vela::Owned<Vela::RawTxPam> rawTxPam_;
    Vela::Ptr<VrfInterfaceWatch> fabricInterfaceWatch_;
    std::vector<boost::intrusive_ptr<Vela::Pkt>> replies_; // that wait to be sent together
    uint32_t fetched_ = 0;                                 // of the message that is expected
    Vela::Reaction expectedReaction_;
    Vela::Reaction trappedRequestReaction_;
    Vela::Reaction moreFollowsReaction_;
};

/// Takes what the constructor takes.
template <class... References>
Vela::Ptr<ArpSuppressionSm> arpSuppressionSmFactory(References&&... references) {
    return Vela::make<ArpSuppressionSm>(std::forward<References>(references)...);
}

} // namespace ArpSuppression
