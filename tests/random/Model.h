#pragma once

#include "ArpSuppression/ArpSuppression.h"
#include "ArpSuppression/TrappedMessage.h"
#include "Platform/Agent/SwitchState.h"
#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Random {

using Host = ArpSuppression::VlanIdMacAddress;

/// An address as a human would say it: in the VRF of that name.
struct Address {
    std::string vrf;
    Zinc::IpGenAddr ip;
    Zinc::IntfId intf; // of a link-local address

    friend auto operator<=>(const Address&, const Address&) = default;
    std::string text() const;
};

/// A remote host that claims an address.
struct Claim {
    Host host;
    bool localMultihomed = false;

    friend bool operator==(const Claim&, const Claim&) = default;
};

void sort(std::vector<Claim>& claims);

struct Local {
    Host host;
    bool kernelHasIt = false;

    friend bool operator==(const Local&, const Local&) = default;
};

struct Entry {
    Zinc::IntfId intf;
    Zinc::EthAddr mac;
    Arp::ArpType::ArpTypeId type;
    Arp::QuickRefresh refresh;

    friend bool operator==(const Entry&, const Entry&) = default;
    std::string text() const;
};

struct Toggles {
    bool localMultihomeSelectiveArpInstall = true;
    bool evpnMplsProxyArpRefresh = true;
};

/// What an agent that suppresses should know and have published, worked out without an eye to
/// speed: from what the switch publishes now, and for what depends on the past by following what
/// happened, one thing at a time. Knows neither walks nor slices.
class Model {
  public:
    Model(Vela::SwitchState& state, Toggles toggles);

    /// What follows from what is published at the moment.
    struct Present {
        std::set<Bridging::VlanId> vlansWithBindings;
        std::set<Bridging::VlanId> enabled;
        std::set<Bridging::VlanId> active;
        std::set<Bridging::VlanId> usable;
        bool fabricUsable = false;
        std::map<Bridging::VlanId, std::string> vlanVrfs; ///< of those with L3 information
        std::map<Host, std::set<Zinc::IpGenAddr>> remoteHosts;
        std::map<Address, std::vector<Claim>> claims; ///< sorted
    };
    const Present& present() const { return present_; }
    /// Before anything that follows.
    void look();

    // From what happened. Each is told when the switch has published the change, before the next
    // one.

    void remoteBindingChanged(const ArpSuppression::RemoteBindingKey& key);
    void fdbChanged(const Bridging::HostKey& key);
    void kernelChanged(const Arp::Table::ArpKey& key);
    void trapped(const ArpSuppression::TrappedMessage& message);
    /// After each of them, and after a change of anything else.
    void vlansChanged();

    /// What should have been counted of decisions about requests and of discovery, and how many
    /// replies sent, since this was asked last.
    using Counters = std::map<ArpSuppression::ArpSuppressionCounterId, uint64_t>;
    Counters counted() { return std::exchange(counted_, {}); }
    uint32_t replies() { return std::exchange(replies_, 0); }

    /// What is taken for the past where it was not followed.
    struct Past {
        std::map<Address, std::vector<Claim>> claims; ///< the first one counts
        std::map<Address, Local> local;
        std::map<Address, Entry> entries;
    };
    const Past& past() const { return past_; }
    void pastIs(Past past);

  private:
    std::string routedVrf(Bridging::VlanId vlanId) const;
    std::set<std::string> runningDevices() const;
    bool vrfIsReady(const std::string& vrf) const;
    Vrf::VrfId vrfId(const std::string& vrf) const;
    Address addressOf(Bridging::VlanId vlanId, const Zinc::IpGenAddr& ip) const;
    bool vlanIsIn(Bridging::VlanId vlanId, const std::string& vrf) const;
    bool isLocalMultihomed(const Address& address, const Zinc::EthAddr& mac) const;
    std::set<std::string> vrfsInUse() const;

    bool claim(const Address& address, const Claim& claim);
    void disclaim(const Address& address, const Host& host);
    void remoteNotified(const Address& address);
    void decide(const ArpSuppression::TrappedMessage& message);
    bool isMine(Bridging::VlanId vlanId, const Zinc::IpGenAddr& ip) const;
    bool isOfTheSwitch(const Zinc::EthAddr& mac) const;
    void answer(const ArpSuppression::TrappedMessage& message, const Zinc::EthAddr& mac,
                Zinc::IntfId intf);
    void ask(Bridging::VlanId vlanId, const Zinc::IpGenAddr& ip, const Zinc::EthAddr& mac);
    std::optional<Arp::Table::ArpEntry> kernelEntry(const Arp::Table::ArpKey& key) const;
    void count(ArpSuppression::ArpSuppressionCounterId id) { ++counted_[id]; }

    void learn(Bridging::VlanId vlanId, const Zinc::IpGenAddr& ip, const Zinc::EthAddr& mac);
    void forget(const Address& address);

    void update(const Address& address, bool suppressionEvent, const Host& departed = {});
    Host departedHost(const Address& address) const;
    bool writeLocal(const Address& address);
    bool writeRemote(const Address& address, bool suppressionEvent, const Host& departed);
    void write(const Address& address, const Host& host, Arp::ArpType::ArpTypeId type,
               Arp::QuickRefresh refresh);

    const Vela::SwitchState& state_;
    const Vela::Ptr<const KernelNetInfo::Status> devices_;
    const Toggles toggles_;
    Present present_;
    std::map<Bridging::VlanId, std::string> vlanVrfs_; // as the machines know it
    std::map<ArpSuppression::RemoteBindingKey, ArpSuppression::RemoteBinding> known_;
    std::set<std::string> vrfsInUse_;
    Past past_;
    Counters counted_;
    uint32_t replies_ = 0;
    std::map<Address, Host> localMultihomed_; // as remembered for the time when they go
};

Zinc::IntfId vlanIntf(Bridging::VlanId vlanId);

} // namespace Random
