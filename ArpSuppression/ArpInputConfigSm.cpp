#include "ArpSuppression/ArpInputConfigSm.h"

#include "ArpSuppression/ArpStatusHelper.h"
#include "ArpSuppression/ArpSuppressionTrace.h"
#include "ArpSuppression/BindingDiscoverySm.h"
#include "Platform/Agent/Toggle.h"
#include "Platform/Base/Assert.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/SwiftlogType.h"

#include <array>
#include <bit>
#include <cstddef>
#include <utility>

namespace ArpSuppression {

namespace {

using Arp::ArpType::ArpTypeId;
using Id = ArpSuppressionCounterId;
using Vela::assertThat;

struct EntryRecord {
    Vela::SwiftlogText<9> type;
    Vela::SwiftlogText<100> vrfName;
    Zinc::IpGenAddr ipAddress;
    Vela::SwiftlogText<63> intfId;
    bool onlyUpdate;
    uint16_t vlanId;
    Zinc::EthAddr macAddress;
    bool refresh;
};
const Vela::SwiftlogType<EntryRecord> entryRecord{"ArpSuppression/ArpInputConfigSm",
                                                  "updateEntry",
                                                  5,
                                                  {{"type=", &EntryRecord::type},
                                                   {" vrfName=", &EntryRecord::vrfName},
                                                   {" ipAddress=", &EntryRecord::ipAddress},
                                                   {" intfId=", &EntryRecord::intfId},
                                                   {" onlyUpdate=", &EntryRecord::onlyUpdate},
                                                   {" vlanId=", &EntryRecord::vlanId},
                                                   {" macAddress=", &EntryRecord::macAddress},
                                                   {" refresh=", &EntryRecord::refresh}}};

const L3::VrfName& vrfNameOf(const VrfIpAddress& vrfIpAddress) {
    static const L3::VrfName none;
    return vrfIpAddress.vrfInfo() ? vrfIpAddress.vrfInfo()->name() : none;
}

Zinc::AddressFamily knownFamily(const Zinc::IpGenAddr& ipAddress) {
    assertThat(ipAddress.af() != Zinc::ipunknown(), "ipAddress.af() != Zinc::ipunknown()");
    return ipAddress.af();
}

} // namespace

std::strong_ordering operator<=>(const VrfIpv4Address& a, const VrfIpv4Address& b) {
    auto order = std::compare_three_way()(a.vrfInfo_.get(), b.vrfInfo_.get());
    return order != 0 ? order : a.address_ <=> b.address_;
}

uint64_t VrfIpv4Address::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mix(std::bit_cast<uint64_t>(vrfInfo_.get()));
    hash.mix(address_);
    return hash.result();
}

bool toggleEvpnMplsProxyArpRefreshEnabled() {
    static const bool enabled =
        Vela::getToggleState("EvpnMplsProxyArpRefresh", "EvpnLib.json", true);
    return enabled;
}

const char* stringValue(ArpInputConfigSm::WalkStage stage) {
    constexpr std::array<const char*, 4> names = {
        "walkLocalBindingRecord", "walkRemoteBindingStatus", "walkArpInputConfig", "walkComplete"};
    auto value = static_cast<size_t>(stage);
    return value < names.size() ? names[value] : "?";
}

ArpInputConfigSm::ArpInputConfigSm(
    Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<const Routing::L2Vpn::Config> l2VpnConfig,
    Vela::Ptr<LocalBindingRecord> localBindingRecord,
    Vela::Ptr<const RemoteBindingStatus> remoteBindingStatus,
    Vela::Ptr<const ArpInputConfigTrigger> arpInputConfigTrigger,
    Vela::Ptr<const VlanL3InfoStatus> vlanL3InfoStatus,
    Vela::Ptr<const Arp::Table::Status> arpStatus, Vela::Ptr<Arp::InputConfig> arpInputConfig,
    Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus)
    : WalkSmBase(std::move(scheduler), 3, "ArpInputConfigSm"), l2VpnConfig_(std::move(l2VpnConfig)),
      localBindingRecord_(std::move(localBindingRecord)),
      remoteBindingStatus_(std::move(remoteBindingStatus)),
      arpInputConfigTrigger_(std::move(arpInputConfigTrigger)),
      vlanL3InfoStatus_(std::move(vlanL3InfoStatus)), arpStatus_(std::move(arpStatus)),
      arpInputConfig_(std::move(arpInputConfig)),
      arpSuppressionCounterStatus_(std::move(arpSuppressionCounterStatus)) {}

