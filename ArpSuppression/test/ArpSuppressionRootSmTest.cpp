#include "ArpSuppression/ArpSuppressionRootSm.h"

#include "ArpSuppression/ArpSuppressionAgent.h"
#include "Platform/Base/UniqueFd.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Swiftlog.h"
#include "Testing/PacketPorts.h"
#include "Testing/SwitchFixture.h"
#include "Testing/TraceCapture.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <sstream>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace ArpSuppression {

namespace {

using Bridging::VlanId;
using Testing::TraceCapture;
using Vela::Ptr;
using Strings = std::vector<std::string>;

/// Beginnings and ends of lives, as "MessageTrapSmMimic handleInitialized", in their order.
Strings livesIn(const TraceCapture& capture) {
    Strings lives;
    std::istringstream text(capture.text());
    for (std::string line; std::getline(text, line);) {
        for (const std::string event : {" handleInitialized", " handleDestroy"}) {
            if (line.ends_with(event)) {
                std::string object = line.substr(0, line.rfind('('));
                lives.push_back(object.substr(object.rfind(' ') + 1) + event);
            }
        }
    }
    return lives;
}

/// The mounts are those of an agent which has given its own root state machine away.
class ArpSuppressionRootSmTest : public Testing::SwitchFixture {
  protected:
    ArpSuppressionRootSmTest() {
        Vela::Swiftlog::defaultDirectoryIs(directory() + "/log");
        start(*agent);
        agent->rootSmDel();
    }
    ~ArpSuppressionRootSmTest() override {
        rootSm.reset();
        agent->destroy();
        Vela::Swiftlog::close();
    }

    void rootSmIs(bool physicalHardware = false) {
        rootSm = arpSuppressionRootSmFactory(agent->mounts(), physicalHardware, scheduler());
    }
    void evpnIs(bool configured) { state().evpnStatus->mplsConfiguredIs(configured); }
    bool runnable() { return state().arpSuppressionStatus->runnable(); }

    void expectRunning() {
        EXPECT_TRUE(runnable());
        EXPECT_TRUE(rootSm->root());
        EXPECT_TRUE(rootSm->arpSuppressionStatusSm());
        EXPECT_TRUE(rootSm->localRequestRecordSm());
        EXPECT_TRUE(rootSm->vlanL3InfoSm());
        EXPECT_TRUE(rootSm->remoteBindingStatusSm());
        EXPECT_TRUE(rootSm->arpInputConfigSm());
        EXPECT_TRUE(rootSm->arpSuppressionSm());
        EXPECT_TRUE(rootSm->bindingDiscoverySm());
        EXPECT_TRUE(rootSm->messageReinjectSm());
        EXPECT_TRUE(rootSm->messageTrapSm());
    }
    void expectStopped() {
        EXPECT_FALSE(runnable());
        EXPECT_FALSE(rootSm->root());
        EXPECT_FALSE(rootSm->arpSuppressionStatusSm());
        EXPECT_FALSE(rootSm->vlanL3InfoSm());
        EXPECT_FALSE(rootSm->remoteBindingStatusSm());
        EXPECT_FALSE(rootSm->arpInputConfigSm());
        EXPECT_FALSE(rootSm->arpSuppressionSm());
        EXPECT_FALSE(rootSm->bindingDiscoverySm());
        EXPECT_FALSE(rootSm->messageReinjectSm());
        EXPECT_FALSE(rootSm->messageTrapSm());
        EXPECT_EQ(state().arpSuppressionStatus->vlanIds(), 0u);
        EXPECT_EQ(state().arpInputConfig->vrfs(), 0u);
        EXPECT_TRUE(ports.bindings().empty());
    }

    static Strings started(const std::string& variant) {
        return {"ArpSuppressionRoot handleInitialized",
                "ArpSuppressionStatusSm handleInitialized",
                "LocalRequestRecordSm handleInitialized",
                "VlanL3InfoSm handleInitialized",
                "RemoteBindingStatusSm handleInitialized",
                "ArpInputConfigSm handleInitialized",
                "ArpSuppressionSm handleInitialized",
                "BindingDiscoverySm handleInitialized",
                "MessageReinjectSm" + variant + " handleInitialized",
                "MessageTrapSm" + variant + " handleInitialized"};
    }
    static Strings stopped(const std::string& variant) {
        return {"MessageTrapSm" + variant + " handleDestroy",
                "MessageReinjectSm" + variant + " handleDestroy",
                "BindingDiscoverySm handleDestroy",
                "ArpSuppressionSm handleDestroy",
                "VlanL3InfoSm handleDestroy",
                "ArpSuppressionStatusSm handleDestroy",
                "RemoteBindingStatusSm handleDestroy",
                "ArpInputConfigSm handleDestroy",
                "ArpSuppressionRoot handleDestroy"};
    }

