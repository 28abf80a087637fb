#include "ArpSuppression/ArpSuppressionAgent.h"

#include "Platform/Base/UniqueFd.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Swiftlog.h"
#include "Testing/PacketPorts.h"
#include "Testing/SwitchFixture.h"
#include "Testing/TraceCapture.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <sstream>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace ArpSuppression {

namespace {

using Bridging::VlanId;
using Zinc::IpGenAddr;

std::vector<std::string> linesOf(const Testing::TraceCapture& capture) {
    std::istringstream text(capture.text());
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

class ArpSuppressionAgentTest : public Testing::SwitchFixture {
  protected:
    ArpSuppressionAgentTest() {
        unsetenv("SWIFTLOGDIR");
        Vela::Swiftlog::defaultDirectoryIs(directory() + "/log");
    }
    ~ArpSuppressionAgentTest() override {
        agent->destroy();
        Vela::Swiftlog::close();
    }

    const ArpSuppressionMounts& mounts() const { return *agent->mounts(); }
    bool running() const { return agent->rootSm()->root() != nullptr; }

    Testing::PacketPorts ports;
    Vela::Ptr<ArpSuppressionAgent> agent = arpSuppressionAgentFactory("ArpSuppression");
};
using ArpSuppressionAgentDeathTest = ArpSuppressionAgentTest;

TEST_F(ArpSuppressionAgentTest, theTraceFileNameHasTheProcessUnlessTheDirectoryIsGiven) {
    EXPECT_EQ(ArpSuppressionAgent::slInit("Arps"),
              directory() + "/log/Arps-" + std::to_string(getpid()) + ".sl");
    EXPECT_EQ(access((directory() + "/log/Arps-" + std::to_string(getpid()) + ".sl").c_str(), R_OK),
              0);
}

TEST_F(ArpSuppressionAgentTest, theTraceFileNameIsTheAgentsInAGivenDirectory) {
    std::string given = directory() + "/given";
    setenv("SWIFTLOGDIR", given.c_str(), 1);
    EXPECT_EQ(ArpSuppressionAgent::slInit("Arps"), given + "/Arps.sl");
    EXPECT_EQ(access((given + "/Arps.sl").c_str(), R_OK), 0);
}

TEST_F(ArpSuppressionAgentTest, aTraceFileThatCannotBeOpenedGivesNoName) {
    std::string inTheWay = directory() + "/log";
    ASSERT_EQ(symlink("/dev/null/nowhere", inTheWay.c_str()), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(ArpSuppressionAgent::slInit("Arps"), "");
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
}

TEST_F(ArpSuppressionAgentTest, initialisationOpensTheTraceFile) {
    start(*agent);
    EXPECT_EQ(Vela::Swiftlog::fileName(),
              directory() + "/log/ArpSuppression-" + std::to_string(getpid()) + ".sl");
}

TEST_F(ArpSuppressionAgentTest, mountsAreCompleteOnlyFromTheLoop) {
    agent->platformIs({scheduler(), entityManager(), false});
    agent->doInit();
    EXPECT_TRUE(agent->localEntitiesCreated());
    EXPECT_FALSE(agent->mounts());
    EXPECT_FALSE(agent->rootSm());
    EXPECT_EQ(agent->commandRequestDirSm().callbackCollection().count(), 0u);
    runUntilIdle();
    EXPECT_TRUE(agent->mounts());
    EXPECT_TRUE(agent->rootSm());
}

TEST_F(ArpSuppressionAgentTest, everythingMountedIsGathered) {
    start(*agent);
    EXPECT_EQ(mounts().entityManager(), entityManager());
    EXPECT_EQ(mounts().remoteBindingConfig(), state().remoteBindingConfig);
    EXPECT_TRUE(mounts().remoteBindingConfigMountGroup());
    EXPECT_EQ(mounts().arpSuppressionStatus(), state().arpSuppressionStatus);
    EXPECT_TRUE(mounts().arpSuppressionCounterStatus());
    EXPECT_EQ(mounts().allVrfStatusLocal(), state().allVrfStatusLocal);
    EXPECT_EQ(mounts().vrfIdMap(), state().vrfIdMap);
    EXPECT_TRUE(mounts().vrfNameToIdMap());
    EXPECT_EQ(mounts().arpStatus(), state().arpStatus);
    EXPECT_EQ(mounts().ipStatus(), state().ipStatus);
    EXPECT_EQ(mounts().ip6Status(), state().ip6Status);
    EXPECT_EQ(mounts().bridgingConfig(), state().bridgingConfig);
    EXPECT_EQ(mounts().bridgingStatus(), state().bridgingStatus);
    EXPECT_EQ(mounts().evpnStatus(), state().evpnStatus);
    EXPECT_EQ(mounts().evpnMplsConfig(), state().evpnMplsConfig);
    EXPECT_EQ(mounts().fhrpVrMacStatus(), state().fhrpVrMacStatus);
    EXPECT_EQ(mounts().arpInputConfig(), state().arpInputConfig);
    EXPECT_EQ(mounts().allIntfStatusDir(), state().allIntfStatusDir);
    EXPECT_EQ(mounts().allIntfStatusLocalDir(), state().allIntfStatusLocalDir);
    EXPECT_EQ(mounts().l2VpnConfig(), state().l2VpnConfig);
    EXPECT_EQ(mounts().intfEncapServiceIntf(), state().intfEncapServiceIntf);
}

TEST_F(ArpSuppressionAgentTest, mountsInTheOrderThatThePlatformExpects) {
    Testing::TraceCapture capture("StateDb=5");
    start(*agent);
    std::vector<std::string> expected = {
        "path=arpSuppression/status typeName=ArpSuppression::ArpSuppressionStatus mode=wc",
        "path=ip/status typeName=Ip::Status mode=r",
        "path=ip6/status typeName=Ip6::Status mode=r",
        "path=bridging/config/ typeName=Bridging::Config mode=r",
        "path=evpn/status typeName=Evpn::EvpnStatus mode=r",
        "path=evpn/mplsConfig typeName=Evpn::MplsConfig mode=r",
        "path=routing/fhrp/vrMacStatus typeName=Routing::Fhrp::VirtualRouterMacStatus mode=r",
        "path=cell/1/ip/vrf/status/local typeName=Ip::AllVrfStatusLocal mode=r",
        "path=routing/l2vpn/config typeName=Routing::L2Vpn::Config mode=r",
        "path=arp/input/config/arpSuppression typeName=Arp::InputConfig mode=wS",
        "path=interface/encap/serviceIntf typeName=Brant::IntfEncapServiceIntfColl mode=r"};
    std::vector<std::string> mounted;
    for (const std::string& line : linesOf(capture)) {
        if (size_t path = line.find("path="); path != std::string::npos) {
            mounted.push_back(line.substr(path));
        }
    }
    EXPECT_EQ(mounted, expected);
}

TEST_F(ArpSuppressionAgentTest, onlyItsOwnOutputsAreMountedForWriting) {
    start(*agent);
    EXPECT_TRUE(entityManager()->writableEntity<ArpSuppressionStatus>("arpSuppression/status"));
    EXPECT_TRUE(
        entityManager()->writableEntity<Arp::InputConfig>("arp/input/config/arpSuppression"));
    EXPECT_FALSE(entityManager()->writableEntity<Bridging::Config>("bridging/config"));
    EXPECT_FALSE(entityManager()->writableEntity<Evpn::EvpnStatus>("evpn/status"));
    EXPECT_FALSE(entityManager()->writableEntity<Ip::Status>("ip/status"));
}

TEST_F(ArpSuppressionAgentTest, localEntitiesAreMadeWhereTheSwitchHasNone) {
    auto localPath = entityManager()->cellPath("interface/status/local");
    entityManager()->entityDel("interface/status/all");
    entityManager()->entityDel(localPath);
    start(*agent);
    ASSERT_TRUE(mounts().allIntfStatusDir());
    EXPECT_EQ(mounts().allIntfStatusDir()->name(), "AllIntfStatusDir");
    ASSERT_TRUE(mounts().allIntfStatusLocalDir());
    EXPECT_EQ(mounts().allIntfStatusLocalDir()->name(), "AllIntfStatusLocalDir");
}

TEST_F(ArpSuppressionAgentTest, statusOfAnEarlierRunIsEmptiedAndStaysRunnable) {
    state().arpSuppressionStatus->runnableIs(true);
    state().arpSuppressionStatus->vlanIdIs(VlanId(10), true);
    state().arpSuppressionStatus->vlanIdIs(VlanId(20), false);
    restartSwitch();
    state().evpnStatus->mplsConfiguredIs(true);
    ASSERT_EQ(state().arpSuppressionStatus->vlanIds(), 2u);
    size_t vlansAtTheHolder = 99;
    auto emptied = state().arpSuppressionStatus->vlanIdCollection().react(nullptr, [&](VlanId) {
        EXPECT_FALSE(agent->mounts()) << "emptied before anything else is created";
        EXPECT_FALSE(agent->rootSm());
        vlansAtTheHolder = state().arpSuppressionStatus->vlanIds();
    });
    start(*agent);
    EXPECT_EQ(vlansAtTheHolder, 0u);
    EXPECT_EQ(state().arpSuppressionStatus->vlanIds(), 0u);
    EXPECT_TRUE(state().arpSuppressionStatus->runnable());
    EXPECT_TRUE(running());
}

TEST_F(ArpSuppressionAgentTest, whatAnEarlierRunLeftIsWithdrawnWhereEvpnIsOff) {
    state().arpSuppressionStatus->runnableIs(true);
    state().arpSuppressionStatus->vlanIdIs(VlanId(10), true);
    restartSwitch();
    ASSERT_TRUE(state().arpSuppressionStatus->runnable());
    Testing::TraceCapture capture("ArpSuppression=8");
    start(*agent);
    EXPECT_EQ(capture.count(" arpSuppressionStart "), 1u) << capture.text();
    EXPECT_EQ(capture.count(" arpSuppressionStop "), 1u) << capture.text();
    EXPECT_FALSE(running());
    EXPECT_FALSE(state().arpSuppressionStatus->runnable());
    EXPECT_EQ(state().arpSuppressionStatus->vlanIds(), 0u);
    EXPECT_EQ(state().arpInputConfig->vrfs(), 0u);
    agent->destroy();
    restartSwitch(); // and the next one finds nothing to do
    EXPECT_FALSE(state().arpSuppressionStatus->runnable());
}

TEST_F(ArpSuppressionAgentTest, theInputConfigurationIsTaggedAndKeepsItsEntries) {
    auto vrf = state().arpInputConfig->vrfIs("red");
    vrf->afEntryPermanentIs({IpGenAddr("10.0.0.1"), Zinc::IntfId("Vlan10")},
                            Zinc::EthAddr("02:00:00:00:00:0a"), Arp::ArpSource(7));
    state().arpInputConfig->sourceIs(Arp::ArpSource(7));
    start(*agent);
    EXPECT_TRUE(state().arpInputConfig->initialized());
    EXPECT_EQ(static_cast<int>(state().arpInputConfig->source()), 110);
    ASSERT_EQ(state().arpInputConfig->vrfs(), 1u);
    EXPECT_TRUE(vrf->afEntry({IpGenAddr("10.0.0.1"), Zinc::IntfId("Vlan10")}));
}

TEST_F(ArpSuppressionAgentTest, countersStandReadyFromZeroAndCannotGrow) {
    start(*agent);
    const auto& counters = mounts().arpSuppressionCounterStatus();
    EXPECT_EQ(counters->counterCollection().count(), 58u);
    counters->increment(ArpSuppressionCounterId::targetIsMine);
    counters->increment(ArpSuppressionCounterId::targetIsMine);
    for (uint32_t number = 0; number < 58; ++number) {
        EXPECT_EQ(counters->count(ArpSuppressionCounterId(number)), number == 23 ? 2u : 0u);
    }
    counters->increment(ArpSuppressionCounterId(58));
    EXPECT_EQ(counters->counterCollection().count(), 58u);
    EXPECT_EQ(counters->counterCollection().refusals(), 1u);
}

TEST_F(ArpSuppressionAgentTest, vrfNamesFollowTheTableOfIds) {
    state().vrfIdMap->vrfIs(Vrf::VrfId(0), "default");
    start(*agent);
    EXPECT_EQ(mounts().vrfNameToIdMap()->vrfId("default"), Vrf::VrfId(0));
    EXPECT_EQ(mounts().vrfNameToIdMap()->vrfId("red"), Vrf::VrfId());
    state().vrfIdMap->vrfIs(Vrf::VrfId(7), "red");
    runUntilIdle();
    EXPECT_EQ(mounts().vrfNameToIdMap()->vrfId("red"), Vrf::VrfId(7));
    state().vrfIdMap->vrfDel(Vrf::VrfId(7));
    runUntilIdle();
    EXPECT_EQ(mounts().vrfNameToIdMap()->vrfId("red"), Vrf::VrfId());
}

TEST_F(ArpSuppressionAgentTest, remoteBindingsAreReadyWhenTheirTableIsComplete) {
    start(*agent);
    EXPECT_FALSE(mounts().remoteBindingConfigMountGroup()->ready());
    state().arpStatus->completeIs(true); // of the other group
    EXPECT_FALSE(mounts().remoteBindingConfigMountGroup()->ready());
    state().remoteBindingConfig->completeIs(true);
    EXPECT_TRUE(mounts().remoteBindingConfigMountGroup()->ready());
}

TEST_F(ArpSuppressionAgentTest, waitsForWhatIsNotPublishedYet) {
    entityManager()->entityDel("evpn/status");
    start(*agent);
    EXPECT_FALSE(agent->mounts());
    entityManager()->entityIs("evpn/status", state().evpnStatus);
    runUntilIdle();
    EXPECT_TRUE(agent->mounts());
}

TEST_F(ArpSuppressionAgentTest, waitsForTheInputConfigurationToBeReadBack) {
    entityManager()->populatingIs("arp/input/config/arpSuppression", true);
    start(*agent);
    EXPECT_FALSE(agent->mounts());
    entityManager()->populatingIs("arp/input/config/arpSuppression", false);
    runUntilIdle();
    EXPECT_TRUE(agent->mounts());
}

TEST_F(ArpSuppressionAgentTest, whatIsReadBackOfAnEarlierRunIsWithdrawnWhereEvpnIsOff) {
    state().arpSuppressionStatus->runnableIs(true);
    state().arpSuppressionStatus->vlanIdIs(VlanId(10), true);
    restartSwitch();
    entityManager()->populatingIs("arp/input/config/arpSuppression", true);
    start(*agent);
    EXPECT_TRUE(state().arpSuppressionStatus->runnable()) << "not before all is known";
    EXPECT_EQ(state().arpSuppressionStatus->vlanIds(), 1u);
    state().arpInputConfig->vrfIs("red")->afEntryPermanentIs(
        {IpGenAddr("10.0.0.1"), Zinc::IntfId("Vlan10")}, Zinc::EthAddr("02:00:00:00:00:0a"),
        Arp::ArpSource::arpSuppression);
    entityManager()->populatingIs("arp/input/config/arpSuppression", false);
    runUntilIdle();
    EXPECT_FALSE(running());
    EXPECT_FALSE(state().arpSuppressionStatus->runnable());
    EXPECT_EQ(state().arpSuppressionStatus->vlanIds(), 0u);
    EXPECT_EQ(state().arpInputConfig->vrfs(), 0u);
}

TEST_F(ArpSuppressionAgentTest, anEntityOfAnotherTypeLeavesItsReferenceEmpty) {
    entityManager()->entityIs("evpn/mplsConfig", state().evpnStatus);
    Testing::TraceCapture capture("StateDb=0");
    start(*agent);
    ASSERT_TRUE(agent->mounts());
    EXPECT_TRUE(
        capture.contains("path=evpn/mplsConfig is no Evpn::MplsConfig but a Evpn::EvpnStatus"));
    EXPECT_FALSE(mounts().evpnMplsConfig());
    EXPECT_TRUE(mounts().evpnStatus());
    EXPECT_TRUE(agent->rootSm());
}

TEST_F(ArpSuppressionAgentDeathTest, thereIsNoRootStateMachineWithoutTheStatuses) {
    for (auto [path, text] :
         {std::pair("arpSuppression/status", "ArpSuppressionRootSm.*mounts\\(\\)->"
                                             "arpSuppressionStatus\\(\\)"),
          std::pair("evpn/status", "ArpSuppressionRootSm.*mounts\\(\\)->evpnStatus\\(\\)"),
          std::pair("arp/input/config/arpSuppression",
                    "ArpSuppressionRootSm.*mounts\\(\\)->arpInputConfig\\(\\)")}) {
        EXPECT_DEATH(
            {
                entityManager()->entityIs(path, state().bridgingConfig);
                start(*agent);
            },
            text);
    }
}

TEST_F(ArpSuppressionAgentTest, aTableOfAnotherTypeLeavesItsReferenceEmpty) {
    auto group = tableService()->mountGroup();
    state().tables->unmount("arp/status");
    group->mount<RemoteBindingConfig>("arp/status", Quarry::MountType::writer);
    start(*agent);
    ASSERT_TRUE(agent->mounts());
    EXPECT_FALSE(mounts().arpStatus());
    EXPECT_TRUE(mounts().bridgingStatus());
    group->destroy();
}

TEST_F(ArpSuppressionAgentTest, replacingTheHolderEndsTheOldOne) {
    start(*agent);
    Vela::Ptr<ArpSuppressionMounts> old = agent->mounts();
    agent->mountsDel();
    EXPECT_TRUE(old->destroyed());
    EXPECT_FALSE(agent->mounts());
    auto mapper = agent->vrfIdReverseMapper();
    agent->vrfIdReverseMapperIs(state().vrfIdMap, Vela::make<Vrf::VrfIdMap::NameToIdMap>());
    EXPECT_TRUE(mapper->destroyed());
    EXPECT_NE(agent->vrfIdReverseMapper(), mapper);
    EXPECT_TRUE(agent->vrfIdReverseMapper()->hasNotificationActive());
}

TEST_F(ArpSuppressionAgentTest, replacingTheRootStateMachineEndsTheOldOne) {
    state().evpnStatus->mplsConfiguredIs(true);
    start(*agent);
    auto old = agent->rootSm();
    agent->rootSmIs(agent->mounts(), true, scheduler());
    EXPECT_TRUE(old->destroyed());
    EXPECT_FALSE(old->root());
    EXPECT_NE(agent->rootSm(), old);
    EXPECT_TRUE(agent->rootSm()->isPhysicalHardware());
    EXPECT_TRUE(running());
    EXPECT_TRUE(state().arpSuppressionStatus->runnable());
    agent->rootSmDel();
    EXPECT_FALSE(agent->rootSm());
    EXPECT_FALSE(state().arpSuppressionStatus->runnable());
}

TEST_F(ArpSuppressionAgentTest, suppressionRunsFromMountsCompleteWhereEvpnIsConfigured) {
    state().evpnStatus->mplsConfiguredIs(true);
    start(*agent);
    EXPECT_TRUE(running());
    EXPECT_TRUE(state().arpSuppressionStatus->runnable());
    EXPECT_EQ(agent->rootSm()->mounts(), agent->mounts());
    state().evpnStatus->mplsConfiguredIs(false);
    EXPECT_FALSE(running());
    EXPECT_FALSE(state().arpSuppressionStatus->runnable());
}

TEST_F(ArpSuppressionAgentTest, withoutEvpnItWaitsForIt) {
    start(*agent);
    EXPECT_FALSE(running());
    EXPECT_FALSE(state().arpSuppressionStatus->runnable());
    EXPECT_EQ(ports.opened(), 0u);
    state().evpnStatus->mplsConfiguredIs(true);
    EXPECT_TRUE(running());
}

TEST_F(ArpSuppressionAgentTest, anAgentThatEndsWhileItRunsStopsFirst) {
    state().evpnStatus->mplsConfiguredIs(true);
    start(*agent);
    Testing::TraceCapture capture("ArpSuppression=8");
    agent->destroy();
    EXPECT_EQ(capture.count(" arpSuppressionStop "), 1u) << capture.text();
    EXPECT_FALSE(agent->rootSm());
    EXPECT_EQ(agent->commandRequestDirSm().callbackCollection().count(), 0u);
    EXPECT_FALSE(state().arpSuppressionStatus->runnable());
}

TEST_F(ArpSuppressionAgentTest, theHardwareFlagIsThePlatforms) {
    state().evpnStatus->mplsConfiguredIs(true);
    start(*agent, true);
    EXPECT_TRUE(agent->isPhysicalHardware());
    EXPECT_TRUE(agent->rootSm()->isPhysicalHardware());
    EXPECT_STREQ(agent->rootSm()->messageTrapSm()->typeName(), "MessageTrapSmPhysical");
}

TEST_F(ArpSuppressionAgentTest, aSimulatedPlatformHasItsOwnPacketPath) {
    state().evpnStatus->mplsConfiguredIs(true);
    start(*agent, false);
    EXPECT_FALSE(agent->rootSm()->isPhysicalHardware());
    EXPECT_STREQ(agent->rootSm()->messageTrapSm()->typeName(), "MessageTrapSmMimic");
}

TEST_F(ArpSuppressionAgentTest, registersTheCommandsOfOperators) {
    start(*agent);
    auto& commands = agent->commandRequestDirSm();
    EXPECT_EQ(commands.callbackCollection().count(), 5u);
    for (const char* name : {"showStatus", "showVlans", "showBindingsLocal", "explain"}) {
        EXPECT_TRUE(commands.callback(name)) << name;
    }
    auto callback = commands.callback("showTechSupport");
    ASSERT_TRUE(callback);
    EXPECT_STREQ(callback->commandName(), "showTechSupport");
    std::array<int, 2> ends;
    ASSERT_EQ(pipe(ends.data()), 0);
    Vela::UniqueFd readEnd(ends[0]);
    {
        Vela::UniqueFd writeEnd(ends[1]);
        callback->handleCommand(writeEnd.get(), "showTechSupport");
    }
    std::array<char, 8192> output;
    ssize_t length = read(readEnd.get(), output.data(), output.size());
    ASSERT_GT(length, 0);
    Vela::DumpContext dump;
    agent->rootSm()->dumpState(dump, 0);
    EXPECT_EQ(std::string(output.data(), static_cast<size_t>(length)), dump.text());
}

TEST_F(ArpSuppressionAgentTest, dumpsItsHeaderAndItsChildren) {
    start(*agent);
    Vela::DumpContext dump;
    agent->dumpState(dump, 2);
    EXPECT_EQ(dump.text().find("  ArpSuppressionAgent\n"), 0u);
    EXPECT_NE(dump.text().find("    ArpSuppressionMounts\n"), std::string::npos);
    EXPECT_NE(dump.text().find("    ArpSuppressionRootSm\n"), std::string::npos);
    EXPECT_NE(dump.text().find("reader arp/status complete=no"), std::string::npos);
    Vela::DumpContext holder;
    agent->mounts()->dumpState(holder, 3);
    EXPECT_EQ(holder.text(), "   ArpSuppressionMounts\n");
}

TEST_F(ArpSuppressionAgentTest, tracesItsTwoSteps) {
    Testing::TraceCapture capture("ArpSuppression=8");
    start(*agent);
    auto lines = linesOf(capture);
    ASSERT_EQ(lines.size(), 4u) << capture.text();
    EXPECT_TRUE(lines[0].ends_with(" doInit ArpSuppressionAgent(ArpSuppression) doInit"))
        << lines[0];
    EXPECT_TRUE(lines[1].ends_with(" doMountsComplete")) << lines[1];
    EXPECT_TRUE(lines[2].ends_with(" handleInitialized")) << lines[2];
    EXPECT_NE(lines[2].find("ArpSuppressionRootSm"), std::string::npos) << lines[2];
    EXPECT_TRUE(lines[3].ends_with(" root=NULL")) << lines[3];
}

TEST_F(ArpSuppressionAgentTest, anAgentThatEndsWhileItWaitsHearsNothingMore) {
    entityManager()->entityDel("evpn/status");
    start(*agent);
    agent->destroy();
    entityManager()->entityIs("evpn/status", state().evpnStatus);
    runUntilIdle();
    EXPECT_FALSE(agent->mounts());
}

} // namespace

} // namespace ArpSuppression
