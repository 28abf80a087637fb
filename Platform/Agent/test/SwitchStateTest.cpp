#include "Platform/Agent/SwitchState.h"

#include "Platform/StateDb/MountGroup.h"
#include "Testing/CoreFixture.h"
#include "Testing/TemporaryDirectory.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <memory>

namespace Vela {

namespace {

namespace fs = std::filesystem;

class SwitchStateTest : public Testing::CoreFixture {
  protected:
    ~SwitchStateTest() override {
        state.reset();
        entityManager->destroy();
        tableService->destroy();
    }

    void stateIs() {
        state = std::make_unique<SwitchState>(entityManager, std::span<uint8_t>(image));
    }
    /// A file where the directory of a table would have to be.
    void putInTheWay(const std::string& path) const {
        fs::create_directories(fs::path(directory.path() + "/" + path).parent_path());
        std::ofstream(directory.path() + "/" + path) << "in the way";
    }
    /// A reader's view of the table at `path`, if somebody writes it.
    template <class T>
    bool written(const std::string& path, const Ptr<T>& table) {
        auto readers = tableService->mountGroup();
        readers->mount<T>(path, Quarry::MountType::reader);
        bool same = readers->entity<const T>(path) == table;
        readers->destroy();
        return same;
    }

    Testing::TemporaryDirectory directory;
    Ptr<Quarry::TableService> tableService =
        make<Quarry::TableService>(scheduler(), directory.path());
    Ptr<EntityManager> entityManager = make<EntityManager>(scheduler(), tableService);
    std::vector<uint8_t> image =
        std::vector<uint8_t>(ArpSuppression::ArpSuppressionStatus::imageBytes);
    std::unique_ptr<SwitchState> state;
};

const std::map<std::string, std::string> everyPath = {
    {"arpSuppression/status", "ArpSuppression::ArpSuppressionStatus"},
    {"ip/status", "Ip::Status"},
    {"ip6/status", "Ip6::Status"},
    {"bridging/config", "Bridging::Config"},
    {"evpn/status", "Evpn::EvpnStatus"},
    {"evpn/mplsConfig", "Evpn::MplsConfig"},
    {"routing/fhrp/vrMacStatus", "Routing::Fhrp::VirtualRouterMacStatus"},
    {"cell/1/ip/vrf/status/local", "Ip::AllVrfStatusLocal"},
    {"routing/l2vpn/config", "Routing::L2Vpn::Config"},
    {"arp/input/config/arpSuppression", "Arp::InputConfig"},
    {"interface/encap/serviceIntf", "Brant::IntfEncapServiceIntfColl"},
    {"interface/status/all", "Interface::AllIntfStatusDir"},
    {"cell/1/interface/status/local", "Interface::AllIntfStatusLocalDir"},
};

TEST_F(SwitchStateTest, everyPathHasAnEntityOfItsType) {
    stateIs();
    std::map<std::string, std::string> found;
    for (auto cursor = entityManager->entityCollection().first(); cursor; ++cursor) {
        found[cursor.key()] = cursor.value()->typeName();
    }
    EXPECT_EQ(found, everyPath);
}

TEST_F(SwitchStateTest, aGroupThatMountsEveryPathCompletes) {
    stateIs();
    struct Counting final : Mounter {
        void doMountsComplete(MountStatus status, const Ptr<EntityManager>&) override {
            EXPECT_EQ(status, MountStatus::complete);
            ++calls;
        }
        int calls = 0;
    } mounter;
    auto group = entityManager->mountGroup(mounter);
    for (const auto& [path, type] : everyPath) {
        group->mount(path, type, "r");
    }
    group->close();
    runUntilIdle();
    EXPECT_EQ(mounter.calls, 1);
}

TEST_F(SwitchStateTest, itsMembersAreWhatIsPublished) {
    stateIs();
    EXPECT_EQ(entityManager->entity<Entity>("arpSuppression/status"), state->arpSuppressionStatus);
    EXPECT_EQ(entityManager->entity<Entity>("arp/input/config/arpSuppression"),
              state->arpInputConfig);
    EXPECT_EQ(entityManager->entity<Entity>("bridging/config"), state->bridgingConfig);
    EXPECT_EQ(entityManager->entity<Entity>("evpn/status"), state->evpnStatus);
    EXPECT_EQ(entityManager->entity<Entity>("evpn/mplsConfig"), state->evpnMplsConfig);
    EXPECT_EQ(entityManager->entity<Entity>("routing/fhrp/vrMacStatus"), state->fhrpVrMacStatus);
    EXPECT_EQ(entityManager->entity<Entity>("routing/l2vpn/config"), state->l2VpnConfig);
    EXPECT_EQ(entityManager->entity<Entity>("interface/encap/serviceIntf"),
              state->intfEncapServiceIntf);
    EXPECT_EQ(entityManager->entity<Entity>("ip/status"), state->ipStatus);
    EXPECT_EQ(entityManager->entity<Entity>("ip6/status"), state->ip6Status);
    EXPECT_EQ(entityManager->entity<Entity>("cell/1/ip/vrf/status/local"),
              state->allVrfStatusLocal);
    EXPECT_EQ(entityManager->entity<Entity>("interface/status/all"), state->allIntfStatusDir);
    EXPECT_EQ(entityManager->entity<Entity>("cell/1/interface/status/local"),
              state->allIntfStatusLocalDir);
    EXPECT_EQ(state->allIntfStatusDir->name(), "AllIntfStatusDir");
    EXPECT_EQ(state->allIntfStatusLocalDir->name(), "AllIntfStatusLocalDir");
    EXPECT_EQ(state->entityManager, entityManager);
}

TEST_F(SwitchStateTest, tablesAreMountedForWriting) {
    stateIs();
    EXPECT_TRUE(written("vrf/vrfIdMapStatus", state->vrfIdMap));
    EXPECT_TRUE(written("arp/status", state->arpStatus));
    EXPECT_TRUE(written("bridging/status", state->bridgingStatus));
    EXPECT_TRUE(written("arpSuppression/remoteBindingConfig/evpn", state->remoteBindingConfig));
}

TEST_F(SwitchStateTest, thePublishedStatusIsKeptInItsImage) {
    image[0] = 1;
    image[10] = 2;
    stateIs();
    EXPECT_TRUE(state->arpSuppressionStatus->runnable());
    EXPECT_TRUE(state->arpSuppressionStatus->vlanIdHas(Bridging::VlanId(10)));
    state->arpSuppressionStatus->vlanIdIs(Bridging::VlanId(20), false);
    state.reset();
    EXPECT_EQ(image[0], 1);
    EXPECT_EQ(image[10], 2);
    EXPECT_EQ(image[20], 1);
}

TEST_F(SwitchStateTest, withItEverythingIsWithdrawn) {
    uint64_t before = Entity::liveCount();
    stateIs();
    state->kernelNetInfoIs("default");
    auto kept = state->evpnStatus;
    auto keptTable = state->arpStatus;
    auto keptKernel = state->kernelNetInfoIs("ns-red");
    std::vector<std::string> withdrawn;
    auto reaction = entityManager->entityCollection().react(
        nullptr, [&](const std::string& path) { withdrawn.push_back(path); });
    state.reset();
    EXPECT_EQ(withdrawn.size(), everyPath.size());
    EXPECT_EQ(entityManager->entityCollection().count(), 0u);
    EXPECT_TRUE(kept->destroyed()) << "also for who still holds it";
    EXPECT_TRUE(keptTable->destroyed());
    EXPECT_TRUE(keptKernel->destroyed());
    EXPECT_EQ(Entity::liveCount(), before + 3);
}

TEST_F(SwitchStateTest, aTableThatSomebodyReadsOutlastsIt) {
    stateIs();
    auto readers = tableService->mountGroup();
    readers->mount<Arp::Table::Status>("arp/status", Quarry::MountType::reader);
    auto table = readers->entity<const Arp::Table::Status>("arp/status");
    state.reset();
    EXPECT_FALSE(table->destroyed());
    readers->destroy();
    EXPECT_TRUE(table->destroyed());
}

TEST_F(SwitchStateTest, anotherCanFollow) {
    stateIs();
    state->vrfIdMap->vrfIs(Vrf::VrfId(7), "red");
    state.reset();
    stateIs();
    EXPECT_EQ(entityManager->entityCollection().count(), everyPath.size());
    EXPECT_EQ(state->vrfIdMap->vrfCollection().count(), 0u);
}

TEST_F(SwitchStateTest, kernelInterfacesAreMountedByNamespace) {
    stateIs();
    auto kernel = state->kernelNetInfoIs("default");
    EXPECT_EQ(kernel->path(), "kni/ns/default/status");
    EXPECT_EQ(state->kernelNetInfoIs("default"), kernel);
    EXPECT_NE(state->kernelNetInfoIs("ns-red"), kernel);
    EXPECT_TRUE(written("kni/ns/default/status", kernel));
    state->kernelNetInfoDel("default");
    state->kernelNetInfoDel("default");
    state->kernelNetInfoDel("never");
    EXPECT_TRUE(kernel->destroyed());
    EXPECT_FALSE(state->kernelNetInfoIs("ns-red")->destroyed());
    auto again = state->kernelNetInfoIs("default");
    EXPECT_NE(again, kernel);
    EXPECT_FALSE(again->destroyed());
}

TEST_F(SwitchStateTest, marksAllTablesComplete) {
    stateIs();
    auto kernel = state->kernelNetInfoIs("default");
    EXPECT_FALSE(kernel->complete());
    EXPECT_FALSE(state->arpStatus->complete());
    state->tablesCompleteIs();
    EXPECT_TRUE(state->vrfIdMap->complete());
    EXPECT_TRUE(state->arpStatus->complete());
    EXPECT_TRUE(state->bridgingStatus->complete());
    EXPECT_TRUE(state->remoteBindingConfig->complete());
    EXPECT_TRUE(kernel->complete());
    EXPECT_FALSE(state->kernelNetInfoIs("ns-red")->complete()) << "mounted later";
}

TEST_F(SwitchStateTest, withoutATableThereIsNoSwitch) {
    putInTheWay("bridging");
    try {
        stateIs();
        ADD_FAILURE() << "no error";
    } catch (const Quarry::TableError& error) {
        EXPECT_STREQ(error.what(), "the table bridging/status cannot be made");
    }
    EXPECT_EQ(entityManager->entityCollection().count(), 0u) << "nothing stays published";
    fs::remove(directory.path() + "/bridging");
    stateIs();
    EXPECT_EQ(entityManager->entityCollection().count(), everyPath.size());
}

TEST_F(SwitchStateTest, aNamespaceWhoseTableCannotBeMadeIsNone) {
    stateIs();
    putInTheWay("kni/ns/ns-red");
    EXPECT_THROW(state->kernelNetInfoIs("ns-red"), Quarry::TableError);
    state->tablesCompleteIs();
    state->kernelNetInfoDel("ns-red");
    EXPECT_THROW(state->kernelNetInfoIs("ns-red"), Quarry::TableError);
    fs::remove(directory.path() + "/kni/ns/ns-red");
    EXPECT_TRUE(state->kernelNetInfoIs("ns-red"));
}

} // namespace

} // namespace Vela
