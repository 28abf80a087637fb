#include "ArpSuppression/ArpSuppressionSm.h"

#include "ArpSuppression/ArpStatusHelper.h"
#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"
#include "Platform/Packet/Headers.h"
#include "Platform/Packet/Pkt.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/SwiftlogType.h"

#include <system_error>
#include <utility>

namespace ArpSuppression {

namespace {

using Id = ArpSuppressionCounterId;
using Vela::assertThat;

constexpr size_t replyBytes =
    Vela::EthHdr::wireBytes + Vela::Dot1qHdr::wireBytes + Vela::ArpHdr::wireBytes;
static_assert(replyBytes == 46);

/// A decision, as the ring-buffer file keeps it.
struct DecisionRecord {
    uint16_t vlanId;
    Vela::SwiftlogText<31> srcIntf;
    Zinc::IpGenAddr senderIpAddress;
    Zinc::EthAddr senderMacAddress;
    Zinc::IpGenAddr targetIpAddress;
    Zinc::EthAddr localBindingMacAddress;
    Zinc::EthAddr remoteBindingMacAddress;
    char connectionType;
    bool localArpReq;
    bool targetIsMine;
    bool probe;
    bool announcement;
    Vela::SwiftlogText<31> fdbIntf;
};
const Vela::SwiftlogType<DecisionRecord> decisionRecord{
    "ArpSuppression/ArpSuppressionSm",
    "handleTrappedRequest",
    5,
    {{"trappedRequest=<vlanId=", &DecisionRecord::vlanId},
     {";srcIntf=", &DecisionRecord::srcIntf},
     {";senderIpAddress=", &DecisionRecord::senderIpAddress},
     {";senderMacAddress=", &DecisionRecord::senderMacAddress},
     {";targetIpAddress=", &DecisionRecord::targetIpAddress},
     {"> localBindingMacAddress=", &DecisionRecord::localBindingMacAddress},
     {" remoteBindingMacAddress=", &DecisionRecord::remoteBindingMacAddress},
     {" connectionType=", &DecisionRecord::connectionType},
     {" localArpReq=", &DecisionRecord::localArpReq},
     {" targetIsMine=", &DecisionRecord::targetIsMine},
     {" probe=", &DecisionRecord::probe},
     {" announcement=", &DecisionRecord::announcement},
     {" fdbIntf=", &DecisionRecord::fdbIntf}}};

bool isUsableAddress(const Zinc::IpGenAddr& ipAddress) {
    return !ipAddress.isUnset() && !ipAddress.isUnspecified() && !ipAddress.isMulticast();
}

} // namespace

ArpSuppressionSm::ArpSuppressionSm(
    Vela::Ptr<const MessageTrap> receivedRequestTrap, Vela::Ptr<MessageQueue> reinjectMessageQueue,
    Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus,
    Vela::Ptr<LocalRequestRecord> localRequestRecord,
    Vela::Ptr<const RemoteBindingConfig> remoteBindingConfig,
    Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus, Vela::Ptr<const Arp::Table::Status> arpStatus,
    Vela::Ptr<const Bridging::Config> bridgingConfig,
    Vela::Ptr<const Quarry::Bridging::Status> bridgingStatus,
    Vela::Ptr<const Evpn::EvpnStatus> evpnStatus,
    Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpVrMacStatus,
    Vela::Ptr<const Vrf::VrfIdMap::NameToIdMap> vrfNameToIdMap,
    Vela::Ptr<ArpInputConfigTrigger> arpInputConfigTrigger)
    : receivedRequestTrap_(std::move(receivedRequestTrap)),
      reinjectMessageQueue_(std::move(reinjectMessageQueue)),
      arpSuppressionCounterStatus_(std::move(arpSuppressionCounterStatus)),
      localRequestRecord_(std::move(localRequestRecord)),
      remoteBindingConfig_(std::move(remoteBindingConfig)),
      vlanL3InfoStatus_(std::move(vlanL3InfoStatus)), arpStatus_(std::move(arpStatus)),
      bridgingConfig_(std::move(bridgingConfig)), bridgingStatus_(std::move(bridgingStatus)),
      evpnStatus_(std::move(evpnStatus)), fhrpVrMacStatus_(std::move(fhrpVrMacStatus)),
      vrfNameToIdMap_(std::move(vrfNameToIdMap)),
      arpInputConfigTrigger_(std::move(arpInputConfigTrigger)) {}

void ArpSuppressionSm::handleInitialized() {
    TRACE(trace, 8, this, "handleInitialized");
    rawTxPam_ = Vela::make<Vela::RawTxPam>("RawTxPam");
    rawTxPam_->hasNotificationActiveIs(true);
    rawTxPam_->ethProtocolIs(3);
    try {
        rawTxPam_->enabledIs(true);
    } catch (const std::system_error& error) {
        // Every reply fails and is counted: an operator must find out, the rest goes on.
        TRACE(trace, 0, this, "what=" << error.what());
    }
    fabricInterfaceWatch_ = vlanL3InfoStatus_->findOrCreateVrfInterfaceWatch("fabric", "default");
    expectedReaction_ = receivedRequestTrap_->expectedNotifier().react(
        this, [this](const MessageTrap::Expected& expected) {
            const auto& bindings = remoteBindingConfig_->remoteBindingCollection();
            if (expected.step == MessageTrap::Expected::Step::first) {
                fetched_ = bindings.fetchBucket(expected.key);
            } else {
                bindings.fetchRecord(fetched_);
            }
        });
    trappedRequestReaction_ = receivedRequestTrap_->lastTrappedMessageAttribute().react(
        this, [this] { handleTrappedRequest(); });
    moreFollowsReaction_ = receivedRequestTrap_->moreFollowsAttribute().react(this, [this] {
        if (!receivedRequestTrap_->moreFollows()) {
            transmitReplies();
        }
    });
}

void ArpSuppressionSm::handleDestroy() noexcept {
    TRACE(trace, 8, this, "handleDestroy");
    transmitReplies();
    rawTxPam_.reset();
    fabricInterfaceWatch_.reset();
}

void ArpSuppressionSm::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "ArpSuppressionSm\n");
    context.child(indent + 2, "receivedRequestTrap", receivedRequestTrap_.get());
    context.child(indent + 2, "reinjectMessageQueue", reinjectMessageQueue_.get());
    context.child(indent + 2, "localRequestRecord", localRequestRecord_.get());
    context.child(indent + 2, "vlanL3InfoStatus", vlanL3InfoStatus_.get());
}

