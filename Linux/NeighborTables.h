#pragma once

#include "Linux/ConfiguredBindings.h"
#include "Linux/LocalMultihomedSm.h"
#include "Linux/Neighbor.h"
#include "Linux/Topology.h"
#include "Platform/Model/Arp/TableStatus.h"
#include "Platform/Model/ArpSuppression/RemoteBindingConfig.h"

namespace Linux {

/// The tables that neighbours stand in: the ARP and neighbour tables, or the remote bindings.
class NeighborTables {
  public:
    NeighborTables(Vela::Ptr<Arp::Table::Status> arpStatus,
                   Vela::Ptr<ArpSuppression::RemoteBindingConfig> remoteBindingConfig,
                   Vela::Ptr<const ConfiguredBindings> configuredBindings,
                   Vela::Ptr<LocalMultihomedSm> localMultihomedSm);

    /// Makes both tables say so before anybody hears of either. Who polls them from another process
    /// may find the address in neither for a moment, as if the host were unknown, but never in
    /// both: what goes goes first. A binding of the configuration file stays as it is.
    void neighborIs(const RoutedDevice& device, const Zinc::IpGenAddr& address,
                    const Neighbor& neighbor);
    /// As it stands; what the file says is no neighbour.
    Neighbor neighbor(const RoutedDevice& device, const Zinc::IpGenAddr& address) const;

    const Vela::Ptr<Arp::Table::Status> arpStatus;
    const Vela::Ptr<ArpSuppression::RemoteBindingConfig> remoteBindingConfig;
    const Vela::Ptr<const ConfiguredBindings> configuredBindings;

  private:
    const Vela::Ptr<LocalMultihomedSm> localMultihomedSm_;
};

} // namespace Linux
