#include "Platform/Agent/SwitchState.h"

#include <stdexcept>
#include <utility>

namespace Vela {

template <class T, class... Args>
Ptr<T> SwitchState::published(const std::string& path, Args&&... args) {
    Ptr<T> entity = make<T>(std::forward<Args>(args)...);
    entityManager->entityIs(path, entity);
    return entity;
}

/// Without its tables there is no switch: what the trace says at level 0 ends the start here.
template <class T>
Ptr<T> SwitchState::table(const std::string& path) {
    tables->mount<T>(path, Quarry::MountType::writer);
    Ptr<T> mounted = tables->entity<T>(path);
    if (!mounted) {
        tables->unmount(path); // so that it can be tried again
        throw Quarry::TableError("the table " + path + " cannot be made");
    }
    return mounted;
}

SwitchState::SwitchState(Ptr<EntityManager> manager, std::span<uint8_t> statusImage)
    : entityManager(std::move(manager)), tables(entityManager->tableService()->mountGroup()),
      vrfIdMap(table<Vrf::VrfIdMap::Status>("vrf/vrfIdMapStatus")),
      arpStatus(table<Arp::Table::Status>("arp/status")),
      bridgingStatus(table<Quarry::Bridging::Status>("bridging/status")),
      remoteBindingConfig(
          table<ArpSuppression::RemoteBindingConfig>("arpSuppression/remoteBindingConfig/evpn")),
      arpSuppressionStatus(
          published<ArpSuppression::ArpSuppressionStatus>("arpSuppression/status", statusImage)),
      arpInputConfig(published<Arp::InputConfig>("arp/input/config/arpSuppression")),
      bridgingConfig(published<Bridging::Config>("bridging/config")),
      evpnStatus(published<Evpn::EvpnStatus>("evpn/status")),
      evpnMplsConfig(published<Evpn::MplsConfig>("evpn/mplsConfig")),
      fhrpVrMacStatus(published<Routing::Fhrp::VirtualRouterMacStatus>("routing/fhrp/vrMacStatus")),
      l2VpnConfig(published<Routing::L2Vpn::Config>("routing/l2vpn/config")),
      intfEncapServiceIntf(
          published<Brant::IntfEncapServiceIntfColl>("interface/encap/serviceIntf")),
      ipStatus(published<Ip::Status>("ip/status")), ip6Status(published<Ip6::Status>("ip6/status")),
      allVrfStatusLocal(
          published<Ip::AllVrfStatusLocal>(EntityManager::cellPath("ip/vrf/status/local"))),
      allIntfStatusDir(
          published<Interface::AllIntfStatusDir>("interface/status/all", "AllIntfStatusDir")),
      allIntfStatusLocalDir(published<Interface::AllIntfStatusLocalDir>(
          EntityManager::cellPath("interface/status/local"), "AllIntfStatusLocalDir")) {}

SwitchState::~SwitchState() {
    for (auto cursor = entityManager->entityCollection().first(); cursor; ++cursor) {
        Ptr<Entity> entity = cursor.value();
        entityManager->entityDel(cursor.key());
        entity->destroy();
    }
    tables->destroy();
}

Ptr<KernelNetInfo::Status> SwitchState::kernelNetInfoIs(const std::string& netNs) {
    auto found = kernelNetInfo_.find(netNs);
    if (found == kernelNetInfo_.end()) {
        auto status = table<KernelNetInfo::Status>(KernelNetInfo::statusPath(netNs));
        found = kernelNetInfo_.emplace(netNs, std::move(status)).first;
    }
    return found->second;
}

void SwitchState::kernelNetInfoDel(const std::string& netNs) {
    if (kernelNetInfo_.erase(netNs) > 0) {
        tables->unmount(KernelNetInfo::statusPath(netNs));
    }
}

void SwitchState::tablesCompleteIs() {
    vrfIdMap->completeIs(true);
    arpStatus->completeIs(true);
    bridgingStatus->completeIs(true);
    remoteBindingConfig->completeIs(true);
    for (const auto& [netNs, status] : kernelNetInfo_) {
        status->completeIs(true);
    }
}

} // namespace Vela