void ArpSuppressionSm::handleTrappedRequest() {
    Vela::Ptr<const TrappedMessage> trappedRequest = receivedRequestTrap_->lastTrappedMessage();
    if (!trappedRequest) {
        return;
    }
    TargetFacts facts = targetFacts(trappedRequest->vlanId(), trappedRequest->targetIpAddress());
    Asker asker = askerOf(*trappedRequest, facts);
    Decision decision = decide(facts, asker);
    if (decision.rule == DecisionRule::remoteVxlan) {
        TRACE(trace, 8, this,
              "handleTrappedRequest"
                  << " ignore request for remote VXLAN binding");
        return;
    }
    TRACE(trace, 8, this,
          "trappedRequest=" << trappedRequest
                            << " localBindingMacAddress=" << facts.localBindingMacAddress
                            << " remoteBindingMacAddress=" << facts.remoteBindingMacAddress
                            << " connectionType=" << facts.connectionType << " localArpReq="
                            << asker.localArpReq << " targetIsMine=" << facts.targetIsMine
                            << " probe=" << asker.probe << " announcement=" << asker.announcement
                            << " fdbIntf=" << facts.fdbEntry.intf);
    decisionRecord.write({trappedRequest->vlanId().value(), trappedRequest->srcIntfId().name(),
                          trappedRequest->senderIpAddress(), trappedRequest->senderMacAddress(),
                          trappedRequest->targetIpAddress(), facts.localBindingMacAddress,
                          facts.remoteBindingMacAddress,
                          macConnectionTypeChar(facts.connectionType), asker.localArpReq,
                          facts.targetIsMine, asker.probe, asker.announcement,
                          facts.fdbEntry.intf.name()});
    carryOut(trappedRequest, decision);
}

