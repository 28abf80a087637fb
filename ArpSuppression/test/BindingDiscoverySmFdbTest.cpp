#include "ArpSuppression/test/BindingDiscoverySmFixture.h"
#include "Platform/State/CaughtErrors.h"

#include <csignal>

namespace ArpSuppression {

namespace {

using Bridging::EntryType;
using Bridging::VlanId;
using Testing::TraceCapture;
using Zinc::EthAddr;
using Zinc::IntfId;

/// What comes of changes of the MAC table.
class BindingDiscoverySmFdbTest : public BindingDiscoverySmFixture {
  protected:
    static Moved learnt(uint64_t addresses) {
        return {{Id::bindingsFromLocalMac, 1}, {Id::bindingCreated, addresses}};
    }
    bool hasHost(const char* mac, unsigned vlan = 10) {
        return record().macToIpHas({VlanId(vlan), EthAddr(mac)});
    }
};
using BindingDiscoverySmDeathTest = BindingDiscoverySmFdbTest;

TEST_F(BindingDiscoverySmFdbTest, aHostThatComesHereBringsItsRemoteBindings) {
    for (const char* ip : {"10.0.0.1", "10.0.0.2", "fe80::1", "2001:db8::1"}) {
        remoteIs(ip, macA);
    }
    remoteIs("10.0.0.3", macB);
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(movedByFdb(macA, ethernet1, EntryType::learnedDynamic), learnt(4));
    for (const char* ip : {"10.0.0.1", "10.0.0.2", "fe80::1", "2001:db8::1"}) {
        EXPECT_EQ(macOf(ip), macA) << ip;
    }
    EXPECT_EQ(record().bindings(), 4u);
    EXPECT_EQ(capture.count(" fdb=yes entryType=learnedDynamic isLocal=yes\n"), 1u)
        << capture.text();
    EXPECT_EQ(capture.count(" vlanIdMacAddress=<vlanId=10 macAddress=02:00:00:00:00:0a> "
                            "ipAddress=10.0.0.1\n"),
              1u);
    EXPECT_EQ(capture.count("bindingDiscoveryEvent=no"), 4u);
    EXPECT_FALSE(capture.contains("MAC segment local"));
}

TEST_F(BindingDiscoverySmFdbTest, oneThatIsConfiguredHereDoesSoToo) {
    remoteIs("10.0.0.1", macA);
    EXPECT_EQ(movedByFdb(macA, ethernet1, EntryType::configuredStatic), learnt(1));
}

TEST_F(BindingDiscoverySmFdbTest, aHostThatNobodyKnowsBringsNothing) {
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(movedByFdb(macA, ethernet1, EntryType::learnedDynamic), Moved());
    EXPECT_EQ(capture.count(" No remoteMacToIp vlanIdMacAddress=<vlanId=10 "
                            "macAddress=02:00:00:00:00:0a>\n"),
              1u)
        << capture.text();
    remoteIs("10.0.0.1", macA);
    EXPECT_EQ(record().bindings(), 0u) << "the binding came after the host";
}

TEST_F(BindingDiscoverySmFdbTest, theHostOfAnotherVlanIsAnother) {
    routedVlanIs(20);
    remoteIs("10.0.0.1", macA, false, 20);
    EXPECT_EQ(movedByFdb(macA, ethernet1, EntryType::learnedDynamic, 10), Moved());
    EXPECT_EQ(movedByFdb(macA, ethernet1, EntryType::learnedDynamic, 20), learnt(1));
    EXPECT_EQ(binding("10.0.0.1")->vlanIdMacAddress().vlanId(), VlanId(20));
}

TEST_F(BindingDiscoverySmFdbTest, aHostThatChangesItsPortIsLookedAtAgain) {
    remoteIs("10.0.0.1", macA);
    movedByFdb(macA, ethernet1, EntryType::learnedDynamic);
    auto known = binding("10.0.0.1");
    EXPECT_EQ(movedByFdb(macA, ethernet2, EntryType::learnedDynamic),
              (Moved{{Id::bindingsFromLocalMac, 1}, {Id::bindingRefreshed, 1}}));
    EXPECT_EQ(binding("10.0.0.1"), known);
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].vrfIpAddress, address("10.0.0.1"));
    EXPECT_FALSE(posted[0].suppressionEvent);
}

