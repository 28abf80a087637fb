#include "ArpSuppression/ArpInputConfigSm.h"

#include "ArpSuppression/test/ArpInputConfigSmFixture.h"

namespace ArpSuppression {
namespace {

using Testing::TraceCapture;

// A remote binding decides. The entry that is there: none, a permanent or a dynamic one.

enum class Existing { none, permanent, dynamic };

class ArpInputConfigSmDecisionTest : public ArpInputConfigSmToggleTest {
  protected:
    /// An address with a remote binding of macA and the given entry; nothing counted.
    void given(Existing existing, const std::string& ip = "10.0.0.1", unsigned vlan = 10) {
        startComplete();
        if (existing == Existing::dynamic) {
            // Of a local binding, which goes unnoticed: discovery ends it when the remote one
            // comes.
            kernelIs(ip, macA, true, Arp::ArpSource::kernel, vlan);
            localIs(ip, macA, vlan);
            quietRemoteIs(ip, macA, vlan);
            sm->hasNotificationActiveIs(false);
            record->deleteLocalBinding(record->binding(address(ip, vlan)));
            kernelDel(ip, vlan);
            sm->hasNotificationActiveIs(true);
            EXPECT_EQ(onlyEntry(), dynamic(macA));
        } else if (existing == Existing::permanent) {
            remoteIs(ip, macA, vlan);
            EXPECT_EQ(onlyEntry(), permanent(macA));
        } else {
            sm->hasNotificationActiveIs(false);
            remoteIs(ip, macA, vlan);
            sm->hasNotificationActiveIs(true);
            EXPECT_EQ(onlyEntry(), "-");
        }
        moved();
    }
    std::string onlyEntry() {
        auto seen = entries();
        EXPECT_LE(seen.size(), 1u);
        return seen.empty() ? "-" : seen.begin()->second;
    }
    void otherCaller(const std::string& ip = "10.0.0.1") { trigger->event(address(ip), false); }
    void expect(const std::string& entry, const Moved& counted) {
        EXPECT_EQ(onlyEntry(), entry);
        EXPECT_EQ(moved(), counted);
        EXPECT_EQ(config().vrfs(), entry == "-" ? 0u : 1u);
        expectShadowsOfEntries();
    }
};

TEST_F(ArpInputConfigSmDecisionTest, thereAndNotSelectivePermanentIsRewritten) {
    given(Existing::permanent);
    announce(address(ip1));
    expect(permanent(macA), once(Id::inputPermanentRewritten));
    otherCaller();
    expect(permanent(macA), once(Id::inputPermanentRewritten));
}
TEST_F(ArpInputConfigSmDecisionTest, thereAndNotSelectiveDynamicTurnsPermanent) {
    given(Existing::dynamic);
    announce(address(ip1));
    expect(permanent(macA), once(Id::inputPermanentRewritten));
}
TEST_F(ArpInputConfigSmDecisionTest, thereAndNotSelectiveIsAdded) {
    given(Existing::none);
    announce(address(ip1));
    expect(permanent(macA), once(Id::inputPermanentAdded));
}
TEST_F(ArpInputConfigSmDecisionTest, thereAndSelectivePermanentIsRewritten) {
    given(Existing::permanent);
    selectiveIs(true);
    EXPECT_EQ(moved(), Moved()) << "the flag is read, not followed";
    quietRemoteIs(ip1, macB);
    remote->ipToMac(address(ip1))->vlanIdMacAddressDel(host(macA));
    announce(address(ip1));
    expect(permanent(macB), once(Id::inputPermanentRewritten));
    otherCaller();
    expect(permanent(macB), once(Id::inputPermanentRewritten));
}
TEST_F(ArpInputConfigSmDecisionTest, thereAndSelectiveDynamicIsDeleted) {
    given(Existing::dynamic);
    selectiveIs(true);
    announce(address(ip1));
    expect("-", once(Id::inputDeleted));
}
TEST_F(ArpInputConfigSmDecisionTest, thereAndSelectiveNothingIsAdded) {
    given(Existing::none);
    selectiveIs(true);
    TraceCapture capture("ArpSuppression=8");
    announce(address(ip1));
    expect("-", {});
    EXPECT_EQ(capture.count(" arpInputConfigVrf not found vrfName=default\n"), 1u);
    EXPECT_EQ(capture.count(" no arpInputConfigVrf vrfName=default\n"), 1u);
    EXPECT_FALSE(capture.contains("updated="));
}
TEST_F(ArpInputConfigSmDecisionTest, thereAndSelectiveNothingIsAddedBesideOthers) {
    given(Existing::permanent, ip2);
    selectiveIs(true);
    quietRemoteIs(ip1, macB);
    announce(address(ip1));
    expect(permanent(macA), {});
}
TEST_F(ArpInputConfigSmDecisionTest, goneRefreshOnPermanentIsVerified) {
    given(Existing::permanent);
    remoteDel(ip1);
    expect(refreshed(macA), once(Id::inputDynamicRewritten));
}
TEST_F(ArpInputConfigSmDecisionTest, goneRefreshOnDynamicIsVerified) {
    given(Existing::dynamic);
    remoteDel(ip1);
    expect(refreshed(macA), once(Id::inputDynamicRewritten));
}
TEST_F(ArpInputConfigSmDecisionTest, goneRefreshOnNothingStaysNothing) {
    given(Existing::none);
    remoteDel(ip1);
    expect("-", {});
}
TEST_F(ArpInputConfigSmDecisionTest, goneRefreshOnSelectiveMakesNoDifference) {
    given(Existing::permanent);
    selectiveIs(true);
    remoteDel(ip1);
    expect(refreshed(macA), once(Id::inputDynamicRewritten));
}
TEST_F(ArpInputConfigSmDecisionTest, goneRefreshOnOthersDeletePermanent) {
    given(Existing::permanent);
    quietRemoteDel(address(ip1));
    otherCaller();
    expect("-", once(Id::inputDeleted));
}
TEST_F(ArpInputConfigSmDecisionTest, goneRefreshOnOthersDeleteDynamic) {
    given(Existing::dynamic);
    quietRemoteDel(address(ip1));
    otherCaller();
    expect("-", once(Id::inputDeleted));
}
TEST_F(ArpInputConfigSmDecisionTest, goneRefreshOnOthersLeaveNothing) {
    given(Existing::none);
    quietRemoteDel(address(ip1));
    otherCaller();
    expect("-", {});
}
TEST_F(ArpInputConfigSmDecisionTest, goneRefreshOffPermanentIsDeleted) {
    refreshToggleIs(false);
    given(Existing::permanent);
    remoteDel(ip1);
    expect("-", once(Id::inputDeleted));
}
TEST_F(ArpInputConfigSmDecisionTest, goneRefreshOffDynamicIsDeleted) {
    refreshToggleIs(false);
    given(Existing::dynamic);
    remoteDel(ip1);
    expect("-", once(Id::inputDeleted));
}
TEST_F(ArpInputConfigSmDecisionTest, goneRefreshOffNothingStaysNothing) {
    refreshToggleIs(false);
    given(Existing::none);
    remoteDel(ip1);
    expect("-", {});
}
TEST_F(ArpInputConfigSmDecisionTest, goneRefreshOffOthersDelete) {
    refreshToggleIs(false);
    given(Existing::permanent);
    quietRemoteDel(address(ip1));
    otherCaller();
    expect("-", once(Id::inputDeleted));
}
TEST_F(ArpInputConfigSmDecisionTest, goneRefreshOfAGlobalIpv6Address) {
    given(Existing::permanent, "2001:db8::1");
    remoteDel("2001:db8::1");
    expect(refreshed(macA), once(Id::inputDynamicRewritten));
    EXPECT_EQ(entries().begin()->first, "default 2001:db8::1 ");
}
TEST_F(ArpInputConfigSmDecisionTest,
       goneRefreshOfAGlobalIpv6AddressWhereTheVrfHasOtherInterfacesToo) {
    vlans->findOrCreateVrfInterfaceWatch("Ethernet1", "default"); // which comes before any VLAN
    given(Existing::permanent, "2001:db8::1");
    remoteDel("2001:db8::1");
    expect(refreshed(macA), once(Id::inputDynamicRewritten));
}
TEST_F(ArpInputConfigSmDecisionTest, goneRefreshOfALinkLocalAddress) {
    given(Existing::permanent, "fe80::1", 20);
    remoteDel("fe80::1", 20);
    expect(refreshed(macA), once(Id::inputDynamicRewritten));
    EXPECT_EQ(entries().begin()->first, "default fe80::1 Vlan20");
}

TEST_F(ArpInputConfigSmDecisionTest, theRefreshToggleIsReadOnce) {
    given(Existing::permanent); // nobody has needed it yet
    refreshToggleIs(false);
    remoteDel(ip1);
    expect("-", once(Id::inputDeleted));
    refreshToggleIs(true);
    remoteIs(ip1, macA);
    moved();
    remoteDel(ip1);
    expect("-", once(Id::inputDeleted));
}

TEST_F(ArpInputConfigSmDecisionTest, aRefreshedEntryTurnsPermanentWhenTheBindingIsBack) {
    given(Existing::permanent);
    remoteDel(ip1);
    moved();
    remoteIs(ip1, macB);
    expect(permanent(macB), once(Id::inputPermanentRewritten));
}

TEST_F(ArpInputConfigSmDecisionTest, aVlanThatHasLeftTheVrfRefreshesNothingThere) {
    given(Existing::permanent);
    auto old = address(ip1);
    vlanDel(10);
    vlanIs(10, "red", 2);
    remoteDel(old);
    expect("-", {{Id::inputNoVlanL3Info, 1}, {Id::inputDeleted, 1}});
}
TEST_F(ArpInputConfigSmDecisionTest, aVrfThatEndsWithItsLastBindingTakesTheEntryAlong) {
    given(Existing::permanent, "10.0.0.3", 30);
    auto old = address("10.0.0.3", 30);
    vlanDel(30);
    remoteDel(old);
    EXPECT_TRUE(old.vrfInfo()->destroyed());
    expect("-", {{Id::inputNoVlanL3Info, 1}, {Id::inputDeleted, 1}});
    walkToTheEnd();
}
TEST_F(ArpInputConfigSmDecisionTest, theSameForAGlobalIpv6Address) {
    given(Existing::permanent, "2001:db8::3", 30);
    auto old = address("2001:db8::3", 30);
    vlanDel(30);
    remoteDel(old);
    expect("-", once(Id::inputDeleted));
    walkToTheEnd();
}

// A suppression event installs whatever the flag says

TEST_F(ArpInputConfigSmDecisionTest, aSuppressionEventInstalls) {
    given(Existing::none);
    selectiveIs(true);
    trigger->event(address(ip1), true);
    expect(permanent(macA), once(Id::inputPermanentAdded));
    trigger->event(address(ip1), true);
    expect(permanent(macA), once(Id::inputPermanentRewritten));
}
TEST_F(ArpInputConfigSmDecisionTest, aSuppressionEventTurnsADynamicEntry) {
    given(Existing::dynamic);
    selectiveIs(true);
    trigger->event(address(ip1), true);
    expect(permanent(macA), once(Id::inputPermanentRewritten));
}
TEST_F(ArpInputConfigSmDecisionTest, aSuppressionEventWithoutABindingInstallsNothing) {
    startComplete();
    trigger->event(address(ip1), true);
    expect("-", {});
}

// Hosts that are multihomed to this switch

class Multihomed : public ArpInputConfigSmDecisionTest {
  protected:
    void given() {
        startComplete();
        selectiveIs(true);
    }
};

TEST_F(Multihomed, isInstalledInFull) {
    given();
    TraceCapture capture("ArpSuppression=8");
    remoteIs(ip1, macA, 10, true);
    expect(permanent(macA), once(Id::inputPermanentAdded));
    EXPECT_EQ(capture.count(" Ignoring selective installfor local multihomed "
                            "vrfIpAddress=<<vrfName=default vrfId=1>;10.0.0.1;>\n"),
              1u)
        << capture.text();
}
TEST_F(Multihomed, notWhereTheToggleIsOff) {
    installToggleIs(false);
    given();
    remoteIs(ip1, macA, 10, true);
    expect("-", {});
}
TEST_F(Multihomed, notWhereThereAreTwoMacs) {
    given();
    quietRemoteIs(ip1, macA, 10, true);
    remoteIs(ip1, macB, 10, true);
    expect("-", {});
}
TEST_F(Multihomed, notWhereTheMacIsNotFlagged) {
    given();
    remoteIs(ip1, macA);
    expect("-", {});
}
TEST_F(Multihomed, theToggleIsReadOnceAndOnlyWhereTheFlagIsOn) {
    startComplete();
    remoteIs(ip1, macA, 10, true); // without the flag nobody asks
    remoteIs(ip2, macB, 10, true);
    installToggleIs(false);
    selectiveIs(true);
    quietRemoteIs("10.0.0.3", macA, 10, true);
    announce(address("10.0.0.3"));
    EXPECT_EQ(entries().size(), 2u);
    installToggleIs(true);
    announce(address("10.0.0.3"));
    EXPECT_EQ(entries().size(), 2u);
}
TEST_F(Multihomed, isRememberedAndHandedOverOnce) {
    given();
    remoteIs(ip1, macA, 10, true);
    const auto& remembered = sm->localMultihomedRemoteBindingCollection();
    ASSERT_TRUE(remembered.find(address(ip1)));
    EXPECT_EQ(*remembered.find(address(ip1)), host(macA));
    moved();
    remoteDel(ip1);
    expect(refreshed(macA), once(Id::inputDynamicRewritten));
    EXPECT_EQ(remembered.size(), 0u);
}
TEST_F(Multihomed, theRememberedHostCountsAndNotTheEntrys) {
    given();
    remoteIs(ip1, macA, 10, true);
    config().vrf("default")->afEntryPermanentIs(key(ip1), Zinc::EthAddr(macB), config().source());
    remoteDel(ip1);
    EXPECT_EQ(onlyEntry(), refreshed(macA));
}
TEST_F(Multihomed, isForgottenWhenItIsNotAnyMore) {
    given();
    remoteIs(ip1, macA, 10, true);
    remoteIs(ip1, macA, 10, false);
    EXPECT_EQ(sm->localMultihomedRemoteBindingCollection().size(), 0u);
}
TEST_F(Multihomed, theFirstMacDecides) {
    given();
    remoteIs(ip1, macA, 10, true);
    remoteIs(ip1, macB, 10, false);
    EXPECT_EQ(*sm->localMultihomedRemoteBindingCollection().find(address(ip1)), host(macA));
    remote->ipToMac(address(ip1))->vlanIdMacAddressDel(host(macA));
    announce(address(ip1));
    EXPECT_EQ(sm->localMultihomedRemoteBindingCollection().size(), 0u);
    remoteIs(ip1, macB, 10, true);
    EXPECT_EQ(*sm->localMultihomedRemoteBindingCollection().find(address(ip1)), host(macB));
}
TEST_F(Multihomed, isForgottenWhoeverSeesThatItHasGone) {
    given();
    remoteIs(ip1, macA, 10, true);
    quietRemoteDel(address(ip1));
    otherCaller();
    EXPECT_EQ(sm->localMultihomedRemoteBindingCollection().size(), 0u);
}

} // namespace
} // namespace ArpSuppression
