#include "ArpSuppression/VrfInfoSm.h"

#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Swiftlog.h"
#include "Platform/Trace/SwiftlogReader.h"
#include "Testing/SwitchDevices.h"
#include "Testing/SwitchFixture.h"
#include "Testing/TraceCapture.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace ArpSuppression {

namespace {

using Bridging::VlanId;
using Testing::TraceCapture;
using Vela::make;
using Vela::Ptr;
using Vrf::VrfId;

bool isOpen(uint32_t fd) {
    return fcntl(static_cast<int>(fd), F_GETFD) >= 0;
}

/// A VRF "red" with id 3 whose namespace is the process's own, and VLANs in it.
class VrfInfoSmTest : public Testing::SwitchFixture {
  protected:
    VrfInfoSmTest() {
        updated_ = l3->updatedVlanIdAttribute().react(nullptr, [this] {
            if (l3->updatedVlanId()) {
                updated.push_back(l3->updatedVlanId().value());
            }
        });
        red->vrfIdIs(VrfId(3));
        local->networkNamespaceIs("default");
    }
    ~VrfInfoSmTest() override {
        if (sm) {
            sm->destroy();
        }
        l3->destroy();
        Vela::Swiftlog::close();
    }

    void smIs() {
        sm = make<VrfInfoSm>(scheduler(), red, local, nullptr, nullptr, entityManager(), l3);
    }
    /// Active, and everything that follows from that.
    void activeSmIs() {
        local->stateIs(Ip::VrfState::active);
        smIs();
        runUntilIdle();
        updated.clear();
    }
    Ptr<VlanL3Info> vlanIs(unsigned vlan) {
        auto record = l3->vlanL3InfoIs(red, VlanId(vlan));
        l3->addVrfInterfaceWatch(record);
        return record;
    }
    void vlanDel(unsigned vlan) {
        auto record = l3->vlanL3Info(VlanId(vlan));
        l3->delVrfInterfaceWatch(record);
        l3->vlanL3InfoDel(VlanId(vlan));
    }
    void deviceIs(const std::string& name, uint32_t ifIndex) {
        Testing::deviceIs(state(), name, ifIndex);
    }
    void deviceIsDown(const std::string& name, uint32_t ifIndex) {
        state().kernelNetInfoIs("default")->interfaceIs(
            {ifIndex, name, Testing::deviceFlags(false), Zinc::EthAddr()});
    }
    uint32_t ifIndexOf(const std::string& name) {
        return l3->vrfInterfaceWatch(name)->kniIntfIfIndex();
    }

    using Vlans = std::vector<int>;

    const Ptr<VlanL3InfoStatus> l3 = make<VlanL3InfoStatus>();
    const Ptr<VrfInfo> red = l3->vrfInfoIs("red");
    const Ptr<Ip::VrfStatusLocal> local = make<Ip::VrfStatusLocal>("red");
    Ptr<VrfInfoSm> sm;
    Vlans updated; // as announced