TEST_F(BindingDiscoverySmFdbTest, whatIsNotLocalTakesAllBindingsOfTheHost) {
    for (EntryType type : {EntryType::evpnDynamicRemote, EntryType::evpnConfiguredRemote,
                           EntryType::evpnLocalSegment, EntryType::none}) {
        SCOPED_TRACE(Bridging::toStrep(type));
        fdbIs(macA, ethernet1, EntryType::learnedDynamic);
        runUntilIdle();
        for (const char* ip : {"10.0.0.1", "10.0.0.2", "fe80::1"}) {
            EXPECT_EQ(movedBy({.senderIp = ip}), once(Id::bindingCreated));
        }
        EXPECT_EQ(movedBy({.senderIp = "10.0.0.9", .senderMac = macB}), once(Id::bindingCreated));
        TraceCapture capture("ArpSuppression=8");
        EXPECT_EQ(movedByFdb(macA, vxlan1, type), (Moved{{Id::bindingDeleted, 3}}));
        EXPECT_FALSE(hasHost(macA));
        EXPECT_EQ(macOf("10.0.0.9"), macB);
        EXPECT_EQ(record().bindings(), 1u);
        EXPECT_EQ(capture.count(" fdb=yes entryType=" + std::string(Bridging::toStrep(type)) +
                                " isLocal=no\n"),
                  1u)
            << capture.text();
        EXPECT_EQ(capture.count(" localBinding=<<<vrfName=default vrfId=0>;10.0.0.2;>;<vlanId=10 "
                                "macAddress=02:00:00:00:00:0a>;dynSt=no >\n"),
                  1u)
            << capture.text();
        sm().deleteLocalBinding(binding("10.0.0.9"));
    }
}

TEST_F(BindingDiscoverySmFdbTest, anEntryThatGoesTakesThemToo) {
    fdbIs(macA, ethernet1, EntryType::learnedDynamic);
    runUntilIdle();
    movedBy({});
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(movedByFdbDel(macA), once(Id::bindingDeleted));
    EXPECT_EQ(capture.count(" fdb=no entryType=none isLocal=no\n"), 1u) << capture.text();
    EXPECT_EQ(record().bindings(), 0u);
}

TEST_F(BindingDiscoverySmFdbTest, aHostWithoutBindingsMayGoAnywhere) {
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(movedByFdb(macA, vxlan1, EntryType::evpnDynamicRemote), Moved());
    EXPECT_EQ(movedByFdbDel(macA), Moved());
    EXPECT_EQ(capture.count(" No localMacToIp vlanIdMacAddress=<vlanId=10 "
                            "macAddress=02:00:00:00:00:0a>\n"),
              2u)
        << capture.text();
}

TEST_F(BindingDiscoverySmFdbTest, aHostGoesAndComesBack) {
    remoteIs("10.0.0.1", macA);
    EXPECT_EQ(movedByFdb(macA, vxlan1, EntryType::evpnDynamicRemote), Moved());
    EXPECT_EQ(movedByFdb(macA, ethernet1, EntryType::learnedDynamic), learnt(1));
    EXPECT_EQ(movedByFdb(macA, vxlan1, EntryType::evpnDynamicRemote), once(Id::bindingDeleted));
    EXPECT_EQ(macOf("10.0.0.1"), "-");
    EXPECT_EQ(movedByFdb(macA, ethernet2, EntryType::configuredStatic), learnt(1));
    EXPECT_EQ(macOf("10.0.0.1"), macA);
}

TEST_F(BindingDiscoverySmFdbTest, whatMovesTwiceBeforeItIsSeenIsWhereItIsNow) {
    remoteIs("10.0.0.1", macA);
    fdbIs(macA, ethernet1, EntryType::learnedDynamic);
    fdbIs(macA, vxlan1, EntryType::evpnDynamicRemote);
    moved();
    runUntilIdle();
    EXPECT_EQ(moved(), Moved());
    EXPECT_EQ(record().bindings(), 0u);
}

// Several addresses