void ArpInputConfigSm::handleInitialized() {
    TRACE(trace, 8, this, "handleInitialized");
    remoteBinding_ = remoteBindingStatus_->lastVrfIpAddressChangeAttribute().react(
        this, [this] { handleRemoteBinding(); });
    localBinding_ = localBindingRecord_->bindingCollection().react(
        this, [this](const VrfIpAddress& address) { updateVrfIpAddress(address, false); });
    arpEntry_ = arpStatus_->arpEntryCollection().react(
        this, [this](const Arp::Table::ArpKey& key) { handleArpStatus(key); });
    neighborEntry_ = arpStatus_->neighborEntryCollection().react(
        this, [this](const Arp::Table::ArpKey& key) { handleArpStatus(key); });
    trigger_ = arpInputConfigTrigger_->triggerAttribute().react(
        this, [this] { handleArpInputConfigTrigger(); });
    statusSync_ = vlanL3InfoStatus_->initialArpSuppressionStatusSyncAttribute().react(
        this, [this] { scheduleWalk(); });
    populationComplete_ = remoteBindingStatus_->initialPopulationCompleteAttribute().react(
        this, [this] { scheduleWalk(); });
    vrfInfo_ = vlanL3InfoStatus_->vrfInfoCollection().react(
        this, [this](const L3::VrfName& vrfName) { handleVrfInfo(vrfName); });
    WalkSmBase::handleInitialized();
}

/// Also what the walk has not come to.
void ArpInputConfigSm::handleDestroy() noexcept {
    TRACE(trace, 8, this, "handleDestroy");
    arpInputConfig_->vrfDelAll();
}

// Reactions

void ArpInputConfigSm::handleRemoteBinding() {
    const VrfIpAddress vrfIpAddress = remoteBindingStatus_->lastVrfIpAddressChange();
    const bool gone = vrfIpAddress && !remoteBindingStatus_->ipToMacHas(vrfIpAddress);
    updateVrfIpAddress(vrfIpAddress, false, gone ? departedHost(vrfIpAddress) : VlanIdMacAddress());
}

void ArpInputConfigSm::handleArpInputConfigTrigger() {
    TRACE(trace, 8, this, "trigger=" << *arpInputConfigTrigger_);
    const VrfIpAddress vrfIpAddress = arpInputConfigTrigger_->vrfIpAddress();
    updateVrfIpAddress(vrfIpAddress, arpInputConfigTrigger_->suppressionEvent());
}

/// Reconciles a local binding with what the kernel now holds for its address.
void ArpInputConfigSm::handleArpStatus(const Arp::Table::ArpKey& key) {
    const VrfIpAddress vrfIpAddress = VrfIpAddress::fromArpKey(*vlanL3InfoStatus_, key);
    if (!vrfIpAddress) {
        TRACE(trace, 8, this, "no vrfIpAddress intfId=" << key.intfId() << " addr=" << key.addr());
        return;
    }
    const Vela::Ptr<LocalBinding> localBinding = localBindingRecord_->binding(vrfIpAddress);
    if (!localBinding) {
        TRACE(trace, 8, this, "no localBinding vrfIpAddress=" << vrfIpAddress);
        return;
    }
    auto lookup = ArpStatusHelper::lookup(*arpStatus_, key);
    const bool exists = lookup.find();
    const Arp::Table::ArpEntry& entry = lookup.record();
    TRACE(trace, 8, this,
          "vrfIpAddress=" << vrfIpAddress << " localBinding=" << localBinding
                          << " arpStatusEntry=" << (exists ? entry.toStrep() : "N/A")
                          << " arpStatusEntryExists=" << exists);
    if (exists && !entry.isStatic) {
        // The kernel has learnt it: it needs nothing from here.
        localBinding->arpStatusHasDynamicEntryIs(true);
        deleteEntry(vrfIpAddress);
    } else if (localBinding->arpStatusHasDynamicEntry()) {
        // What backed the binding has gone, or gave way to somebody's static entry.
        localBindingRecord_->deleteLocalBinding(localBinding);
    } else if (!exists) {
        updateVrfIpAddress(vrfIpAddress, false);
    } else if (entry.source != arpInputConfig_->source()) {
        deleteEntry(vrfIpAddress); // the other's wins
    }
}

/// Nobody says any more which of the addresses of a VRF that has gone were left with an entry.
void ArpInputConfigSm::handleVrfInfo(const L3::VrfName& vrfName) {
    if (vlanL3InfoStatus_->vrfInfo(vrfName)) {
        return;
    }
    vrfEnded_ = true;
    arpInputConfigBookmark_ = {};
    shadowBookmark_.reset();
    if (walkStage_ == WalkStage::walkComplete) {
        walkStage_ = WalkStage::walkArpInputConfig;
    }
    scheduleWalk();
}

