#pragma once

#include "Platform/Model/Arp/InputConfig.h"
#include "Platform/Model/Arp/TableStatus.h"
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
#include "Platform/Model/KernelNetInfo/Status.h"
#include "Platform/Model/Routing/Fhrp/VirtualRouterMacStatus.h"
#include "Platform/Model/Routing/L2Vpn/Config.h"
#include "Platform/Model/Vrf/VrfIdMapStatus.h"
#include "Platform/StateDb/EntityManager.h"

#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace Vela {

/// All that a switch publishes for agents, empty at first, each thing at its path: made by the host
/// before it starts an agent, filled by whoever knows. Tables are complete once their providers say
/// so. With this object everything is withdrawn.
class SwitchState {
  public:
    /// `statusImage` outlives this object and what it publishes; see ArpSuppressionStatus. Throws
    /// TableError.
    SwitchState(Ptr<EntityManager> entityManager, std::span<uint8_t> statusImage);
    ~SwitchState();
    SwitchState(const SwitchState&) = delete;
    SwitchState& operator=(const SwitchState&) = delete;

    /// The kernel interfaces of a network namespace; stays mounted until kernelNetInfoDel. Throws
    /// TableError if there cannot be such a table.
    Ptr<KernelNetInfo::Status> kernelNetInfoIs(const std::string& netNs);
    void kernelNetInfoDel(const std::string& netNs);
    /// Marks all tables complete, for who fills them by hand.
    void tablesCompleteIs();

    const Ptr<EntityManager> entityManager;
    const Ptr<Quarry::MountGroup> tables;

    // tables, made first: without one of them nothing is published
    const Ptr<Vrf::VrfIdMap::Status> vrfIdMap;
    const Ptr<Arp::Table::Status> arpStatus;
    const Ptr<Quarry::Bridging::Status> bridgingStatus;
    const Ptr<ArpSuppression::RemoteBindingConfig> remoteBindingConfig;

    // entities
    const Ptr<ArpSuppression::ArpSuppressionStatus> arpSuppressionStatus;
    const Ptr<Arp::InputConfig> arpInputConfig;
    const Ptr<Bridging::Config> bridgingConfig;
    const Ptr<Evpn::EvpnStatus> evpnStatus;
    const Ptr<Evpn::MplsConfig> evpnMplsConfig;
    const Ptr<Routing::Fhrp::VirtualRouterMacStatus> fhrpVrMacStatus;
    const Ptr<Routing::L2Vpn::Config> l2VpnConfig;
    const Ptr<Brant::IntfEncapServiceIntfColl> intfEncapServiceIntf;
    const Ptr<Ip::Status> ipStatus;
    const Ptr<Ip6::Status> ip6Status;
    const Ptr<Ip::AllVrfStatusLocal> allVrfStatusLocal;
    const Ptr<Interface::AllIntfStatusDir> allIntfStatusDir;
    const Ptr<Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir;

  private:
    template <class T, class... Args>
    Ptr<T> published(const std::string& path, Args&&... args);
    template <class T>
    Ptr<T> table(const std::string& path);

    std::map<std::string, Ptr<KernelNetInfo::Status>> kernelNetInfo_; // by namespace
};

} // namespace Vela
