// What must hold when a leaf's agent has nothing left to do.

#include "tests/random/Leaf.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace Random {

using Arp::QuickRefresh;
using Arp::ArpType::ArpTypeId;
using ArpSuppression::VrfIpAddress;
using Bridging::VlanId;
using Id = ArpSuppression::ArpSuppressionCounterId;

namespace {

// Texts for differences

std::string textOf(const std::string& v) {
    return v;
}
std::string textOf(const char* v) {
    return v;
}
std::string textOf(VlanId v) {
    return v.toStrep();
}
std::string textOf(const Zinc::IpGenAddr& v) {
    return v.toStrep();
}
std::string textOf(Zinc::IntfId v) {
    return v.toStrep();
}
std::string textOf(uint32_t v) {
    return std::to_string(v);
}
std::string textOf(uint64_t v) {
    return std::to_string(v);
}
std::string textOf(Id v) {
    return toStrep(v);
}
std::string textOf(const Host& v) {
    return v.toStrep();
}
std::string textOf(const Address& v) {
    return v.text();
}
std::string textOf(const Claim& v) {
    return textOf(v.host) + (v.localMultihomed ? " multihomed here" : "");
}
std::string textOf(const Local& v) {
    return textOf(v.host) + (v.kernelHasIt ? " known to the kernel" : "");
}
std::string textOf(const Entry& v) {
    return ": " + v.text();
}
std::string textOf(const ArpSuppression::LocalBinding& v) {
    return v.toStrep();
}
template <class T>
std::string listText(const T& list) {
    std::string text = "[";
    for (const auto& element : list) {
        text += (text.size() > 1 ? ", " : "") + textOf(element);
    }
    return text + "]";
}
template <class T>
std::string textOf(const std::set<T>& v) {
    return listText(v);
}
template <class T>
std::string textOf(const std::vector<T>& v) {
    return listText(v);
}
template <class K, class T>
std::string differing(const std::map<K, T>& expected, const std::map<K, T>& seen) {
    std::string text;
    for (const auto& [key, value] : expected) {
        auto found = seen.find(key);
        if (found == seen.end()) {
            text += "\n  " + textOf(key) + ": not there; should be " + textOf(value);
        } else if (!(found->second == value)) {
            text += "\n  " + textOf(key) + ": " + textOf(found->second) + "; should be " +
                    textOf(value);
        }
    }
    for (const auto& [key, value] : seen) {
        if (!expected.contains(key)) {
            text += "\n  " + textOf(key) + ": " + textOf(value) + "; should not be there";
        }
    }
    return text;
}
template <class T>
std::string differing(const std::set<T>& expected, const std::set<T>& seen) {
    return "\n  " + textOf(seen) + "; should be " + textOf(expected);
}

template <class T>
void same(const char* what, const T& expected, const T& seen) {
    if (!(expected == seen)) {
        throw Difference(what + differing(expected, seen));
    }
}

/// The parts say what is wrong.
template <class... Parts>
void must(bool holds, const Parts&... parts) {
    if (!holds) {
        throw Difference((textOf(parts) + ...));
    }
}

Address addressOf(const VrfIpAddress& key) {
    return {key.vrfInfo() ? key.vrfInfo()->vrfName() : "none", key.ipAddress(), key.intfId()};
}

uint64_t digestOf(const Model::Past& past, uint64_t slices, uint64_t before) {
    Vela::IncrementalHash hash(before);
    hash.mix(slices);
    for (const auto& [address, entry] : past.entries) {
        hash.mix(address.ip.hash(0));
        hash.mix(entry.intf.hash(0));
        hash.mixBytes(entry.mac.bytes());
        hash.mix(static_cast<uint64_t>(entry.type) << 8 | static_cast<uint64_t>(entry.refresh));
    }
    for (const auto& [address, local] : past.local) {
        hash.mix(address.ip.hash(0));
        hash.mix(local.host.hash(0));
        hash.mix(local.kernelHasIt);
    }
    return hash.result();
}

} // namespace