void ArpInputConfigSm::traceEvent(Vela::TraceEvent event) {
    TRACE(trace, 8, this, "traceEvent=" << toString(event));
}

// One address

void ArpInputConfigSm::updateVrfIpAddress(const VrfIpAddress& vrfIpAddress, bool suppressionEvent,
                                          const VlanIdMacAddress& departed) {
    if (!vrfIpAddress) {
        return;
    }
    TRACE(trace, 8, this,
          " vrfIpAddress=" << vrfIpAddress << " suppressionEvent=" << suppressionEvent);
    updateLocalMultihomedRemoteBindings(vrfIpAddress);
    if (updateWithLocalBinding(vrfIpAddress)) {
        return;
    }
    const bool onlyUpdate = !suppressionEvent && selectiveInstall(vrfIpAddress);
    if (updateWithRemoteBinding(vrfIpAddress, departed, onlyUpdate)) {
        return;
    }
    deleteEntry(vrfIpAddress);
}

void ArpInputConfigSm::updateLocalMultihomedRemoteBindings(const VrfIpAddress& vrfIpAddress) {
    auto remoteIpToMac = remoteBindingStatus_->ipToMac(vrfIpAddress);
    if (remoteIpToMac && remoteIpToMac->isFirstVlanIdMacAddressLocalMultihomed()) {
        const VlanIdMacAddress host = remoteIpToMac->firstVlanIdMacAddress();
        *localMultihomedRemoteBinding_.findOrInsert(vrfIpAddress, [&] { return host; }).first =
            host;
    } else {
        localMultihomedRemoteBinding_.erase(vrfIpAddress);
    }
}

bool ArpInputConfigSm::updateWithLocalBinding(const VrfIpAddress& vrfIpAddress) {
    const Vela::Ptr<LocalBinding> localBinding = localBindingRecord_->binding(vrfIpAddress);
    if (!localBinding) {
        TRACE(trace, 8, this, "no localBinding vrfIpAddress=" << vrfIpAddress);
        return false;
    }
    const VlanIdMacAddress& host = localBinding->vlanIdMacAddress();
    auto info = vlanL3Info(host.vlanId(), vrfIpAddress);
    if (!info) {
        return false;
    }
    auto lookup = ArpStatusHelper::lookup(
        *arpStatus_, {info->vrfInfo()->vrfId(), info->vlanIntfId(), vrfIpAddress.ipAddress()});
    const bool exists = lookup.find();
    const Arp::Table::ArpEntry& entry = lookup.record();
    TRACE(trace, 8, this,
          "localBinding=" << localBinding
                          << " arpStatusEntry=" << (exists ? entry.toStrep() : "N/A"));
    if (!exists) {
        return false;
    }
    if (!entry.isStatic) {
        // Else the binding would outlive an entry that was there before it.
        localBinding->arpStatusHasDynamicEntryIs(true);
    }
    updateEntry(ArpTypeId::dynamic, vrfIpAddress, false, host, false);
    return true;
}

bool ArpInputConfigSm::selectiveInstall(const VrfIpAddress& vrfIpAddress) {
    if (!l2VpnConfig_->selectiveArpInstall()) {
        return false;
    }
    if (!toggleLocalMultihomeSelectiveArpInstallEnabled()) {
        return true;
    }
    auto remoteIpToMac = remoteBindingStatus_->ipToMac(vrfIpAddress);
    if (remoteIpToMac && remoteIpToMac->vlanIdMacAddresses() == 1 &&
        remoteIpToMac->isFirstVlanIdMacAddressLocalMultihomed()) {
        TRACE(trace, 8, this,
              "Ignoring selective install"
                  << "for local multihomed vrfIpAddress=" << vrfIpAddress);
        return false;
    }
    return true;
}

bool ArpInputConfigSm::updateWithRemoteBinding(const VrfIpAddress& vrfIpAddress,
                                               const VlanIdMacAddress& vlanIdMacAddress,
                                               bool onlyUpdate) {
    auto remoteIpToMac = remoteBindingStatus_->ipToMac(vrfIpAddress);
    TRACE(trace, 8, this, "vrfIpAddress=" << vrfIpAddress << " remoteIpToMac=" << remoteIpToMac);
    if (remoteIpToMac && remoteIpToMac->vlanIdMacAddresses() > 0) {
        return updateEntry(ArpTypeId::permanent, vrfIpAddress, onlyUpdate,
                           remoteIpToMac->firstVlanIdMacAddress(), false);
    }
    if (!toggleEvpnMplsProxyArpRefreshEnabled() || !vlanIdMacAddress) {
        return false;
    }
    return updateEntry(ArpTypeId::dynamic, vrfIpAddress, true, vlanIdMacAddress, true);
}

