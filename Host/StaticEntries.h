#pragma once

#include "Host/Configuration.h"
#include "Platform/Agent/SwitchState.h"

namespace Host {

/// Publishes what the configuration says of the switch: for data planes without a provider, for
/// tests and for trying things out. What others have published under other keys stays.
class StaticEntries {
  public:
    /// The state must outlive this object.
    explicit StaticEntries(Vela::SwitchState& state) : state_(state) {}

    /// Goes from the configuration applied before (an empty one at first) to this one: withdraws
    /// what is gone and then sets what is there. What is the same in both is left alone, and
    /// nothing announced.
    void apply(const Configuration& configuration);

  private:
    void applyVrfs(const Configuration& next);
    void applyInterfaces(const Configuration& next);
    void applyBridging(const Configuration& next);
    void applyEvpn(const Configuration& next);
    void applyTables(const Configuration& next);

    Vela::SwitchState& state_;
    Configuration applied_;
};

} // namespace Host
