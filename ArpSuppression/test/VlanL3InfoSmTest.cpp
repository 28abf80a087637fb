#include "ArpSuppression/test/VlanL3InfoSmFixture.h"

#include "Platform/State/CaughtErrors.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/SwiftlogReader.h"
#include "Testing/TraceCapture.h"

#include <csignal>

namespace ArpSuppression {

namespace {

using Bridging::VlanId;
using Testing::TraceCapture;
using Vela::make;
using Vela::Ptr;
using Vrf::VrfId;
using Strings = std::vector<std::string>;

using VlanL3InfoSmTest = VlanL3InfoSmFixture;
using VlanL3InfoSmDeathTest = VlanL3InfoSmFixture;

// Which VLANs have a record

TEST_F(VlanL3InfoSmTest, anEnabledVlanHasARecordInTheVrfOfItsInterface) {
    smIs();
    ipv4Is(10, "red");
    EXPECT_EQ(vrfOf(10), "-");
    enable(10);
    ASSERT_EQ(vrfOf(10), "red");
    EXPECT_EQ(record(10)->vlanIntfId(), intfOf(10));
    EXPECT_EQ(l3->vrfInterfaceWatch("Vlan10"), record(10));
    EXPECT_EQ(l3->vrfInfo("red")->interfaceWatchCollection().value("Vlan10"), record(10));
    EXPECT_EQ(l3->vrfInfo("red")->vrfId(), VrfId(3));
    EXPECT_EQ(announced, Vlans{10});
    enabledVlans->vlanIdDel(VlanId(10));
    EXPECT_EQ(vrfOf(10), "-");
    EXPECT_EQ(l3->vrfInterfaceWatch("Vlan10"), nullptr);
    EXPECT_EQ(l3->vrfInfo("red"), nullptr);
    EXPECT_EQ(announced, (Vlans{10, 10}));
}

TEST_F(VlanL3InfoSmTest, soHasOneOnWhichSuppressionIsActive) {
    smIs();
    ipv4Is(10, "red");
    status()->vlanIdIs(VlanId(10), true);
    EXPECT_EQ(vrfOf(10), "red");
    status()->vlanIdIs(VlanId(10), false); // and not enabled
    EXPECT_EQ(vrfOf(10), "-");
    enable(10);
    EXPECT_EQ(vrfOf(10), "red"); // enabled counts where the status is not true
    status()->vlanIdDel(VlanId(10));
    EXPECT_EQ(vrfOf(10), "red");
}

TEST_F(VlanL3InfoSmTest, theInterfaceMayComeLaterAndGo) {
    smIs();
    enable(10);
    EXPECT_EQ(vrfOf(10), "-");
    ipv4Is(10, "red");
    EXPECT_EQ(vrfOf(10), "red");
    ipv4Del(10);
    EXPECT_EQ(vrfOf(10), "-");
    ipv6Is(10, "blue");
    EXPECT_EQ(vrfOf(10), "blue"); // that of IPv6 alone
}

TEST_F(VlanL3InfoSmTest, bothFamiliesMustAgree) {
    smIs();
    enable(10);
    ipv4Is(10, "red");
    auto red = record(10);
    TraceCapture capture("ArpSuppression=8");
    ipv6Is(10, "blue");
    EXPECT_EQ(vrfOf(10), "-");
    EXPECT_EQ(capture.count("Transient state: ipIntfStatus and ip6IntfStatus not under the same "
                            "vrf. ipIntfStatus vrf=red ip6IntfStatus vrf=blue\n"),
              1u)
        << capture.text();
    ipv6Is(10, "red");
    EXPECT_EQ(vrfOf(10), "red");
    EXPECT_NE(record(10), red);
    ipv6Del(10);
    EXPECT_EQ(vrfOf(10), "red");
    ipv6Is(10, "red");
    ipv4Del(10);
    EXPECT_EQ(vrfOf(10), "red");
    EXPECT_EQ(announced, (Vlans{10, 10, 10}));
}

TEST_F(VlanL3InfoSmTest, aVlanThatMovesGetsANewRecord) {
    smIs();
    enable(10);
    enable(20);
    ipv4Is(10, "red");
    ipv4Is(20, "red");
    auto before = record(10);
    announced.clear();
    ipv4Is(10, "blue");
    EXPECT_EQ(vrfOf(10), "blue");
    EXPECT_NE(record(10), before);
    EXPECT_TRUE(before->destroyed());
    EXPECT_EQ(announced, (Vlans{10, 10}));
    EXPECT_EQ(vrfOf(20), "red");
    EXPECT_FALSE(l3->vrfInfo("red")->interfaceWatchCollection().has("Vlan10"));
    EXPECT_TRUE(sm->vrfInfoSm("blue"));
}

TEST_F(VlanL3InfoSmTest, interfacesThatAreNoVlansAreIgnored) {
    smIs();
    enable(10);
    TraceCapture capture("ArpSuppression=8");
    state().ipStatus->ipIntfStatusIs(Zinc::IntfId("Ethernet1"), "red");
    state().ip6Status->intfIs(Zinc::IntfId("Vlan010"), "red");
    EXPECT_EQ(capture.text(), "");
    EXPECT_EQ(l3->vlanL3InfoCollection().count(), 0u);
}

TEST_F(VlanL3InfoSmTest, aNumberThatIsNoVlanRaisesItsRangeError) {
    smIs();
    TraceCapture capture("State=0");
    uint64_t before = Vela::caughtRangeErrors();
    for (const char* name : {"Vlan0", "Vlan4095", "Vlan4294967295"}) {
        state().ipStatus->ipIntfStatusIs(Zinc::IntfId(name), "red");
        state().ip6Status->intfIs(Zinc::IntfId(name), "red");
    }
    EXPECT_EQ(Vela::caughtRangeErrors(), before + 6);
    EXPECT_EQ(capture.count("Bridging::VlanId::value < 1 or > 4094 not allowed"), 6u)
        << capture.text();
    enable(4094);
    ipv4Is(4094, "red");
    EXPECT_EQ(vrfOf(4094), "red");
}

TEST_F(VlanL3InfoSmTest, whatDidNotChangeIsLeftAlone) {
    smIs();
    enable(10);
    ipv4Is(10, "red");
    auto before = record(10);
    announced.clear();
    TraceCapture capture("ArpSuppression=8");
    status()->vlanIdIs(VlanId(10), true);
    EXPECT_EQ(capture.count("No change oldVlanL3Info=<vrfName=red vlanId=10>\n"), 1u)
        << capture.text();
    capture.clear();
    status()->vlanIdIs(VlanId(20), false); // of no interest, and without record
    EXPECT_EQ(capture.count("No arpSuppressionStatus vlanId=20\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count("No change oldVlanL3Info=NULL\n"), 1u) << capture.text();
    capture.clear();
    enable(30);
    EXPECT_EQ(capture.count("No ipIntfStatus vlanId=30\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count("No ip6IntfStatus vlanId=30\n"), 1u) << capture.text();
    EXPECT_EQ(record(10), before);
    EXPECT_EQ(announced, Vlans{});
}

// VRFs

TEST_F(VlanL3InfoSmTest, aVrfHasAMachineWhileItHasIdAndStatus) {
    smIs();
    enable(10);
    ipv4Is(10, "red");
    auto first = sm->vrfInfoSm("red");
    ASSERT_TRUE(first);
    EXPECT_EQ(first->vrfInfo(), l3->vrfInfo("red"));
    EXPECT_EQ(first->vrfStatusLocal(), state().allVrfStatusLocal->vrf("red"));
    EXPECT_FALSE(sm->vrfInfoSm("blue")); // nobody needs it

    vrfNameToIdMap->vrfIdDel("red");
    EXPECT_FALSE(sm->vrfInfoSm("red"));
    EXPECT_TRUE(first->destroyed());
    ASSERT_TRUE(l3->vrfInfo("red")); // stays, without id
    EXPECT_EQ(l3->vrfInfo("red")->vrfId(), VrfId());
    vrfNameToIdMap->vrfIdIs("red", VrfId(7));
    EXPECT_EQ(l3->vrfInfo("red")->vrfId(), VrfId(7));
    auto second = sm->vrfInfoSm("red");
    ASSERT_TRUE(second);
    vrfNameToIdMap->vrfIdIs("red", VrfId(8)); // another id of the same VRF
    EXPECT_EQ(sm->vrfInfoSm("red"), second);

    state().allVrfStatusLocal->vrfDel("red");
    EXPECT_FALSE(sm->vrfInfoSm("red"));
    localVrfIs("red");
    auto third = sm->vrfInfoSm("red");
    ASSERT_TRUE(third);
    EXPECT_EQ(third->vrfStatusLocal(), state().allVrfStatusLocal->vrf("red"));

    enabledVlans->vlanIdDel(VlanId(10)); // the VRF goes with its last VLAN
    EXPECT_FALSE(sm->vrfInfoSm("red"));
    EXPECT_TRUE(third->destroyed());
}

TEST_F(VlanL3InfoSmTest, aVrfWithoutIdWaits) {
    vrfNameToIdMap->vrfIdDel("red");
    smIs();
    enable(10);
    ipv4Is(10, "red");
    EXPECT_EQ(vrfOf(10), "red");
    EXPECT_EQ(l3->vrfInfo("red")->vrfId(), VrfId());
    EXPECT_FALSE(sm->vrfInfoSm("red"));
}

TEST_F(VlanL3InfoSmTest, theDefaultVrfNeedsNoStatus) {
    smIs();
    enable(10);
    TraceCapture capture("ArpSuppression=8");
    ipv4Is(10, "default");
    EXPECT_GE(capture.count("using made up vrfStatusLocal for default VRF\n"), 1u);
    auto machine = sm->vrfInfoSm("default");
    ASSERT_TRUE(machine);
    EXPECT_EQ(machine->vrfStatusLocal()->vrfName(), L3::VrfName("default"));
    EXPECT_EQ(machine->vrfStatusLocal()->state(), Ip::VrfState::active);
    EXPECT_EQ(machine->vrfStatusLocal()->networkNamespace(), "default");
    EXPECT_TRUE(l3->vrfInfo("default")->usable());
    // It is the same when asked again, and one that is published changes nothing.
    localVrfIs("default");
    state().allVrfStatusLocal->vrfDel("default");
    EXPECT_EQ(sm->vrfInfoSm("default"), machine);
    auto made = machine->vrfStatusLocal();
    vrfNameToIdMap->vrfIdDel("default");
    EXPECT_FALSE(sm->vrfInfoSm("default"));
    vrfNameToIdMap->vrfIdIs("default", VrfId(0));
    EXPECT_EQ(sm->vrfInfoSm("default")->vrfStatusLocal(), made);
}

TEST_F(VlanL3InfoSmTest, onlyTheDefaultVrfFillsTheDirectoryOfDevices) {
    Testing::portIs(state(), "Ethernet1", "et1", 11);
    runUntilIdle();
    smIs();
    enable(10);
    ipv4Is(10, "red");
    runUntilIdle();
    EXPECT_EQ(deviceIntfStatusDir->deviceIntfStatusCollection().count(), 0u);
    l3->findOrCreateVrfInterfaceWatch("fabric", "default");
    runUntilIdle();
    EXPECT_EQ(deviceIntfStatusDir->deviceIntfStatus(11).intfId(), Zinc::IntfId("Ethernet1"));
    sm->destroy();
    EXPECT_EQ(deviceIntfStatusDir->deviceIntfStatusCollection().count(), 0u);
}

TEST_F(VlanL3InfoSmTest, runsWithoutADirectoryOfInterfaces) {
    sm = vlanL3InfoSmFactory(scheduler(), status(), enabledVlans, state().allVrfStatusLocal,
                             state().ipStatus, state().ip6Status, vrfNameToIdMap, nullptr, nullptr,
                             deviceIntfStatusDir, l3, entityManager());
    Testing::deviceIs(state(), "fabric", 100);
    auto fabric = l3->findOrCreateVrfInterfaceWatch("fabric", "default");
    runUntilIdle();
    EXPECT_EQ(fabric->kniIntfIfIndex(), 100u);
    EXPECT_EQ(deviceIntfStatusDir->deviceIntfStatusCollection().count(), 0u);
}

TEST_F(VlanL3InfoSmTest, aWatchOfAnotherMachineBringsItsVrf) {
    smIs();
    auto fabric = l3->findOrCreateVrfInterfaceWatch("fabric", "default");
    EXPECT_TRUE(sm->vrfInfoSm("default"));
    EXPECT_EQ(fabric->vrfInfo()->vrfId(), VrfId(0));
    l3->delVrfInterfaceWatch(fabric);
    EXPECT_FALSE(sm->vrfInfoSm("default"));
}

TEST_F(VlanL3InfoSmTest, whatWasThereBeforeItIsFollowed) {
    l3->findOrCreateVrfInterfaceWatch("fabric", "default");
    auto vlan = l3->vlanL3InfoIs(l3->vrfInfoIs("red"), VlanId(10));
    l3->addVrfInterfaceWatch(vlan);
    ipv4Is(10, "red")->activeAddrWithMaskIs(addr("10.0.0.254"));
    smIs();
    EXPECT_TRUE(sm->vrfInfoSm("default"));
    EXPECT_TRUE(sm->vrfInfoSm("red"));
    EXPECT_EQ(addressesOf(10), Strings{"10.0.0.254"});
}

TEST_F(VlanL3InfoSmTest, aVrfThatComesBackUnseenGetsAnotherMachine) {
    // Whoever hears first makes it anew.
    auto sooner = l3->vrfInfoCollection().react(nullptr, [&](const L3::VrfName& name) {
        if (!l3->vrfInfo(name)) {
            l3->vrfInfoIs(name);
        }
    });
    smIs();
    enable(10);
    ipv4Is(10, "red");
    auto first = sm->vrfInfoSm("red");
    ASSERT_TRUE(first);
    enabledVlans->vlanIdDel(VlanId(10));
    auto second = sm->vrfInfoSm("red");
    ASSERT_TRUE(second);
    EXPECT_NE(second, first);
    EXPECT_TRUE(first->destroyed());
    EXPECT_EQ(second->vrfInfo(), l3->vrfInfo("red"));
}

TEST_F(VlanL3InfoSmDeathTest, aVrfKeepsItsStatus) {
    smIs();
    enable(10);
    ipv4Is(10, "red");
    // As if it were replaced in one step: the machine does not hear of the removal.
    sm->hasNotificationActiveIs(false);
    state().allVrfStatusLocal->vrfDel("red");
    sm->hasNotificationActiveIs(true);
    EXPECT_EXIT(localVrfIs("red"), testing::KilledBySignal(SIGABRT),
                "ArpSuppression/VlanL3InfoSm:[0-9]+ updateVrfInfoSm: assertion failed "
                "\"!haveVrfInfoSm \\|\\| sm->vrfStatusLocal\\(\\) == vrfStatusLocal\"\n");
}

TEST_F(VlanL3InfoSmDeathTest, nothingIsEnabledWhenItStarts) {
    enable(10);
    EXPECT_EXIT(smIs(), testing::KilledBySignal(SIGABRT),
                "ArpSuppression/VlanL3InfoSm:[0-9]+ handleInitialized: assertion failed "
                "\"0 == enabledVlans\\(\\)->vlanIds\\(\\)\"\n");
}

TEST_F(VlanL3InfoSmTest, aVlanIsUsableWhenItsDeviceRuns) {
    Vlans updated;
    auto reaction = l3->updatedVlanIdAttribute().react(
        nullptr, [&] { updated.push_back(l3->updatedVlanId().value()); });
    smIs();
    enable(10);
    ipv4Is(10, "red");
    runUntilIdle();
    EXPECT_FALSE(l3->usableVlanL3Info(VlanId(10)));
    Testing::deviceIs(state(), "Vlan10", 1010);
    runUntilIdle();
    EXPECT_EQ(l3->usableVlanL3Info(VlanId(10)), record(10));
    EXPECT_EQ(updated, (Vlans{0, 10}));
    state().allVrfStatusLocal->vrfDel("red");
    EXPECT_FALSE(l3->usableVlanL3Info(VlanId(10)));
    EXPECT_EQ(record(10)->kniIntfIfIndex(), 0u); // at once
    EXPECT_EQ(updated, (Vlans{0, 10, 0, 10}));
    localVrfIs("red");
    runUntilIdle();
    EXPECT_TRUE(l3->usableVlanL3Info(VlanId(10)));
}

// Addresses

TEST_F(VlanL3InfoSmTest, aRecordHasTheAddressesOfBothFamilies) {
    auto v4 = ipv4Is(10, "red");
    v4->activeAddrWithMaskIs(addr("10.0.0.254"));
    v4->activeSecondaryWithMaskIs(addr("10.0.1.254", 16));
    v4->activeSecondaryWithMaskIs(addr("10.0.2.254"));
    auto v6 = ipv6Is(10, "red");
    v6->addrIs(addr("2001:db8::1", 64));
    smIs();
    enable(10);
    EXPECT_EQ(addressesOf(10), (Strings{"10.0.0.254", "10.0.1.254", "10.0.2.254", "2001:db8::1"}));
    v4->activeAddrWithMaskIs(addr("10.0.0.1"));
    v6->addrIs(addr("fe80::1", 64));
    v6->addrDel(addr("2001:db8::1", 64));
    v4->activeSecondaryWithMaskDel(addr("10.0.1.254", 16));
    EXPECT_EQ(addressesOf(10), (Strings{"10.0.0.1", "10.0.2.254", "fe80::1"}));
}

TEST_F(VlanL3InfoSmTest, aPrimaryAddressOfZeroIsNone) {
    auto v4 = ipv4Is(10, "red");
    v4->activeSecondaryWithMaskIs(addr("10.0.1.254"));
    smIs();
    enable(10);
    EXPECT_EQ(addressesOf(10), Strings{"10.0.1.254"});
    v4->activeAddrWithMaskIs(addr("0.0.0.0", 0));
    EXPECT_EQ(addressesOf(10), Strings{"10.0.1.254"});
    v4->activeAddrWithMaskIs(addr("10.0.0.254"));
    v4->activeAddrWithMaskIs({});
    EXPECT_EQ(addressesOf(10), Strings{"10.0.1.254"});
}

TEST_F(VlanL3InfoSmTest, statusesThatComeAndGoTakeTheirAddressesAlong) {
    smIs();
    enable(10);
    auto v6 = ipv6Is(10, "red");
    v6->addrIs(addr("2001:db8::1", 64));
    auto kept = record(10);
    auto addrSm = sm->vlanL3AddrSm(VlanId(10));
    ASSERT_TRUE(addrSm);
    EXPECT_EQ(addrSm->vlanL3Info(), kept);
    auto v4 = ipv4Is(10, "red");
    EXPECT_EQ(addressesOf(10), Strings{"2001:db8::1"});
    v4->activeAddrWithMaskIs(addr("10.0.0.254"));
    EXPECT_EQ(addressesOf(10), (Strings{"10.0.0.254", "2001:db8::1"}));
    ipv4Del(10);
    EXPECT_EQ(addressesOf(10), Strings{"2001:db8::1"});
    v4->activeAddrWithMaskIs(addr("10.0.0.1")); // it is not this interface's any more
    EXPECT_EQ(addressesOf(10), Strings{"2001:db8::1"});
    v4 = ipv4Is(10, "red");
    v4->activeAddrWithMaskIs(addr("10.0.0.254"));
    ipv6Del(10);
    EXPECT_EQ(addressesOf(10), Strings{"10.0.0.254"});
    EXPECT_EQ(record(10), kept);
    EXPECT_EQ(sm->vlanL3AddrSm(VlanId(10)), addrSm);
}

TEST_F(VlanL3InfoSmTest, anIpv4StatusHasItsAddressesFromTheMomentItIsAttached) {
    // One that moves brings others along.
    smIs();
    enable(10);
    ipv4Is(10, "red")->activeAddrWithMaskIs(addr("10.0.0.254"));
    auto before = record(10);
    std::vector<Strings> seen;
    auto reaction = l3->vrfInterfaceWatchCollection().react(nullptr, [&](const std::string&) {
        if (record(10) && record(10) != before) {
            seen.push_back(addressesOf(10));
        }
    });
    ipv6Is(10, "blue"); // no record meanwhile
    ipv4Is(10, "blue")->activeAddrWithMaskIs(addr("10.0.5.254"));
    EXPECT_EQ(addressesOf(10), Strings{"10.0.5.254"});
    ipv6Is(10, "red");
    EXPECT_EQ(vrfOf(10), "-");
    seen.clear();
    ipv6Is(10, "blue");
    EXPECT_EQ(seen, std::vector<Strings>{Strings{"10.0.5.254"}}); // before it was registered
}

TEST_F(VlanL3InfoSmTest, eachRecordHasItsOwnMachineForAddresses) {
    smIs();
    enable(10);
    ipv4Is(10, "red");
    auto first = sm->vlanL3AddrSm(VlanId(10));
    ipv4Is(10, "blue");
    auto second = sm->vlanL3AddrSm(VlanId(10));
    EXPECT_NE(second, first);
    EXPECT_TRUE(first->destroyed());
    EXPECT_EQ(second->vlanL3Info(), record(10));
    enabledVlans->vlanIdDel(VlanId(10));
    EXPECT_FALSE(sm->vlanL3AddrSm(VlanId(10)));
    EXPECT_TRUE(second->destroyed());
}

TEST_F(VlanL3InfoSmTest, tracesWhatItDoesWithAddresses) {
    smIs();
    auto v6 = ipv6Is(10, "red");
    TraceCapture capture("ArpSuppression=8");
    enable(10);
    EXPECT_EQ(capture.count("initializing vlanL3AddrSm ipIntfStatus=NULL "
                            "ip6IntfStatus=Ip6::IntfStatus(Vlan10)\n"),
              1u)
        << capture.text();
    EXPECT_EQ(capture.count(" af=ipv6\n"), 1u) << capture.text();
    capture.clear();
    ipv4Is(10, "red");
    EXPECT_EQ(capture.count("intfId=Vlan10\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count("updating vlanL3AddrSm ipIntfStatus=Ip::IpIntfStatus(Vlan10) "
                            "ip6IntfStatus=Ip6::IntfStatus(Vlan10)\n"),
              1u)
        << capture.text();
    EXPECT_EQ(capture.count(" af=ipv4\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count(" af=ipv6\n"), 0u) << capture.text();
    EXPECT_EQ(capture.count("VlanL3AddrSm(10) doCleanup\n"), 1u) << capture.text();
}

// What others read of it

TEST_F(VlanL3InfoSmTest, recordsWhatItDoesInTheRingBufferFile) {
    Vela::Swiftlog::defaultDirectoryIs(directory() + "/log");
    Vela::SwiftlogConfig config;
    config.fileName = "Vlan.sl";
    Vela::Swiftlog::initialize(config);
    state().allVrfStatusLocal->vrfDel("red");
    smIs();
    enable(10);
    ipv4Is(10, "red");
    localVrfIs("red");
    enabledVlans->vlanIdDel(VlanId(10));
    Vela::SwiftlogReader reader(Vela::Swiftlog::fileName());
    EXPECT_TRUE(reader.problems().empty());
    Strings texts;
    for (const auto& entry : reader.records()) {
        if (entry.type->unit == "ArpSuppression/VlanL3InfoSm") {
            texts.push_back(entry.type->title + ": " + entry.text());
        }
    }
    EXPECT_EQ(texts, (Strings{"updateVlanId: oldVlanL3Info=NULL vrfName= vlanIntfId=Vlan10",
                              "updateVlanId: oldVlanL3Info=NULL vrfName=red vlanIntfId=Vlan10",
                              "updateVrfId: vrfInfo=<vrfName=red vrfId=16777215> vrfId=3",
                              "updateVrfInfoSm: vrfName=red vrfInfo=<vrfName=red vrfId=3> "
                              "needVrfInfoSm=yes",
                              "updateVlanId: oldVlanL3Info=<vrfName=red vlanId=10> vrfName= "
                              "vlanIntfId=",
                              "updateVrfInfoSm: vrfName=red vrfInfo=NULL needVrfInfoSm=no"}));
}

TEST_F(VlanL3InfoSmTest, dumpsItsMachines) {
    smIs();
    enable(10);
    enable(20);
    ipv4Is(10, "red");
    ipv4Is(20, "blue");
    Vela::DumpContext dump;
    sm->dumpState(dump, 2);
    size_t at = 0;
    EXPECT_EQ(dump.text().find("  VlanL3InfoSm\n    bookmark=0\n    vrfInfoSm[] #2\n"
                               "      VrfInfoSm\n        vrfName=blue\n"),
              0u)
        << dump.text();
    for (const char* line : {"\n        vrfName=red\n", "\n    vlanL3AddrSm[] #2\n",
                             "\n      VlanL3AddrSm\n        vlanL3Info=<vrfName=red vlanId=10>\n"
                             "      VlanL3AddrSm\n        vlanL3Info=<vrfName=blue vlanId=20>\n"}) {
        at = dump.text().find(line, at);
        ASSERT_NE(at, std::string::npos) << line << " in\n" << dump.text();
    }
}

TEST_F(VlanL3InfoSmTest, oneThatEndsTakesItsMachinesAlong) {
    smIs();
    enable(10);
    ipv4Is(10, "red")->activeAddrWithMaskIs(addr("10.0.0.254"));
    Testing::deviceIs(state(), "Vlan10", 1010);
    runUntilIdle();
    auto vrf = sm->vrfInfoSm("red");
    auto addresses = sm->vlanL3AddrSm(VlanId(10));
    ASSERT_EQ(record(10)->kniIntfIfIndex(), 1010u);
    Vlans updated;
    auto reaction = l3->updatedVlanIdAttribute().react(
        nullptr, [&] { updated.push_back(l3->updatedVlanId().value()); });
    sm->destroy();
    EXPECT_TRUE(vrf->destroyed());
    EXPECT_TRUE(addresses->destroyed());
    EXPECT_FALSE(sm->vrfInfoSm("red"));
    EXPECT_FALSE(sm->vlanL3AddrSm(VlanId(10)));
    EXPECT_EQ(record(10)->kniIntfIfIndex(), 0u);
    EXPECT_EQ(updated, (Vlans{0, 10}));
    ipv4Is(10, "blue"); // hears no more of it
    EXPECT_EQ(vrfOf(10), "red");
    l3->delVrfInterfaceWatch(record(10));
}

} // namespace

} // namespace ArpSuppression