/// Who had the address until its remote binding went: the host as it was remembered, or as the
/// entry has it. None where there is no entry.
VlanIdMacAddress ArpInputConfigSm::departedHost(const VrfIpAddress& vrfIpAddress) const {
    if (const VlanIdMacAddress* host = localMultihomedRemoteBinding_.find(vrfIpAddress)) {
        return *host;
    }
    auto vrf = arpInputConfig_->vrf(vrfNameOf(vrfIpAddress));
    if (!vrf) {
        return {};
    }
    const Arp::InputConfigKey key = entryKey(vrfIpAddress);
    const Arp::InputConfigEntry* entry = vrf->afEntry(key);
    if (!entry) {
        return {};
    }
    if (key.intfId().isVlanIntf()) {
        return {Bridging::VlanId(key.intfId().vlanNumber()), entry->macAddress()};
    }
    // The entry of a global IPv6 address names no interface: any VLAN of its VRF writes the same.
    const auto& watches = vrfIpAddress.vrfInfo()->interfaceWatchCollection();
    for (auto watch = watches.first(); watch; ++watch) {
        if (auto info = dynamic_cast<const VlanL3Info*>(watch.value().get())) {
            return {info->vlanId(), entry->macAddress()};
        }
    }
    return {};
}

// Entries

bool ArpInputConfigSm::updateEntry(ArpTypeId type, const VrfIpAddress& vrfIpAddress,
                                   bool onlyUpdate, const VlanIdMacAddress& vlanIdMacAddress,
                                   bool refresh) {
    const L3::VrfName& vrfName = vrfNameOf(vrfIpAddress);
    const Zinc::IpGenAddr& ipAddress = vrfIpAddress.ipAddress();
    entryRecord.write({toStrep(type), vrfName, ipAddress, vrfIpAddress.intfId().name(), onlyUpdate,
                       vlanIdMacAddress.vlanId().value(), vlanIdMacAddress.macAddress(), refresh});
    auto info = vlanL3Info(vlanIdMacAddress.vlanId(), vrfIpAddress);
    if (!info) {
        return false;
    }
    auto vrf = onlyUpdate ? arpInputConfig_->vrf(vrfName) : arpInputConfig_->vrfIs(vrfName);
    if (!vrf) {
        TRACE(trace, 8, this, "arpInputConfigVrf not found vrfName=" << vrfName);
        return false;
    }
    const bool isIpv4 = knownFamily(ipAddress) == Zinc::ipv4();
    const Arp::InputConfigKey key(ipAddress, isIpv4 ? info->vlanIntfId() : vrfIpAddress.intfId());
    const Arp::InputConfigEntry* found = vrf->afEntry(key);
    const bool existing = found != nullptr;
    // A refresh is there to change the type of what exists.
    if (onlyUpdate && !(existing && (refresh || found->type() == type))) {
        return false;
    }
    if (isIpv4) {
        const Zinc::IntfId shadowIntfId = ipv4VlanIntfIdShadow(vrfIpAddress);
        if (shadowIntfId && shadowIntfId != key.intfId()) {
            TRACE(trace, 8, this,
                  "interface change intfId=" << key.intfId() << " shadowIntfId=" << shadowIntfId);
            deleteEntry(vrfIpAddress);
            if (!destroyed()) {
                vrf = arpInputConfig_->vrfIs(vrfName);
            }
        }
        ipv4VlanIntfIdShadowIs(vrfIpAddress, key.intfId());
    }
    // Who was told of the VRF or of the entry that went may have ended this.
    if (destroyed()) {
        return false;
    }
    if (type == ArpTypeId::dynamic) {
        vrf->afEntryDynamicIs(key, vlanIdMacAddress.macAddress(), arpInputConfig_->source(),
                              refresh ? Arp::QuickRefresh::immediate : Arp::QuickRefresh::none);
        count(existing ? Id::inputDynamicRewritten : Id::inputDynamicAdded);
    } else {
        vrf->afEntryPermanentIs(key, vlanIdMacAddress.macAddress(), arpInputConfig_->source());
        count(existing ? Id::inputPermanentRewritten : Id::inputPermanentAdded);
    }
    TRACE(trace, 8, this,
          "updated=" << key << " vlanIdMacAddress=" << vlanIdMacAddress
                     << " dynamicOrPermanent=" << type << " existing=" << existing);
    return true;
}