TEST_F(BindingDiscoverySmFdbTest, aDisputedAddressIsLeftOut) {
    routedVlanIs(20);
    for (const char* ip : {"10.0.0.1", "10.0.0.2", "10.0.0.3"}) {
        remoteIs(ip, macA);
    }
    remoteIs("10.0.0.2", macB, false, 20);
    ASSERT_EQ(remote().ipToMac(address("10.0.0.2"))->vlanIdMacAddresses(), 2u);
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(movedByFdb(macA, ethernet1, EntryType::learnedDynamic),
              (Moved{{Id::bindingsFromLocalMac, 1},
                     {Id::bindingSeveralMacs, 1},
                     {Id::bindingCreated, 2}}));
    EXPECT_EQ(macOf("10.0.0.1"), macA);
    EXPECT_EQ(macOf("10.0.0.2"), "-");
    EXPECT_EQ(macOf("10.0.0.3"), macA);
    EXPECT_EQ(capture.count(" Multiple MACs remoteIpToMac=" +
                            remote().ipToMac(address("10.0.0.2"))->toStrep() + "\n"),
              1u)
        << capture.text();
    remoteDel("10.0.0.2", 20);
    EXPECT_EQ(
        movedByFdb(macA, ethernet2, EntryType::learnedDynamic),
        (Moved{{Id::bindingsFromLocalMac, 1}, {Id::bindingRefreshed, 2}, {Id::bindingCreated, 1}}))
        << "settled";
}

TEST_F(BindingDiscoverySmFdbTest, addressesAreJudgedOneByOne) {
    remoteIs("10.0.0.1", macA);
    remoteIs("224.0.0.1", macA); // nonsense, which no control plane is kept from
    EXPECT_EQ(
        movedByFdb(macA, ethernet1, EntryType::learnedDynamic),
        (Moved{{Id::bindingsFromLocalMac, 1}, {Id::bindingBadIp, 1}, {Id::bindingCreated, 1}}));
    EXPECT_EQ(record().bindings(), 1u);
}

TEST_F(BindingDiscoverySmFdbTest, withoutL3InformationEachAddressIsRefused) {
    remoteIs("10.0.0.1", macA, true, 99);
    remoteIs("10.0.0.2", macA, true, 99);
    segmentIs(ethernet1);
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(movedByFdb(macA, ethernet1, EntryType::learnedDynamic, 99),
              (Moved{{Id::bindingsFromLocalMac, 1}, {Id::bindingNoVlanL3Info, 2}}));
    EXPECT_FALSE(capture.contains("MAC segment local")) << capture.text();
    EXPECT_EQ(record().bindings(), 0u);
}

// Ethernet segments

TEST_F(BindingDiscoverySmFdbTest, aHostOnASharedSegmentIsLeftToItsRemoteBindings) {
    segmentIs(ethernet1);
    for (const char* ip : {"10.0.0.1", "10.0.0.2", "10.0.0.3"}) {
        remoteIs(ip, macA, ip == std::string("10.0.0.2"));
    }
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(movedByFdb(macA, ethernet1, EntryType::learnedDynamic),
              once(Id::bindingLocalMultihomedMac))
        << "one address is enough";
    EXPECT_EQ(record().bindings(), 0u);
    const std::string host = "vlanIdMacAddress=<vlanId=10 macAddress=02:00:00:00:00:0a>";
    EXPECT_EQ(capture.count(" MAC segment local " + host +
                            " intfId=Ethernet1 ethernetSegment=Evpn::EthernetSegmentStatus("),
              1u)
        << capture.text();
    EXPECT_EQ(capture.count(" binding local multihomed " + host + " ipAddress=10.0.0.2\n"), 1u)
        << capture.text();
    EXPECT_EQ(movedByFdb(macA, ethernet2, EntryType::learnedDynamic), learnt(3))
        << "it moved to a port that is on no segment";
}

TEST_F(BindingDiscoverySmFdbTest, itIsLeftOnceHoweverManyAddressesAreShared) {
    segmentIs(ethernet1);
    remoteIs("10.0.0.1", macA, true);
    remoteIs("10.0.0.2", macA, true);
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(movedByFdb(macA, ethernet1, EntryType::learnedDynamic),
              once(Id::bindingLocalMultihomedMac));
    EXPECT_EQ(capture.count("binding local multihomed"), 1u) << capture.text();
}