/// The tables are far larger than the processor's caches: what one lookup needs is on its way from
/// memory while another is at work.
TargetFacts ArpSuppressionSm::targetFacts(Bridging::VlanId vlanId,
                                          const Zinc::IpGenAddr& targetIp) const {
    TargetFacts facts;
    auto remote = remoteBindingConfig_->remoteBindingCollection().lookup({vlanId, targetIp});
    facts.hasRemoteBinding = remote.find();
    facts.remoteBindingMacAddress = remote.record().macAddress;
    Bridging::Fid fid = bridgingConfig_->fid(vlanId);
    auto fdb =
        bridgingStatus_->quarryFdbStatusCollection().lookup({fid, facts.remoteBindingMacAddress});

    facts.localBindingMacAddress = lookupLocalDynamicBinding(vlanId, targetIp);
    bool isLocal = !facts.localBindingMacAddress.isZero();
    if (!isLocal && remote.record().vxlan == 1) {
        facts.ignoreVxlan = true;
        return facts;
    }
    fdb.advance();
    if (auto vlanL3Info = vlanL3InfoStatus_->vlanL3Info(vlanId)) {
        const bool* mine = vlanL3Info->ipAddressCollection().find(targetIp);
        facts.targetIsMine = mine && *mine;
    }
    if (isLocal) {
        facts.bindingMacAddress = facts.localBindingMacAddress;
        facts.fdbEntry = bridgingStatus_->quarryFdbStatus({fid, facts.bindingMacAddress});
    } else {
        facts.bindingMacAddress = facts.remoteBindingMacAddress;
        fdb.find();
        facts.fdbEntry = fdb.record();
    }
    facts.connectionType = getMacConnectionType(vlanId, facts.bindingMacAddress, facts.fdbEntry);
    return facts;
}

Asker ArpSuppressionSm::askerOf(const TrappedMessage& trappedRequest,
                                const TargetFacts& facts) const {
    Asker asker;
    asker.probe = trappedRequest.senderIpAddress().isUnspecified();
    asker.announcement =
        !asker.probe && trappedRequest.senderIpAddress() == trappedRequest.targetIpAddress();
    asker.localArpReq = localArpRequest(trappedRequest);
    Zinc::IntfId srcIntfId = trappedRequest.srcIntfId();
    asker.port = !srcIntfId                         ? Asker::Port::unknown
                 : srcIntfId == facts.fdbEntry.intf ? Asker::Port::ofTarget
                                                    : Asker::Port::other;
    return asker;
}

void ArpSuppressionSm::carryOut(const Vela::Ptr<const TrappedMessage>& trappedRequest,
                                const Decision& decision) {
    if (decision.counter) {
        count(*decision.counter);
    }
    if (auto counter = counterOf(decision.action)) {
        count(*counter);
    }
    if (decision.action == DecisionAction::sendToRemoteTeps) {
        sendToRemoteTeps(trappedRequest);
    } else if (decision.action != DecisionAction::nothing) {
        issueReply(*trappedRequest, decision);
    }
}

Zinc::EthAddr ArpSuppressionSm::lookupLocalDynamicBinding(Bridging::VlanId vlanId,
                                                          const Zinc::IpGenAddr& ipAddress) const {
    auto vlanL3Info = vlanL3InfoStatus_->vlanL3Info(vlanId);
    if (!vlanL3Info) {
        TRACE(trace, 8, this, "No vlanL3Info, HER vlanId=" << vlanId);
        return {};
    }
    const auto& vrfInfo = vlanL3Info->vrfInfo();
    Vrf::VrfId vrfId = vrfInfo ? vrfNameToIdMap_->vrfId(vrfInfo->name()) : Vrf::VrfId();
    auto lookup =
        ArpStatusHelper::lookup(*arpStatus_, {vrfId, vlanL3Info->vlanIntfId(), ipAddress});
    bool exists = lookup.find();
    const Arp::Table::ArpEntry& entry = lookup.record();
    TRACE(trace, 8, this,
          "vlanL3Info=" << vlanL3Info << " ipAddress=" << ipAddress
                        << " arpStatusEntry=" << (exists ? entry.toStrep() : "N/A"));
    return exists && !entry.isStatic ? entry.macAddress : Zinc::EthAddr();
}

