#include "tests/random/Model.h"

#include <algorithm>
#include <utility>

namespace Random {

using Arp::QuickRefresh;
using Arp::ArpType::ArpTypeId;
using ArpSuppression::MessageType;
using ArpSuppression::RemoteBindingKey;
using Bridging::VlanId;
using Id = ArpSuppression::ArpSuppressionCounterId;

std::string Address::text() const {
    return vrf + " " + ip.toStrep() + (intf ? " " + intf.toStrep() : "");
}

void sort(std::vector<Claim>& claims) {
    std::sort(claims.begin(), claims.end(),
              [](const Claim& a, const Claim& b) { return a.host < b.host; });
}

std::string Entry::text() const {
    return intf.toStrep() + " " + mac.toStrep() + " " + toStrep(type) + " refresh " +
           toStrep(refresh);
}

Zinc::IntfId vlanIntf(VlanId vlanId) {
    return Zinc::IntfId("Vlan" + std::to_string(vlanId.value()));
}

namespace {

Address addressIn(const std::string& vrf, VlanId vlanId, const Zinc::IpGenAddr& ip) {
    return {vrf, ip, ip.isLinkLocal() ? vlanIntf(vlanId) : Zinc::IntfId()};
}

} // namespace

Model::Model(Vela::SwitchState& state, Toggles toggles)
    : state_(state), devices_(state.kernelNetInfoIs("default")), toggles_(toggles) {}

// From what is published now

void Model::look() {
    present_ = {};
    const auto& served = state_.evpnStatus->vlanToDot1qCollection();
    for (auto vlan = served.first(); vlan; ++vlan) {
        present_.enabled.insert(vlan.key());
    }
    std::vector<ArpSuppression::RemoteBinding> bindings;
    const auto& table = state_.remoteBindingConfig->remoteBindingCollection();
    for (auto binding = table.first(); binding; ++binding) {
        if (!binding.value().macAddress.isZero()) {
            bindings.push_back(binding.value());
            present_.vlansWithBindings.insert(binding.key().vlanId());
        }
    }
    present_.enabled.insert(present_.vlansWithBindings.begin(), present_.vlansWithBindings.end());
    // Where bindings are known requests can be answered; elsewhere the VLAN must be routed.
    present_.active = present_.vlansWithBindings;
    const auto devices = runningDevices();
    present_.fabricUsable = vrfIsReady("default") && devices.contains("fabric");
    for (VlanId vlanId : present_.enabled) {
        const std::string vrf = routedVrf(vlanId);
        if (vrf.empty()) {
            continue;
        }
        present_.vlanVrfs[vlanId] = vrf;
        if (vrfIsReady(vrf) && devices.contains("Vlan" + std::to_string(vlanId.value()))) {
            present_.usable.insert(vlanId);
            present_.active.insert(vlanId);
        }
    }
    for (const auto& [key, mac, vxlan, localMultihomed] : bindings) {
        const Host host(key.vlanId(), mac);
        present_.remoteHosts[host].insert(key.ipAddress());
        if (auto vrf = present_.vlanVrfs.find(key.vlanId()); vrf != present_.vlanVrfs.end()) {
            present_.claims[addressIn(vrf->second, key.vlanId(), key.ipAddress())].push_back(
                {host, localMultihomed != 0});
        }
    }
    for (auto& [address, claims] : present_.claims) {
        sort(claims);
    }
}

/// The VRF that both families agree on, if one of them is routed; empty otherwise.
std::string Model::routedVrf(VlanId vlanId) const {
    auto v4 = state_.ipStatus->ipIntfStatus(vlanIntf(vlanId));
    auto v6 = state_.ip6Status->intf(vlanIntf(vlanId));
    if (v4 && v6 && v4->vrfName() != v6->vrfName()) {
        return {};
    }
    return v4 ? v4->vrfName().bytes() : v6 ? v6->vrfName().bytes() : std::string();
}

std::set<std::string> Model::runningDevices() const {
    std::set<std::string> names;
    for (auto device = devices_->interfaceCollection().first(); device; ++device) {
        if (device.value().running()) {
            names.insert(device.value().deviceName());
        }
    }
    return names;
}

Vrf::VrfId Model::vrfId(const std::string& vrf) const {
    for (auto id = state_.vrfIdMap->vrfCollection().first(); id; ++id) {
        if (id.value().vrfName().bytes() == vrf) {
            return id.key();
        }
    }
    return {};
}

bool Model::vrfIsReady(const std::string& vrf) const {
    auto local = state_.allVrfStatusLocal->vrf(vrf);
    return vrfId(vrf).isValid() &&
           (vrf == "default" || (local && local->state() == Ip::VrfState::active));
}

void Model::pastIs(Past past) {
    past_ = std::move(past);
    vlanVrfs_ = present_.vlanVrfs;
    known_.clear();
    const auto& bindings = state_.remoteBindingConfig->remoteBindingCollection();
    for (auto binding = bindings.first(); binding; ++binding) {
        if (!binding.value().macAddress.isZero()) {
            known_[binding.key()] = binding.value();
        }
    }
    localMultihomed_.clear();
    for (const auto& [address, claims] : past_.claims) {
        if (claims.front().localMultihomed) {
            localMultihomed_[address] = claims.front().host;
        }
    }
    vrfsInUse_ = vrfsInUse();
}

// Where things are

Address Model::addressOf(VlanId vlanId, const Zinc::IpGenAddr& ip) const {
    return addressIn(vlanVrfs_.at(vlanId), vlanId, ip);
}

bool Model::vlanIsIn(VlanId vlanId, const std::string& vrf) const {
    auto found = vlanVrfs_.find(vlanId);
    return found != vlanVrfs_.end() && found->second == vrf;
}

std::set<std::string> Model::vrfsInUse() const {
    std::set<std::string> vrfs{"default"}; // of the device that replies leave on
    for (const auto& [vlanId, vrf] : vlanVrfs_) {
        vrfs.insert(vrf);
    }
    for (const auto& [address, claims] : past_.claims) {
        vrfs.insert(address.vrf);
    }
    for (const auto& [address, local] : past_.local) {
        vrfs.insert(address.vrf);
    }
    return vrfs;
}

bool Model::isLocalMultihomed(const Address& address, const Zinc::EthAddr& mac) const {
    auto found = past_.claims.find(address);
    return found != past_.claims.end() && found->second.front().localMultihomed &&
           found->second.front().host.macAddress() == mac;
}

// Remote bindings

/// Returns whether that changed anything.
bool Model::claim(const Address& address, const Claim& claim) {
    auto& claims = past_.claims[address];
    for (Claim& other : claims) {
        if (other.host == claim.host) {
            return std::exchange(other.localMultihomed, claim.localMultihomed) !=
                   claim.localMultihomed;
        }
    }
    claims.push_back(claim);
    return true;
}

void Model::disclaim(const Address& address, const Host& host) {
    auto found = past_.claims.find(address);
    std::erase_if(found->second, [&](const Claim& claim) { return claim.host == host; });
    if (found->second.empty()) {
        past_.claims.erase(found);
    }
}

void Model::remoteBindingChanged(const RemoteBindingKey& key) {
    const auto binding = state_.remoteBindingConfig->remoteBinding(key);
    const auto known = known_.find(key);
    const bool wasKnown = known != known_.end();
    const Zinc::EthAddr oldMac = wasKnown ? known->second.macAddress : Zinc::EthAddr();
    const bool present = !binding.macAddress.isZero();
    const bool routed = vlanVrfs_.contains(key.vlanId());
    if (present) {
        known_[key] = binding;
    } else if (wasKnown) {
        known_.erase(key);
    }
    if (!routed) {
        return;
    }
    const Address address = addressOf(key.vlanId(), key.ipAddress());
    if (present &&
        claim(address, {{key.vlanId(), binding.macAddress}, binding.localMultihomed != 0})) {
        remoteNotified(address);
    }
    if (wasKnown && oldMac != binding.macAddress) {
        disclaim(address, {key.vlanId(), oldMac});
        remoteNotified(address);
    }
}

/// The writer of entries is told first; then a local binding gives way to a remote one.
void Model::remoteNotified(const Address& address) {
    const bool present = past_.claims.contains(address);
    update(address, false, present ? Host() : departedHost(address));
    if (present && past_.local.contains(address)) {
        forget(address);
        count(Id::bindingDeleted);
    }
}

/// A VLAN that comes to a VRF, leaves it or moves takes its remote bindings along. When a VRF is
/// used no more every entry is looked at again.
void Model::vlansChanged() {
    const auto old = std::exchange(vlanVrfs_, present_.vlanVrfs);
    for (const auto& [key, binding] : known_) {
        const Host host(key.vlanId(), binding.macAddress);
        auto was = old.find(key.vlanId());
        auto is = vlanVrfs_.find(key.vlanId());
        if (was != old.end() && is != vlanVrfs_.end() && was->second == is->second) {
            continue;
        }
        if (is != vlanVrfs_.end()) {
            const Address address = addressOf(key.vlanId(), key.ipAddress());
            claim(address, {host, binding.localMultihomed != 0});
            remoteNotified(address);
        }
        if (was != old.end()) {
            const Address address = addressIn(was->second, key.vlanId(), key.ipAddress());
            disclaim(address, host);
            remoteNotified(address);
        }
    }
    const auto vrfs = vrfsInUse();
    if (!std::includes(vrfs.begin(), vrfs.end(), vrfsInUse_.begin(), vrfsInUse_.end())) {
        for (const auto& [address, entry] : std::map(past_.entries)) {
            if (vrfs.contains(address.vrf)) {
                update(address, false);
            } else {
                past_.entries.erase(address);
            }
        }
        std::erase_if(localMultihomed_,
                      [&](const auto& pair) { return !vrfs.contains(pair.first.vrf); });
    }
    vrfsInUse_ = vrfs;
}

// Local bindings

void Model::learn(VlanId vlanId, const Zinc::IpGenAddr& ip, const Zinc::EthAddr& mac) {
    if (mac.isZero() || mac.isMulticast()) {
        return count(Id::bindingBadMac);
    }
    if (ip.isUnset() || ip.isUnspecified() || ip.isMulticast()) {
        return count(Id::bindingBadIp);
    }
    if (mac == state_.bridgingConfig->bridgeMacAddr()) {
        return count(Id::bindingBridgeMac);
    }
    if (mac == state_.fhrpVrMacStatus->varpVirtualMac()) {
        return count(Id::bindingVarpMac);
    }
    if (!present_.usable.contains(vlanId)) {
        return count(Id::bindingNoVlanL3Info);
    }
    const Address address = addressOf(vlanId, ip);
    const Host host(vlanId, mac);
    auto found = past_.local.find(address);
    if (found != past_.local.end() && found->second.host == host) {
        count(Id::bindingRefreshed);
    } else {
        if (found != past_.local.end()) {
            forget(address);
        }
        past_.local[address] = {host, false};
        count(Id::bindingCreated);
    }
    update(address, false);
}

void Model::forget(const Address& address) {
    past_.local.erase(address);
    update(address, false);
}

void Model::trapped(const ArpSuppression::TrappedMessage& message) {
    if (message.type() == MessageType::request || message.type() == MessageType::reply) {
        decide(message);
    }
    const VlanId vlanId = message.vlanId();
    const Zinc::IpGenAddr& ip = message.senderIpAddress();
    const bool onSegment =
        message.srcIntfId() && state_.evpnStatus->segmentStatus(message.srcIntfId());
    if (toggles_.localMultihomeSelectiveArpInstall && onSegment && vlanVrfs_.contains(vlanId) &&
        isLocalMultihomed(addressOf(vlanId, ip), message.senderMacAddress())) {
        return count(Id::bindingLocalMultihomedHost);
    }
    learn(vlanId, ip, message.senderMacAddress());
}

void Model::fdbChanged(const Bridging::HostKey& key) {
    if (key.fid.value() < 1 || key.fid.value() > 4094) {
        return;
    }
    const Host host(VlanId(key.fid.value()), key.macAddress);
    const auto fdb = state_.bridgingStatus->quarryFdbStatus(key);
    if (!Bridging::isEntryTypeLocal(fdb.entryType) || Bridging::isEntryTypeEvpn(fdb.entryType)) {
        for (const auto& [address, local] : std::map(past_.local)) {
            if (local.host == host) {
                forget(address);
                count(Id::bindingDeleted);
            }
        }
        return;
    }
    const auto& hosts = present_.remoteHosts;
    const auto found = hosts.find(host);
    if (found == hosts.end()) {
        return;
    }
    const bool routed = vlanVrfs_.contains(host.vlanId());
    for (const Zinc::IpGenAddr& ip : found->second) {
        if (routed && state_.evpnStatus->segmentStatus(fdb.intf) &&
            isLocalMultihomed(addressOf(host.vlanId(), ip), host.macAddress())) {
            return count(Id::bindingLocalMultihomedMac);
        }
    }
    count(Id::bindingsFromLocalMac);
    for (const Zinc::IpGenAddr& ip : found->second) {
        auto claims = routed ? past_.claims.find(addressOf(host.vlanId(), ip)) : past_.claims.end();
        if (claims != past_.claims.end() && claims->second.size() > 1) {
            count(Id::bindingSeveralMacs);
        } else {
            learn(host.vlanId(), ip, host.macAddress());
        }
    }
}

/// A binding that the kernel knew goes when the kernel forgets, or gives way to somebody else's
/// static entry. What the kernel learns by itself, or from somebody else, needs no entry.
void Model::kernelChanged(const Arp::Table::ArpKey& key) {
    if (!key.intfId().isVlanIntf() || key.intfId().vlanNumber() < 1 ||
        key.intfId().vlanNumber() > 4094) {
        return;
    }
    const VlanId vlanId(key.intfId().vlanNumber());
    if (!vlanVrfs_.contains(vlanId)) {
        return;
    }
    const Address address = addressOf(vlanId, key.addr());
    auto local = past_.local.find(address);
    if (local == past_.local.end()) {
        return;
    }
    const auto entry = kernelEntry(key);
    if (entry && !entry->isStatic) {
        local->second.kernelHasIt = true;
        past_.entries.erase(address);
    } else if (local->second.kernelHasIt) {
        forget(address);
    } else if (!entry) {
        update(address, false);
    } else if (entry->source != Arp::ArpSource::arpSuppression) {
        past_.entries.erase(address);
    }
}

std::optional<Arp::Table::ArpEntry> Model::kernelEntry(const Arp::Table::ArpKey& key) const {
    return key.addr().af() == Zinc::ipv4() ? state_.arpStatus->arpEntryCollection().find(key)
                                           : state_.arpStatus->neighborEntryCollection().find(key);
}

// Requests

/// Who has the address, as the kernel and EVPN say, and where that host is, as the MAC table says.
void Model::decide(const ArpSuppression::TrappedMessage& message) {
    const VlanId vlanId = message.vlanId();
    const Zinc::IpGenAddr& target = message.targetIpAddress();
    const auto remote = state_.remoteBindingConfig->remoteBinding({vlanId, target});
    Zinc::EthAddr localMac;
    if (auto vrf = vlanVrfs_.find(vlanId); vrf != vlanVrfs_.end()) {
        auto entry = kernelEntry({vrfId(vrf->second), vlanIntf(vlanId), target});
        localMac = entry && !entry->isStatic ? entry->macAddress : Zinc::EthAddr();
    }
    if (localMac.isZero() && remote.vxlan == 1) {
        return; // its end point answers by itself
    }
    if (isMine(vlanId, target)) {
        return count(Id::targetIsMine);
    }
    const bool probe = message.senderIpAddress().isUnspecified();
    if (probe || message.senderIpAddress() == target) {
        return count(Id::sentToRemoteTeps);
    }
    const bool ours = isOfTheSwitch(message.senderMacAddress());
    const Zinc::EthAddr mac = localMac.isZero() ? remote.macAddress : localMac;
    const auto fdb =
        state_.bridgingStatus->quarryFdbStatus({state_.bridgingConfig->fid(vlanId), mac});
    if (!Bridging::isEntryTypeLocal(fdb.entryType) || Bridging::isEntryTypeEvpn(fdb.entryType)) {
        if (remote == ArpSuppression::RemoteBinding()) {
            return count(Id::sentToRemoteTeps);
        }
        count(Id::answeredFromRemoteBinding);
        return answer(message, mac, fdb.intf);
    }
    const auto segment = state_.evpnStatus->segmentStatus(fdb.intf);
    if (!segment) {
        return count(Id::localTargetNotAnswered);
    }
    if (segment->dfTep(vlanId)) {
        if (!ours || remote.macAddress.isZero()) {
            return count(Id::localTargetNotAnswered);
        }
        count(Id::answeredForDesignatedForwarder);
        return answer(message, remote.macAddress, fdb.intf);
    }
    const bool askedByUs = ours && !localMac.isZero();
    if (askedByUs && remote.macAddress.isZero()) {
        return count(Id::sentToRemoteTeps);
    }
    count(Id::answeredForNonDesignatedForwarder);
    answer(message, askedByUs ? remote.macAddress : mac, fdb.intf);
}

bool Model::isMine(VlanId vlanId, const Zinc::IpGenAddr& ip) const {
    if (!vlanVrfs_.contains(vlanId)) {
        return false;
    }
    if (auto v4 = state_.ipStatus->ipIntfStatus(vlanIntf(vlanId))) {
        if (v4->activeAddrWithMask().address() == ip) {
            return true;
        }
        const auto& secondary = v4->activeSecondaryWithMaskCollection();
        for (auto address = secondary.first(); address; ++address) {
            if (address.key().address() == ip) {
                return true;
            }
        }
    }
    return false;
}

bool Model::isOfTheSwitch(const Zinc::EthAddr& mac) const {
    return mac == state_.bridgingConfig->bridgeMacAddr() ||
           mac == state_.fhrpVrMacStatus->varpVirtualMac();
}

void Model::answer(const ArpSuppression::TrappedMessage& message, const Zinc::EthAddr& mac,
                   Zinc::IntfId intf) {
    if (isOfTheSwitch(message.senderMacAddress())) {
        ask(message.vlanId(), message.targetIpAddress(), mac);
    } else if (!message.srcIntfId()) {
        count(Id::unknownSourcePort);
    } else if (message.srcIntfId() == intf) {
        count(Id::sourceAndTargetOnSamePort);
    } else if (!present_.fabricUsable) {
        count(Id::replyFabricNotUsable);
    } else {
        ++replies_;
    }
}

/// The switch itself wants to know who has the address.
void Model::ask(VlanId vlanId, const Zinc::IpGenAddr& ip, const Zinc::EthAddr& mac) {
    if (mac.isZero() || mac.isMulticast()) {
        count(Id::staticBindingBadMac);
    } else if (ip.isUnset() || ip.isUnspecified() || ip.isMulticast()) {
        count(Id::staticBindingBadIp);
    } else if (mac == state_.bridgingConfig->bridgeMacAddr()) {
        count(Id::staticBindingBridgeMac);
    } else if (mac == state_.fhrpVrMacStatus->varpVirtualMac()) {
        count(Id::staticBindingVarpMac);
    } else if (!present_.usable.contains(vlanId)) {
        count(Id::staticBindingNoVlanL3Info);
    } else {
        count(Id::staticBindingTriggered);
        update(addressOf(vlanId, ip), true);
    }
}

// Entries

/// A local binding counts while the kernel knows the neighbour; then the first remote one does.
void Model::update(const Address& address, bool suppressionEvent, const Host& departed) {
    auto claims = past_.claims.find(address);
    if (claims != past_.claims.end() && claims->second.front().localMultihomed) {
        localMultihomed_[address] = claims->second.front().host;
    } else {
        localMultihomed_.erase(address);
    }
    if (!writeLocal(address) && !writeRemote(address, suppressionEvent, departed)) {
        past_.entries.erase(address);
    }
}

bool Model::writeLocal(const Address& address) {
    auto local = past_.local.find(address);
    if (local == past_.local.end() || !vlanIsIn(local->second.host.vlanId(), address.vrf)) {
        return false;
    }
    const auto kernel =
        kernelEntry({vrfId(address.vrf), vlanIntf(local->second.host.vlanId()), address.ip});
    if (!kernel) {
        return false;
    }
    if (!kernel->isStatic) {
        local->second.kernelHasIt = true;
    }
    write(address, local->second.host, ArpTypeId::dynamic, QuickRefresh::none);
    return true;
}

bool Model::writeRemote(const Address& address, bool suppressionEvent, const Host& departed) {
    const auto intfOf = [&](const Host& host) {
        return address.ip.af() == Zinc::ipv4() ? vlanIntf(host.vlanId()) : address.intf;
    };
    auto entry = past_.entries.find(address);
    auto claims = past_.claims.find(address);
    if (claims == past_.claims.end()) {
        // The kernel is to find out by itself what has become of the host.
        if (!toggles_.evpnMplsProxyArpRefresh || !departed ||
            !vlanIsIn(departed.vlanId(), address.vrf) || entry == past_.entries.end() ||
            entry->second.intf != intfOf(departed)) {
            return false;
        }
        write(address, departed, ArpTypeId::dynamic, QuickRefresh::immediate);
        return true;
    }
    const Claim& first = claims->second.front();
    if (!vlanIsIn(first.host.vlanId(), address.vrf)) {
        return false;
    }
    const bool multihomed = toggles_.localMultihomeSelectiveArpInstall &&
                            claims->second.size() == 1 && first.localMultihomed;
    const bool onlyUpdate =
        state_.l2VpnConfig->selectiveArpInstall() && !suppressionEvent && !multihomed;
    if (onlyUpdate && (entry == past_.entries.end() || entry->second.type != ArpTypeId::permanent ||
                       entry->second.intf != intfOf(first.host))) {
        return false;
    }
    write(address, first.host, ArpTypeId::permanent, QuickRefresh::none);
    return true;
}

void Model::write(const Address& address, const Host& host, ArpTypeId type, QuickRefresh refresh) {
    past_.entries[address] = {address.ip.af() == Zinc::ipv4() ? vlanIntf(host.vlanId())
                                                              : address.intf,
                              host.macAddress(), type, refresh};
}

/// As it was remembered, or as the entry has it. The entry of a global IPv6 address names no VLAN:
/// any of its VRF does.
Host Model::departedHost(const Address& address) const {
    if (auto found = localMultihomed_.find(address); found != localMultihomed_.end()) {
        return found->second;
    }
    auto entry = past_.entries.find(address);
    if (entry == past_.entries.end()) {
        return {};
    }
    if (entry->second.intf) {
        return {VlanId(entry->second.intf.vlanNumber()), entry->second.mac};
    }
    for (const auto& [vlanId, vrf] : vlanVrfs_) {
        if (vrf == address.vrf) {
            return {vlanId, entry->second.mac};
        }
    }
    return {};
}

} // namespace Random
