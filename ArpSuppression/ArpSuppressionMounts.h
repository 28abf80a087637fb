#pragma once

#include "Platform/Model/Arp/InputConfig.h"
#include "Platform/Model/Arp/TableStatus.h"
#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"
#include "Platform/Model/ArpSuppression/ArpSuppressionStatus.h"
#include "Platform/Model/ArpSuppression/RemoteBindingConfig.h"
#include "Platform/Model/Brant/IntfEncap.h"
#include "Platform/Model/Bridging/Config.h"
#include "Platform/Model/Bridging/FdbStatus.h"
#include "Platform/Model/Evpn/EvpnStatus.h"
#include "Platform/Model/Evpn/MplsConfig.h"
#include "Platform/Model/Interface/IntfStatus.h"
#include "Platform/Model/Ip/Status.h"
#include "Platform/Model/Ip/VrfStatus.h"
#include "Platform/Model/Ip6/Status.h"
#include "Platform/Model/Routing/Fhrp/VirtualRouterMacStatus.h"
#include "Platform/Model/Routing/L2Vpn/Config.h"
#include "Platform/Model/Vrf/NameToIdMap.h"
#include "Platform/Model/Vrf/VrfIdMapStatus.h"
#include "Platform/Quarry/TableService.h"
#include "Platform/StateDb/EntityManager.h"

#include <utility>

namespace ArpSuppression {

/// The mounted entities that everything in the agent gets its inputs from and writes its outputs
/// to. What could not be mounted is empty, and who needs it must not be started. Never changes.
class ArpSuppressionMounts final : public Vela::Entity {
  public:
    ArpSuppressionMounts(Vela::Ptr<Vela::EntityManager> entityManager,
                         Vela::Ptr<const RemoteBindingConfig> remoteBindingConfig,
                         Vela::Ptr<const Quarry::MountGroup> remoteBindingConfigMountGroup,
                         Vela::Ptr<ArpSuppressionStatus> arpSuppressionStatus,
                         Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus,
                         Vela::Ptr<const Ip::AllVrfStatusLocal> allVrfStatusLocal,
                         Vela::Ptr<const Vrf::VrfIdMap::Status> vrfIdMap,
                         Vela::Ptr<const Vrf::VrfIdMap::NameToIdMap> vrfNameToIdMap,
                         Vela::Ptr<const Arp::Table::Status> arpStatus,
                         Vela::Ptr<const Ip::Status> ipStatus,
                         Vela::Ptr<const Ip6::Status> ip6Status,
                         Vela::Ptr<const Bridging::Config> bridgingConfig,
                         Vela::Ptr<const Quarry::Bridging::Status> bridgingStatus,
                         Vela::Ptr<const Evpn::EvpnStatus> evpnStatus,
                         Vela::Ptr<const Evpn::MplsConfig> evpnMplsConfig,
                         Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpVrMacStatus,
                         Vela::Ptr<Arp::InputConfig> arpInputConfig,
                         Vela::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
                         Vela::Ptr<const Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir,
                         Vela::Ptr<const Routing::L2Vpn::Config> l2VpnConfig,
                         Vela::Ptr<const Brant::IntfEncapServiceIntfColl> intfEncapServiceIntf);