    Testing::PacketPorts ports;
    Ptr<ArpSuppressionAgent> agent = arpSuppressionAgentFactory("ArpSuppression");
    // Its end is that of its life: nobody else refers to it.
    Vela::Owned<ArpSuppressionRootSm> rootSm;
};
using ArpSuppressionRootSmDeathTest = ArpSuppressionRootSmTest;

// Start and stop

TEST_F(ArpSuppressionRootSmTest, sleepsWithoutEvpn) {
    TraceCapture capture("ArpSuppression=8");
    rootSmIs();
    expectStopped();
    EXPECT_FALSE(rootSm->localRequestRecordSm());
    EXPECT_EQ(ports.opened(), 0u);
    EXPECT_EQ(livesIn(capture), Strings{"ArpSuppressionRootSm handleInitialized"});
    EXPECT_EQ(capture.count("  evpnMplsIsConfigured=no weHaveNotCleanedUp=no root=NULL\n"), 1u)
        << capture.text();
    EXPECT_EQ(rootSm->mounts(), agent->mounts());
    EXPECT_FALSE(rootSm->isPhysicalHardware());
}

TEST_F(ArpSuppressionRootSmTest, runsFromConstructionWhereEvpnIsConfigured) {
    evpnIs(true);
    rootSmIs();
    expectRunning();
}

TEST_F(ArpSuppressionRootSmTest, followsTheFlag) {
    rootSmIs();
    evpnIs(true);
    expectRunning();
    evpnIs(false);
    expectStopped();
    evpnIs(true);
    expectRunning();
    evpnIs(false);
    expectStopped();
}

TEST_F(ArpSuppressionRootSmTest, sharedStateBeforeMachinesAndConsumersBeforeTheTrap) {
    rootSmIs();
    TraceCapture capture("ArpSuppression=8");
    evpnIs(true);
    EXPECT_EQ(livesIn(capture), started("Mimic"));
    EXPECT_EQ(capture.count("  evpnMplsIsConfigured=yes weHaveNotCleanedUp=no root=NULL\n"), 1u)
        << capture.text();
    EXPECT_EQ(capture.count("arpSuppressionStart ArpSuppressionRootSm("), 1u) << capture.text();
    EXPECT_EQ(capture.count("  mounts=ArpSuppressionMounts("), 1u) << capture.text();
    capture.clear();
    evpnIs(false);
    EXPECT_EQ(livesIn(capture), stopped("Mimic"));
    EXPECT_EQ(capture.count("  evpnMplsIsConfigured=no weHaveNotCleanedUp=yes "
                            "root=ArpSuppressionRoot("),
              1u)
        << capture.text();
    EXPECT_EQ(capture.count("arpSuppressionStop ArpSuppressionRootSm("), 1u) << capture.text();
}

TEST_F(ArpSuppressionRootSmTest, thePlatformDecidesThePacketPath) {
    evpnIs(true);
    rootSmIs(false);
    EXPECT_STREQ(rootSm->messageTrapSm()->typeName(), "MessageTrapSmMimic");
    EXPECT_STREQ(rootSm->messageReinjectSm()->typeName(), "MessageReinjectSmMimic");
    EXPECT_EQ(rootSm->messageTrapSm()->interfaceName(), "arpsnoop");
    EXPECT_EQ(rootSm->messageReinjectSm()->interfaceName(), "arpinject");
    rootSm.reset();
    TraceCapture capture("ArpSuppression=8");
    rootSmIs(true);
    EXPECT_TRUE(rootSm->isPhysicalHardware());
    Strings lives = started("Physical");
    lives.insert(lives.begin(), "ArpSuppressionRootSm handleInitialized");
    EXPECT_EQ(livesIn(capture), lives);
    EXPECT_EQ(rootSm->messageTrapSm()->interfaceName(), "fabric");
    EXPECT_EQ(rootSm->messageReinjectSm()->interfaceName(), "fabric");
    capture.clear();
    evpnIs(false);
    EXPECT_EQ(livesIn(capture), stopped("Physical"));
    expectStopped();
}

TEST_F(ArpSuppressionRootSmTest, runnableIsTrueBeforeTheStartAndFalseAfterTheStop) {
    rootSmIs();
    std::vector<std::pair<bool, bool>> runnableAndRoot;
    auto reaction = state().arpSuppressionStatus->runnableAttribute().react(
        nullptr, [&] { runnableAndRoot.emplace_back(runnable(), rootSm->root() != nullptr); });
    evpnIs(true);
    evpnIs(false);
    EXPECT_EQ(runnableAndRoot, (std::vector<std::pair<bool, bool>>{{true, false}, {false, false}}));
}

TEST_F(ArpSuppressionRootSmTest, theFlagTwiceChangesNothing) {
    rootSmIs();
    evpnIs(true);
    auto root = rootSm->root();
    auto arpSuppressionSm = rootSm->arpSuppressionSm();
    auto messageTrapSm = rootSm->messageTrapSm();
    TraceCapture capture("ArpSuppression=8");
    evpnIs(true);
    EXPECT_EQ(capture.text(), "");
    rootSm->handleRunnable();
    EXPECT_EQ(capture.count("  evpnMplsIsConfigured=yes weHaveNotCleanedUp=yes "
                            "root=ArpSuppressionRoot("),
              1u)
        << capture.text();
    EXPECT_EQ(livesIn(capture), Strings());
    EXPECT_EQ(rootSm->root(), root);
    EXPECT_EQ(rootSm->arpSuppressionSm(), arpSuppressionSm);
    EXPECT_EQ(rootSm->messageTrapSm(), messageTrapSm);
    expectRunning();
}

TEST_F(ArpSuppressionRootSmTest, aStoppedMachineStaysStopped) {
    rootSmIs();
    TraceCapture capture("ArpSuppression=8");
    rootSm->handleRunnable();
    EXPECT_EQ(livesIn(capture), Strings());
    expectStopped();
}

TEST_F(ArpSuppressionRootSmTest, nothingOfAStoppedRunIsLeft) {
    rootSmIs();
    evpnIs(true);
    runUntilIdle();
    auto root = rootSm->root();
    auto vlanL3InfoStatus = root->vlanL3InfoStatus();
    auto arpSuppressionSm = rootSm->arpSuppressionSm();
    auto bindingDiscoverySm = rootSm->bindingDiscoverySm();
    auto messageReinjectSm = rootSm->messageReinjectSm();
    auto messageTrapSm = rootSm->messageTrapSm();
    auto vrfInfo = vlanL3InfoStatus->vrfInfo("default");
    vrfInfo->netNsIs("default");
    vrfInfo->netlinkSocketIs(7);
    vlanL3InfoStatus->vrfInterfaceWatch("arpsnoop")->kniIntfIfIndexIs(101);
    vlanL3InfoStatus->vrfInterfaceWatch("arpinject")->kniIntfIfIndexIs(102);
    EXPECT_EQ(ports.bindings().size(), 2u);
    evpnIs(false);
    for (const Vela::Entity* entity : {static_cast<const Vela::Entity*>(root.get()),
                                       static_cast<const Vela::Entity*>(vlanL3InfoStatus.get()),
                                       static_cast<const Vela::Entity*>(arpSuppressionSm.get()),
                                       static_cast<const Vela::Entity*>(bindingDiscoverySm.get()),
                                       static_cast<const Vela::Entity*>(messageReinjectSm.get()),
                                       static_cast<const Vela::Entity*>(messageTrapSm.get())}) {
        EXPECT_TRUE(entity->destroyed()) << entity->typeName();
    }
    expectStopped(); // with it the sockets are closed
    runUntilIdle();
    evpnIs(true);
    EXPECT_NE(rootSm->root(), root);
    expectRunning();
}

TEST_F(ArpSuppressionRootSmTest, theLocalRequestRecordsMachineStaysUntilTheNextStart) {
    rootSmIs();
    evpnIs(true);
    auto first = rootSm->localRequestRecordSm();
    evpnIs(false);
    EXPECT_EQ(rootSm->localRequestRecordSm(), first);
    EXPECT_FALSE(first->destroyed());
    runFor(1000); // which is harmless
    TraceCapture capture("ArpSuppression=8");
    evpnIs(true);
    EXPECT_NE(rootSm->localRequestRecordSm(), first);
    EXPECT_TRUE(first->destroyed());
    Strings lives = started("Mimic");
    lives.insert(lives.begin() + 3, "LocalRequestRecordSm handleDestroy");
    EXPECT_EQ(livesIn(capture), lives);
    evpnIs(false);
    auto second = rootSm->localRequestRecordSm();
    rootSm.reset();
    EXPECT_TRUE(second->destroyed());
}

// For tests

TEST_F(ArpSuppressionRootSmTest, runsWithoutEvpnWhereATestWantsIt) {
    rootSmIs();
    EXPECT_FALSE(rootSm->runnableForTest());
    rootSm->runnableForTestIs(true);
    EXPECT_TRUE(rootSm->runnableForTest());
    expectStopped(); // until it looks again
    rootSm->handleRunnable();
    expectRunning();
    auto root = rootSm->root();
    evpnIs(true);
    evpnIs(false);
    EXPECT_EQ(rootSm->root(), root);
    rootSm->runnableForTestIs(false);
    expectRunning();
    rootSm->handleRunnable();
    expectStopped();
}

// An earlier instance that did not stop

TEST_F(ArpSuppressionRootSmTest, cleansUpAfterOneThatDiedWhereEvpnIsOff) {
    state().arpSuppressionStatus->runnableIs(true);
    TraceCapture capture("ArpSuppression=8");
    rootSmIs();
    Strings lives = {"ArpSuppressionRootSm handleInitialized"};
    for (const Strings& part : {started("Mimic"), stopped("Mimic")}) {
        lives.insert(lives.end(), part.begin(), part.end());
    }
    EXPECT_EQ(livesIn(capture), lives);
    EXPECT_EQ(capture.count("  evpnMplsIsConfigured=no weHaveNotCleanedUp=yes root=NULL\n"), 1u)
        << capture.text();
    expectStopped();
    capture.clear();
    rootSm->handleRunnable(); // once
    EXPECT_EQ(livesIn(capture), Strings());
}

TEST_F(ArpSuppressionRootSmTest, cleansUpBeforeItSaysSo) {
    state().arpSuppressionStatus->runnableIs(true);
    TraceCapture capture("ArpSuppression=8");
    size_t livesSoFar = 0;
    auto reaction = state().arpSuppressionStatus->runnableAttribute().react(
        nullptr, [&] { livesSoFar = livesIn(capture).size(); });
    rootSmIs();
    EXPECT_EQ(livesSoFar, 20u); // all of the test above
}

TEST_F(ArpSuppressionRootSmTest, withdrawsTheEntriesOfOneThatDied) {
    state().arpSuppressionStatus->runnableIs(true);
    for (const char* vrf : {"default", "red"}) {
        state().arpInputConfig->vrfIs(vrf)->afEntryPermanentIs(
            {Zinc::IpGenAddr("10.0.0.1"), Zinc::IntfId("Vlan10")},
            Zinc::EthAddr("02:00:00:00:00:0a"), Arp::ArpSource::arpSuppression);
    }
    rootSmIs();
    expectStopped();
    EXPECT_EQ(state().arpInputConfig->vrfs(), 0u);
}

TEST_F(ArpSuppressionRootSmTest, goesOnAfterOneThatDiedWhereEvpnIsOn) {
    state().arpSuppressionStatus->runnableIs(true);
    evpnIs(true);
    TraceCapture capture("ArpSuppression=8");
    rootSmIs();
    Strings lives = started("Mimic");
    lives.insert(lives.begin(), "ArpSuppressionRootSm handleInitialized");
    EXPECT_EQ(livesIn(capture), lives);
    expectRunning();
}

// The end

TEST_F(ArpSuppressionRootSmTest, stopsWhenItsLifeEndsWhileItRuns) {
    evpnIs(true);
    rootSmIs();
    TraceCapture capture("ArpSuppression=8");
    rootSm.reset();
    Strings lives = stopped("Mimic");
    lives.insert(lives.begin(), "ArpSuppressionRootSm handleDestroy");
    lives.push_back("LocalRequestRecordSm handleDestroy");
    EXPECT_EQ(livesIn(capture), lives);
    EXPECT_FALSE(runnable());
    capture.clear();
    evpnIs(false);
    evpnIs(true);
    EXPECT_EQ(capture.text(), "") << "hears no more of it";
    EXPECT_FALSE(runnable());
}

TEST_F(ArpSuppressionRootSmTest, withoutASocketForRepliesItRunsAndSaysSo) {
    evpnIs(true);
    ports.openError = EPERM;
    Testing::TraceCapture capture("ArpSuppression=0");
    rootSmIs();
    expectRunning();
    EXPECT_EQ(capture.count("what=RawTxPam: packet socket: Operation not permitted"), 1u)
        << capture.text();
}

// Our own errors

TEST_F(ArpSuppressionRootSmDeathTest, whoRunsIsRunnable) {
    evpnIs(true);
    rootSmIs();
    state().arpSuppressionStatus->runnableIs(false);
    EXPECT_DEATH(rootSm->handleRunnable(),
                 "handleRunnable.*mounts\\(\\)->arpSuppressionStatus\\(\\)->runnable\\(\\)");
    state().arpSuppressionStatus->runnableIs(true);
    rootSm->handleRunnable();
}

TEST_F(ArpSuppressionRootSmDeathTest, aStopLeavesNothingPublished) {
    evpnIs(true);
    rootSmIs();
    rootSm->arpSuppressionStatusSm()->skipVlanIdCleanupForTestIs(true);
    state().arpSuppressionStatus->vlanIdIs(VlanId(10), false);
    EXPECT_DEATH(evpnIs(false), "arpSuppressionStop.*"
                                "0 == mounts\\(\\)->arpSuppressionStatus\\(\\)->vlanIds\\(\\)");
    state().arpSuppressionStatus->vlanIdDelAll();
    state().arpInputConfig->vrfIs("red");
    {
        // Somebody brings back what is withdrawn.
        auto reaction = state().arpInputConfig->vrfCollection().react(
            nullptr, [&](const L3::VrfName& name) { state().arpInputConfig->vrfIs(name); });
        EXPECT_DEATH(evpnIs(false),
                     "arpSuppressionStop.*0 == mounts\\(\\)->arpInputConfig\\(\\)->vrfs\\(\\)");
    }
    evpnIs(false);
    expectStopped();
}

// Show-tech

std::string outputOf(CliCallback& callback, const std::string& command) {
    std::array<int, 2> ends;
    EXPECT_EQ(pipe(ends.data()), 0);
    Vela::UniqueFd readEnd(ends[0]);
    {
        Vela::UniqueFd writeEnd(ends[1]);
        callback.handleCommand(writeEnd.get(), command);
    }
    std::string output;
    std::array<char, 4096> piece;
    ssize_t length;
    while ((length = read(readEnd.get(), piece.data(), piece.size())) > 0) {
        output.append(piece.data(), static_cast<size_t>(length));
    }
    return output;
}

TEST_F(ArpSuppressionRootSmTest, theCommandDumpsTheWholeTree) {
    evpnIs(true);
    rootSmIs();
    auto callback = Vela::make<CliCallback>(rootSm.ptr());
    EXPECT_STREQ(callback->commandName(), "showTechSupport");
    Vela::DumpContext dump;
    rootSm->dumpState(dump, 0);
    EXPECT_EQ(outputOf(*callback, "showTechSupport"), dump.text());
    EXPECT_EQ(outputOf(*callback, "anything else"), dump.text());
    EXPECT_EQ(dump.text().find("ArpSuppressionRootSm\n"), 0u);
    size_t at = 0;
    for (const char* line : {"\n  isPhysicalHardware=no\n", "\n  runnableForTest=no\n",
                             "\n  ArpSuppressionMounts\n",  "\n  ArpSuppressionRoot\n",
                             "\n    EnabledVlans",          "\n    VlanL3InfoStatus",
                             "\n    LocalBindingRecord",    "\n    RemoteBindingStatus",
                             "\n    MessageTrap",           "\n    MessageTrap",
                             "\n    MessageQueue",          "\n    LocalRequestRecord",
                             "\n    ArpInputConfigTrigger", "\n  ArpSuppressionStatusSm\n",
                             "\n  LocalRequestRecordSm\n",  "\n  VlanL3InfoSm\n",
                             "\n  RemoteBindingStatusSm\n", "\n  ArpInputConfigSm\n",
                             "\n  ArpSuppressionSm\n",      "\n  MessageReinjectSmMimic\n",
                             "\n  MessageTrapSmMimic\n"}) {
        size_t found = dump.text().find(line, at);
        ASSERT_NE(found, std::string::npos) << line << " in\n" << dump.text();
        at = found + 1;
    }
    // What machines share stands where its owner is, once.
    EXPECT_NE(dump.text().find("reinjectMessageQueue=<MessageQueue dumped above>\n"),
              std::string::npos)
        << dump.text();
}

TEST_F(ArpSuppressionRootSmTest, aStoppedMachineDumpsWhatIsMissing) {
    rootSmIs();
    auto callback = Vela::make<CliCallback>(rootSm.ptr());
    EXPECT_EQ(outputOf(*callback, ""),
              "ArpSuppressionRootSm\n  isPhysicalHardware=no\n  runnableForTest=no\n"
              "  ArpSuppressionMounts\n  root=NULL\n  arpSuppressionStatusSm=NULL\n"
              "  localRequestRecordSm=NULL\n  vlanL3InfoSm=NULL\n  remoteBindingStatusSm=NULL\n"
              "  arpInputConfigSm=NULL\n  arpSuppressionSm=NULL\n  bindingDiscoverySm=NULL\n  "
              "messageReinjectSm=NULL\n  "
              "messageTrapSm=NULL\n");
}

// What the machines share

TEST_F(ArpSuppressionRootSmTest, theSharedStateIsMadeWholeAndEachPartCanGo) {
    auto root = arpSuppressionRootFactory(clock());
    EXPECT_EQ(root->enabledVlans()->vlanIds(), 0u);
    EXPECT_EQ(root->vlanL3InfoStatus()->vlanL3InfoCollection().count(), 0u);
    EXPECT_EQ(root->localBindingRecord()->bindings(), 0u);
    EXPECT_EQ(root->localBindingRecord()->vlanL3InfoStatus(), root->vlanL3InfoStatus());
    EXPECT_FALSE(root->remoteBindingStatus()->initialPopulationComplete());
    EXPECT_FALSE(root->receivedRequestTrapV4()->lastTrappedMessage());
    EXPECT_FALSE(root->receivedRequestTrapV6()->lastTrappedMessage());
    EXPECT_NE(root->receivedRequestTrapV4(), root->receivedRequestTrapV6());
    EXPECT_EQ(root->reinjectMessageQueue()->messages(), 0u);
    EXPECT_EQ(root->localRequestRecord()->entries(), 0u);
    EXPECT_EQ(root->arpInputConfigTrigger()->trigger(), 0u);
    EXPECT_EQ(root->deviceIntfStatusDir()->name(), "");

    auto goes = [](const auto& part, auto del) {
        auto kept = part;
        del();
        EXPECT_TRUE(kept->destroyed()) << kept->typeName();
        EXPECT_FALSE(part) << kept->typeName();
    };
    goes(root->deviceIntfStatusDir(), [&] { root->deviceIntfStatusDirDel(); });
    goes(root->arpInputConfigTrigger(), [&] { root->arpInputConfigTriggerDel(); });
    goes(root->localRequestRecord(), [&] { root->localRequestRecordDel(); });
    goes(root->reinjectMessageQueue(), [&] { root->reinjectMessageQueueDel(); });
    goes(root->receivedRequestTrapV6(), [&] { root->receivedRequestTrapV6Del(); });
    goes(root->receivedRequestTrapV4(), [&] { root->receivedRequestTrapV4Del(); });
    goes(root->remoteBindingStatus(), [&] { root->remoteBindingStatusDel(); });
    goes(root->localBindingRecord(), [&] { root->localBindingRecordDel(); });
    goes(root->vlanL3InfoStatus(), [&] { root->vlanL3InfoStatusDel(); });
    goes(root->enabledVlans(), [&] { root->enabledVlansDel(); });
    root->destroy();
}

} // namespace

} // namespace ArpSuppression