MacConnectionType
ArpSuppressionSm::getMacConnectionType(Bridging::VlanId vlanId, const Zinc::EthAddr& macAddress,
                                       const Bridging::QuarryFdbStatus& fdbEntry) const {
    if (fdbEntry == Bridging::QuarryFdbStatus()) {
        TRACE(trace, 8, this, "No fdb vlanId=" << vlanId << " macAddress=" << macAddress);
        return MacConnectionType::unknown;
    }
    bool isRemote = !Bridging::isEntryTypeLocal(fdbEntry.entryType) ||
                    Bridging::isEntryTypeEvpn(fdbEntry.entryType);
    TRACE(trace, 8, this,
          "vlanId=" << vlanId << " macAddress=" << macAddress
                    << " fdbEntryType=" << fdbEntry.entryType << " intfId=" << fdbEntry.intf
                    << " isRemote=" << isRemote);
    if (isRemote) {
        return MacConnectionType::remote;
    }
    auto segment = evpnStatus_ ? evpnStatus_->segmentStatus(fdbEntry.intf) : nullptr;
    if (!segment) {
        return MacConnectionType::localSinglehomed;
    }
    return segment->dfTep(vlanId) ? MacConnectionType::localMultihomedDf
                                  : MacConnectionType::localMultihomedNonDf;
}

Zinc::EthAddr ArpSuppressionSm::varpVirtualMac() const {
    return fhrpVrMacStatus_ ? fhrpVrMacStatus_->varpVirtualMac() : Zinc::EthAddr();
}

bool ArpSuppressionSm::localArpRequest(const TrappedMessage& trappedRequest) const {
    const Zinc::EthAddr& sender = trappedRequest.senderMacAddress();
    return sender == bridgingConfig_->bridgeMacAddr() || sender == varpVirtualMac();
}

void ArpSuppressionSm::issueReply(const TrappedMessage& trappedRequest, const Decision& decision) {
    const char* what =
        decision.action == DecisionAction::bind                ? "localReq"
        : decision.action == DecisionAction::unknownSourcePort ? "unknown source port"
        : decision.action == DecisionAction::samePort          ? "source and target on same port"
                                                               : "send reply";
    TRACE(trace, 8, this,
          what << " trappedRequest=" << trappedRequest << " macAddress=" << decision.macAddress);
    if (decision.action == DecisionAction::bind) {
        maybeCreateStaticBinding(trappedRequest.vlanId(), trappedRequest.targetIpAddress(),
                                 decision.macAddress, false);
    } else if (decision.action == DecisionAction::reply) {
        sendArpReply(trappedRequest.vlanId(), trappedRequest.targetIpAddress(), decision.macAddress,
                     trappedRequest.senderIpAddress(), trappedRequest.senderMacAddress());
    }
}

std::optional<Id> ArpSuppressionSm::replyHindrance() const {
    return fabricInterfaceWatch_->usable() ? std::nullopt : std::optional(Id::replyFabricNotUsable);
}

