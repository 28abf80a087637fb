#include "ArpSuppression/BindingDiscoverySm.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Agent/Toggle.h"
#include "Platform/Base/Assert.h"
#include "Platform/State/DumpContext.h"

#include <utility>

namespace ArpSuppression {

namespace {

using Bridging::VlanId;
using Id = ArpSuppressionCounterId;
using Vela::assertThat;

} // namespace

bool toggleLocalMultihomeSelectiveArpInstallEnabled() {
    static const bool enabled =
        Vela::getToggleState("LocalMultihomeSelectiveArpInstall", "ArpSuppression.json", true);
    return enabled;
}

BindingDiscoverySm::BindingDiscoverySm(
    Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<const MessageTrap> receivedRequestTrapV4,
    Vela::Ptr<const MessageTrap> receivedRequestTrapV6,
    Vela::Ptr<const Bridging::Config> bridgingConfig,
    Vela::Ptr<const Quarry::Bridging::Status> bridgingStatus,
    Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus,
    Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus,
    Vela::Ptr<const RemoteBindingStatus> remoteBindingStatus,
    const Vela::Ptr<const Arp::Table::Status>&,
    Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpVrMacStatus,
    const Vela::Ptr<const Arp::InputConfig>&, Vela::Ptr<LocalBindingRecord> localBindingRecord,
    Vela::Ptr<const Evpn::EvpnStatus> evpnStatus,
    Vela::Ptr<ArpInputConfigTrigger> arpInputConfigTrigger)
    : scheduler_(std::move(scheduler)), receivedRequestTrapV4_(std::move(receivedRequestTrapV4)),
      receivedRequestTrapV6_(std::move(receivedRequestTrapV6)),
      bridgingConfig_(std::move(bridgingConfig)), bridgingStatus_(std::move(bridgingStatus)),
      arpSuppressionCounterStatus_(std::move(arpSuppressionCounterStatus)),
      vlanL3InfoStatus_(std::move(vlanL3InfoStatus)),
      remoteBindingStatus_(std::move(remoteBindingStatus)),
      fhrpVrMacStatus_(std::move(fhrpVrMacStatus)),
      localBindingRecord_(std::move(localBindingRecord)), evpnStatus_(std::move(evpnStatus)),
      arpInputConfigTrigger_(std::move(arpInputConfigTrigger)) {
    assertThat(bridgingConfig_ != nullptr, "bridgingConfig()");
    assertThat(fhrpVrMacStatus_ != nullptr, "fhrpVrMacStatus()");
}

void BindingDiscoverySm::handleInitialized() {
    TRACE(trace, 8, this, "handleInitialized");
    trappedV4_ = receivedRequestTrapV4_->lastTrappedMessageAttribute().react(
        this, [this] { handleTrappedRequest(*receivedRequestTrapV4_); });
    trappedV6_ = receivedRequestTrapV6_->lastTrappedMessageAttribute().react(
        this, [this] { handleTrappedRequest(*receivedRequestTrapV6_); });
    fdbStatus_ = bridgingStatus_->quarryFdbStatusCollection().react(
        this, [this](const Bridging::HostKey& hostKey) { handleFdbStatus(hostKey); });
    remoteBinding_ = remoteBindingStatus_->lastVrfIpAddressChangeAttribute().react(
        this, [this] { handleRemoteBinding(); });
    vlanL3Info_ = vlanL3InfoStatus_->vlanL3InfoCollection().react(
        this, [this](VlanId vlanId) { handleVlanL3Info(vlanId); });
    varpVirtualMac_ =
        fhrpVrMacStatus_->varpVirtualMacAttribute().react(this, [this] { handleVarpVirtualMac(); });
    updateAllVlans();
}

void BindingDiscoverySm::handleDestroy() noexcept {
    TRACE(trace, 8, this, "handleDestroy");
    varpReplyV4SmDelAll();
    varpReplyV6SmDelAll();
}

// The record

void BindingDiscoverySm::createLocalBinding(VlanId vlanId, const Zinc::IpGenAddr& ipAddress,
                                            const Zinc::EthAddr& macAddress,
                                            bool bindingDiscoveryEvent) {
    TRACE(trace, 8, this,
          "vlanId=" << vlanId << " ipAddress=" << ipAddress << " macAddress=" << macAddress
                    << " bindingDiscoveryEvent=" << bindingDiscoveryEvent);
    if (macAddress.isZero() || macAddress.isMulticast()) {
        count(Id::bindingBadMac);
        return;
    }
    if (ipAddress.isUnset() || ipAddress.isUnspecified() || ipAddress.isMulticast()) {
        count(Id::bindingBadIp);
        return;
    }
    if (macAddress == bridgingConfig_->bridgeMacAddr()) {
        TRACE(trace, 8, this, "Not adding binding for bridgeMacAddr");
        count(Id::bindingBridgeMac);
        return;
    }
    if (macAddress == fhrpVrMacStatus_->varpVirtualMac()) {
        TRACE(trace, 8, this, "Not adding binding for varpVirtualMac");
        count(Id::bindingVarpMac);
        return;
    }
    auto vlanL3Info = vlanL3InfoStatus_->usableVlanL3InfoNonConst(vlanId);
    if (!vlanL3Info) {
        TRACE(trace, 8, this, "No vlanL3Info vlanId=" << vlanId);
        count(Id::bindingNoVlanL3Info);
        return;
    }
    auto vrfIpAddress = VrfIpAddress::fromVlanL3Info(vlanL3Info, ipAddress);
    VlanIdMacAddress vlanIdMacAddress(vlanL3Info->vlanId(), macAddress);
    auto existing = localBindingRecord_->binding(vrfIpAddress);
    if (existing && existing->vlanIdMacAddress() == vlanIdMacAddress) {
        count(Id::bindingRefreshed);
        arpInputConfigTrigger_->event(vrfIpAddress, false);
        return;
    }
    localBindingRecord_->createLocalBinding(vrfIpAddress, vlanIdMacAddress);
    count(Id::bindingCreated);
}

void BindingDiscoverySm::deleteLocalBinding(const Vela::Ptr<LocalBinding>& binding) {
    localBindingRecord_->deleteLocalBinding(binding);
    count(Id::bindingDeleted);
}

// What a trapped request tells

void BindingDiscoverySm::handleTrappedRequest(const MessageTrap& trap) {
    Vela::Ptr<const TrappedMessage> trappedRequest = trap.lastTrappedMessage();
    if (!trappedRequest) {
        return;
    }
    if (toggleLocalMultihomeSelectiveArpInstallEnabled() && isLocalMultihomedHost(trappedRequest)) {
        count(Id::bindingLocalMultihomedHost);
        return;
    }
    TRACE(trace, 8, this, "trappedRequest=" << trappedRequest);
    createLocalBinding(trappedRequest->vlanId(), trappedRequest->senderIpAddress(),
                       trappedRequest->senderMacAddress(), true);
}

/// Such a host is left to the remote binding, which says the same of it.
bool BindingDiscoverySm::isLocalMultihomedHost(
    const Vela::Ptr<const TrappedMessage>& trappedRequest) {
    if (!trappedRequest->srcIntfId() || !evpnStatus_->segmentStatus(trappedRequest->srcIntfId())) {
        return false;
    }
    auto vlanL3Info = vlanL3InfoStatus_->vlanL3Info(trappedRequest->vlanId());
    if (!vlanL3Info) {
        return false;
    }
    if (remoteIpToMacIsLocalMultihomed(vlanL3Info, trappedRequest->senderIpAddress(),
                                       trappedRequest->senderMacAddress())) {
        TRACE(trace, 8, this,
              "Not adding binding for locally multihomed host trappedRequest=" << trappedRequest);
        return true;
    }
    TRACE(trace, 8, this,
          " Adding binding for locally multihomed host  trappedRequest=" << trappedRequest);
    return false;
}

/// Whether a remote tunnel end point on the same Ethernet segment advertises this very binding. The
/// VLAN that it does so on does not matter.
bool BindingDiscoverySm::remoteIpToMacIsLocalMultihomed(
    const Vela::Ptr<const VlanL3Info>& vlanL3Info, const Zinc::IpGenAddr& ipAddress,
    const Zinc::EthAddr& macAddress) const {
    auto remoteIpToMac =
        remoteBindingStatus_->ipToMac(VrfIpAddress::fromVlanL3Info(vlanL3Info, ipAddress));
    return remoteIpToMac && remoteIpToMac->isFirstVlanIdMacAddressLocalMultihomed() &&
           remoteIpToMac->firstVlanIdMacAddress().macAddress() == macAddress;
}

// What the MAC table tells

void BindingDiscoverySm::handleFdbStatus(const Bridging::HostKey& hostKey) {
    VlanIdMacAddress vlanIdMacAddress(VlanId(hostKey.fid.value()), hostKey.macAddress);
    auto fdb = bridgingStatus_->quarryFdbStatusCollection().find(hostKey);
    auto entryType = fdb ? fdb->entryType : Bridging::EntryType::none;
    bool isLocal =
        fdb && Bridging::isEntryTypeLocal(entryType) && !Bridging::isEntryTypeEvpn(entryType);
    TRACE(trace, 8, this,
          "fdb=" << fdb.has_value() << " entryType=" << entryType << " isLocal=" << isLocal);
    if (isLocal) {
        processLocalMac(vlanIdMacAddress, fdb->intf);
    } else {
        processRemoteMac(vlanIdMacAddress);
    }
}

/// The host has come here: what EVPN said of it elsewhere holds here now.
void BindingDiscoverySm::processLocalMac(const VlanIdMacAddress& vlanIdMacAddress,
                                         Zinc::IntfId intfId) {
    auto remoteMacToIp = remoteBindingStatus_->macToIp(vlanIdMacAddress);
    if (!remoteMacToIp) {
        TRACE(trace, 8, this, "No remoteMacToIp vlanIdMacAddress=" << vlanIdMacAddress);
        return;
    }
    VlanId vlanId = vlanIdMacAddress.vlanId();
    Vela::Ptr<const VlanL3Info> vlanL3Info = vlanL3InfoStatus_->vlanL3Info(vlanId);
    if (macIsLocalMultihomed(*remoteMacToIp, intfId, vlanL3Info)) {
        count(Id::bindingLocalMultihomedMac);
        return;
    }
    count(Id::bindingsFromLocalMac);
    remoteMacToIp->ipAddressCollection().each([&](const Zinc::IpGenAddr& ipAddress) {
        auto remoteIpToMac =
            remoteBindingStatus_->ipToMac(VrfIpAddress::fromVlanL3Info(vlanL3Info, ipAddress));
        if (remoteIpToMac && remoteIpToMac->vlanIdMacAddresses() > 1) {
            TRACE(trace, 8, this, "Multiple MACs remoteIpToMac=" << remoteIpToMac);
            count(Id::bindingSeveralMacs);
            return;
        }
        TRACE(trace, 8, this,
              "vlanIdMacAddress=" << vlanIdMacAddress << " ipAddress=" << ipAddress);
        createLocalBinding(vlanId, ipAddress, vlanIdMacAddress.macAddress(), false);
    });
}

/// One address is enough.
bool BindingDiscoverySm::macIsLocalMultihomed(const RemoteMacToIp& remoteMacToIp,
                                              Zinc::IntfId intfId,
                                              const Vela::Ptr<const VlanL3Info>& vlanL3Info) const {
    auto ethernetSegment = evpnStatus_->segmentStatus(intfId);
    if (!ethernetSegment || !vlanL3Info) {
        return false;
    }
    const VlanIdMacAddress& vlanIdMacAddress = remoteMacToIp.vlanIdMacAddress();
    TRACE(trace, 8, this,
          "MAC segment local vlanIdMacAddress=" << vlanIdMacAddress << " intfId=" << intfId
                                                << " ethernetSegment=" << ethernetSegment);
    bool found = false;
    remoteMacToIp.ipAddressCollection().each([&](const Zinc::IpGenAddr& ipAddress) {
        if (!found &&
            remoteIpToMacIsLocalMultihomed(vlanL3Info, ipAddress, vlanIdMacAddress.macAddress())) {
            found = true;
            TRACE(trace, 8, this,
                  "binding local multihomed vlanIdMacAddress=" << vlanIdMacAddress
                                                               << " ipAddress=" << ipAddress);
        }
    });
    return found;
}

/// The host is not here any more.
void BindingDiscoverySm::processRemoteMac(const VlanIdMacAddress& vlanIdMacAddress) {
    auto localMacToIp = localBindingRecord_->macToIp(vlanIdMacAddress);
    if (!localMacToIp) {
        TRACE(trace, 8, this, "No localMacToIp vlanIdMacAddress=" << vlanIdMacAddress);
        return;
    }
    localMacToIp->eachBinding([this](const Vela::Ptr<LocalBinding>& localBinding) {
        TRACE(trace, 8, this, "localBinding=" << localBinding);
        deleteLocalBinding(localBinding);
    });
    assertThat(!localBindingRecord_->macToIpHas(vlanIdMacAddress),
               "!localBindingRecord()->macToIpHas( vlanIdMacAddress )");
}

// What a remote binding tells

/// A remote binding that has come wins over a local one; one that has gone brings nothing back.
void BindingDiscoverySm::handleRemoteBinding() {
    const VrfIpAddress vrfIpAddress = remoteBindingStatus_->lastVrfIpAddressChange();
    if (!vrfIpAddress || !remoteBindingStatus_->ipToMacHas(vrfIpAddress)) {
        return;
    }
    if (auto localBinding = localBindingRecord_->binding(vrfIpAddress)) {
        TRACE(trace, 8, this, "vrfIpAddress=" << vrfIpAddress << " localBinding=" << localBinding);
        deleteLocalBinding(localBinding);
    }
}

// Replies to the virtual router

/// Listeners follow what else changes of the VLAN's L3 information by themselves.
void BindingDiscoverySm::handleVlanL3Info(VlanId vlanId) {
    auto vlanL3Info = vlanL3InfoStatus_->vlanL3Info(vlanId);
    const Zinc::EthAddr& varpVirtualMac = fhrpVrMacStatus_->varpVirtualMac();
    auto v4Sm = varpReplyV4Sm(vlanId);
    auto v6Sm = varpReplyV6Sm(vlanId);
    assertThat((nullptr == v4Sm) == (nullptr == v6Sm),
               "( nullptr == v4Sm ) == ( nullptr == v6Sm )");
    bool need = vlanL3Info && !varpVirtualMac.isZero();
    bool have = v4Sm != nullptr;
    // Where a VLAN moves in one step, its new record stands before it is told that the old one
    // went.
    bool ofAnother = need && have && v4Sm->vlanL3Info() != vlanL3Info;
    TRACE(trace, 8, this,
          (need == have && !ofAnother ? "no change"
           : need                     ? "create"
                                      : "delete")
              << " vlanId=" << vlanId << " vlanL3Info=" << vlanL3Info
              << " varpVirtualMac=" << varpVirtualMac << " v4Sm=" << v4Sm << " v6Sm=" << v6Sm);
    if (have && (!need || ofAnother)) {
        varpReplyV4SmDel(vlanId);
        varpReplyV6SmDel(vlanId);
    }
    if (need && (!have || ofAnother)) {
        varpReplyV4SmIs(vlanId);
        varpReplyV6SmIs(vlanId);
    }
}

void BindingDiscoverySm::handleVarpVirtualMac() {
    TRACE(trace, 8, this, "varpVirtualMac=" << fhrpVrMacStatus_->varpVirtualMac());
    updateAllVlans();
}

void BindingDiscoverySm::updateAllVlans() {
    const auto& vlans = vlanL3InfoStatus_->vlanL3InfoCollection();
    for (auto vlanL3Info = vlans.first(); vlanL3Info; ++vlanL3Info) {
        handleVlanL3Info(vlanL3Info.key());
    }
}

template <class Listener>
Vela::Ptr<Listener> BindingDiscoverySm::listener(Zinc::AddressFamily af, VlanId vlanId) {
    return Vela::make<Listener>(scheduler_, af, vlanL3InfoStatus_->vlanL3Info(vlanId),
                                arpSuppressionCounterStatus_, fhrpVrMacStatus_, *this);
}

Vela::Ptr<BindingDiscoveryVarpReplyV4Sm> BindingDiscoverySm::varpReplyV4SmIs(VlanId vlanId) {
    return varpReplyV4Sm_.findOrAdd(
        vlanId, [&] { return listener<BindingDiscoveryVarpReplyV4Sm>(Zinc::ipv4(), vlanId); });
}

Vela::Ptr<BindingDiscoveryVarpReplyV6Sm> BindingDiscoverySm::varpReplyV6SmIs(VlanId vlanId) {
    return varpReplyV6Sm_.findOrAdd(
        vlanId, [&] { return listener<BindingDiscoveryVarpReplyV6Sm>(Zinc::ipv6(), vlanId); });
}

void BindingDiscoverySm::varpReplyV4SmDel(VlanId vlanId) {
    if (auto removed = varpReplyV4Sm_.del(vlanId)) {
        (*removed)->destroy();
    }
}

void BindingDiscoverySm::varpReplyV6SmDel(VlanId vlanId) {
    if (auto removed = varpReplyV6Sm_.del(vlanId)) {
        (*removed)->destroy();
    }
}

void BindingDiscoverySm::varpReplyV4SmDelAll() {
    varpReplyV4Sm_.delAll([](const auto& listener) { listener->destroy(); });
}

void BindingDiscoverySm::varpReplyV6SmDelAll() {
    varpReplyV6Sm_.delAll([](const auto& listener) { listener->destroy(); });
}

void BindingDiscoverySm::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "BindingDiscoverySm\n");
    int inner = indent + 2;
    context.print(inner, "varpReplyV4Sm[] #%zu\n", varpReplyV4Sm_.count());
    for (auto listener = varpReplyV4Sm_.first(); listener; ++listener) {
        context.child(inner + 2, "varpReplyV4Sm", listener.value().get());
    }
    context.print(inner, "varpReplyV6Sm[] #%zu\n", varpReplyV6Sm_.count());
    for (auto listener = varpReplyV6Sm_.first(); listener; ++listener) {
        context.child(inner + 2, "varpReplyV6Sm", listener.value().get());
    }
}

} // namespace ArpSuppression
