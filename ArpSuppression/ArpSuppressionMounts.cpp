#include "ArpSuppression/ArpSuppressionMounts.h"

#include "Platform/State/DumpContext.h"

#include <utility>

namespace ArpSuppression {

ArpSuppressionMounts::ArpSuppressionMounts(
    Vela::Ptr<Vela::EntityManager> entityManager,
    Vela::Ptr<const RemoteBindingConfig> remoteBindingConfig,
    Vela::Ptr<const Quarry::MountGroup> remoteBindingConfigMountGroup,
    Vela::Ptr<ArpSuppressionStatus> arpSuppressionStatus,
    Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus,
    Vela::Ptr<const Ip::AllVrfStatusLocal> allVrfStatusLocal,
    Vela::Ptr<const Vrf::VrfIdMap::Status> vrfIdMap,
    Vela::Ptr<const Vrf::VrfIdMap::NameToIdMap> vrfNameToIdMap,
    Vela::Ptr<const Arp::Table::Status> arpStatus, Vela::Ptr<const Ip::Status> ipStatus,
    Vela::Ptr<const Ip6::Status> ip6Status, Vela::Ptr<const Bridging::Config> bridgingConfig,
    Vela::Ptr<const Quarry::Bridging::Status> bridgingStatus,
    Vela::Ptr<const Evpn::EvpnStatus> evpnStatus, Vela::Ptr<const Evpn::MplsConfig> evpnMplsConfig,
    Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpVrMacStatus,
    Vela::Ptr<Arp::InputConfig> arpInputConfig,
    Vela::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
    Vela::Ptr<const Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir,
    Vela::Ptr<const Routing::L2Vpn::Config> l2VpnConfig,
    Vela::Ptr<const Brant::IntfEncapServiceIntfColl> intfEncapServiceIntf)
    : entityManager_(std::move(entityManager)),
      remoteBindingConfig_(std::move(remoteBindingConfig)),
      remoteBindingConfigMountGroup_(std::move(remoteBindingConfigMountGroup)),
      arpSuppressionStatus_(std::move(arpSuppressionStatus)),
      arpSuppressionCounterStatus_(std::move(arpSuppressionCounterStatus)),
      allVrfStatusLocal_(std::move(allVrfStatusLocal)), vrfIdMap_(std::move(vrfIdMap)),
      vrfNameToIdMap_(std::move(vrfNameToIdMap)), arpStatus_(std::move(arpStatus)),
      ipStatus_(std::move(ipStatus)), ip6Status_(std::move(ip6Status)),
      bridgingConfig_(std::move(bridgingConfig)), bridgingStatus_(std::move(bridgingStatus)),
      evpnStatus_(std::move(evpnStatus)), evpnMplsConfig_(std::move(evpnMplsConfig)),
      fhrpVrMacStatus_(std::move(fhrpVrMacStatus)), arpInputConfig_(std::move(arpInputConfig)),
      allIntfStatusDir_(std::move(allIntfStatusDir)),
      allIntfStatusLocalDir_(std::move(allIntfStatusLocalDir)),
      l2VpnConfig_(std::move(l2VpnConfig)), intfEncapServiceIntf_(std::move(intfEncapServiceIntf)) {
}

void ArpSuppressionMounts::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "ArpSuppressionMounts\n");
}

} // namespace ArpSuppression