void ArpSuppressionSm::sendArpReply(Bridging::VlanId vlanId, const Zinc::IpGenAddr& senderIp,
                                    const Zinc::EthAddr& senderMac, const Zinc::IpGenAddr& targetIp,
                                    const Zinc::EthAddr& targetMac) {
    TRACE(trace, 8, this,
          "vlanId=" << vlanId << " senderIp=" << senderIp << " senderMac=" << senderMac
                    << " targetIp=" << targetIp << " targetMac=" << targetMac);
    if (auto hindrance = replyHindrance()) {
        TRACE(trace, 8, this,
              "fabric device not usable"
                  << " fabricInterfaceWatch=" << fabricInterfaceWatch_);
        count(*hindrance);
        return;
    }
    assertThat(senderIp.af() != Zinc::ipv6(), "false");
    assertThat(senderIp.af() == Zinc::ipv4(), "__null != replyPkt");
    auto replyPkt = Vela::pktManager().newPkt({}, replyBytes);
    Vela::WireWriter writer(replyPkt->prepend(replyBytes));
    Vela::EthHdr{targetMac, senderMac, Vela::EtherType::dot1q}.write(writer);
    Vela::Dot1qHdr{.vlanId = vlanId.value(), .etherType = Vela::EtherType::arp}.write(writer);
    Vela::ArpHdr arp;
    arp.operation = Vela::ArpHdr::reply;
    arp.senderMac = senderMac;
    arp.senderIp = senderIp.v4();
    arp.targetMac = targetMac;
    arp.targetIp = targetIp.v4();
    arp.write(writer);
    replies_.push_back(std::move(replyPkt));
    if (!receivedRequestTrap_->moreFollows()) {
        transmitReplies();
    }
}

void ArpSuppressionSm::transmitReplies() {
    std::span<const boost::intrusive_ptr<Vela::Pkt>> left = replies_;
    while (!left.empty()) {
        left = left.subspan(rawTxPam_->transmit(left, fabricInterfaceWatch_->kniIntfIfIndex()));
        if (left.empty()) {
            break;
        }
        TRACE(trace, 8, this,
              " fabricInterfaceWatch=" << fabricInterfaceWatch_ << " errno=" << errnoText());
        count(Id::replyTransmitFailed);
        left = left.subspan(1);
    }
    replies_.clear();
}

void ArpSuppressionSm::sendToRemoteTeps(const Vela::Ptr<const TrappedMessage>& trappedRequest) {
    TRACE(trace, 8, this, "trappedRequest=" << trappedRequest);
    if (reinjectMessageQueue_->enqueueMessage(trappedRequest)) {
        count(Id::reinjectQueueDroppedOldest);
    }
}

void ArpSuppressionSm::maybeCreateStaticBinding(Bridging::VlanId vlanId,
                                                const Zinc::IpGenAddr& ipAddress,
                                                const Zinc::EthAddr& macAddress, bool onlyUpdate) {
    TRACE(trace, 8, this,
          "vlanId=" << vlanId << " ipAddress=" << ipAddress << " macAddress=" << macAddress
                    << " onlyUpdate=" << onlyUpdate);
    Id outcome = staticBindingCounter(vlanId, ipAddress, macAddress);
    count(outcome);
    if (outcome == Id::staticBindingTriggered) {
        auto vlanL3Info = vlanL3InfoStatus_->vlanL3Info(vlanId);
        arpInputConfigTrigger_->event(VrfIpAddress::fromVlanL3Info(vlanL3Info, ipAddress), true);
    }
}

Id ArpSuppressionSm::staticBindingCounter(Bridging::VlanId vlanId, const Zinc::IpGenAddr& ipAddress,
                                          const Zinc::EthAddr& macAddress) const {
    if (macAddress.isZero() || macAddress.isMulticast()) {
        return Id::staticBindingBadMac;
    }
    if (!isUsableAddress(ipAddress)) {
        return Id::staticBindingBadIp;
    }
    if (macAddress == bridgingConfig_->bridgeMacAddr()) {
        TRACE(trace, 8, this, "Not adding binding for bridgeMacAddr");
        return Id::staticBindingBridgeMac;
    }
    if (macAddress == varpVirtualMac()) {
        TRACE(trace, 8, this, "Not adding binding for varpVirtualMac");
        return Id::staticBindingVarpMac;
    }
    if (!vlanL3InfoStatus_->usableVlanL3Info(vlanId)) {
        TRACE(trace, 8, this, "No vlanL3Info vlanId=" << vlanId);
        return Id::staticBindingNoVlanL3Info;
    }
    return Id::staticBindingTriggered;
}

} // namespace ArpSuppression