void Leaf::comeToRest() {
    for (unsigned turns = 0; scheduler_->turn(Vela::MonotonicTime(0)); ++turns) {
        must(turns < 100'000, "the agent does not come to rest");
    }
}

void Leaf::settle() {
    comeToRest();
    ++settled_;
    const auto replies = ports_.sent(100);
    replies_ = replies.size();
    for (const Testing::Frame& frame : replies) {
        must(physical_ ||
                 (frame.size() == 46 && frame[12] == 0x81 && frame[16] == 8 && frame[25] == 2),
             "what was sent to the fabric is no reply");
    }
    ports_.written(102);
    const bool runs = rootSm().root() != nullptr;
    must(runs == state_->evpnStatus->mplsConfigured(),
         runs ? "suppression runs" : "suppression does not run");
    must(runs == state_->arpSuppressionStatus->runnable(), "runnable");
    if (runs) {
        checkRunning(!restarted_ && (changes_ == 0 || (changes_ == 1 && frames_ == 0)));
        if (!trappedV4_) {
            watch();
        }
    } else {
        checkStopped();
    }
    if (restarted_) {
        ports_.forgetClosed();
    }
    if (settleEvery_ > 1) {
        say_("-- settled");
    }
    changes_ = frames_ = 0;
    changed_.reset();
    heard_.clear();
    restarted_ = false;
}

void Leaf::checkStopped() {
    must(state_->arpSuppressionStatus->vlanIds() == 0, "a VLAN is active after the stop");
    must(state_->arpInputConfig->vrfs() == 0, "an entry is there after the stop");
    must(std::all_of(statusImage_.begin(), statusImage_.end(), [](uint8_t b) { return b == 0; }),
         "the image of the status is not empty after the stop");
}

void Leaf::checkRunning(bool exact) {
    if (changes_ > 0 || restarted_) {
        model_->look();
    }
    checkVlans();
    checkRemote();
    checkLocal();
    Model::Past past = seen();
    const Model::Counters counted = countersMoved();
    if (exact) {
        followPast();
        ++followed_;
        same("who claims remote addresses", model_->past().claims, past.claims);
        same("local bindings", model_->past().local, past.local);
        same("what was counted", model_->counted(), counted);
        must(physical_ || model_->replies() == replies_, static_cast<uint32_t>(replies_),
             " replies");
        same("neighbour entries", model_->past().entries, past.entries);
    }
    checkPast(past);
    checkLeft(past);
    checkEntries(past);
    digest_ = digestOf(past, scheduler_->slices(), digest_);
    if (!exact) {
        model_->pastIs(std::move(past));
    }
}

/// Of what the model counts, since the last check.
Model::Counters Leaf::countersMoved() {
    Model::Counters moved;
    const auto& status = *agent_->mounts()->arpSuppressionCounterStatus();
    for (auto number = static_cast<uint32_t>(Id::answeredFromRemoteBinding);
         number <= static_cast<uint32_t>(Id::bindingDeleted); ++number) {
        const uint64_t count = status.count(Id(number));
        const uint64_t before = std::exchange(counters_[Id(number)], count);
        if (count != before) {
            moved[Id(number)] = count - before;
        }
    }
    return moved;
}

/// One thing happened, or frames alone came in.
void Leaf::followPast() {
    if (changed_) {
        struct Follow {
            Model& model;
            void operator()(const ArpSuppression::RemoteBindingKey& key) {
                model.remoteBindingChanged(key);
            }
            void operator()(const Bridging::HostKey& key) { model.fdbChanged(key); }
            void operator()(const Arp::Table::ArpKey& key) { model.kernelChanged(key); }
        };
        std::visit(Follow{*model_}, *changed_);
    }
    for (const auto& heard : heard_) {
        heard();
    }
    model_->vlansChanged();
}

/// What the agent holds, as the model would.
Model::Past Leaf::seen() const {
    Model::Past past;
    const auto& root = *agent_->rootSm()->root();
    const auto& claims = root.remoteBindingStatus()->ipToMacCollection();
    for (auto claim = claims.first(); claim; ++claim) {
        auto& list = past.claims[addressOf(claim.key())];
        claim.value()->vlanIdMacAddressCollection().each([&](const auto& one) {
            list.push_back({one.vlanIdMacAddress, one.localMultihomed});
        });
    }
    const auto& bindings = root.localBindingRecord()->bindingCollection();
    for (auto binding = bindings.first(); binding; ++binding) {
        past.local[addressOf(binding.key())] = {binding.value()->vlanIdMacAddress(),
                                                binding.value()->arpStatusHasDynamicEntry()};
    }
    const auto& vrfs = state_->arpInputConfig->vrfCollection();
    for (auto vrf = vrfs.first(); vrf; ++vrf) {
        for (const auto* entries :
             {&vrf.value()->ipv4EntryCollection(), &vrf.value()->ipv6EntryCollection()}) {
            for (auto entry = entries->first(); entry; ++entry) {
                const bool v4 = entry.key().ipAddress().af() == Zinc::ipv4();
                Address address{vrf.key().bytes(), entry.key().ipAddress(),
                                v4 ? Zinc::IntfId() : entry.key().intfId()};
                must(!past.entries.contains(address), "two entries for ", address);
                past.entries[address] = {entry.key().intfId(), entry.value().macAddress(),
                                         entry.value().type(), entry.value().quickRefresh()};
            }
        }
    }
    return past;
}

// VLANs and VRFs

void Leaf::checkVlans() {
    std::set<VlanId> enabled;
    const auto& enabledVlans = root().enabledVlans()->vlanIdCollection();
    for (auto vlan = enabledVlans.first(); vlan; ++vlan) {
        enabled.insert(vlan.key());
    }
    same("enabled VLANs", model_->present().enabled, enabled);

    std::set<VlanId> active;
    const auto& status = state_->arpSuppressionStatus->vlanIdCollection();
    for (auto vlan = status.first(); vlan; ++vlan) {
        must(vlan.value(), "VLAN ", vlan.key(), " is published as not active");
        active.insert(vlan.key());
    }
    same("active VLANs", model_->present().active, active);

    std::map<VlanId, std::string> vrfs;
    const auto& vlanL3Info = root().vlanL3InfoStatus()->vlanL3InfoCollection();
    for (auto vlan = vlanL3Info.first(); vlan; ++vlan) {
        vrfs[vlan.key()] = vlan.value()->vrfInfo()->vrfName();
        const bool usable = vlan.value()->usable();
        must(usable == model_->present().usable.contains(vlan.key()), "VLAN ", vlan.key(),
             usable ? " is usable" : " is not usable");
    }
    same("VRFs of VLANs", model_->present().vlanVrfs, vrfs);
    checkListeners();
}

/// A pair for each VLAN with L3 information, while there is a virtual router; they receive where
/// the VLAN is usable.
void Leaf::checkListeners() {
    const auto& discovery = *rootSm().bindingDiscoverySm();
    const auto listening = [&](const auto& collection) {
        std::set<VlanId> vlans;
        for (auto listener = collection.first(); listener; ++listener) {
            const VlanId vlanId = listener.key();
            const auto& vlanL3Info = listener.value()->vlanL3Info();
            must(root().vlanL3InfoStatus()->vlanL3Info(vlanId) == vlanL3Info, "VLAN ", vlanId,
                 " has the listener of another record");
            const bool receives = listener.value()->arpReplyRxPam() != nullptr;
            must(receives == vlanL3Info->usable(), "the listener of VLAN ", vlanId,
                 receives ? " receives" : " does not receive");
            vlans.insert(vlanId);
        }
        return vlans;
    };
    std::set<VlanId> wanted;
    if (!state_->fhrpVrMacStatus->varpVirtualMac().isZero()) {
        for (const auto& [vlanId, vrf] : model_->present().vlanVrfs) {
            wanted.insert(vlanId);
        }
    }
    same("VLANs listened to for ARP", wanted, listening(discovery.varpReplyV4SmCollection()));
    same("VLANs listened to for IPv6", wanted, listening(discovery.varpReplyV6SmCollection()));
}

/// As many uses as the tracker has bindings in each VRF, and a registered user for each VRF used.
void Leaf::checkVrfUsers(const ArpSuppression::VrfUseTracker& tracker,
                         const std::map<std::string, uint32_t>& uses) {
    std::map<std::string, uint32_t> seen;
    const auto& counts = tracker.vrfReferenceCountCollection();
    for (auto count = counts.first(); count; ++count) {
        const auto& vrfInfo = count.key();
        const std::string& vrf = vrfInfo->vrfName();
        must(seen.emplace(vrf, count.value()).second, "two records of VRF ", vrf, " in use");
        must(root().vlanL3InfoStatus()->vrfInfo(vrf) == vrfInfo, "VRF ", vrf, " is another");
        auto user = tracker.vrfUserCollection().value(vrfInfo);
        must(user && user->vrfInfo() == vrfInfo && vrfInfo->userCollection().has(user), "VRF ", vrf,
             " has no user");
    }
    same("uses of VRFs", uses, seen);
    must(tracker.vrfUserCollection().count() == seen.size(), "a user of no VRF");
}

// Bindings

void Leaf::checkRemote() {
    const auto& status = *root().remoteBindingStatus();
    must(status.initialPopulationComplete(), "the remote bindings are not complete");
    std::set<VlanId> vlans;
    for (auto vlan = status.vlanIdCollection().first(); vlan; ++vlan) {
        vlans.insert(vlan.key());
    }
    same("VLANs with remote bindings", model_->present().vlansWithBindings, vlans);

    std::map<Host, std::set<Zinc::IpGenAddr>> hosts;
    for (auto host = status.macToIpCollection().first(); host; ++host) {
        must(host.key() == host.value()->vlanIdMacAddress(), "a host stands under another's key");
        auto& addresses = hosts[host.key()];
        host.value()->ipAddressCollection().each(
            [&](const Zinc::IpGenAddr& address) { addresses.insert(address); });
    }
    same("addresses of remote hosts", model_->present().remoteHosts, hosts);

    std::map<std::string, uint32_t> uses;
    std::map<Address, std::vector<Claim>> claims;
    for (auto claim = status.ipToMacCollection().first(); claim; ++claim) {
        const Address address = addressOf(claim.key());
        ++uses[address.vrf];
        must(root().vlanL3InfoStatus()->vrfInfo(address.vrf) == claim.key().vrfInfo(),
             "the VRF of ", address, " has ended");
        claim.value()->vlanIdMacAddressCollection().each([&](const auto& one) {
            claims[address].push_back({one.vlanIdMacAddress, one.localMultihomed});
            must(hosts.contains(one.vlanIdMacAddress), "an address of no host");
        });
        must(claims.contains(address), "nobody claims ", address);
    }
    for (auto& [address, list] : claims) {
        sort(list);
    }
    same("remote addresses", model_->present().claims, claims);
    checkVrfUsers(status, uses);
}

void Leaf::checkLocal() {
    const auto& record = *root().localBindingRecord();
    std::map<std::string, uint32_t> uses;
    size_t filed = 0;
    const auto& bindings = record.bindingCollection();
    for (auto binding = bindings.first(); binding; ++binding) {
        const auto& one = binding.value();
        ++uses[one->vrfIpAddress().vrfInfo()->vrfName()];
        must(one->vrfIpAddress() == binding.key(), *one, " stands under another's key");
        auto host = record.macToIp(one->vlanIdMacAddress());
        must(host && host->binding(binding.key()) == one, *one, " is not filed under its host");
        const auto& mac = one->vlanIdMacAddress().macAddress();
        const auto& ip = one->vrfIpAddress().ipAddress();
        must(!mac.isZero() && !mac.isMulticast(), *one, " has no host's MAC address");
        must(!ip.isUnset() && !ip.isUnspecified() && !ip.isMulticast(), *one, " has no address");
    }
    for (auto host = record.macToIpCollection().first(); host; ++host) {
        must(host.value()->bindings() > 0, "a host without bindings: ", host.key());
        filed += host.value()->bindings();
    }
    must(filed == record.bindings(), "a host has a binding that the record does not have");
    checkVrfUsers(record, uses);
}

// Entries

/// What must hold however things came to be.
void Leaf::checkPast(const Model::Past& past) {
    for (const auto& [address, claims] : past.claims) {
        const bool needsEntry = !past.local.contains(address) && !wasSelective_;
        must(!needsEntry || past.entries.contains(address), "no entry for the remote binding of ",
             address);
    }
    for (const auto& [address, entry] : past.entries) {
        auto claims = past.claims.find(address);
        auto local = past.local.find(address);
        const bool remote = claims != past.claims.end();
        if (entry.type == ArpTypeId::permanent) {
            const bool first = remote && claims->second.front().host.macAddress() == entry.mac;
            must(first, address, entry, " is not of the first remote binding");
            must(address.ip.af() != Zinc::ipv4() ||
                     entry.intf == vlanIntf(claims->second.front().host.vlanId()),
                 address, entry, " is on another interface");
        } else if (entry.refresh == QuickRefresh::immediate) {
            must(toggles_.evpnMplsProxyArpRefresh, address, entry, " though the toggle is off");
            must(!remote, address, entry, " though there is a remote binding");
        } else {
            must(local != past.local.end() && local->second.host.macAddress() == entry.mac, address,
                 entry, " is not of a local binding");
            must(address.ip.af() != Zinc::ipv4() ||
                     entry.intf == vlanIntf(local->second.host.vlanId()),
                 address, entry, " is on another interface");
        }
    }
}

/// An entry that the predecessor has left stays, and was never removed, while the first remote
/// binding of its address is the one that it was made for.
void Leaf::checkLeft(const Model::Past& past) {
    for (const auto& [address, entry] : left_) {
        auto claims = past.claims.find(address);
        if (claims == past.claims.end()) {
            continue;
        }
        const Host& first = claims->second.front().host;
        const bool same =
            first.macAddress() == entry.mac &&
            (address.ip.af() != Zinc::ipv4() || vlanIntf(first.vlanId()) == entry.intf);
        must(!same || past.entries.contains(address), address, entry,
             " is supported and was removed");
        must(!same || claims->second.size() > 1 || !removed_.contains(address), address, entry,
             " is supported and was absent for a while");
    }
}

void Leaf::checkEntries(const Model::Past& past) {
    const auto& config = *state_->arpInputConfig;
    for (auto vrf = config.vrfCollection().first(); vrf; ++vrf) {
        must(vrf.value()->ipv4Entries() + vrf.value()->ipv6Entries() > 0, "no entries in VRF ",
             vrf.key().bytes());
        must(root().vlanL3InfoStatus()->vrfInfo(vrf.key()) != nullptr, "entries in VRF ",
             vrf.key().bytes(), ", which nobody uses");
    }
    std::map<Address, Zinc::IntfId> expected;
    for (const auto& [address, entry] : past.entries) {
        if (address.ip.af() == Zinc::ipv4()) {
            expected[address] = entry.intf;
        }
    }
    std::map<Address, Zinc::IntfId> shadows;
    const auto& shadow = rootSm().arpInputConfigSm()->ipv4VlanIntfIdShadowCollection();
    for (auto one = shadow.first(); one; ++one) {
        shadows[addressOf(one.key().vrfIpAddress())] = one.value();
    }
    same("interfaces of IPv4 entries", expected, shadows);

    // Each that was added is there, but for those that were removed.
    const auto& counters = *agent_->mounts()->arpSuppressionCounterStatus();
    const uint64_t balance = counters.count(Id::inputPermanentAdded) +
                             counters.count(Id::inputDynamicAdded) -
                             counters.count(Id::inputDeleted);
    if (!restarted_) {
        must(past.entries.size() - entriesBefore_ == balance, "entries and counters disagree");
    }
    entriesBefore_ = past.entries.size() - balance;
}

} // namespace Random
