#pragma once

#include "ArpSuppression/ArpSuppressionMounts.h"
#include "ArpSuppression/ArpSuppressionRoot.h"
#include "ArpSuppression/MessageTapSocketSm.h"
#include "Platform/Value/VlanId.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ArpSuppression {

/// Something that suppression needs, whether it is there, and what or where it is.
struct StatusCondition {
    const char* name; ///< for programs: "trapSocket"
    const char* text; ///< for people: "trap socket"
    bool holds;
    std::string value; ///< may be empty
};
using StatusConditions = std::vector<StatusCondition>;

/// Why suppression is at work on a VLAN, or why not.
struct VlanStatus {
    Bridging::VlanId vlanId;
    StatusConditions conditions;
    /// What has to change first: where there is no VRF, not what would follow from it. Empty if
    /// suppression is at work.
    StatusConditions lacks;

    bool suppressing() const { return lacks.empty(); }
    /// "VLAN 10: not suppressing, lacks: trap socket; device for replies"
    std::string summary() const;
};

/// What there is to say of a VLAN in one line.
struct VlanSummary {
    Bridging::VlanId vlanId;
    bool evpn;                  ///< EVPN serves it
    bool enabled;               ///< suppression is wanted
    uint64_t remoteBindings;    ///< configured ones
    std::string interface;      ///< the routed one; empty for none
    std::string vrf;            ///< empty while unknown
    uint32_t ifIndex;           ///< 0 while not running
    bool usable;                ///< packets can be sent on it
    std::optional<bool> active; ///< as it is published; nothing if it is not
};

/// Looks at the agent's state for an operator, without a change to it or to anything that it
/// shares: in a forked child even a new interface name would be one.
///
/// A VLAN is active that has remote bindings, or that EVPN serves and whose routed interface is
/// usable. Its requests are trapped while the agent has its sockets and can answer.
class StatusView {
  public:
    /// What it looks at outlives it. Root and machines are null while suppression does not run.
    StatusView(const ArpSuppressionMounts& mounts, const ArpSuppressionRoot* root,
               const MessageTapSocketSm* trap, const MessageTapSocketSm* reinject);

    /// What all VLANs need.
    StatusConditions agentConditions() const;
    VlanStatus vlanStatus(Bridging::VlanId vlanId) const;
    /// VLANs of which anything is known, but for those that are only in the table of bindings.
    std::set<Bridging::VlanId> vlans() const;
    /// The same and those, in their order; walks the table.
    std::vector<VlanSummary> vlanSummaries() const;

  private:
    template <class Status>
    using ByVlan = std::map<Bridging::VlanId, const Status*>;

    StatusConditions vlanConditions(Bridging::VlanId vlanId) const;
    StatusCondition socketCondition(const char* name, const char* text,
                                    const MessageTapSocketSm* machine) const;
    StatusCondition fabricCondition() const;
    StatusCondition vrfCondition(Bridging::VlanId vlanId, const VlanL3Info* record) const;
    StatusCondition vrfActiveCondition(const VrfInfo* vrfInfo) const;
    StatusCondition routedInterfaceCondition(Bridging::VlanId vlanId) const;
    const VlanL3Info* recordOf(Bridging::VlanId vlanId) const;
    std::optional<bool> published(Bridging::VlanId vlanId) const;

    const ArpSuppressionMounts& mounts_;
    const ArpSuppressionRoot* const root_;
    const MessageTapSocketSm* const trap_;
    const MessageTapSocketSm* const reinject_;
    ByVlan<Ip::IpIntfStatus> ip_;
    ByVlan<Ip6::IntfStatus> ip6_;
};

} // namespace ArpSuppression