  private:
    Vela::Reaction updated_;
};
using VrfInfoSmDeathTest = VrfInfoSmTest;

// Becoming active and inactive

TEST_F(VrfInfoSmTest, anActiveVrfGetsNamespaceAndSocket) {
    local->stateIs(Ip::VrfState::active);
    smIs();
    EXPECT_EQ(red->netNs(), "default");
    ASSERT_GE(red->netlinkSocket(), 3u);
    EXPECT_TRUE(isOpen(red->netlinkSocket()));
    EXPECT_TRUE(red->usable());
    EXPECT_TRUE(sm->walkScheduled());
    EXPECT_EQ(sm->vrfInfo(), red);
    EXPECT_EQ(sm->vrfStatusLocal(), local);
}

TEST_F(VrfInfoSmTest, itsTaskIsNamedAfterTheVrf) {
    smIs();
    Vela::DumpContext dump;
    scheduler()->dumpState(dump, 0);
    EXPECT_NE(dump.text().find("Vrf-red"), std::string::npos) << dump.text();
}

TEST_F(VrfInfoSmTest, needsStateIdAndNamespace) {
    smIs();
    for (auto state : {Ip::VrfState::initializing, Ip::VrfState::deleting}) {
        local->stateIs(state);
        EXPECT_FALSE(red->usable());
    }
    red->vrfIdIs(VrfId());
    local->stateIs(Ip::VrfState::active);
    EXPECT_EQ(red->netNs(), "");
    EXPECT_EQ(red->netlinkSocket(), 0u);
    local->networkNamespaceIs("");
    red->vrfIdIs(VrfId(4));
    EXPECT_EQ(red->netNs(), "");
    EXPECT_EQ(red->netlinkSocket(), 0u);
    local->networkNamespaceIs("default");
    EXPECT_TRUE(red->usable());
}

TEST_F(VrfInfoSmTest, stateOrIdLostEndsIt) {
    auto vlan10 = vlanIs(10);
    deviceIs("Vlan10", 1010);
    activeSmIs();
    struct Change {
        std::function<void()> lose, regain;
    };
    for (const Change& change :
         {Change{[&] { local->stateIs(Ip::VrfState::deleting); },
                 [&] { local->stateIs(Ip::VrfState::active); }},
          Change{[&] { red->vrfIdIs(VrfId()); }, [&] { red->vrfIdIs(VrfId(5)); }}}) {
        ASSERT_EQ(vlan10->kniIntfIfIndex(), 1010u);
        uint32_t socket = red->netlinkSocket();
        ASSERT_TRUE(isOpen(socket));
        change.lose();
        EXPECT_FALSE(isOpen(socket));
        EXPECT_EQ(red->netNs(), "");
        EXPECT_EQ(red->netlinkSocket(), 0u);
        // Unusable at once; the walk brings the indexes up to date.
        EXPECT_FALSE(vlan10->usable());
        EXPECT_EQ(updated, Vlans{});
        runUntilIdle();
        EXPECT_EQ(vlan10->kniIntfIfIndex(), 0u);
        EXPECT_EQ(updated, Vlans{10});
        change.regain();
        runUntilIdle();
        EXPECT_EQ(updated, (Vlans{10, 10}));
        updated.clear();
    }
}

TEST_F(VrfInfoSmTest, oneThatIsBackBeforeItsWalkTakesItsIndexesBackFirst) {
    auto vlan10 = vlanIs(10);
    deviceIs("Vlan10", 1010);
    activeSmIs();
    local->stateIs(Ip::VrfState::deleting);
    EXPECT_EQ(updated, Vlans{});
    local->stateIs(Ip::VrfState::active);
    EXPECT_EQ(vlan10->kniIntfIfIndex(), 0u);
    EXPECT_EQ(updated, Vlans{10});
    runUntilIdle();
    EXPECT_EQ(vlan10->kniIntfIfIndex(), 1010u);
    EXPECT_EQ(updated, (Vlans{10, 10}));
    EXPECT_TRUE(vlan10->usable());
}

TEST_F(VrfInfoSmTest, anActiveVrfMountsItsTableAndAnInactiveOneDoesNot) {
    auto tables = [&] {
        Vela::DumpContext dump;
        tableService()->dumpState(dump, 0);
        return dump.text();
    };
    const std::string path = "kni/ns/ns-red/status";
    local->networkNamespaceIs("ns-red"); // which the kernel does not have
    smIs();
    EXPECT_EQ(tables().find(path), std::string::npos) << tables();
    local->stateIs(Ip::VrfState::active);
    EXPECT_NE(tables().find(path), std::string::npos) << tables();
    red->vrfIdIs(VrfId());
    EXPECT_EQ(tables().find(path), std::string::npos) << tables();
    local->stateIs(Ip::VrfState::initializing);
    local->networkNamespaceIs("ns-blue"); // allowed while it is not active
    red->vrfIdIs(VrfId(3));
    local->stateIs(Ip::VrfState::active);
    EXPECT_NE(tables().find("kni/ns/ns-blue/status"), std::string::npos) << tables();
    sm->destroy();
    EXPECT_EQ(tables().find("kni/ns/"), std::string::npos) << tables();
}

TEST_F(VrfInfoSmTest, withoutASocketItIsNotUsableAndSaysSo) {
    auto vlan10 = vlanIs(10);
    local->networkNamespaceIs("ns-red");
    Testing::deviceIs(state(), "Vlan10", 1010, "ns-red");
    TraceCapture capture("ArpSuppression=0");
    activeSmIs();
    EXPECT_EQ(red->netNs(), "ns-red");
    EXPECT_EQ(red->netlinkSocket(), 0u);
    EXPECT_EQ(vlan10->kniIntfIfIndex(), 0u);
    EXPECT_EQ(capture.count("no netlink socket in ns-red: No such file or directory\n"), 1u)
        << capture.text();
    local->stateIs(Ip::VrfState::deleting); // which closes nothing
    EXPECT_EQ(red->netNs(), "");
}

TEST_F(VrfInfoSmTest, aTableOfAnotherTypeGivesNoIndexes) {
    auto group = tableService()->mountGroup();
    group->mount<Arp::Table::Status>("kni/ns/default/status", Quarry::MountType::writer);
    auto vlan10 = vlanIs(10);
    activeSmIs();
    EXPECT_TRUE(red->usable());
    EXPECT_EQ(vlan10->kniIntfIfIndex(), 0u);
    local->stateIs(Ip::VrfState::deleting);
    EXPECT_FALSE(red->usable());
    sm->destroy();
    group->destroy();
}

TEST_F(VrfInfoSmTest, changesThatLeaveItActiveDoNothing) {
    vlanIs(10);
    deviceIs("Vlan10", 1010);
    activeSmIs();
    uint32_t socket = red->netlinkSocket();
    TraceCapture capture("ArpSuppression=8");
    red->vrfIdIs(VrfId(4)); // another valid id
    runUntilIdle();
    EXPECT_EQ(capture.text(), "");
    EXPECT_EQ(red->netlinkSocket(), socket);
    EXPECT_EQ(updated, Vlans{});
}

TEST_F(VrfInfoSmTest, tracesAndRecordsEachTurn) {
    Vela::Swiftlog::defaultDirectoryIs(directory() + "/log");
    Vela::SwiftlogConfig config;
    config.fileName = "Vrf.sl";
    Vela::Swiftlog::initialize(config);
    vlanIs(10);
    deviceIs("Vlan10", 1010);
    TraceCapture capture("ArpSuppression=8");
    activeSmIs();
    EXPECT_EQ(capture.count("VrfInfoSm(red) wasActive=no nowActive=yes\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count("watch=<vrfName=red intfName=Vlan10 usable=no> ifIndex=1010\n"), 1u)
        << capture.text();
    EXPECT_GE(capture.count("VrfInfoSm(red) scheduleInterfaceWatchUpdate\n"), 1u);
    EXPECT_GE(capture.count("VrfInfoSm(red) traceEvent=finished\n"), 1u);
    local->stateIs(Ip::VrfState::deleting);
    EXPECT_EQ(capture.count("VrfInfoSm(red) wasActive=yes nowActive=no\n"), 1u);
    runUntilIdle();

    std::ostringstream self;
    self << static_cast<const void*>(sm.get());
    Vela::SwiftlogReader reader(Vela::Swiftlog::fileName());
    EXPECT_TRUE(reader.problems().empty());
    std::vector<std::string> texts;
    for (const auto& record : reader.records()) {
        EXPECT_EQ(record.type->unit, "ArpSuppression/VrfInfoSm");
        texts.push_back(record.type->title + ": " + record.text());
    }
    EXPECT_EQ(texts, (std::vector<std::string>{
                         "updateVrfInfo: vrfName=red wasActive=no nowActive=yes",
                         "updateInterfaceWatch: this=" + self.str() +
                             " watch=<vrfName=red intfName=Vlan10 usable=no> ifIndex=1010",
                         "updateVrfInfo: vrfName=red wasActive=yes nowActive=no",
                         "updateInterfaceWatch: this=" + self.str() +
                             " watch=<vrfName=red intfName=Vlan10 usable=no> ifIndex=0"}));
}

TEST_F(VrfInfoSmDeathTest, anActiveVrfKeepsItsNamespace) {
    activeSmIs();
    for (const char* other : {"ns-blue", ""}) {
        EXPECT_EXIT(local->networkNamespaceIs(other), testing::KilledBySignal(SIGABRT),
                    "ArpSuppression/VrfInfoSm:[0-9]+ updateVrfInfo: assertion failed "
                    "\"!wasActive \\|\\| vrfInfo\\(\\)->netNs\\(\\) == "
                    "vrfStatusLocal\\(\\)->networkNamespace\\(\\)\"\n");
    }
}

// Devices

TEST_F(VrfInfoSmTest, aDeviceHasItsIndexWhileItRuns) {
    auto vlan10 = vlanIs(10);
    activeSmIs();
    EXPECT_EQ(vlan10->kniIntfIfIndex(), 0u);
    deviceIsDown("Vlan10", 1010);
    runUntilIdle();
    EXPECT_EQ(vlan10->kniIntfIfIndex(), 0u);
    EXPECT_EQ(updated, Vlans{});
    deviceIs("Vlan10", 1010);
    runUntilIdle();
    EXPECT_EQ(vlan10->kniIntfIfIndex(), 1010u);
    EXPECT_EQ(l3->usableVlanL3Info(VlanId(10)), vlan10);
    EXPECT_EQ(updated, Vlans{10});
    deviceIsDown("Vlan10", 1010);
    runUntilIdle();
    EXPECT_EQ(vlan10->kniIntfIfIndex(), 0u);
    EXPECT_EQ(updated, (Vlans{10, 10}));
}

TEST_F(VrfInfoSmTest, aDeviceThatIsRenamedOrMadeAnewIsFollowed) {
    auto vlan10 = vlanIs(10);
    auto vlan20 = vlanIs(20);
    activeSmIs();
    deviceIs("Vlan10", 1010);
    runUntilIdle();
    deviceIs("Vlan20", 1010); // the same device
    runUntilIdle();
    EXPECT_EQ(vlan10->kniIntfIfIndex(), 0u);
    EXPECT_EQ(vlan20->kniIntfIfIndex(), 1010u);
    deviceIs("Vlan20", 1020); // another of that name
    runUntilIdle();
    EXPECT_EQ(vlan20->kniIntfIfIndex(), 1020u);
    deviceIs("Vlan20", 0);
    runUntilIdle();
    EXPECT_EQ(vlan20->kniIntfIfIndex(), 0u);
    EXPECT_EQ(updated.front(), 10);
    EXPECT_EQ(updated.back(), 20);
}

TEST_F(VrfInfoSmTest, devicesThatNobodyWatchesAndOtherNamespacesAreOfNoInterest) {
    auto vlan10 = vlanIs(10);
    activeSmIs();
    Testing::deviceIs(state(), "Vlan10", 1010, "ns-blue");
    deviceIs("Vlan11", 1011);
    runUntilIdle();
    EXPECT_EQ(vlan10->kniIntfIfIndex(), 0u);
    EXPECT_EQ(updated, Vlans{});
}

TEST_F(VrfInfoSmTest, anotherWatchGetsItsIndexWithoutAnAnnouncementOfAVlan) {
    deviceIs("fabric", 100);
    activeSmIs();
    auto fabric = l3->findOrCreateVrfInterfaceWatch("fabric", "red");
    EXPECT_EQ(fabric->kniIntfIfIndex(), 100u); // at once
    deviceIs("fabric", 0);
    runUntilIdle();
    EXPECT_EQ(fabric->kniIntfIfIndex(), 0u);
    EXPECT_EQ(updated, Vlans{});
}

TEST_F(VrfInfoSmTest, aWatchThatComesLaterIsToldAtOnceAndOneThatGoesIsForgotten) {
    deviceIs("Vlan10", 1010);
    activeSmIs();
    auto vlan10 = vlanIs(10);
    EXPECT_EQ(vlan10->kniIntfIfIndex(), 1010u);
    EXPECT_EQ(updated, Vlans{10});
    vlanIs(11); // keeps the VRF
    vlanDel(10);
    deviceIs("Vlan10", 0);
    runUntilIdle();
    EXPECT_EQ(updated, Vlans{10});
}

// The end

TEST_F(VrfInfoSmTest, oneThatEndsTakesTheIndexesBackAtOnce) {
    auto vlan10 = vlanIs(10);
    auto vlan20 = vlanIs(20);
    auto fabric = l3->findOrCreateVrfInterfaceWatch("fabric", "red");
    deviceIs("Vlan10", 1010);
    deviceIs("Vlan20", 1020);
    deviceIs("fabric", 100);
    activeSmIs();
    uint32_t socket = red->netlinkSocket();
    ASSERT_EQ(fabric->kniIntfIfIndex(), 100u);
    sm->destroy();
    EXPECT_FALSE(isOpen(socket));
    EXPECT_EQ(red->netNs(), "");
    EXPECT_EQ(red->netlinkSocket(), 0u);
    for (const Ptr<VrfInterfaceWatch>& watch :
         {Ptr<VrfInterfaceWatch>(vlan10), Ptr<VrfInterfaceWatch>(vlan20), fabric}) {
        EXPECT_EQ(watch->kniIntfIfIndex(), 0u) << watch->intfName();
    }
    EXPECT_EQ(updated, (Vlans{10, 20}));
    // Nothing reaches it any more.
    updated.clear();
    deviceIs("Vlan10", 1011);
    local->stateIs(Ip::VrfState::deleting);
    local->stateIs(Ip::VrfState::active);
    runUntilIdle();
    EXPECT_EQ(red->netNs(), "");
    EXPECT_EQ(updated, Vlans{});
}

TEST_F(VrfInfoSmTest, oneThatEndsWhileItsWalkIsPendingDoesWhatTheWalkWouldHaveDone) {
    auto vlan10 = vlanIs(10);
    deviceIs("Vlan10", 1010);
    activeSmIs();
    local->stateIs(Ip::VrfState::deleting);
    ASSERT_EQ(vlan10->kniIntfIfIndex(), 1010u);
    sm->destroy();
    EXPECT_EQ(vlan10->kniIntfIfIndex(), 0u);
    EXPECT_EQ(updated, Vlans{10});
}

TEST_F(VrfInfoSmTest, oneThatNeverWasActiveEndsQuietly) {
    vlanIs(10);
    smIs();
    runUntilIdle();
    TraceCapture capture("ArpSuppression=8");
    sm->destroy();
    EXPECT_EQ(capture.count("\n"), capture.count(" no netNs\n") + 1) << capture.text();
    EXPECT_EQ(updated, Vlans{});
}

TEST_F(VrfInfoSmTest, aReactionMayEndTheVrfAndTheMachine) {
    auto vlan10 = vlanIs(10);
    auto vlan20 = vlanIs(20);
    deviceIs("Vlan10", 1010);
    deviceIs("Vlan20", 1020);
    runUntilIdle();
    local->stateIs(Ip::VrfState::active);
    auto reaction = l3->updatedVlanIdAttribute().react(nullptr, [&] {
        if (sm && l3->updatedVlanId() == VlanId(10)) {
            auto old = std::exchange(sm, nullptr);
            old->destroy();
        }
    });
    smIs();
    runUntilIdle();
    EXPECT_FALSE(sm);
    EXPECT_EQ(vlan10->kniIntfIfIndex(), 0u);
    EXPECT_EQ(vlan20->kniIntfIfIndex(), 0u);
    EXPECT_EQ(red->netlinkSocket(), 0u);
}

// The default VRF

TEST_F(VrfInfoSmTest, theDefaultVrfFillsTheDirectoryOfDevices) {
    auto vrfInfo = l3->vrfInfoIs("default");
    vrfInfo->vrfIdIs(VrfId(0));
    auto status = make<Ip::VrfStatusLocal>("default");
    status->networkNamespaceIs("default");
    status->stateIs(Ip::VrfState::active);
    auto devices = make<Interface::DeviceIntfStatusDir>("");
    auto managers = make<Interface::NetNsIntfStatusManagerRoot>(
        state().allIntfStatusDir, state().allIntfStatusLocalDir, false);
    Testing::portIs(state(), "Ethernet1", "et1", 11);
    deviceIs("cpu", 1);
    deviceIs("unknown", 12);
    sm = make<VrfInfoSm>(scheduler(), vrfInfo, status, devices, managers, entityManager(), l3);
    runUntilIdle();
    EXPECT_EQ(devices->deviceIntfStatusCollection().count(), 2u);
    EXPECT_EQ(devices->deviceIntfStatus(11),
              Interface::DeviceIntfStatus(Zinc::IntfId("Ethernet1"), "et1"));
    EXPECT_EQ(devices->deviceIntfStatus(1),
              Interface::DeviceIntfStatus(Zinc::IntfId("Cpu"), "cpu"));
    EXPECT_TRUE(managers->intfStatusManager("default"));
    vrfInfo->vrfIdIs(VrfId());
    EXPECT_EQ(devices->deviceIntfStatusCollection().count(), 0u);
    EXPECT_FALSE(managers->intfStatusManager("default"));
    vrfInfo->vrfIdIs(VrfId(0));
    runUntilIdle();
    EXPECT_EQ(devices->deviceIntfStatusCollection().count(), 2u);
    sm->destroy();
    EXPECT_EQ(devices->deviceIntfStatusCollection().count(), 0u);
    managers->destroy();
}

// The walk

/// VLANs 10 to 50 wait for a walk that makes them usable; each takes longer than a slice may.
class VrfInfoSmWalkTest : public VrfInfoSmTest {
  protected:
    VrfInfoSmWalkTest() {
        for (unsigned vlan : {10, 20, 30, 40, 50}) {
            vlanIs(vlan);
            deviceIs("Vlan" + std::to_string(vlan), 1000 + vlan);
        }
        runUntilIdle();
        slow_ = l3->updatedVlanIdAttribute().react(
            nullptr, [this] { clock().advance(std::chrono::milliseconds(1)); });
        local->stateIs(Ip::VrfState::active);
        smIs();
    }
    /// Turns until as many have been announced.
    void turnUntilUpdated(size_t count) {
        while (updated.size() < count && turn()) {
        }
        ASSERT_EQ(updated.size(), count);
    }

  private:
    Vela::Reaction slow_;
};

TEST_F(VrfInfoSmWalkTest, yieldsAfterEachThatTookTooLong) {
    for (size_t count : {1u, 2u, 3u, 4u, 5u}) {
        ASSERT_TRUE(sm->walkScheduled());
        turnUntilUpdated(count);
    }
    EXPECT_EQ(updated, (Vlans{10, 20, 30, 40, 50}));
    runUntilIdle();
    EXPECT_EQ(updated.size(), 5u);
    EXPECT_EQ(ifIndexOf("Vlan50"), 1050u);
}

TEST_F(VrfInfoSmWalkTest, dumpsWhereItGoesOn) {
    turnUntilUpdated(2);
    Vela::DumpContext dump;
    sm->dumpState(dump, 2);
    EXPECT_EQ(dump.text().find("  VrfInfoSm\n    vrfName=red\n    bookmark=Vlan30\n"
                               "    Ip::VrfStatusLocal red\n"),
              0u)
        << dump.text();
    EXPECT_NE(dump.text().find("    KernelNetInfo::InterfaceInfo\n"), std::string::npos);
    runUntilIdle();
    Vela::DumpContext after;
    sm->dumpState(after, 0);
    EXPECT_NE(after.text().find("\n  bookmark=\n"), std::string::npos) << after.text();
}

TEST_F(VrfInfoSmWalkTest, goesOnBehindABookmarkThatIsGone) {
    turnUntilUpdated(2);
    vlanDel(30);
    runUntilIdle();
    EXPECT_EQ(updated, (Vlans{10, 20, 40, 50}));
}

TEST_F(VrfInfoSmWalkTest, removalsBehindAndBeforeTheBookmark) {
    turnUntilUpdated(2);
    vlanDel(10);
    vlanDel(50);
    runUntilIdle();
    EXPECT_EQ(updated, (Vlans{10, 20, 30, 40}));
}

TEST_F(VrfInfoSmWalkTest, additionsBehindAndBeforeTheBookmark) {
    deviceIs("Vlan15", 1015);
    deviceIs("Vlan35", 1035);
    turnUntilUpdated(2);
    runUntilIdle();
    EXPECT_EQ(updated, (Vlans{10, 20, 30, 40, 50}));
    updated.clear();
    local->stateIs(Ip::VrfState::deleting);
    turnUntilUpdated(2);
    vlanIs(15);
    vlanIs(35);
    runUntilIdle();
    EXPECT_EQ(updated, (Vlans{10, 20, 30, 40, 50}));
    updated.clear();
    local->stateIs(Ip::VrfState::active);
    turnUntilUpdated(2);
    EXPECT_EQ(updated, (Vlans{10, 15}));
    vlanDel(15);
    vlanDel(35);
    vlanIs(15); // known at once
    vlanIs(35);
    runUntilIdle();
    EXPECT_EQ(updated, (Vlans{10, 15, 15, 35, 20, 30, 40, 50}));
}

TEST_F(VrfInfoSmWalkTest, endsWhereEverythingIsGone) {
    turnUntilUpdated(2);
    for (unsigned vlan : {10, 20, 30, 40, 50}) {
        vlanDel(vlan);
    }
    TraceCapture capture("ArpSuppression=8");
    runUntilIdle();
    EXPECT_EQ(capture.count("traceEvent=finished\n"), 1u) << capture.text();
    EXPECT_EQ(updated, (Vlans{10, 20}));
}

TEST_F(VrfInfoSmWalkTest, aVrfThatGoesMeanwhileIsWalkedAgain) {
    turnUntilUpdated(2);
    local->stateIs(Ip::VrfState::deleting);
    runUntilIdle();
    EXPECT_EQ(updated, (Vlans{10, 20, 10, 20}));
    for (const char* name : {"Vlan10", "Vlan20", "Vlan30", "Vlan40", "Vlan50"}) {
        EXPECT_EQ(ifIndexOf(name), 0u) << name;
    }
}

TEST_F(VrfInfoSmWalkTest, oneThatEndsMeanwhileTakesBackWhatItGave) {
    turnUntilUpdated(2);
    sm->destroy();
    EXPECT_EQ(updated, (Vlans{10, 20, 10, 20}));
    runUntilIdle();
    EXPECT_EQ(updated.size(), 4u);
}

TEST_F(VrfInfoSmWalkTest, aDeviceThatChangesMeanwhileIsSeenOnceEach) {
    turnUntilUpdated(2);
    deviceIs("Vlan20", 2020);
    deviceIs("Vlan40", 2040);
    runUntilIdle();
    EXPECT_EQ(ifIndexOf("Vlan20"), 2020u);
    EXPECT_EQ(ifIndexOf("Vlan40"), 2040u);
    EXPECT_EQ(std::count(updated.begin(), updated.end(), 30), 1);
    EXPECT_EQ(std::count(updated.begin(), updated.end(), 50), 1);
}

} // namespace

} // namespace ArpSuppression