    const char* typeName() const noexcept override { return "ArpSuppressionMounts"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const Vela::Ptr<Vela::EntityManager>& entityManager() const { return entityManager_; }
    const Vela::Ptr<const RemoteBindingConfig>& remoteBindingConfig() const {
        return remoteBindingConfig_;
    }
    const Vela::Ptr<const Quarry::MountGroup>& remoteBindingConfigMountGroup() const {
        return remoteBindingConfigMountGroup_;
    }
    const Vela::Ptr<ArpSuppressionStatus>& arpSuppressionStatus() const {
        return arpSuppressionStatus_;
    }
    const Vela::Ptr<ArpSuppressionCounterStatus>& arpSuppressionCounterStatus() const {
        return arpSuppressionCounterStatus_;
    }
    const Vela::Ptr<const Ip::AllVrfStatusLocal>& allVrfStatusLocal() const {
        return allVrfStatusLocal_;
    }
    const Vela::Ptr<const Vrf::VrfIdMap::Status>& vrfIdMap() const { return vrfIdMap_; }
    const Vela::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap() const {
        return vrfNameToIdMap_;
    }
    const Vela::Ptr<const Arp::Table::Status>& arpStatus() const { return arpStatus_; }
    const Vela::Ptr<const Ip::Status>& ipStatus() const { return ipStatus_; }
    const Vela::Ptr<const Ip6::Status>& ip6Status() const { return ip6Status_; }
    const Vela::Ptr<const Bridging::Config>& bridgingConfig() const { return bridgingConfig_; }
    const Vela::Ptr<const Quarry::Bridging::Status>& bridgingStatus() const {
        return bridgingStatus_;
    }
    const Vela::Ptr<const Evpn::EvpnStatus>& evpnStatus() const { return evpnStatus_; }
    const Vela::Ptr<const Evpn::MplsConfig>& evpnMplsConfig() const { return evpnMplsConfig_; }
    const Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus>& fhrpVrMacStatus() const {
        return fhrpVrMacStatus_;
    }
    const Vela::Ptr<Arp::InputConfig>& arpInputConfig() const { return arpInputConfig_; }
    const Vela::Ptr<const Interface::AllIntfStatusDir>& allIntfStatusDir() const {
        return allIntfStatusDir_;
    }
    const Vela::Ptr<const Interface::AllIntfStatusLocalDir>& allIntfStatusLocalDir() const {
        return allIntfStatusLocalDir_;
    }
    const Vela::Ptr<const Routing::L2Vpn::Config>& l2VpnConfig() const { return l2VpnConfig_; }
    const Vela::Ptr<const Brant::IntfEncapServiceIntfColl>& intfEncapServiceIntf() const {
        return intfEncapServiceIntf_;
    }

  private:
    const Vela::Ptr<Vela::EntityManager> entityManager_;
    const Vela::Ptr<const RemoteBindingConfig> remoteBindingConfig_;
    const Vela::Ptr<const Quarry::MountGroup> remoteBindingConfigMountGroup_;
    const Vela::Ptr<ArpSuppressionStatus> arpSuppressionStatus_;
    const Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus_;
    const Vela::Ptr<const Ip::AllVrfStatusLocal> allVrfStatusLocal_;
    const Vela::Ptr<const Vrf::VrfIdMap::Status> vrfIdMap_;
    const Vela::Ptr<const Vrf::VrfIdMap::NameToIdMap> vrfNameToIdMap_;
    const Vela::Ptr<const Arp::Table::Status> arpStatus_;
    const Vela::Ptr<const Ip::Status> ipStatus_;
    const Vela::Ptr<const Ip6::Status> ip6Status_;
    const Vela::Ptr<const Bridging::Config> bridgingConfig_;
    const Vela::Ptr<const Quarry::Bridging::Status> bridgingStatus_;
    const Vela::Ptr<const Evpn::EvpnStatus> evpnStatus_;
    const Vela::Ptr<const Evpn::MplsConfig> evpnMplsConfig_;
    const Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpVrMacStatus_;
    const Vela::Ptr<Arp::InputConfig> arpInputConfig_;
    const Vela::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir_;
    const Vela::Ptr<const Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir_;
    const Vela::Ptr<const Routing::L2Vpn::Config> l2VpnConfig_;
    const Vela::Ptr<const Brant::IntfEncapServiceIntfColl> intfEncapServiceIntf_;
};

/// Takes what the constructor takes.
template <class... References>
Vela::Ptr<ArpSuppressionMounts> arpSuppressionMountsFactory(References&&... references) {
    return Vela::make<ArpSuppressionMounts>(std::forward<References>(references)...);
}

} // namespace ArpSuppression
