#pragma once

#include "ArpSuppression/ArpSuppressionSm.h"
#include "ArpSuppression/StatusView.h"
#include "ArpSuppression/SuppressionDecision.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ArpSuppression {

/// A kind of request for an address, and what would become of one now.
struct ExpectedOutcome {
    const char* name; ///< for programs: "host"
    std::string text; ///< for people: "request of a host"
    Decision decision;
    std::vector<ArpSuppressionCounterId> counters; ///< that would move, in their order
};

/// Who deals with requests for an address on a VLAN.
enum class RequestHandling : uint8_t {
    passed,  ///< the forwarding plane, which lets them pass: suppression is not at work
    copied,  ///< the same, and the agent learns from copies: IPv6 solicitations are never answered
    decided, ///< the agent
};

/// What is known of an address on a VLAN, and what follows for requests.
struct AddressStatus {
    struct Host {
        VlanIdMacAddress vlanIdMacAddress;
        bool kernelLearnt;
    };
    struct WantedEntry {
        std::string vrfName;
        Zinc::IntfId intfId; ///< empty for an IPv6 address that is not link-local
        Arp::InputConfigEntry entry;
    };
    struct Segment {
        Zinc::IntfId intfId;
        Zinc::IntfId forwarder; ///< empty for none
    };

    VlanStatus vlan;
    RequestHandling handling = RequestHandling::passed;
    /// What a decision rests on; nothing while suppression does not run.
    std::optional<TargetFacts> facts = {};
    std::optional<RemoteBinding> remoteBinding = {};
    std::optional<Arp::Table::ArpEntry> kernelEntry = {};
    std::optional<Host> localBinding = {}; ///< of the VLAN's VRF; the host may be on another VLAN
    std::optional<WantedEntry> wantedEntry = {};
    std::optional<Segment> segment = {}; ///< of the port that the MAC table names
    /// For each kind of request; empty unless `handling` is `decided`.
    std::vector<ExpectedOutcome> outcomes = {};
};

/// Looks at an address for an operator, by the rules that requests are handled by, without a change
/// to anything: see StatusView.
class AddressView {
  public:
    /// What it looks at outlives it. Root and machine are null while suppression does not run.
    AddressView(const ArpSuppressionMounts& mounts, const ArpSuppressionRoot* root,
                const ArpSuppressionSm* suppressionSm, const StatusView& statusView)
        : mounts_(mounts), root_(root), suppressionSm_(suppressionSm), statusView_(statusView) {}

    /// The address must be one of IPv4 or IPv6.
    AddressStatus addressStatus(Bridging::VlanId vlanId, const Zinc::IpGenAddr& address) const;
    /// Those with an entry for the address, of whatever kind.
    std::set<Bridging::VlanId> vlansThatKnow(const Zinc::IpGenAddr& address) const;
    std::set<Bridging::VlanId> vlansThatSuppress() const;

  private:
    void lookUp(AddressStatus& status, const Zinc::IpGenAddr& address) const;
    void lookUpRouted(AddressStatus& status, const VlanL3Info& vlanL3Info,
                      const Zinc::IpGenAddr& address) const;
    RequestHandling handlingOf(const VlanStatus& vlan, const Zinc::IpGenAddr& address) const;
    std::vector<ExpectedOutcome> outcomes(const AddressStatus& status,
                                          const Zinc::IpGenAddr& address) const;
    const VlanL3Info* vlanL3Info(Bridging::VlanId vlanId) const;

    const ArpSuppressionMounts& mounts_;
    const ArpSuppressionRoot* const root_;
    const ArpSuppressionSm* const suppressionSm_;
    const StatusView& statusView_;
};

} // namespace ArpSuppression
