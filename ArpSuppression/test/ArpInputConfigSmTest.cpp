#include "ArpSuppression/ArpInputConfigSm.h"

#include "ArpSuppression/test/ArpInputConfigSmFixture.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Swiftlog.h"
#include "Platform/Trace/SwiftlogReader.h"

namespace ArpSuppression {
namespace {

using Testing::TraceCapture;

class ArpInputConfigSmTest : public ArpInputConfigSmFixture {
  protected:
    ArpInputConfigSmTest() { startComplete(); }
};
using ArpInputConfigSmDeathTest = ArpInputConfigSmTest;

// Local bindings

TEST_F(ArpInputConfigSmTest, aLocalBindingNeedsTheKernelsEntry) {
    TraceCapture capture("ArpSuppression=8");
    localIs(ip1, macA);
    EXPECT_EQ(entries(), Entries{});
    EXPECT_TRUE(capture.contains("localBinding=<<<vrfName=default vrfId=1>;10.0.0.1;>;<vlanId=10 "
                                 "macAddress=02:00:00:00:00:0a>;dynSt=no > arpStatusEntry=N/A\n"))
        << capture.text();
    EXPECT_EQ(moved(), Moved());
}

TEST_F(ArpInputConfigSmTest, aLocalBindingWinsOverARemoteOne) {
    remoteIs(ip1, macB);
    kernelIs(ip1, macA, true);
    moved();
    localIs(ip1, macA);
    EXPECT_EQ(entries(), (Entries{{at1, dynamic(macA)}}));
    EXPECT_EQ(moved(), once(Id::inputDynamicRewritten));
    announce(address(ip1));
    EXPECT_EQ(entries(), (Entries{{at1, dynamic(macA)}}));
    trigger->event(address(ip1), true);
    EXPECT_EQ(entries(), (Entries{{at1, dynamic(macA)}}));
    EXPECT_EQ(moved(), (Moved{{Id::inputDynamicRewritten, 2}}));
    remoteDel(ip1);
    EXPECT_EQ(entries(), (Entries{{at1, dynamic(macA)}})) << "no refresh of what is known";
}

TEST_F(ArpInputConfigSmTest, aLocalBindingIsInstalledWhateverTheFlagSays) {
    selectiveIs(true);
    kernelIs(ip1, macA);
    localIs(ip1, macA);
    EXPECT_EQ(entries(), (Entries{{at1, dynamic(macA)}}));
    EXPECT_EQ(moved(), once(Id::inputDynamicAdded));
    expectShadowsOfEntries();
}

TEST_F(ArpInputConfigSmTest, whenALocalBindingGoesTheRemoteOneIsBack) {
    remoteIs(ip1, macB);
    kernelIs(ip1, macA, true);
    localIs(ip1, macA);
    moved();
    localDel(ip1);
    EXPECT_EQ(entries(), (Entries{{at1, permanent(macB)}}));
    EXPECT_EQ(moved(), once(Id::inputPermanentRewritten));
    kernelDel(ip1);
    localIs(ip2, macA);
    kernelIs(ip2, macA, true, Arp::ArpSource::arpSuppression);
    trigger->event(address(ip2), false);
    moved();
    localDel(ip2);
    EXPECT_EQ(entries(), (Entries{{at1, permanent(macB)}}));
    EXPECT_EQ(moved(), once(Id::inputDeleted));
}

TEST_F(ArpInputConfigSmTest, aLocalBindingWithoutL3InformationIsCounted) {
    kernelIs(ip1, macA);
    auto old = address(ip1);
    localIs(ip1, macA);
    EXPECT_EQ(entries().size(), 1u);
    vlanDel(10);
    moved();
    TraceCapture capture("ArpSuppression=8");
    trigger->event(old, false);
    EXPECT_EQ(moved(), (Moved{{Id::inputNoVlanL3Info, 1}, {Id::inputDeleted, 1}}));
    EXPECT_EQ(capture.count(" no vlanL3Info vlanId=10\n"), 1u) << capture.text();
    EXPECT_EQ(entries(), Entries{});
}

TEST_F(ArpInputConfigSmTest, aRemoteBindingWithoutL3InformationIsCounted) {
    auto here = address(ip1);
    remote->ipToMacIs(here)->vlanIdMacAddressIs(host(macA, 77), false);
    TraceCapture capture("ArpSuppression=8");
    announce(here);
    EXPECT_EQ(moved(), once(Id::inputNoVlanL3Info));
    EXPECT_EQ(capture.count(" no vlanL3Info vlanId=77\n"), 1u) << capture.text();
    EXPECT_EQ(entries(), Entries{});
    EXPECT_EQ(config().vrfs(), 0u);
}

TEST_F(ArpInputConfigSmTest, theKernelsEntryIsThatOfTheBindingsInterface) {
    kernelIs(ip1, macA, false, Arp::ArpSource::kernel, 20);
    localIs(ip1, macA, 10);
    EXPECT_EQ(entries(), Entries{});
    localIs(ip1, macA, 20);
    EXPECT_EQ(entries(), (Entries{{"default 10.0.0.1 Vlan20", dynamic(macA)}}));
}

TEST_F(ArpInputConfigSmTest, localBindingsOfIpv6Addresses) {
    kernelIs("2001:db8::1", macA);
    localIs("2001:db8::1", macA);
    kernelIs("fe80::1", macB, false, Arp::ArpSource::kernel, 20);
    localIs("fe80::1", macB, 20);
    localIs("fe80::1", macB, 10); // which the kernel does not know
    EXPECT_EQ(entries(), (Entries{{"default 2001:db8::1 ", dynamic(macA)},
                                  {"default fe80::1 Vlan20", dynamic(macB)}}));
    localDel("fe80::1", 20);
    localDel("2001:db8::1");
    EXPECT_EQ(entries(), Entries{});
}

TEST_F(ArpInputConfigSmTest, aBindingMadeWhileTheKernelKnowsTheHostGoesWithTheKernelsEntry) {
    kernelIs(ip1, macA);
    auto binding = localIs(ip1, macA);
    EXPECT_TRUE(binding->arpStatusHasDynamicEntry());
    kernelDel(ip1);
    EXPECT_FALSE(record->bindingHas(address(ip1)));
    EXPECT_EQ(entries(), Entries{});
    kernelIs(ip2, macA, true, Arp::ArpSource::arpSuppression);
    EXPECT_FALSE(localIs(ip2, macA)->arpStatusHasDynamicEntry());
}

// The kernel's entries

class KernelEntry : public ArpInputConfigSmTest {
  protected:
    /// A local binding whose entry the agent has written.
    KernelEntry() {
        kernelIs(ip1, macA, true, Arp::ArpSource::arpSuppression);
        binding = localIs(ip1, macA);
        EXPECT_EQ(entries(), (Entries{{at1, dynamic(macA)}}));
        EXPECT_FALSE(binding->arpStatusHasDynamicEntry());
        moved();
    }
    Vela::Ptr<LocalBinding> binding;
};

TEST_F(KernelEntry, goneAndNeverLearntIsDecidedAnew) {
    quietRemoteIs(ip1, macB);
    TraceCapture capture("ArpSuppression=8");
    kernelDel(ip1);
    EXPECT_EQ(entries(), (Entries{{at1, permanent(macB)}}));
    EXPECT_TRUE(record->bindingHas(address(ip1)));
    EXPECT_EQ(capture.count(" vrfIpAddress=<<vrfName=default vrfId=1>;10.0.0.1;> "
                            "localBinding=<<<vrfName=default vrfId=1>;10.0.0.1;>;<vlanId=10 "
                            "macAddress=02:00:00:00:00:0a>;dynSt=no > arpStatusEntry=N/A "
                            "arpStatusEntryExists=no\n"),
              1u)
        << capture.text();
}
TEST_F(KernelEntry, goneAndNeverLearntNeedsNoEntry) {
    kernelDel(ip1);
    EXPECT_EQ(entries(), Entries{});
    EXPECT_EQ(moved(), once(Id::inputDeleted));
}
TEST_F(KernelEntry, learntReplacesTheAgents) {
    TraceCapture capture("ArpSuppression=8");
    kernelIs(ip1, macA);
    EXPECT_TRUE(binding->arpStatusHasDynamicEntry());
    EXPECT_TRUE(record->bindingHas(address(ip1)));
    EXPECT_EQ(entries(), Entries{});
    EXPECT_EQ(moved(), once(Id::inputDeleted));
    EXPECT_EQ(capture.count(" arpStatusEntry=[Vlan10,10.0.0.1,02:00:00:00:00:0a,static N,kernel] "
                            "arpStatusEntryExists=yes\n"),
              1u)
        << capture.text();
}
TEST_F(KernelEntry, learntAndGoneTakesTheBindingAlong) {
    kernelIs(ip1, macA);
    kernelDel(ip1);
    EXPECT_FALSE(record->bindingHas(address(ip1)));
    EXPECT_EQ(entries(), Entries{});
}
TEST_F(KernelEntry, learntAndGoneLeavesTheRemoteBindings) {
    quietRemoteIs(ip1, macB);
    kernelIs(ip1, macA);
    EXPECT_EQ(entries(), Entries{});
    kernelDel(ip1);
    EXPECT_FALSE(record->bindingHas(address(ip1)));
    EXPECT_EQ(entries(), (Entries{{at1, permanent(macB)}}));
}
TEST_F(KernelEntry, learntAndThenStaticTakesTheBindingAlong) {
    for (auto source : {Arp::ArpSource::kernel, Arp::ArpSource::arpSuppression}) {
        localIs(ip1, macA);
        kernelIs(ip1, macA);
        kernelIs(ip1, macA, true, source);
        EXPECT_FALSE(record->bindingHas(address(ip1)));
        EXPECT_EQ(entries(), Entries{});
    }
}
TEST_F(KernelEntry, anothersStaticEntryWins) {
    kernelIs(ip1, macB, true, Arp::ArpSource(4));
    EXPECT_EQ(entries(), Entries{});
    EXPECT_EQ(moved(), once(Id::inputDeleted));
    EXPECT_TRUE(record->bindingHas(address(ip1)));
    EXPECT_FALSE(binding->arpStatusHasDynamicEntry());
}
TEST_F(KernelEntry, theAgentsOwnSeenBackIsNothing) {
    TraceCapture capture("ArpSuppression=8");
    kernelIs(ip1, macB, true, Arp::ArpSource::arpSuppression);
    EXPECT_EQ(capture.count("handleArpStatus"), 1u);
    EXPECT_EQ(entries(), (Entries{{at1, dynamic(macA)}}));
    EXPECT_EQ(moved(), Moved());
    EXPECT_TRUE(record->bindingHas(address(ip1)));
    EXPECT_FALSE(binding->arpStatusHasDynamicEntry());
}
TEST_F(KernelEntry, ofAnIpv6NeighbourIsFollowed) {
    localIs("fe80::1", macA, 20);
    kernelIs("fe80::1", macA, false, Arp::ArpSource::kernel, 20);
    EXPECT_TRUE(record->binding(address("fe80::1", 20))->arpStatusHasDynamicEntry());
    kernelDel("fe80::1", 20);
    EXPECT_FALSE(record->bindingHas(address("fe80::1", 20)));
}
TEST_F(KernelEntry, withoutALocalBindingIsLeftAlone) {
    remoteIs(ip2, macB);
    moved();
    TraceCapture capture("ArpSuppression=8");
    kernelIs(ip2, macB);
    kernelDel(ip2);
    EXPECT_EQ(
        capture.count(" no localBinding vrfIpAddress=<<vrfName=default vrfId=1>;10.0.0.2;>\n"), 2u)
        << capture.text();
    EXPECT_EQ(moved(), Moved());
    EXPECT_EQ(entries().size(), 2u);
}
TEST_F(KernelEntry, onNoVlanOfOursIsLeftAlone) {
    TraceCapture capture("ArpSuppression=8");
    kernelIs(ip1, macA, false, Arp::ArpSource::kernel, 77);
    state().arpStatus->entryIs(
        {{Vrf::VrfId(1), Zinc::IntfId("Ethernet1"), Zinc::IpGenAddr(ip1)}, Zinc::EthAddr(macA)});
    runUntilIdle();
    EXPECT_EQ(capture.count(" no vrfIpAddress intfId=Vlan77 addr=10.0.0.1\n"), 1u);
    EXPECT_EQ(capture.count(" no vrfIpAddress intfId=Ethernet1 addr=10.0.0.1\n"), 1u);
    EXPECT_EQ(moved(), Moved());
    EXPECT_FALSE(binding->arpStatusHasDynamicEntry());
}
TEST_F(KernelEntry, onAnInterfaceNamedLikeNoVlanEndsThatReactionOnly) {
    kernelIs(ip1, macA, false, Arp::ArpSource::kernel, 4095);
    EXPECT_EQ(moved(), Moved());
    kernelIs(ip1, macA);
    EXPECT_TRUE(binding->arpStatusHasDynamicEntry());
}

// Where an entry is written

TEST_F(ArpInputConfigSmTest, anotherInterfaceIsAnotherEntry) {
    remoteIs(ip1, macA, 10);
    quietRemoteIs(ip1, macB, 20);
    remote->ipToMac(address(ip1))->vlanIdMacAddressDel(host(macA, 10));
    moved();
    TraceCapture capture("ArpSuppression=8");
    announce(address(ip1));
    EXPECT_EQ(entries(), (Entries{{"default 10.0.0.1 Vlan20", permanent(macB)}}));
    EXPECT_EQ(moved(), (Moved{{Id::inputDeleted, 1}, {Id::inputPermanentAdded, 1}}));
    EXPECT_EQ(capture.count(" interface change intfId=Vlan20 shadowIntfId=Vlan10\n"), 1u)
        << capture.text();
    EXPECT_EQ(capture.count(" vrfIpAddress=<<vrfName=default vrfId=1>;10.0.0.1;> intfId=Vlan10 "
                            "deletedEntry=yes\n"),
              1u)
        << capture.text();
    expectShadowsOfEntries();
}

TEST_F(ArpInputConfigSmTest, anotherInterfaceForALocalHost) {
    remoteIs(ip1, macA, 10);
    kernelIs(ip1, macB, true, Arp::ArpSource::arpSuppression, 20);
    localIs(ip1, macB, 20);
    EXPECT_EQ(entries(), (Entries{{"default 10.0.0.1 Vlan20", dynamic(macB)}}));
    expectShadowsOfEntries();
}

TEST_F(ArpInputConfigSmTest, anotherInterfaceIsNotInstalledWhereOnlyUpdatesAre) {
    remoteIs(ip1, macA, 10);
    selectiveIs(true);
    quietRemoteIs(ip1, macB, 20);
    remote->ipToMac(address(ip1))->vlanIdMacAddressDel(host(macA, 10));
    announce(address(ip1));
    EXPECT_EQ(entries(), Entries{});
    expectShadowsOfEntries();
}

TEST_F(ArpInputConfigSmTest, ipv6EntriesStandUnderTheAddresssInterface) {
    remoteIs("2001:db8::1", macA, 10);
    remoteIs("fe80::1", macA, 10);
    remoteIs("fe80::1", macB, 20);
    EXPECT_EQ(entries(), (Entries{{"default 2001:db8::1 ", permanent(macA)},
                                  {"default fe80::1 Vlan10", permanent(macA)},
                                  {"default fe80::1 Vlan20", permanent(macB)}}));
    EXPECT_EQ(sm->ipv4VlanIntfIdShadowCollection().size(), 0u);
    EXPECT_EQ(moved(), (Moved{{Id::inputPermanentAdded, 3}}));
}

TEST_F(ArpInputConfigSmTest, theLastEntryTakesTheVrfAlong) {
    remoteIs(ip1, macA);
    remoteIs("10.0.0.3", macA, 30);
    quietRemoteDel(address(ip1));
    trigger->event(address(ip1), false);
    EXPECT_FALSE(config().vrf("default"));
    EXPECT_TRUE(config().vrf("red"));
    remoteIs("2001:db8::1", macA);
    remoteIs(ip1, macA);
    quietRemoteDel(address(ip1));
    trigger->event(address(ip1), false);
    EXPECT_TRUE(config().vrf("default")) << "the IPv6 entry is there";
}

TEST_F(ArpInputConfigSmTest, aVrfThatIsBackBeforeTheLastEntryIsGoneStays) {
    kernelIs(ip1, macA, true);
    localIs(ip1, macA);
    quietRemoteIs(ip2, macB);
    auto vrf = config().vrf("default");
    auto reaction = vrf->ipv4EntryCollection().react(nullptr, [&](const Arp::InputConfigKey& k) {
        if (k.ipAddress() == Zinc::IpGenAddr(ip1)) {
            trigger->event(address("10.0.0.99"), false); // has no entry: ends the empty VRF
            EXPECT_FALSE(config().vrf("default"));
            trigger->event(address(ip2), false);
        }
    });
    localDel(ip1);
    EXPECT_TRUE(vrf->destroyed());
    EXPECT_EQ(entries(), (Entries{{"default 10.0.0.2 Vlan10", permanent(macB)}}));
    expectShadowsOfEntries();
}

TEST_F(ArpInputConfigSmTest, entriesCarryTheConfiguredSource) {
    config().sourceIs(Arp::ArpSource(7));
    remoteIs(ip1, macA);
    EXPECT_EQ(entries()[at1],
              "<macAddress=02:00:00:00:00:0a type=permanent source=7 quickRefresh=none>");
}

// What is not to be done

TEST_F(ArpInputConfigSmTest, noAddressIsNothing) {
    TraceCapture capture("ArpSuppression=8");
    trigger->event({}, true);
    remote->lastVrfIpAddressChangeIs(address(ip1));
    capture.clear();
    remote->lastVrfIpAddressChangeIs({});
    EXPECT_EQ(capture.text(), "");
    EXPECT_EQ(entries(), Entries{});
    EXPECT_EQ(moved(), Moved());
}

TEST_F(ArpInputConfigSmTest, anAddressWithoutMacIsNothing) {
    remote->ipToMacIs(address(ip1));
    announce(address(ip1));
    EXPECT_EQ(entries(), Entries{});
}

TEST_F(ArpInputConfigSmTest, anAddressWithoutVrfIsNothing) {
    trigger->event({nullptr, Zinc::IpGenAddr(ip1)}, true);
    EXPECT_EQ(config().vrfs(), 0u);
    EXPECT_EQ(moved(), Moved());
}

TEST_F(ArpInputConfigSmTest, theSameEntryAgainIsAnnouncedToNobody) {
    remoteIs(ip1, macA);
    unsigned told = 0;
    auto reaction = config().vrf("default")->ipv4EntryCollection().react(
        nullptr, [&](const Arp::InputConfigKey&) { ++told; });
    announce(address(ip1));
    EXPECT_EQ(told, 0u);
    remoteIs(ip1, macB);
    EXPECT_EQ(told, 0u) << "the first MAC address stays";
}

TEST_F(ArpInputConfigSmTest, eachEventIsHandled) {
    quietRemoteIs(ip1, macA);
    TraceCapture capture("ArpSuppression=8");
    trigger->event(address(ip1), true);
    trigger->event(address(ip1), true);
    EXPECT_EQ(capture.count("handleArpInputConfigTrigger"), 2u);
    EXPECT_EQ(capture.count("trigger=<vrfIpAddress=<<vrfName=default vrfId=1>;10.0.0.1;> "
                            "suppressionEvent=yes trigger=1>\n"),
              1u)
        << capture.text();
    EXPECT_EQ(capture.count("  vrfIpAddress=<<vrfName=default vrfId=1>;10.0.0.1;> "
                            "suppressionEvent=yes\n"),
              2u);
    EXPECT_EQ(capture.count(" updated=<ipAddress=10.0.0.1 intfId=Vlan10> "
                            "vlanIdMacAddress=<vlanId=10 macAddress=02:00:00:00:00:0a> "
                            "dynamicOrPermanent=permanent existing=no\n"),
              1u)
        << capture.text();
    EXPECT_EQ(capture.count(" dynamicOrPermanent=permanent existing=yes\n"), 1u);
    EXPECT_EQ(moved(), (Moved{{Id::inputPermanentAdded, 1}, {Id::inputPermanentRewritten, 1}}));
}

TEST_F(ArpInputConfigSmTest, theTriggerAloneHandlesTheLastEventAgain) {
    quietRemoteIs(ip1, macA);
    trigger->event(address(ip1), true);
    moved();
    trigger->triggerInc(1);
    EXPECT_EQ(moved(), once(Id::inputPermanentRewritten));
    trigger->triggerInc(0);
    trigger->triggerIs(trigger->trigger());
    EXPECT_EQ(moved(), Moved());
}

// The end

TEST_F(ArpInputConfigSmTest, itsEndWithdrawsEverything) {
    remoteIs(ip1, macA);
    remoteIs("fe80::1", macA, 20);
    remoteIs("10.0.0.3", macA, 30);
    permanentIs("10.0.0.9", macB, "Vlan99", "nobody's"); // which no walk has seen
    unsigned gone = 0;
    auto reaction = config()
                        .vrf("nobody's")
                        ->ipv4EntryCollection()
                        .react(nullptr, [&](const Arp::InputConfigKey&) { ++gone; });
    moved();
    TraceCapture capture("ArpSuppression=8");
    sm->destroy();
    EXPECT_EQ(config().vrfs(), 0u);
    EXPECT_EQ(gone, 1u);
    EXPECT_EQ(capture.count("handleDestroy ArpInputConfigSm("), 1u);
    EXPECT_FALSE(slice());
    announce(address(ip1));
    kernelIs(ip1, macA);
    localIs(ip1, macA);
    trigger->event(address(ip1), true);
    EXPECT_EQ(config().vrfs(), 0u);
    EXPECT_EQ(moved(), Moved());
}

TEST_F(ArpInputConfigSmTest, whoIsToldOfAnEntryMayEndIt) {
    remoteIs(ip1, macA, 10);
    quietRemoteIs(ip1, macB, 20);
    remote->ipToMac(address(ip1))->vlanIdMacAddressDel(host(macA, 10));
    auto reaction = config().vrf("default")->ipv4EntryCollection().react(
        nullptr, [&](const Arp::InputConfigKey&) { sm->destroy(); });
    announce(address(ip1));
    EXPECT_EQ(config().vrfs(), 0u) << "nothing is written after the end";
}

TEST_F(ArpInputConfigSmTest, whoIsToldOfAnEntryMayEndItWhileALocalHostTakesOver) {
    remoteIs(ip1, macA, 10);
    kernelIs(ip1, macB, true, Arp::ArpSource::arpSuppression, 20);
    auto reaction = config().vrf("default")->ipv4EntryCollection().react(
        nullptr, [&](const Arp::InputConfigKey&) { sm->destroy(); });
    localIs(ip1, macB, 20);
    EXPECT_TRUE(sm->destroyed());
    EXPECT_EQ(config().vrfs(), 0u) << "the remote binding is not fallen back to";
}

TEST_F(ArpInputConfigSmTest, whoIsToldOfAVrfMayEndIt) {
    Vela::Ptr<Arp::InputConfigVrf> ended;
    auto reaction = config().vrfCollection().react(nullptr, [&](const L3::VrfName& vrfName) {
        if (auto vrf = config().vrf(vrfName)) {
            ended = vrf;
            sm->destroy();
        }
    });
    remoteIs(ip1, macA);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->ipv4Entries(), 0u) << "nothing is written into what has ended";
    EXPECT_EQ(config().vrfs(), 0u);
    EXPECT_EQ(moved(), Moved());
}

// Our own errors

TEST_F(ArpInputConfigSmDeathTest, anAddressHasAFamily) {
    remoteIs(ip1, macA);
    VrfIpAddress noFamily(address(ip1).vrfInfo(), Zinc::IpGenAddr());
    EXPECT_DEATH(trigger->event(noFamily, false),
                 "ArpInputConfigSm.*\"ipAddress.af\\(\\) != Zinc::ipunknown\\(\\)\"");
    remote->ipToMacIs(noFamily)->vlanIdMacAddressIs(host(macA), false);
    EXPECT_DEATH(trigger->event(noFamily, true),
                 "ArpInputConfigSm.*\"ipAddress.af\\(\\) != Zinc::ipunknown\\(\\)\"");
}

TEST_F(ArpInputConfigSmDeathTest, aLocalBindingsAddressIsOfAFamilyWithATable) {
    VrfIpAddress noFamily(address(ip1).vrfInfo(), Zinc::IpGenAddr());
    EXPECT_DEATH(record->createLocalBinding(noFamily, host(macA)), "\"false\"");
}

// Forms

TEST_F(ArpInputConfigSmTest, dumps) {
    Vela::DumpContext empty;
    sm->dumpState(empty, 0);
    EXPECT_EQ(empty.text(), "ArpInputConfigSm\n"
                            "  walkStage walkComplete\n"
                            "  ipv4VlanIntfIdShadow[] #0\n"
                            "  localMultihomedRemoteBinding[] #0\n");
    remoteIs(ip1, macA, 20, true);
    Vela::DumpContext dump;
    sm->dumpState(dump, 2);
    EXPECT_EQ(dump.text(), "  ArpInputConfigSm\n"
                           "    walkStage walkComplete\n"
                           "    ipv4VlanIntfIdShadow[] #1\n"
                           "      <<vrfName=default vrfId=1>;10.0.0.1;> -> Vlan20\n"
                           "    localMultihomedRemoteBinding[] #1\n"
                           "      <<vrfName=default vrfId=1>;10.0.0.1;> -> <vlanId=20 "
                           "macAddress=02:00:00:00:00:0a>\n");
}

TEST_F(ArpInputConfigSmTest, recordsEachEntryInTheRingBufferFile) {
    Testing::TemporaryDirectory logs;
    Vela::Swiftlog::defaultDirectoryIs(logs.path());
    Vela::SwiftlogConfig swiftlog;
    swiftlog.fileName = "Entries.sl";
    Vela::Swiftlog::initialize(swiftlog);
    remoteIs(ip1, macA);
    remoteDel(ip1);
    selectiveIs(true);
    remoteIs("fe80::1", macB, 20);
    kernelIs("2001:db8::3", macA, false, Arp::ArpSource::kernel, 30);
    localIs("2001:db8::3", macA, 30);
    Vela::SwiftlogReader reader(Vela::Swiftlog::fileName());
    EXPECT_TRUE(reader.problems().empty());
    std::vector<std::string> texts;
    for (const auto& entry : reader.records()) {
        if (entry.type->unit == "ArpSuppression/ArpInputConfigSm") {
            EXPECT_EQ(entry.type->title, "updateEntry");
            texts.push_back(entry.text());
        }
    }
    EXPECT_EQ(texts,
              (std::vector<std::string>{
                  "type=permanent vrfName=default ipAddress=10.0.0.1 intfId= onlyUpdate=no "
                  "vlanId=10 macAddress=02:00:00:00:00:0a refresh=no",
                  "type=dynamic vrfName=default ipAddress=10.0.0.1 intfId= onlyUpdate=yes "
                  "vlanId=10 macAddress=02:00:00:00:00:0a refresh=yes",
                  "type=permanent vrfName=default ipAddress=fe80::1 intfId=Vlan20 onlyUpdate=yes "
                  "vlanId=20 macAddress=02:00:00:00:00:0b refresh=no",
                  "type=dynamic vrfName=red ipAddress=2001:db8::3 intfId= onlyUpdate=no "
                  "vlanId=30 macAddress=02:00:00:00:00:0a refresh=no"}));
    Vela::Swiftlog::close();
}

TEST_F(ArpInputConfigSmTest, runsAtPriority3UnderItsName) {
    Vela::DumpContext context;
    walks->dumpState(context, 0);
    EXPECT_NE(context.text().find("ArpInputConfigSm priority=3"), std::string::npos)
        << context.text();
}

} // namespace
} // namespace ArpSuppression
