#include "ArpSuppression/ArpSuppressionAgent.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "ArpSuppression/ExplainAddress.h"
#include "ArpSuppression/ShowLocalBindings.h"
#include "ArpSuppression/ShowStatus.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Swiftlog.h"
#include "Platform/Trace/SwiftlogType.h"

#include <cstdlib>
#include <utility>

namespace ArpSuppression {

namespace {

using Quarry::MountType;

// Where the agent's inputs and outputs are.
constexpr const char* statusPath = "arpSuppression/status";
constexpr const char* counterPath = "arpSuppression/counter";
constexpr const char* remoteBindingConfigPath = "arpSuppression/remoteBindingConfig/evpn";
constexpr const char* arpInputConfigPath = "arp/input/config/arpSuppression";
constexpr const char* arpStatusPath = "arp/status";
constexpr const char* bridgingStatusPath = "bridging/status";
constexpr const char* vrfIdMapPath = "vrf/vrfIdMapStatus";
constexpr const char* allVrfStatusLocalPath = "ip/vrf/status/local"; // of the cell
constexpr const char* allIntfStatusDirPath = "interface/status/all";
constexpr const char* allIntfStatusLocalDirPath = "interface/status/local"; // of the cell

struct MountsComplete {
    bool allMounted;
    uint32_t staleVlans;
};
const Vela::SwiftlogType<MountsComplete> mountsCompleteRecord{
    "ArpSuppression/ArpSuppressionAgent",
    "doMountsComplete",
    1,
    {{"allMounted=", &MountsComplete::allMounted}, {" staleVlans=", &MountsComplete::staleVlans}}};

} // namespace

std::string ArpSuppressionAgent::slInit(const std::string& name) {
    // Without a directory of its own the file stands beside those of other processes.
    const char* processPart = std::getenv("SWIFTLOGDIR") ? "" : "-%d";
    Vela::SwiftlogConfig config;
    config.fileName = name + processPart + ".sl";
    config.levelKiB = {8, 32, 256, 128, 512, 512};
    config.secondaryFileName = "";
    config.firstLevel = 0;
    config.typeAreaKiB = 24;
    config.threading = Vela::SwiftlogThreading::single;
    config.preallocate = true;
    config.maxRecordBytes = 512;
    Vela::Swiftlog::initialize(config);
    return Vela::Swiftlog::fileName();
}

void ArpSuppressionAgent::doInit() {
    TRACE(trace, 8, this, "doInit");
    slInit(name());

    mountGroup_ = entityManager()->mountGroup(*this);
    mountGroup_->mount(statusPath, "ArpSuppression::ArpSuppressionStatus", "wc");
    mountIpStatus(*mountGroup_, true, true);
    mountGroup_->mount("bridging/config/", "Bridging::Config", "r");
    mountGroup_->mount("evpn/status", "Evpn::EvpnStatus", "r");
    mountGroup_->mount("evpn/mplsConfig", "Evpn::MplsConfig", "r");
    mountGroup_->mount("routing/fhrp/vrMacStatus", "Routing::Fhrp::VirtualRouterMacStatus", "r");
    mountGroup_->mount(entityManager()->cellPath(allVrfStatusLocalPath), "Ip::AllVrfStatusLocal",
                       "r");
    mountGroup_->mount("routing/l2vpn/config", "Routing::L2Vpn::Config", "r");
    mountGroup_->mount(arpInputConfigPath, "Arp::InputConfig", "wS");
    mountGroup_->mount("interface/encap/serviceIntf", "Brant::IntfEncapServiceIntfColl", "r");

    entityManager()->localEntityIs<Interface::AllIntfStatusDir>(allIntfStatusDirPath,
                                                                "AllIntfStatusDir");
    entityManager()->localEntityIs<Interface::AllIntfStatusLocalDir>(
        entityManager()->cellPath(allIntfStatusLocalDirPath), "AllIntfStatusLocalDir");
    localEntitiesCreatedIs(true);

    mountGroup_->close();
}

void ArpSuppressionAgent::doMountsComplete(Vela::MountStatus mountStatus,
                                           const Vela::Ptr<Vela::EntityManager>& entityManager) {
    TRACE(trace, 8, this, "doMountsComplete");
    // What an earlier run published must not pass for this run's.
    auto status = entityManager->writableEntity<ArpSuppressionStatus>(statusPath);
    auto staleVlans = static_cast<uint32_t>(status ? status->vlanIds() : 0);
    mountsCompleteRecord.write({mountStatus == Vela::MountStatus::complete, staleVlans});
    if (status) {
        status->vlanIdDelAll();
    }

    auto ipStatus = entityManager->entity<Ip::Status>("ip/status");
    auto ip6Status = entityManager->entity<Ip6::Status>("ip6/status");
    auto bridgingConfig = entityManager->entity<Bridging::Config>("bridging/config");
    auto evpnStatus = entityManager->entity<Evpn::EvpnStatus>("evpn/status");
    auto evpnMplsConfig = entityManager->entity<Evpn::MplsConfig>("evpn/mplsConfig");
    auto fhrpVrMacStatus =
        entityManager->entity<Routing::Fhrp::VirtualRouterMacStatus>("routing/fhrp/vrMacStatus");
    auto allVrfStatusLocal = entityManager->entity<Ip::AllVrfStatusLocal>(
        entityManager->cellPath(allVrfStatusLocalPath));
    auto allIntfStatusDir =
        entityManager->entity<Interface::AllIntfStatusDir>(allIntfStatusDirPath);
    auto allIntfStatusLocalDir = entityManager->entity<Interface::AllIntfStatusLocalDir>(
        entityManager->cellPath(allIntfStatusLocalDirPath));
    auto l2VpnConfig = entityManager->entity<Routing::L2Vpn::Config>("routing/l2vpn/config");

    tableMountGroup_ = entityManager->tableService()->mountGroup();
    tableMountGroup_->mount<Vrf::VrfIdMap::Status>(vrfIdMapPath, MountType::reader);
    auto vrfIdMap = tableMountGroup_->entity<const Vrf::VrfIdMap::Status>(vrfIdMapPath);
    auto intfEncapServiceIntf =
        entityManager->entity<Brant::IntfEncapServiceIntfColl>("interface/encap/serviceIntf");
    tableMountGroup_->mount<Arp::Table::Status>(arpStatusPath, MountType::reader);
    auto arpStatus = tableMountGroup_->entity<const Arp::Table::Status>(arpStatusPath);
    tableMountGroup_->mount<ArpSuppressionCounterStatus>(
        counterPath, MountType::writer, {{"counter", arpSuppressionCounters, false}});
    auto counterStatus = tableMountGroup_->entity<ArpSuppressionCounterStatus>(counterPath);
    tableMountGroup_->mount<Quarry::Bridging::Status>(bridgingStatusPath, MountType::reader);
    auto bridgingStatus =
        tableMountGroup_->entity<const Quarry::Bridging::Status>(bridgingStatusPath);
    tableMountGroup_->close();

    // A group of its own: its readiness says that all remote bindings are in the table.
    remoteBindingConfigMountGroup_ = entityManager->tableService()->mountGroup();
    remoteBindingConfigMountGroup_->mount<RemoteBindingConfig>(remoteBindingConfigPath,
                                                               MountType::reader);
    auto remoteBindingConfig =
        remoteBindingConfigMountGroup_->entity<const RemoteBindingConfig>(remoteBindingConfigPath);
    remoteBindingConfigMountGroup_->close();

    auto vrfNameToIdMap = Vela::make<Vrf::VrfIdMap::NameToIdMap>();
    vrfNameToIdMap->hasNotificationActiveIs(true);
    vrfIdReverseMapperIs(vrfIdMap, vrfNameToIdMap);

    auto arpInputConfig = entityManager->writableEntity<Arp::InputConfig>(arpInputConfigPath);
    if (arpInputConfig) {
        arpInputConfig->doInit();
        arpInputConfig->sourceIs(Arp::ArpSource::arpSuppression);
    }

    mountsIs(entityManager, remoteBindingConfig, remoteBindingConfigMountGroup_.ptr(), status,
             counterStatus, allVrfStatusLocal, vrfIdMap, vrfNameToIdMap, arpStatus, ipStatus,
             ip6Status, bridgingConfig, bridgingStatus, evpnStatus, evpnMplsConfig, fhrpVrMacStatus,
             arpInputConfig, allIntfStatusDir, allIntfStatusLocalDir, l2VpnConfig,
             intfEncapServiceIntf);
    rootSmIs(mounts(), isPhysicalHardware(), taskSchedulerRoot());
    commandRequestDirSm().callbackIs(Vela::make<CliCallback>(rootSm()));
    commandRequestDirSm().callbackIs(Vela::make<ShowStatusCallback>(rootSm()));
    commandRequestDirSm().callbackIs(Vela::make<ShowVlansCallback>(rootSm()));
    commandRequestDirSm().callbackIs(Vela::make<ShowLocalBindingsCallback>(rootSm()));
    commandRequestDirSm().callbackIs(Vela::make<ExplainCallback>(rootSm()));
}

void ArpSuppressionAgent::vrfIdReverseMapperIs(
    Vela::Ptr<const Vrf::VrfIdMap::Status> vrfIdMapStatus,
    Vela::Ptr<Vrf::VrfIdMap::NameToIdMap> nameToIdMap) {
    vrfIdReverseMapper_ =
        Vela::make<Vrf::VrfIdMap::ReverseMapper>(std::move(vrfIdMapStatus), std::move(nameToIdMap));
    vrfIdReverseMapper_->hasNotificationActiveIs(true);
}

void ArpSuppressionAgent::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "ArpSuppressionAgent\n");
    context.child(indent + 2, "mountGroup", mountGroup_.ptr().get());
    context.child(indent + 2, "mounts", mounts_.ptr().get());
    context.child(indent + 2, "rootSm", rootSm_.ptr().get());
    context.child(indent + 2, "remoteBindingConfigMountGroup",
                  remoteBindingConfigMountGroup_.ptr().get());
    context.child(indent + 2, "tableMountGroup", tableMountGroup_.ptr().get());
    context.child(indent + 2, "vrfIdReverseMapper", vrfIdReverseMapper_.ptr().get());
}

void ArpSuppressionAgent::handleDestroy() noexcept {
    commandRequestDirSm().callbackDelAll();
    rootSmDel();
    mountsDel();
    vrfIdReverseMapperDel();
    remoteBindingConfigMountGroup_.reset();
    tableMountGroup_.reset();
    mountGroup_.reset();
}

Vela::Ptr<ArpSuppressionAgent> arpSuppressionAgentFactory(const std::string& name) {
    return Vela::make<ArpSuppressionAgent>(name);
}

} // namespace ArpSuppression
