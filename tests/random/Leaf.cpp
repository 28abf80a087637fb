#include "tests/random/Leaf.h"

#include "Platform/Trace/Swiftlog.h"
#include "Testing/SwitchDevices.h"

#include <cstdlib>

namespace Random {

using Bridging::VlanId;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;

namespace {

constexpr uint32_t arpinject = 102;
const EthAddr bridgeMac("02:00:00:00:0b:0b");
const EthAddr varpMac("02:00:5e:00:01:01");

/// The numbers that VRFs may have, two each.
const std::map<std::string, std::vector<uint32_t>> vrfIds{
    {"default", {0, 10}}, {"red", {7, 17}}, {"blue", {9, 19}}};

uint32_t ifIndexOf(VlanId vlanId) {
    return 1000u + vlanId.value();
}

} // namespace

Leaf::Leaf(uint64_t seed, Toggles toggles, Say say)
    : dice_(seed), toggles_(toggles), say_(std::move(say)),
      settleEvery_(std::vector<uint32_t>{1, 2, 4, 16}[dice_.below(4)]), physical_(dice_.chance(30)),
      statusImage_(ArpSuppression::ArpSuppressionStatus::imageBytes) {
    const auto yield = static_cast<Yield>(dice_.below(3));
    if (yield == Yield::byChance) {
        clock_.jumpsIs(seed);
    }
    setenv("SWIFTLOGDIR", directory_.path().c_str(), 1);
    scheduler_ = Vela::make<Vela::TaskScheduler>(
        clock_, Vela::TaskScheduler::Settings{.alwaysYield = yield == Yield::always});
    tables_ = Vela::make<Quarry::TableService>(scheduler_, directory_.path() + "/tables");
    database_ = Vela::make<Vela::EntityManager>(scheduler_, tables_);
    state_.emplace(database_, statusImage_);
    model_.emplace(*state_, toggles_);
    publish();
    agentIs();
}

Leaf::~Leaf() {
    unwatch();
    agent_->destroy();
    agent_.reset();
    model_.reset();
    state_.reset();
    database_->destroy();
    tables_->destroy();
    Vela::Swiftlog::close();
}

/// Some VLANs that are routed, and the devices that requests come from and replies go to.
void Leaf::publish() {
    state_->bridgingConfig->bridgeMacAddrIs(bridgeMac);
    state_->fhrpVrMacStatus->varpVirtualMacIs(varpMac);
    for (const std::string& vrf : vrfs_) {
        state_->vrfIdMap->vrfIs(Vrf::VrfId(vrfIds.at(vrf).front()), vrf);
        if (vrf != "default") {
            auto local = state_->allVrfStatusLocal->vrfIs(vrf);
            local->networkNamespaceIs("default");
            local->stateIs(Ip::VrfState::active);
        }
    }
    for (uint32_t number : {10u, 20u, 30u}) {
        VlanId vlanId(number);
        state_->evpnStatus->vlanToDot1qIs(vlanId, {});
        state_->ipStatus->ipIntfStatusIs(vlanIntf(vlanId), number == 30 ? "red" : "default");
        Testing::deviceIs(*state_, vlanIntf(vlanId).toStrep(), ifIndexOf(vlanId));
        ports_.deviceIs(vlanIntf(vlanId).toStrep(), ifIndexOf(vlanId));
    }
    Testing::deviceIs(*state_, "fabric", fabric);
    Testing::deviceIs(*state_, "arpsnoop", arpsnoop);
    Testing::deviceIs(*state_, "arpinject", arpinject);
    Testing::portIs(*state_, "Ethernet1", "et1", 11);
    Testing::portIs(*state_, "Ethernet2", "et2", 12);
    Testing::deviceIs(*state_, "cpu", 1);
    state_->tablesCompleteIs();
    state_->evpnStatus->mplsConfiguredIs(true);
}

/// It may run for a while before all remote bindings are in their table.
void Leaf::agentIs() {
    const bool completeLate = dice_.chance(40);
    const auto late = completeLate ? takeOutRemoteBindings() : RemoteBindings();
    state_->remoteBindingConfig->completeIs(!completeLate);
    agent_ = ArpSuppression::arpSuppressionAgentFactory("RandomAgent");
    agent_->platformIs({scheduler_, database_, physical_});
    agent_->doInit();
    if (completeLate) {
        say_("remote bindings are not complete yet");
        comeToRest();
        for (uint32_t things = dice_.chance(50) ? dice_.below(20) : 0; things > 0; --things) {
            left_.clear(); // what supports an entry may go and come back
            somethingHappens();
            turnAFewTimes();
        }
        for (const auto& binding : late) {
            say_("remote binding " + binding.toStrep());
            state_->remoteBindingConfig->remoteBindingIs(binding);
        }
        say_("remote bindings are complete");
        state_->remoteBindingConfig->completeIs(true);
    }
    settle();
}

/// About half of them.
Leaf::RemoteBindings Leaf::takeOutRemoteBindings() {
    RemoteBindings taken;
    const auto& table = state_->remoteBindingConfig->remoteBindingCollection();
    for (auto binding = table.first(); binding; ++binding) {
        if (dice_.chance(50)) {
            taken.push_back(binding.value());
        }
    }
    for (const auto& binding : taken) {
        say_("remote binding is late " + binding.key.toStrep());
        state_->remoteBindingConfig->remoteBindingDel(binding.key);
    }
    return taken;
}

// What frames lead to is heard as the machines hear it, right after them.

void Leaf::watch() {
    const auto follow = [this](const Vela::Ptr<ArpSuppression::MessageTrap>& trap) {
        return trap->lastTrappedMessageAttribute().react(nullptr, [this, trap = trap.get()] {
            if (auto message = trap->lastTrappedMessage()) {
                heard_.push_back([this, message] { model_->trapped(*message); });
            }
        });
    };
    trappedV4_ = follow(root().receivedRequestTrapV4());
    trappedV6_ = follow(root().receivedRequestTrapV6());
}

void Leaf::unwatch() {
    trappedV4_ = {};
    trappedV6_ = {};
}

// What happens

void Leaf::step() {
    if (!agent_->rootSm()->root() && dice_.chance(10)) {
        suppression(); // most of the time it runs
        return;
    }
    somethingHappens();
    if (dice_.below(settleEvery_) == 0) {
        settle();
    } else if (dice_.chance(50)) {
        turnAFewTimes();
    }
}

/// What comes next falls into the middle of what this leads to.
void Leaf::turnAFewTimes() {
    for (uint32_t turns = dice_.below(12); turns > 0; --turns) {
        scheduler_->turn(Vela::MonotonicTime(0));
    }
}

void Leaf::somethingHappens() {
    struct Kind {
        uint32_t weight;
        void (Leaf::*happens)();
    };
    static constexpr Kind kinds[] = {
        {20, &Leaf::remoteBinding},
        {10, &Leaf::remoteBindingGoes},
        {12, &Leaf::fdb},
        {6, &Leaf::fdbGoes},
        {14, &Leaf::neighbor},
        {8, &Leaf::neighborGoes},
        {4, &Leaf::servedVlan},
        {4, &Leaf::routedInterface},
        {3, &Leaf::interfaceAddress},
        {3, &Leaf::device},
        {3, &Leaf::vrf},
        {2, &Leaf::macAddress},
        {2, &Leaf::selectiveInstall},
        {3, &Leaf::segment},
        {40, &Leaf::frame},
        {2, &Leaf::replyToVirtualRouter},
        {2, &Leaf::time},
        {1, &Leaf::suppression},
    };
    uint32_t sum = 0;
    for (const Kind& kind : kinds) {
        sum += kind.weight;
    }
    uint32_t thrown = dice_.below(sum);
    const Kind* kind = kinds;
    while (thrown >= kind->weight) {
        thrown -= (kind++)->weight;
    }
    (this->*kind->happens)();
}

EthAddr Leaf::mac() {
    switch (dice_.below(40)) {
    case 0:
        return bridgeMac;
    case 1:
        return varpMac;
    case 2:
        return EthAddr("01:00:5e:00:00:01");
    default:
        return EthAddr(dice_.oneOf(macs_));
    }
}

void Leaf::remoteBinding() {
    ArpSuppression::RemoteBinding binding{{boundVlan(), ip()},
                                          dice_.chance(3) ? EthAddr() : mac(),
                                          dice_.chance(10),
                                          dice_.chance(30)};
    say_("remote binding " + binding.toStrep());
    if (state_->remoteBindingConfig->remoteBindingCollection().find(binding.key) != binding) {
        ++changes_;
        changed_ = binding.key;
    }
    state_->remoteBindingConfig->remoteBindingIs(binding);
}

void Leaf::remoteBindingGoes() {
    ArpSuppression::RemoteBindingKey key{boundVlan(), ip()};
    say_("remote binding goes " + key.toStrep());
    if (state_->remoteBindingConfig->remoteBindingDel(key)) {
        ++changes_;
        changed_ = key;
    }
}

void Leaf::fdb() {
    const uint32_t fid = dice_.chance(1) ? 4095 : vlan().value();
    Bridging::QuarryFdbStatus entry{{Bridging::Fid(fid), mac()},
                                    IntfId(dice_.oneOf(intfs_)),
                                    static_cast<Bridging::EntryType>(1 + dice_.below(5))};
    say_("fdb " + entry.toStrep());
    if (state_->bridgingStatus->quarryFdbStatus(entry.key) != entry) {
        ++changes_;
        changed_ = entry.key;
    }
    state_->bridgingStatus->quarryFdbStatusIs(entry);
}

void Leaf::fdbGoes() {
    Bridging::HostKey key{Bridging::Fid(vlan().value()), mac()};
    say_("fdb goes " + key.toStrep());
    if (state_->bridgingStatus->quarryFdbStatusDel(key)) {
        ++changes_;
        changed_ = key;
    }
}

/// Mostly of the number that the VRF has now.
void Leaf::neighbor() {
    const auto vlanId = vlan();
    const auto& ids = vrfIds.at(dice_.oneOf(vrfs_));
    Arp::Table::ArpEntry entry{{Vrf::VrfId(ids[dice_.chance(5)]), vlanIntf(vlanId), ip()},
                               mac(),
                               dice_.chance(30),
                               dice_.chance(40) ? Arp::ArpSource::arpSuppression
                                                : Arp::ArpSource::kernel};
    const auto& vrfs = model_->present().vlanVrfs; // as last looked at
    if (auto vrf = vrfs.find(vlanId); vrf != vrfs.end() && dice_.chance(80)) {
        entry.key = {Vrf::VrfId(vrfIds.at(vrf->second).front()), vlanIntf(vlanId),
                     entry.key.addr()};
    }
    if (dice_.chance(2)) {
        const std::vector<std::string> others{"Ethernet1", "Vlan4095", "Vlan0", "Vlan"};
        entry.key = {entry.key.vrfId(), IntfId(dice_.oneOf(others)), entry.key.addr()};
    }
    say_("neighbour " + entry.toStrep());
    const auto& table = entry.key.addr().af() == Zinc::ipv4()
                            ? state_->arpStatus->arpEntryCollection()
                            : state_->arpStatus->neighborEntryCollection();
    if (table.find(entry.key) != entry) {
        ++changes_;
        changed_ = entry.key;
    }
    state_->arpStatus->entryIs(entry);
}

/// One that is there.
void Leaf::neighborGoes() {
    const auto& table = dice_.chance(50) ? state_->arpStatus->arpEntryCollection()
                                         : state_->arpStatus->neighborEntryCollection();
    auto entry = table.atOrAfter(
        {Vrf::VrfId(vrfIds.at(dice_.oneOf(vrfs_)).front()), vlanIntf(vlan()), ip()});
    if (!entry) {
        entry = table.first();
    }
    if (!entry) {
        return;
    }
    const auto key = entry.key();
    say_("neighbour goes " + key.toStrep());
    ++changes_;
    changed_ = key;
    state_->arpStatus->entryDel(key);
}

void Leaf::servedVlan() {
    const auto vlanId = vlan();
    ++changes_;
    if (dice_.chance(60)) {
        say_("EVPN serves VLAN " + vlanId.toStrep());
        state_->evpnStatus->vlanToDot1qIs(vlanId, {});
    } else {
        say_("EVPN does not serve VLAN " + vlanId.toStrep());
        state_->evpnStatus->vlanToDot1qDel(vlanId);
    }
}

void Leaf::routedInterface() {
    const auto vlanId = vlan();
    const bool v4 = dice_.chance(70);
    const bool goes = dice_.chance(30);
    const std::string& vrf = dice_.oneOf(vrfs_);
    say_((v4 ? "ipv4 interface " : "ipv6 interface ") + vlanIntf(vlanId).toStrep() +
         (goes ? " goes" : " in " + vrf));
    ++changes_;
    if (v4 && goes) {
        state_->ipStatus->ipIntfStatusDel(vlanIntf(vlanId));
    } else if (v4) {
        state_->ipStatus->ipIntfStatusIs(vlanIntf(vlanId), vrf);
    } else if (goes) {
        state_->ip6Status->intfDel(vlanIntf(vlanId));
    } else {
        state_->ip6Status->intfIs(vlanIntf(vlanId), vrf);
    }
}

void Leaf::interfaceAddress() {
    const auto vlanId = vlan();
    const bool goes = dice_.chance(30);
    say_("address of " + vlanIntf(vlanId).toStrep() + (goes ? " goes" : ""));
    ++changes_;
    if (auto v4 = state_->ipStatus->ipIntfStatus(vlanIntf(vlanId))) {
        Ip::AddrWithMask address(IpGenAddr(dice_.chance(50) ? "10.0.0.254" : "10.0.0.3"), 24);
        if (dice_.chance(50)) {
            v4->activeAddrWithMaskIs(goes ? Ip::AddrWithMask() : address);
        } else if (goes) {
            v4->activeSecondaryWithMaskDel(address);
        } else {
            v4->activeSecondaryWithMaskIs(address);
        }
    }
    if (auto v6 = state_->ip6Status->intf(vlanIntf(vlanId))) {
        Ip::AddrWithMask address(IpGenAddr("2001:db8::2"), 64);
        goes ? v6->addrDel(address) : v6->addrIs(address);
    }
}

void Leaf::device() {
    struct Device {
        std::string name;
        uint32_t ifIndex;
    };
    const auto vlanId = vlan();
    Device device{vlanIntf(vlanId).toStrep(), ifIndexOf(vlanId)};
    switch (dice_.below(20)) {
    case 0:
        device = {"fabric", fabric};
        break;
    case 1:
        device = {"arpsnoop", arpsnoop};
        break;
    case 2:
        device = {"arpinject", arpinject};
        break;
    case 3:
        device = {"et2", 12};
        break;
    default:
        break;
    }
    ++changes_;
    const bool isVlan = device.ifIndex >= 1000;
    const uint32_t thrown = dice_.below(isVlan ? 12 : 40);
    say_("device " + device.name + (thrown < 2 ? " goes" : thrown < 4 ? " is down" : " is up"));
    auto status = state_->kernelNetInfoIs("default");
    ports_.deviceIs(device.name, thrown < 2 ? 0 : device.ifIndex);
    if (thrown < 2) {
        status->interfaceDel(device.ifIndex);
    } else {
        status->interfaceIs(
            {device.ifIndex, device.name, Testing::deviceFlags(thrown >= 4), EthAddr()});
    }
}

void Leaf::vrf() {
    const std::string& vrf = dice_.oneOf(vrfs_);
    ++changes_;
    const auto& ids = vrfIds.at(vrf);
    // Without the default VRF nothing is trapped.
    switch (vrf == "default" ? !dice_.chance(5) : dice_.below(8)) {
    case 0:
        say_("no VRF id for " + vrf);
        state_->vrfIdMap->vrfDel(Vrf::VrfId(ids[0]));
        state_->vrfIdMap->vrfDel(Vrf::VrfId(ids[1]));
        return;
    case 1:
    case 2: {
        const bool other = dice_.chance(20);
        say_("VRF id " + std::to_string(ids[other]) + " for " + vrf);
        state_->vrfIdMap->vrfDel(Vrf::VrfId(ids[!other]));
        state_->vrfIdMap->vrfIs(Vrf::VrfId(ids[other]), vrf);
        return;
    }
    case 3:
        say_("VRF " + vrf + " goes");
        state_->allVrfStatusLocal->vrfDel(vrf);
        return;
    case 4:
        say_("VRF " + vrf + " is being deleted");
        if (auto local = state_->allVrfStatusLocal->vrf(vrf)) {
            local->stateIs(Ip::VrfState::deleting);
        }
        return;
    default: {
        say_("VRF " + vrf + " is active");
        auto local = state_->allVrfStatusLocal->vrfIs(vrf);
        local->networkNamespaceIs("default");
        local->stateIs(Ip::VrfState::active);
    }
    }
}

void Leaf::macAddress() {
    ++changes_;
    const auto fid = Bridging::Fid(vlan().value());
    const auto vlanId = vlan();
    switch (dice_.below(3)) {
    case 0: {
        const auto changed = dice_.chance(20) ? EthAddr() : dice_.chance(70) ? varpMac : mac();
        say_("virtual router MAC " + changed.toStrep());
        state_->fhrpVrMacStatus->varpVirtualMacIs(changed);
        return;
    }
    case 1: {
        const auto changed = dice_.chance(70) ? bridgeMac : mac();
        say_("bridge MAC " + changed.toStrep());
        state_->bridgingConfig->bridgeMacAddrIs(changed);
        return;
    }
    default:
        say_("VLAN " + vlanId.toStrep() + " has FID " + fid.toStrep());
        state_->bridgingConfig->vlanToFidIs(vlanId, fid);
    }
}

void Leaf::selectiveInstall() {
    ++changes_;
    const bool selective = dice_.chance(40);
    say_(selective ? "selective install" : "no selective install");
    state_->l2VpnConfig->selectiveArpInstallIs(selective);
    wasSelective_ = wasSelective_ || selective;
}

void Leaf::segment() {
    ++changes_;
    const auto vlanId = vlan();
    const IntfId intf(dice_.oneOf(intfs_));
    const uint32_t thrown = dice_.below(4);
    say_("segment of " + intf.toStrep() + (thrown == 0 ? " goes" : "") +
         (thrown == 3 ? " is forwarded by another for VLAN " + vlanId.toStrep() : ""));
    if (thrown == 0) {
        state_->evpnStatus->segmentStatusDel(intf);
    } else {
        auto segment = state_->evpnStatus->segmentStatusIs(intf);
        thrown == 3 ? segment->dfTepIs(vlanId, IntfId("Vxlan1")) : segment->dfTepDel(vlanId);
    }
}

void Leaf::time() {
    const uint32_t seconds = dice_.below(60);
    say_("time passes: " + std::to_string(seconds) + " s");
    clock_.advance(std::chrono::seconds(seconds));
}

void Leaf::suppression() {
    if (!agent_->rootSm()->root()) {
        say_("suppression starts");
    } else if (dice_.chance(20)) {
        return death();
    } else {
        say_("suppression stops");
    }
    ++changes_;
    restarted_ = true;
    const bool runs = agent_->rootSm()->root() != nullptr;
    unwatch();
    state_->evpnStatus->mplsConfiguredIs(!runs);
    if (!runs) {
        wasSelective_ = state_->l2VpnConfig->selectiveArpInstall();
    }
}

/// The agent ends without a chance to withdraw anything, and another one starts: what was published
/// stands in the image, and permanent entries in the kernel, from which they are read back. If the
/// other one is not to run, it only withdraws all of that.
void Leaf::death() {
    say_("the agent dies and starts again");
    const Model::Past past = seen();
    const bool settled = changes_ == 0;
    const auto image = statusImage_;
    unwatch();
    agent_->destroy();
    state_->arpSuppressionStatus->runnableIs(image[0] == 1);
    for (uint32_t number = 1; number <= 4094; ++number) {
        if (image[number] != 0) {
            state_->arpSuppressionStatus->vlanIdIs(VlanId(number), image[number] == 2);
        }
    }
    left_.clear();
    for (const auto& [address, entry] : past.entries) {
        if (entry.type == Arp::ArpType::ArpTypeId::permanent) {
            state_->arpInputConfig->vrfIs(address.vrf)
                ->afEntryPermanentIs({address.ip, entry.intf}, entry.mac,
                                     Arp::ArpSource::arpSuppression);
            if (settled) {
                left_[address] = entry;
            }
        }
    }
    ++changes_;
    restarted_ = true;
    wasSelective_ = state_->l2VpnConfig->selectiveArpInstall();
    if (dice_.chance(30)) {
        say_("EVPN is switched off meanwhile");
        state_->evpnStatus->mplsConfiguredIs(false);
    }
    const auto watches = watchLeft();
    agentIs();
    left_.clear();
}

/// Takes out of what was left by the agent's predecessor what is removed, be it for a moment.
std::vector<Vela::Reaction> Leaf::watchLeft() {
    std::vector<Vela::Reaction> reactions;
    const auto& vrfs = state_->arpInputConfig->vrfCollection();
    for (auto cursor = vrfs.first(); cursor; ++cursor) {
        auto* vrf = cursor.value().get();
        for (const auto* entries : {&vrf->ipv4EntryCollection(), &vrf->ipv6EntryCollection()}) {
            reactions.push_back(
                entries->react(nullptr, [this, vrf, entries](const Arp::InputConfigKey& key) {
                    if (!entries->has(key)) {
                        const bool v4 = key.ipAddress().af() == Zinc::ipv4();
                        removed_.insert({vrf->vrfName().bytes(), key.ipAddress(),
                                         v4 ? IntfId() : key.intfId()});
                    }
                }));
        }
    }
    removed_.clear();
    return reactions;
}

} // namespace Random
