#pragma once

#include "Host/Configuration.h"
#include "Platform/Agent/SwitchState.h"

#include <map>
#include <string>

namespace Host {

/// Publishes what the configuration says of the switch: for data planes without a provider, for
/// tests and for trying things out. What others have published under other keys stays. Where the
/// kernel is the switch, only what it does not know: not VRFs, interfaces and their addresses, FDB,
/// neighbours, the VLANs that EVPN serves, nor MAC addresses of the switch.
class StaticEntries {
  public:
    /// The state must outlive this object.
    explicit StaticEntries(Vela::SwitchState& state);

    /// Goes from the configuration applied before (an empty one at first) to this one, section by
    /// section: withdraws what is gone and then sets what is there. What is the same in both is
    /// not announced.
    ///
    /// A VRF without a configured id gets one: "default" 0, any other the lowest from 1 on that is
    /// free, and keeps it as long as no other VRF asks for it. Where entries of [[fdb]] meet
    /// because their VLANs share a FID, the first one counts.
    ///
    /// Whether the kernel is the switch is the same in all that are applied.
    ///
    /// Throws RangeError or Quarry::TableError if there is no room for the names of its interfaces
    /// or a namespace's table cannot be made; then nothing has changed.
    void apply(const Configuration& configuration);

    using VrfIds = std::map<std::string, Vrf::VrfId>; // by name
    /// Of the VRFs applied.
    const VrfIds& vrfIds() const { return vrfIds_; }

  private:
    void mountNamespaces(const Configuration& next);
    void unmountNamespaces(const Configuration& next);
    void applyVrfIds(const VrfIds& nextIds);
    void applyVrfs(const Configuration& next);
    void applyInterfaces(const Configuration& next);
    void withdrawInterfaces(const Configuration& next);
    void withdrawSubInterfaces(const Configuration& next);
    void applySubInterfaces(const Configuration& next);
    void applyKernelInterfaces(const Configuration& next);
    void applyBridging(const Configuration& next);
    void applyEvpn(const Configuration& next);
    void applyTables(const Configuration& next, const VrfIds& nextIds);

    Vela::SwitchState& state_;
    Configuration applied_;
    VrfIds vrfIds_;
};

} // namespace Host
