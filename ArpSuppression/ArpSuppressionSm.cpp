#include "ArpSuppression/ArpSuppressionSm.h"

#include "ArpSuppression/ArpStatusHelper.h"
#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"
#include "Platform/Packet/Headers.h"
#include "Platform/Packet/Pkt.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/SwiftlogType.h"

#include <array>
#include <boost/system/error_code.hpp>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

namespace ArpSuppression {

namespace {

using Id = ArpSuppressionCounterId;
using Vela::assertThat;

constexpr size_t replyBytes =
    Vela::EthHdr::wireBytes + Vela::Dot1qHdr::wireBytes + Vela::ArpHdr::wireBytes;
static_assert(replyBytes == 46);

constexpr std::array<const char*, 5> connectionNames = {
    "unknown", "remote", "localSinglehomed", "localMultihomedDf", "localMultihomedNonDf"};

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

char macConnectionTypeChar(MacConnectionType type) {
    constexpr std::string_view chars = "URSDN";
    auto value = static_cast<size_t>(type);
    assertThat(value < chars.size(), "false");
    return chars[value];
}

const char* stringValue(MacConnectionType type) {
    auto value = static_cast<size_t>(type);
    assertThat(value < connectionNames.size(), "false");
    return connectionNames[value];
}

std::string valueToStrep(MacConnectionType type) {
    return stringValue(type);
}

/// What a decision rests on.
struct ArpSuppressionSm::Facts {
    Zinc::EthAddr localBindingMacAddress;
    bool hasRemoteBinding = false;
    Zinc::EthAddr remoteBindingMacAddress;
    bool ignoreVxlan = false; // there is a binding, and who has it answers by itself
    Zinc::EthAddr bindingMacAddress;
    Bridging::QuarryFdbStatus fdbEntry;
    MacConnectionType connectionType = MacConnectionType::unknown;
    bool targetIsMine = false;
    bool probe = false;
    bool announcement = false;
    bool localArpReq = false;
};

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
    Facts facts = gather(*trappedRequest);
    if (facts.ignoreVxlan) {
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
                            << facts.localArpReq << " targetIsMine=" << facts.targetIsMine
                            << " probe=" << facts.probe << " announcement=" << facts.announcement
                            << " fdbIntf=" << facts.fdbEntry.intf);
    decisionRecord.write({trappedRequest->vlanId().value(), trappedRequest->srcIntfId().name(),
                          trappedRequest->senderIpAddress(), trappedRequest->senderMacAddress(),
                          trappedRequest->targetIpAddress(), facts.localBindingMacAddress,
                          facts.remoteBindingMacAddress,
                          macConnectionTypeChar(facts.connectionType), facts.localArpReq,
                          facts.targetIsMine, facts.probe, facts.announcement,
                          facts.fdbEntry.intf.name()});
    decide(trappedRequest, facts);
}

/// The tables are far larger than the processor's caches: what one lookup needs is on its way from
/// memory while another is at work.
ArpSuppressionSm::Facts ArpSuppressionSm::gather(const TrappedMessage& trappedRequest) const {
    Facts facts;
    Bridging::VlanId vlanId = trappedRequest.vlanId();
    const Zinc::IpGenAddr& targetIp = trappedRequest.targetIpAddress();
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
    facts.probe = trappedRequest.senderIpAddress().isUnspecified();
    facts.announcement = !facts.probe && trappedRequest.senderIpAddress() == targetIp;
    facts.localArpReq = localArpRequest(trappedRequest);

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

void ArpSuppressionSm::decide(const Vela::Ptr<const TrappedMessage>& trappedRequest,
                              const Facts& facts) {
    if (facts.targetIsMine) {
        count(Id::targetIsMine);
    } else if (facts.announcement || facts.probe) {
        sendToRemoteTeps(trappedRequest);
    } else {
        decideByConnection(trappedRequest, facts);
    }
}

/// Who is here answers for itself, with two exceptions: what the switch itself asks about a host on
/// a segment, and a segment without a forwarder, whose host may not be reached by a flood.
void ArpSuppressionSm::decideByConnection(const Vela::Ptr<const TrappedMessage>& trappedRequest,
                                          const Facts& facts) {
    const Zinc::EthAddr& remoteMac = facts.remoteBindingMacAddress;
    switch (facts.connectionType) {
    case MacConnectionType::unknown:
    case MacConnectionType::remote:
        if (facts.hasRemoteBinding) {
            count(Id::answeredFromRemoteBinding);
            issueReply(*trappedRequest, facts.bindingMacAddress, facts.fdbEntry);
        } else {
            sendToRemoteTeps(trappedRequest);
        }
        return;
    case MacConnectionType::localSinglehomed:
        count(Id::localTargetNotAnswered);
        return;
    case MacConnectionType::localMultihomedDf:
        if (facts.localArpReq && !remoteMac.isZero()) {
            count(Id::answeredForDesignatedForwarder);
            issueReply(*trappedRequest, remoteMac, facts.fdbEntry);
        } else {
            count(Id::localTargetNotAnswered);
        }
        return;
    case MacConnectionType::localMultihomedNonDf:
        if (facts.localArpReq && !facts.localBindingMacAddress.isZero()) {
            if (remoteMac.isZero()) {
                sendToRemoteTeps(trappedRequest);
            } else {
                count(Id::answeredForNonDesignatedForwarder);
                issueReply(*trappedRequest, remoteMac, facts.fdbEntry);
            }
        } else {
            count(Id::answeredForNonDesignatedForwarder);
            issueReply(*trappedRequest, facts.bindingMacAddress, facts.fdbEntry);
        }
        return;
    }
    assertThat(false, "false");
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

void ArpSuppressionSm::issueReply(const TrappedMessage& trappedRequest,
                                  const Zinc::EthAddr& macAddress,
                                  const Bridging::QuarryFdbStatus& fdbEntry) {
    if (localArpRequest(trappedRequest)) {
        TRACE(trace, 8, this,
              "localReq"
                  << " trappedRequest=" << trappedRequest << " macAddress=" << macAddress);
        maybeCreateStaticBinding(trappedRequest.vlanId(), trappedRequest.targetIpAddress(),
                                 macAddress, false);
    } else if (!trappedRequest.srcIntfId()) {
        TRACE(trace, 8, this,
              "unknown source port"
                  << " trappedRequest=" << trappedRequest << " macAddress=" << macAddress);
        count(Id::unknownSourcePort);
    } else if (trappedRequest.srcIntfId() == fdbEntry.intf) {
        TRACE(trace, 8, this,
              "source and target on same port"
                  << " trappedRequest=" << trappedRequest << " macAddress=" << macAddress);
        count(Id::sourceAndTargetOnSamePort);
    } else {
        TRACE(trace, 8, this,
              "send reply"
                  << " trappedRequest=" << trappedRequest << " macAddress=" << macAddress);
        sendArpReply(trappedRequest.vlanId(), trappedRequest.targetIpAddress(), macAddress,
                     trappedRequest.senderIpAddress(), trappedRequest.senderMacAddress());
    }
}

void ArpSuppressionSm::sendArpReply(Bridging::VlanId vlanId, const Zinc::IpGenAddr& senderIp,
                                    const Zinc::EthAddr& senderMac, const Zinc::IpGenAddr& targetIp,
                                    const Zinc::EthAddr& targetMac) {
    TRACE(trace, 8, this,
          "vlanId=" << vlanId << " senderIp=" << senderIp << " senderMac=" << senderMac
                    << " targetIp=" << targetIp << " targetMac=" << targetMac);
    if (!fabricInterfaceWatch_->usable()) {
        TRACE(trace, 8, this,
              "fabric device not usable"
                  << " fabricInterfaceWatch=" << fabricInterfaceWatch_);
        count(Id::replyFabricNotUsable);
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
        boost::system::error_code error(errno, boost::system::system_category());
        TRACE(trace, 8, this,
              " fabricInterfaceWatch=" << fabricInterfaceWatch_ << " errno=" << error.message());
        count(Id::replyTransmitFailed);
        left = left.subspan(1);
    }
    replies_.clear();
}

void ArpSuppressionSm::sendToRemoteTeps(const Vela::Ptr<const TrappedMessage>& trappedRequest) {
    TRACE(trace, 8, this, "trappedRequest=" << trappedRequest);
    count(Id::sentToRemoteTeps);
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
    if (macAddress.isZero() || macAddress.isMulticast()) {
        count(Id::staticBindingBadMac);
        return;
    }
    if (!isUsableAddress(ipAddress)) {
        count(Id::staticBindingBadIp);
        return;
    }
    if (macAddress == bridgingConfig_->bridgeMacAddr()) {
        TRACE(trace, 8, this, "Not adding binding for bridgeMacAddr");
        count(Id::staticBindingBridgeMac);
        return;
    }
    if (macAddress == varpVirtualMac()) {
        TRACE(trace, 8, this, "Not adding binding for varpVirtualMac");
        count(Id::staticBindingVarpMac);
        return;
    }
    auto vlanL3Info = vlanL3InfoStatus_->usableVlanL3InfoNonConst(vlanId);
    if (!vlanL3Info) {
        TRACE(trace, 8, this, "No vlanL3Info vlanId=" << vlanId);
        count(Id::staticBindingNoVlanL3Info);
        return;
    }
    count(Id::staticBindingTriggered);
    arpInputConfigTrigger_->event(VrfIpAddress::fromVlanL3Info(vlanL3Info, ipAddress), true);
}

} // namespace ArpSuppression