void ArpInputConfigSm::deleteEntry(const VrfIpAddress& vrfIpAddress) {
    const L3::VrfName& vrfName = vrfNameOf(vrfIpAddress);
    auto vrf = arpInputConfig_->vrf(vrfName);
    if (!vrf) {
        TRACE(trace, 8, this, "no arpInputConfigVrf vrfName=" << vrfName);
        ipv4VlanIntfIdShadowDel(vrfIpAddress);
        return;
    }
    const Arp::InputConfigKey key = entryKey(vrfIpAddress);
    ipv4VlanIntfIdShadowDel(vrfIpAddress);
    const bool deleted = deleteEntry(vrf, key);
    TRACE(trace, 8, this,
          "vrfIpAddress=" << vrfIpAddress << " intfId=" << key.intfId()
                          << " deletedEntry=" << deleted);
    if (vrf->ipv4Entries() == 0 && vrf->ipv6Entries() == 0 &&
        arpInputConfig_->vrf(vrfName) == vrf) {
        arpInputConfig_->vrfDel(vrfName);
    }
}

/// Returns whether there was one.
bool ArpInputConfigSm::deleteEntry(const Vela::Ptr<Arp::InputConfigVrf>& vrf,
                                   const Arp::InputConfigKey& key) {
    const bool deleted = vrf->afEntryDel(key);
    if (deleted) {
        count(Id::inputDeleted);
    }
    return deleted;
}

/// The key under which the address has its entry, if it has one.
Arp::InputConfigKey ArpInputConfigSm::entryKey(const VrfIpAddress& vrfIpAddress) const {
    const Zinc::IpGenAddr& ipAddress = vrfIpAddress.ipAddress();
    if (knownFamily(ipAddress) == Zinc::ipv4()) {
        return {ipAddress, ipv4VlanIntfIdShadow(vrfIpAddress)};
    }
    assertThat(ipAddress.af() == Zinc::ipv6(), "false");
    return {ipAddress, vrfIpAddress.intfId()};
}

/// A VLAN that has moved to another VRF says nothing about the addresses of the old one.
Vela::Ptr<VlanL3Info> ArpInputConfigSm::vlanL3Info(Bridging::VlanId vlanId,
                                                   const VrfIpAddress& vrfIpAddress) {
    auto info = vlanL3InfoStatus_->vlanL3Info(vlanId);
    if (info && info->vrfInfo() == vrfIpAddress.vrfInfo() && info->vrfInfo()) {
        return info;
    }
    TRACE(trace, 8, this, "no vlanL3Info vlanId=" << vlanId);
    count(Id::inputNoVlanL3Info);
    return {};
}

void ArpInputConfigSm::ipv4VlanIntfIdShadowIs(const VrfIpAddress& vrfIpAddress,
                                              Zinc::IntfId intfId) {
    VrfIpv4Address key(vrfIpAddress);
    *ipv4VlanIntfIdShadow_.findOrInsert(key, [&] { return intfId; }).first = intfId;
}

void ArpInputConfigSm::ipv4VlanIntfIdShadowDel(const VrfIpAddress& vrfIpAddress) {
    if (vrfIpAddress.ipAddress().af() == Zinc::ipv4()) {
        ipv4VlanIntfIdShadow_.erase(VrfIpv4Address(vrfIpAddress));
    }
}

Zinc::IntfId ArpInputConfigSm::ipv4VlanIntfIdShadow(const VrfIpAddress& vrfIpAddress) const {
    const Zinc::IntfId* intfId = ipv4VlanIntfIdShadow_.find(VrfIpv4Address(vrfIpAddress));
    return intfId ? *intfId : Zinc::IntfId();
}

void ArpInputConfigSm::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "ArpInputConfigSm\n");
    indent += 2;
    context.print(indent, "walkStage %s\n", stringValue(walkStage_));
    context.print(indent, "ipv4VlanIntfIdShadow[] #%zu\n", ipv4VlanIntfIdShadow_.size());
    for (auto shadow = ipv4VlanIntfIdShadow_.first(); shadow; ++shadow) {
        context.print(indent + 2, "%s -> %s\n", shadow.key().vrfIpAddress().toStrep().c_str(),
                      shadow.value().toStrep().c_str());
    }
    context.print(indent, "localMultihomedRemoteBinding[] #%zu\n",
                  localMultihomedRemoteBinding_.size());
    for (auto remote = localMultihomedRemoteBinding_.first(); remote; ++remote) {
        context.print(indent + 2, "%s -> %s\n", remote.key().toStrep().c_str(),
                      remote.value().toStrep().c_str());
    }
}

} // namespace ArpSuppression