TEST_F(BindingDiscoverySmFdbTest, aHostOnASegmentThatIsNotSharedIsLearnt) {
    segmentIs(ethernet1);
    remoteIs("10.0.0.1", macA, false);
    TraceCapture capture("ArpSuppression=8");
    EXPECT_EQ(movedByFdb(macA, ethernet1, EntryType::learnedDynamic), learnt(1));
    EXPECT_EQ(capture.count("MAC segment local"), 1u) << capture.text();
    EXPECT_FALSE(capture.contains("binding local multihomed"));
}

TEST_F(BindingDiscoverySmFdbTest, whatIsLeftAloneIsNotTakenAwayEither) {
    movedBy({});
    segmentIs(ethernet1);
    remoteIs("10.0.0.2", macA, true);
    EXPECT_EQ(movedByFdb(macA, ethernet1, EntryType::learnedDynamic),
              once(Id::bindingLocalMultihomedMac));
    EXPECT_EQ(macOf("10.0.0.1"), macA);
}

// Keys and tables that are not right

TEST_F(BindingDiscoverySmFdbTest, aKeyWithoutAVlanEndsItsOwnReactionOnly) {
    remoteIs("10.0.0.1", macA);
    moved();
    for (unsigned fid : {0u, 4095u, 65535u}) {
        TraceCapture capture("State=0");
        uint64_t before = Vela::caughtRangeErrors();
        fdbIs(macB, ethernet1, EntryType::learnedDynamic, fid);
        runUntilIdle();
        EXPECT_EQ(Vela::caughtRangeErrors(), before + 1);
        EXPECT_EQ(capture.count("Bridging::VlanId::value < 1 or > 4094 not allowed"), 1u)
            << capture.text();
        EXPECT_EQ(moved(), Moved());
    }
    EXPECT_EQ(movedByFdb(macA, ethernet1, EntryType::learnedDynamic), learnt(1));
    EXPECT_EQ(movedByFdb(macB, ethernet1, EntryType::learnedDynamic, 4094), Moved());
}

TEST_F(BindingDiscoverySmFdbTest, anEntryThatCannotBeReadIsNone) {
    fdbIs(macA, ethernet1, EntryType::learnedDynamic);
    runUntilIdle();
    movedBy({});
    fdbIs(macA, ethernet2, EntryType::learnedDynamic);
    const auto& table = state().bridgingStatus->quarryFdbStatusCollection();
    auto& buckets = table.mapping().header().bucketCount;
    uint32_t intact = buckets.exchange(0);
    uint64_t troublesBefore = table.troubles();
    runUntilIdle();
    buckets = intact;
    EXPECT_GT(table.troubles(), troublesBefore);
    EXPECT_EQ(moved(), once(Id::bindingDeleted));
    EXPECT_EQ(record().bindings(), 0u);
}

// Our own errors

TEST_F(BindingDiscoverySmDeathTest, aHostGoesWithItsLastBinding) {
    movedBy({});
    auto reaction =
        record().macToIpCollection().react(nullptr, [this](const VlanIdMacAddress& host) {
            if (!record().macToIpHas(host)) {
                record().createLocalBinding(address("10.0.0.2"), host);
            }
        });
    EXPECT_EXIT(movedByFdb(macA, vxlan1, EntryType::evpnDynamicRemote),
                testing::KilledBySignal(SIGABRT),
                "(^|\n)ArpSuppression/BindingDiscoverySm:[0-9]+ processRemoteMac: assertion failed "
                "\"!localBindingRecord\\(\\)->macToIpHas\\( vlanIdMacAddress \\)\"\n");
}

TEST_F(BindingDiscoverySmDeathTest, cannotDoWithoutTheSwitchsOwnAddresses) {
    const std::string unit = "(^|\n)ArpSuppression/BindingDiscoverySm:[0-9]+ BindingDiscoverySm: ";
    EXPECT_EXIT(machine(nullptr, state().fhrpVrMacStatus), testing::KilledBySignal(SIGABRT),
                unit + "assertion failed \"bridgingConfig\\(\\)\"\n");
    EXPECT_EXIT(machine(state().bridgingConfig, nullptr), testing::KilledBySignal(SIGABRT),
                unit + "assertion failed \"fhrpVrMacStatus\\(\\)\"\n");
}

} // namespace

} // namespace ArpSuppression
