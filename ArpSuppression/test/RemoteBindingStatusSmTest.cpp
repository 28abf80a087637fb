#include "ArpSuppression/RemoteBindingStatusSm.h"

#include "ArpSuppression/test/RemoteBindingStatusSmFixture.h"
#include "Platform/State/CaughtErrors.h"
#include "Platform/State/DumpContext.h"
#include "Testing/TraceCapture.h"

#include <sstream>

namespace ArpSuppression {
namespace {

using Bridging::VlanId;
using Testing::TraceCapture;
using Vela::Ptr;
using Zinc::EthAddr;
using Zinc::IpGenAddr;

class RemoteBindingStatusSmTest : public RemoteBindingStatusSmFixture {
  protected:
    Changes changesOf(const std::string& ip, const std::string& mac, bool localMultihomed = false) {
        changes();
        bindingIs(ip, mac, 10, localMultihomed);
        runUntilIdle();
        return changes();
    }
};
using RemoteBindingStatusSmDeathTest = RemoteBindingStatusSmTest;

// One binding

TEST_F(RemoteBindingStatusSmTest, filesABindingByAddressAndByHost) {
    startReady();
    EXPECT_EQ(changesOf("10.0.0.1", macA), Changes{"default 10.0.0.1"});
    EXPECT_EQ(tables(), (Tables{.ipToMac = {{"default 10.0.0.1", {{"10 " + macA, false}}}},
                                .macToIp = {{"10 " + macA, {"10.0.0.1"}}},
                                .vlanIds = {10},
                                .vrfs = {{"default", 1}}}));
    EXPECT_EQ(sm->vlanBindingCount(VlanId(10)), 1);
    EXPECT_EQ(sm->knownMacAddress(key("10.0.0.1")), EthAddr(macA));
    EXPECT_EQ(sm->knownMacAddress(key("10.0.0.2")), EthAddr());
}

TEST_F(RemoteBindingStatusSmTest, aHostMayHaveSeveralAddresses) {
    startReady();
    bindingIs("10.0.0.1", macA);
    bindingIs("10.0.0.2", macA);
    bindingIs("2001:db8::1", macA);
    runUntilIdle();
    EXPECT_EQ(tables().macToIp,
              (decltype(Tables::macToIp){{"10 " + macA, {"10.0.0.1", "10.0.0.2", "2001:db8::1"}}}));
    EXPECT_EQ(sm->vlanBindingCount(VlanId(10)), 3);
    expectMirrored();
    bindingDel("10.0.0.2");
    runUntilIdle();
    expectMirrored();
}

TEST_F(RemoteBindingStatusSmTest, aLinkLocalAddressBelongsToItsInterface) {
    vlanIs(20);
    startReady();
    bindingIs("fe80::1", macA, 10);
    bindingIs("fe80::1", macB, 20);
    bindingIs("2001:db8::1", macA, 10);
    bindingIs("2001:db8::1", macB, 20);
    runUntilIdle();
    EXPECT_EQ(tables().ipToMac,
              (decltype(Tables::ipToMac){
                  {"default fe80::1%Vlan10", {{"10 " + macA, false}}},
                  {"default fe80::1%Vlan20", {{"20 " + macB, false}}},
                  {"default 2001:db8::1", {{"10 " + macA, false}, {"20 " + macB, false}}}}));
    expectMirrored();
    bindingDel("2001:db8::1", 10);
    runUntilIdle();
    EXPECT_EQ(ipToMac("2001:db8::1", 20)->firstVlanIdMacAddress(), host(macB, 20));
    expectMirrored();
}

TEST_F(RemoteBindingStatusSmTest, aBindingThatMovesLeavesNothingBehind) {
    startReady();
    changesOf("10.0.0.1", macA);
    std::vector<size_t> hostsTold;
    auto reaction = status->lastVrfIpAddressChangeAttribute().react(nullptr, [&] {
        if (status->lastVrfIpAddressChange()) {
            hostsTold.push_back(ipToMac("10.0.0.1")->vlanIdMacAddresses());
        }
    });
    EXPECT_EQ(changesOf("10.0.0.1", macB),
              (Changes{"-", "default 10.0.0.1", "-", "default 10.0.0.1"}));
    EXPECT_EQ(hostsTold, (std::vector<size_t>{2, 1})) << "the new one before the old one goes";
    EXPECT_EQ(tables(), (Tables{.ipToMac = {{"default 10.0.0.1", {{"10 " + macB, false}}}},
                                .macToIp = {{"10 " + macB, {"10.0.0.1"}}},
                                .vlanIds = {10},
                                .vrfs = {{"default", 1}}}));
    EXPECT_EQ(sm->vlanBindingCount(VlanId(10)), 1);
    EXPECT_EQ(sm->knownMacAddress(key("10.0.0.1")), EthAddr(macB));
}

TEST_F(RemoteBindingStatusSmTest, theHostThatABindingLeavesKeepsItsOtherAddresses) {
    startReady();
    changesOf("10.0.0.1", macA);
    changesOf("10.0.0.2", macA);
    changesOf("10.0.0.1", macB);
    EXPECT_EQ(tables().macToIp, (decltype(Tables::macToIp){{"10 " + macA, {"10.0.0.2"}},
                                                           {"10 " + macB, {"10.0.0.1"}}}));
    expectMirrored();
}

TEST_F(RemoteBindingStatusSmTest, aBindingThatGoesLeavesNothing) {
    startReady();
    changesOf("10.0.0.1", macA);
    bindingDel("10.0.0.1");
    runUntilIdle();
    EXPECT_EQ(changes(), (Changes{"-", "default 10.0.0.1"}));
    EXPECT_EQ(tables(), Tables{});
    EXPECT_EQ(sm->knownBindingCollection().size(), 0u);
    EXPECT_EQ(sm->vlanBindingCountCollection().count(), 0u);
}

TEST_F(RemoteBindingStatusSmTest, aBindingWithoutAMacIsNone) {
    startReady();
    EXPECT_EQ(changesOf("10.0.0.1", "00:00:00:00:00:00"), Changes{});
    EXPECT_EQ(tables(), Tables{});
    changesOf("10.0.0.1", macA);
    EXPECT_EQ(changesOf("10.0.0.1", "00:00:00:00:00:00"), (Changes{"-", "default 10.0.0.1"}));
    EXPECT_EQ(tables(), Tables{});
    EXPECT_EQ(sm->knownBindingCollection().size(), 0u);
}

TEST_F(RemoteBindingStatusSmTest, twoChangesOfAnAddressAreTwoAnnouncements) {
    startReady();
    EXPECT_EQ(changesOf("10.0.0.1", macA), Changes{"default 10.0.0.1"});
    EXPECT_EQ(changesOf("10.0.0.1", macA, true), (Changes{"-", "default 10.0.0.1"}));
    EXPECT_EQ(changesOf("10.0.0.2", macA), Changes{"default 10.0.0.2"});
    EXPECT_EQ(changesOf("10.0.0.1", macA, false), Changes{"default 10.0.0.1"});
}

TEST_F(RemoteBindingStatusSmTest, followsTheFlagOfAHostOnOurSegment) {
    startReady();
    changesOf("10.0.0.1", macA, true);
    EXPECT_TRUE(ipToMac("10.0.0.1")->isLocalMultihomed(host(macA)));
    EXPECT_EQ(changesOf("10.0.0.1", macA, false).size(), 2u);
    EXPECT_FALSE(ipToMac("10.0.0.1")->isLocalMultihomed(host(macA)));
    EXPECT_EQ(ipToMac("10.0.0.1")->vlanIdMacAddresses(), 1u);
    EXPECT_EQ(sm->vlanBindingCount(VlanId(10)), 1);
    changesOf("10.0.0.1", macB, true);
    EXPECT_TRUE(ipToMac("10.0.0.1")->isLocalMultihomed(host(macB)));
    expectMirrored();
}

TEST_F(RemoteBindingStatusSmTest, whatDoesNotMatterIsNotAnnounced) {
    startReady();
    changesOf("10.0.0.1", macA);
    config()->remoteBindingIs({key("10.0.0.1"), EthAddr(macA), 1, 0}); // now over VXLAN
    runUntilIdle();
    EXPECT_EQ(changes(), Changes{});
    EXPECT_EQ(sm->knownBindingCollection().find(key("10.0.0.1"))->vxlan, 1) << "as it is last";
    expectMirrored();
}

TEST_F(RemoteBindingStatusSmTest, aChangeThatIsUndoneBeforeItIsSeenIsNone) {
    startReady();
    changesOf("10.0.0.1", macA);
    changes();
    bindingIs("10.0.0.1", macB);
    bindingIs("10.0.0.1", macA);
    bindingIs("10.0.0.2", macB);
    bindingDel("10.0.0.2");
    runUntilIdle();
    EXPECT_EQ(changes(), Changes{});
    expectMirrored();
}

// VLANs

TEST_F(RemoteBindingStatusSmTest, theFirstBindingBringsItsVlanAndTheLastTakesItOut) {
    startReady();
    std::vector<std::pair<unsigned, bool>> vlans;
    auto reaction = status->vlanIdCollection().react(nullptr, [&](VlanId vlanId) {
        vlans.emplace_back(vlanId.value(), status->vlanIdHas(vlanId));
    });
    bindingIs("10.0.0.1", macA);
    bindingIs("10.0.0.2", macB);
    bindingIs("10.0.0.1", macA, 20);
    runUntilIdle();
    EXPECT_EQ(vlans, (std::vector<std::pair<unsigned, bool>>{{10, true}, {20, true}}));
    bindingDel("10.0.0.1");
    bindingDel("10.0.0.1", 20);
    runUntilIdle();
    bindingDel("10.0.0.2");
    runUntilIdle();
    EXPECT_EQ(vlans, (std::vector<std::pair<unsigned, bool>>{
                         {10, true}, {20, true}, {20, false}, {10, false}}));
    expectMirrored();
}

TEST_F(RemoteBindingStatusSmTest, aKeyThatWasNeverKnownTakesNoVlanOut) {
    startReady();
    changesOf("10.0.0.1", macA);
    TraceCapture capture("ArpSuppression=8");
    bindingIs("10.0.0.2", macB);
    bindingDel("10.0.0.2");
    runUntilIdle();
    EXPECT_EQ(capture.count(" remoteBindingKey=<vlanId=10 ipAddress=10.0.0.2> "
                            "newMac=00:00:00:00:00:00 oldMac=00:00:00:00:00:00 count=1\n"),
              2u)
        << capture.text();
    EXPECT_EQ(sm->vlanBindingCount(VlanId(10)), 1);
    EXPECT_TRUE(status->vlanIdHas(VlanId(10)));
    expectMirrored();
}

TEST_F(RemoteBindingStatusSmTest, aVlanWithoutL3InfoIsFiledByHostOnly) {
    startReady();
    bindingIs("10.0.0.1", macA, 20);
    runUntilIdle();
    EXPECT_EQ(tables(), (Tables{.macToIp = {{"20 " + macA, {"10.0.0.1"}}}, .vlanIds = {20}}));
    bindingIs("10.0.0.1", macB, 20);
    runUntilIdle();
    EXPECT_EQ(tables(), (Tables{.macToIp = {{"20 " + macB, {"10.0.0.1"}}}, .vlanIds = {20}}));
    bindingDel("10.0.0.1", 20);
    runUntilIdle();
    EXPECT_EQ(tables(), Tables{});
    EXPECT_EQ(changes(), Changes{});
}

TEST_F(RemoteBindingStatusSmTest, bindingsFromBeforeTheL3InfoAppearWithIt) {
    startReady();
    bindingIs("10.0.0.1", macA, 20);
    bindingIs("10.0.0.2", macB, 20, true);
    runUntilIdle();
    EXPECT_EQ(status->ipToMacs(), 0u);
    EXPECT_EQ(changes(), Changes{});
    vlanIs(20, "red");
    EXPECT_TRUE(sm->walkScheduled());
    EXPECT_EQ(status->ipToMacs(), 0u) << "by the walk";
    runUntilIdle();
    auto told = changes();
    EXPECT_EQ(std::set<std::string>(told.begin(), told.end()),
              (std::set<std::string>{"red 10.0.0.1", "red 10.0.0.2"}));
    EXPECT_EQ(told.size(), 2u);
    EXPECT_TRUE(ipToMac("10.0.0.2", 20)->isLocalMultihomed(host(macB, 20)));
    EXPECT_EQ(sm->vlanBindingCount(VlanId(20)), 2);
    expectMirrored();
}

TEST_F(RemoteBindingStatusSmTest, aVlanWithoutBindingsStartsNoWalk) {
    startReady();
    bindingIs("10.0.0.1", macA);
    runUntilIdle();
    vlanIs(20);
    EXPECT_FALSE(sm->walkScheduled());
    vlanDel(20);
    EXPECT_FALSE(sm->walkScheduled());
    vlanDel(10);
    EXPECT_TRUE(sm->walkScheduled());
}

TEST_F(RemoteBindingStatusSmTest, aVlanThatMovesTakesItsAddressesAlong) {
    vlanIs(20);
    startReady();
    bindingIs("10.0.0.1", macA, 10, true);
    bindingIs("10.0.0.1", macB, 20);
    bindingIs("fe80::1", macA, 10);
    runUntilIdle();
    changes();
    vlanMoves(10, "red");
    runUntilIdle();
    EXPECT_EQ(tables().ipToMac,
              (decltype(Tables::ipToMac){{"red 10.0.0.1", {{"10 " + macA, true}}},
                                         {"default 10.0.0.1", {{"20 " + macB, false}}},
                                         {"red fe80::1%Vlan10", {{"10 " + macA, false}}}}));
    auto told = changes();
    EXPECT_EQ(std::set<std::string>(told.begin(), told.end()),
              (std::set<std::string>{"default 10.0.0.1", "red 10.0.0.1", "default fe80::1%Vlan10",
                                     "red fe80::1%Vlan10"}))
        << "both addresses of each";
    expectMirrored();
    vlanMoves(10, "default");
    vlanMoves(20, "blue");
    runUntilIdle();
    expectMirrored();
    EXPECT_FALSE(vlanL3InfoStatus->vrfInfo("red")) << "nothing holds it any more";
}

TEST_F(RemoteBindingStatusSmTest, aVrfThatComesBackIsAnotherOne) {
    startReady();
    bindingIs("10.0.0.1", macA);
    runUntilIdle();
    auto old = vlanL3InfoStatus->vrfInfo("default");
    vlanDel(10);
    EXPECT_EQ(vlanL3InfoStatus->vrfInfo("default"), old) << "the address holds it";
    runUntilIdle();
    EXPECT_FALSE(vlanL3InfoStatus->vrfInfo("default"));
    expectMirrored();
    vlanIs(10);
    runUntilIdle();
    EXPECT_NE(ipToMac("10.0.0.1")->vrfIpAddress().vrfInfo(), old);
    expectMirrored();
}

TEST_F(RemoteBindingStatusSmTest, aVlanThatLosesItsL3InfoKeepsItsHosts) {
    startReady();
    bindingIs("10.0.0.1", macA);
    runUntilIdle();
    changes();
    vlanDel(10);
    runUntilIdle();
    EXPECT_EQ(changes(), (Changes{"-", "default 10.0.0.1"})) << "there is no new address";
    EXPECT_EQ(tables(), (Tables{.macToIp = {{"10 " + macA, {"10.0.0.1"}}}, .vlanIds = {10}}));
    expectMirrored();
}

// Between a VLAN's move and the walk

TEST_F(RemoteBindingStatusSmTest, aBindingThatGoesAfterItsVlanMovedIsForgotten) {
    startReady();
    changesOf("10.0.0.1", macA);
    vlanMoves(10, "red");
    config()->remoteBindingDel(key("10.0.0.1"));
    runUntilIdle();
    EXPECT_EQ(tables(), Tables{});
    EXPECT_FALSE(vlanL3InfoStatus->vrfInfo("default"));
    expectMirrored();
}

TEST_F(RemoteBindingStatusSmTest, aBindingThatChangesAfterItsVlanMovedIsFiledAnew) {
    startReady();
    changesOf("10.0.0.1", macA);
    vlanMoves(10, "red");
    bindingIs("10.0.0.1", macB);
    runUntilIdle();
    EXPECT_EQ(tables().ipToMac,
              (decltype(Tables::ipToMac){{"red 10.0.0.1", {{"10 " + macB, false}}}}));
    expectMirrored();
}

// Counts

TEST_F(RemoteBindingStatusSmTest, countsWithinTheirRange) {
    machineIs(scheduler());
    EXPECT_EQ(sm->vlanBindingCount(VlanId(10)), 0);
    EXPECT_EQ(sm->vlanBindingCountInc(VlanId(10), 5), 5);
    EXPECT_EQ(sm->vlanBindingCountDec(VlanId(10), 2), 3);
    sm->vlanBindingCountIs(VlanId(10), 0x7FFFFFFE);
    EXPECT_EQ(sm->vlanBindingCount(VlanId(10)), 0x7FFFFFFE);
    sm->vlanBindingCountDel(VlanId(10));
    EXPECT_EQ(sm->vlanBindingCountCollection().count(), 0u);
}

template <class Callable>
std::string rangeErrorOf(Callable callable) {
    try {
        callable();
    } catch (const Vela::RangeError& error) {
        return error.what();
    }
    return "none";
}

TEST_F(RemoteBindingStatusSmTest, aCountOutOfRangeIsARangeError) {
    const char* text = "ArpSuppressionStatusSm::vlanBindingCount < 0 or >= 0x7FFFFFFF not allowed";
    machineIs(scheduler());
    for (int32_t count : {-1, INT32_MIN, 0x7FFFFFFF}) {
        sm->vlanBindingCountIs(VlanId(10), count);
        EXPECT_EQ(rangeErrorOf([&] { sm->vlanBindingCount(VlanId(10)); }), text);
        EXPECT_EQ(rangeErrorOf([&] { sm->vlanBindingCountInc(VlanId(10), 1); }), text);
        EXPECT_EQ(rangeErrorOf([&] { sm->vlanBindingCountDec(VlanId(10), 1); }), text);
    }
    sm->vlanBindingCountIs(VlanId(10), 0);
    EXPECT_EQ(rangeErrorOf([&] { sm->vlanBindingCountDec(VlanId(10), 1); }), text);
    sm->vlanBindingCountIs(VlanId(10), 0x7FFFFFFE);
    EXPECT_EQ(rangeErrorOf([&] { sm->vlanBindingCountInc(VlanId(10), 1); }), text);
}

TEST_F(RemoteBindingStatusSmTest, aRangeErrorEndsTheOneReaction) {
    startReady();
    sm->vlanBindingCountIs(VlanId(20), -1);
    uint64_t before = Vela::caughtRangeErrors();
    bindingIs("10.0.0.1", macA, 20);
    bindingIs("10.0.0.2", macB, 10);
    runUntilIdle();
    EXPECT_EQ(Vela::caughtRangeErrors(), before + 1);
    EXPECT_EQ(tables(), (Tables{.ipToMac = {{"default 10.0.0.2", {{"10 " + macB, false}}}},
                                .macToIp = {{"10 " + macB, {"10.0.0.2"}}},
                                .vlanIds = {10},
                                .vrfs = {{"default", 1}}}));
}

// Whoever is told may do anything

TEST_F(RemoteBindingStatusSmTest, whoIsToldOfAnAddressMayEndTheMachine) {
    startReady();
    changesOf("10.0.0.1", macA);
    auto reaction = status->lastVrfIpAddressChangeAttribute().react(nullptr, [&] {
        sm->destroy();
        status->ipToMacDelAll();
        status->macToIpDelAll();
    });
    bindingIs("10.0.0.1", macB);
    runUntilIdle();
    EXPECT_TRUE(sm->destroyed());
    EXPECT_EQ(status->macToIps(), 0u);
    EXPECT_EQ(sm->knownBindingCollection().size(), 1u);
}

TEST_F(RemoteBindingStatusSmTest, whoIsToldOfANewBindingMayEndTheMachine) {
    startReady();
    auto reaction =
        status->lastVrfIpAddressChangeAttribute().react(nullptr, [&] { sm->destroy(); });
    bindingIs("10.0.0.1", macA);
    bindingIs("10.0.0.2", macA);
    runUntilIdle();
    EXPECT_EQ(status->ipToMacs(), 1u);
    EXPECT_EQ(status->vlanIds(), 0u);
}

TEST_F(RemoteBindingStatusSmTest, whoIsToldOfAMovedAddressMayEndTheMachine) {
    startReady();
    changesOf("10.0.0.1", macA);
    vlanMoves(10, "red");
    auto reaction =
        status->lastVrfIpAddressChangeAttribute().react(nullptr, [&] { sm->destroy(); });
    runUntilIdle();
    EXPECT_TRUE(sm->destroyed());
    EXPECT_FALSE(sm->walkScheduled());
}

TEST_F(RemoteBindingStatusSmTest, whoIsToldOfAVlanMayGiveItL3Info) {
    startReady();
    auto reaction = status->vlanIdCollection().react(nullptr, [&](VlanId vlanId) {
        if (status->vlanIdHas(vlanId) && !vlanL3InfoStatus->vlanL3Info(vlanId)) {
            vlanIs(vlanId.value(), "red");
        }
    });
    for (unsigned vlan : {20u, 30u, 40u}) {
        bindingIs("10.0.0.1", macA, vlan);
        bindingIs("10.0.0.2", macB, vlan);
    }
    runUntilIdle();
    EXPECT_EQ(status->ipToMacs(), 2u);
    EXPECT_EQ(ipToMac("10.0.0.1", 20)->vlanIdMacAddresses(), 3u);
    expectMirrored();
}

// Our own errors

TEST_F(RemoteBindingStatusSmDeathTest, thereIsAMountGroup) {
    EXPECT_DEATH(
        Vela::make<RemoteBindingStatusSm>(scheduler(), config(), nullptr, vlanL3InfoStatus, status),
        "RemoteBindingStatusSm.* handleRemoteBindingReady: .*"
        "\"remoteBindingConfigMountGroup\\(\\)\"");
}

TEST_F(RemoteBindingStatusSmDeathTest, aNewBindingIsNotFiledYet) {
    startReady();
    status->macToIpIs(host(macA))->ipAddressIs(IpGenAddr("10.0.0.1"));
    bindingIs("10.0.0.1", macA);
    EXPECT_DEATH(runUntilIdle(), "\"!macToIp->ipAddressHas\\( ipAddress \\)\"");
}

TEST_F(RemoteBindingStatusSmDeathTest, anOldBindingIsFiled) {
    startReady();
    changesOf("10.0.0.1", macA);
    status->macToIp(host(macA))->ipAddressDel(IpGenAddr("10.0.0.1"));
    bindingDel("10.0.0.1");
    EXPECT_DEATH(runUntilIdle(), "\"macToIp->ipAddressHas\\( ipAddress \\)\"");
    status->macToIpDel(host(macA));
    EXPECT_DEATH(runUntilIdle(), "\"nullptr != macToIp\"");
}

// Text forms

TEST_F(RemoteBindingStatusSmTest, stagesHaveTheirNames) {
    std::ostringstream out;
    out << RemoteBindingStatusSm::WalkStage(0) << ' ' << RemoteBindingStatusSm::WalkStage(1);
    EXPECT_EQ(out.str(), "remoteBindingConfigWalk remoteBindingStatusWalk");
}

TEST_F(RemoteBindingStatusSmTest, dumps) {
    startReady();
    Vela::DumpContext empty;
    sm->dumpState(empty, 0);
    EXPECT_EQ(empty.text(), "RemoteBindingStatusSm\n"
                            "  walkStage=remoteBindingStatusWalk"
                            "  remoteBindingConfigBookmark=<vlanId=1 ipAddress=>\n"
                            "  remoteBindingStatusBookmark=" +
                                VrfIpAddress().toStrep() +
                                "\n"
                                "  knownBinding[] #0\n"
                                "  vlanBindingCount[] #0\n");
    changesOf("10.0.0.1", macA, true);
    bindingIs("10.0.0.1", macB, 20);
    runUntilIdle();
    config()->remoteBindingDel(key("10.0.0.1"));
    bindingIs("10.0.0.9", macB, 20);
    runUntilIdle();
    bindingDel("10.0.0.1", 20);
    runUntilIdle();
    Vela::DumpContext full;
    sm->dumpState(full, 2);
    EXPECT_EQ(full.text(), "  RemoteBindingStatusSm\n"
                           "    walkStage=remoteBindingStatusWalk"
                           "    remoteBindingConfigBookmark=<vlanId=1 ipAddress=>\n"
                           "    remoteBindingStatusBookmark=" +
                               VrfIpAddress().toStrep() +
                               "\n"
                               "    knownBinding[] #1\n"
                               "      <vlanId=20 ipAddress=10.0.0.9 macAddress=02:00:00:00:00:0b "
                               "vxlan=0 localMultihomed=0>\n"
                               "    vlanBindingCount[] #1\n"
                               "      20 1\n");
}

TEST_F(RemoteBindingStatusSmTest, traces) {
    TraceCapture capture("ArpSuppression=8");
    machineIs(scheduler());
    EXPECT_EQ(capture.count(" handleInitialized\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count(" configReady:no mountReady:no\n"), 1u) << capture.text();
    configReadyIs();
    EXPECT_EQ(capture.count(" configReady:no mountReady:yes\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count(" traceEvent=scheduled\n"), 1u) << capture.text();
    runUntilIdle();
    EXPECT_EQ(capture.count(" walkStage=remoteBindingConfigWalk\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count(" walkStage=remoteBindingStatusWalk\n"), 1u) << capture.text();
    EXPECT_EQ(capture.count(" finished processed=0 done=yes\n"), 2u) << capture.text();
    capture.clear();
    bindingIs("10.0.0.1", macA);
    runUntilIdle();
    for (const char* line :
         {" remoteBindingKey=<vlanId=10 ipAddress=10.0.0.1> newMac=02:00:00:00:00:0a "
          "oldMac=00:00:00:00:00:00 count=0\n",
          " add macToIp newVlanIdMacAddress=<vlanId=10 macAddress=02:00:00:00:00:0a> "
          "ipAddress=10.0.0.1\n",
          " newVlanIdMacAddress=<vlanId=10 macAddress=02:00:00:00:00:0a> create=yes "
          "activeLocalChanged=yes\n",
          " add vlanId=10\n"}) {
        EXPECT_EQ(capture.count(line), 1u) << line << " in\n" << capture.text();
    }
    EXPECT_EQ(capture.count(" add ipToMac vrfIpAddress="), 1u) << capture.text();
    capture.clear();
    auto entryText = ipToMac("10.0.0.1")->toStrep();
    auto hostText = status->macToIp(host(macA))->toStrep();
    bindingDel("10.0.0.1");
    runUntilIdle();
    for (const std::string& line :
         {" delete macToIp=" + hostText + " ipAddress=10.0.0.1\n",
          " delete ipToMac=" + entryText +
              " oldVlanIdMacAddress=<vlanId=10 macAddress=02:00:00:00:00:0a>\n",
          std::string(" del vlanId=10\n")}) {
        EXPECT_EQ(capture.count(line), 1u) << line << " in\n" << capture.text();
    }
    bindingIs("10.0.0.1", macA);
    runUntilIdle();
    capture.clear();
    vlanMoves(10, "red");
    EXPECT_EQ(capture.count(" vlanId=10 count=1 initialPopulationComplete=yes\n"), 2u)
        << capture.text();
    entryText = status->ipToMacCollection().first().value()->toStrep();
    runUntilIdle();
    std::string newAddressText = ipToMac("10.0.0.1")->vrfIpAddress().toStrep();
    for (const std::string& line :
         {" ipToMac=" + entryText +
              " vlanL3Info=<vrfName=red vlanId=10> newVrf=<vrfName=red vrfId=",
          " delete ipToMac=" + entryText +
              " vlanIdMacAddress=<vlanId=10 macAddress=02:00:00:00:00:0a>\n",
          " add ipToMac newVrfIpAddress=" + newAddressText +
              " vlanIdMacAddress=<vlanId=10 macAddress=02:00:00:00:00:0a> create=no "
              "activeLocalChanged=no\n"}) {
        EXPECT_EQ(capture.count(line), 1u) << line << " in\n" << capture.text();
    }
    sm->destroy();
    EXPECT_EQ(capture.count(" handleDestroy\n"), 1u) << capture.text();
}

TEST_F(RemoteBindingStatusSmTest, runsAtPriority3UnderItsName) {
    machineIs(scheduler());
    Vela::DumpContext context;
    scheduler()->dumpState(context, 0);
    EXPECT_NE(context.text().find("RemoteBindingStatusSm priority=3"), std::string::npos)
        << context.text();
}

} // namespace
} // namespace ArpSuppression
