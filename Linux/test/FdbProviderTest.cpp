#include "Linux/test/ProviderFixture.h"
#include "Platform/State/DumpContext.h"

namespace Linux {
namespace {

class FdbProviderTest : public ProviderFixture {
  protected:
    Bridging::QuarryFdbStatus entry(uint16_t fid, const std::string& mac, const char* intf,
                                    EntryType type) {
        return {{Bridging::Fid(fid), Zinc::EthAddr(mac)}, Zinc::IntfId(intf), type};
    }
};

TEST_F(FdbProviderTest, classifiesByPortStateAndFlag) {
    struct Case {
        uint32_t ifIndex;
        uint16_t state;
        uint8_t flags;
        EntryType type;
    };
    const Case cases[] = {
        {1, NUD_REACHABLE, 0, EntryType::learnedDynamic},
        {1, NUD_STALE, 0, EntryType::learnedDynamic},
        {1, NUD_NOARP, 0, EntryType::configuredStatic},
        {1, NUD_NOARP, NTF_STICKY, EntryType::configuredStatic},
        {1, NUD_PERMANENT, 0, EntryType::none},
        {1, NUD_REACHABLE, NTF_EXT_LEARNED, EntryType::learnedDynamic}, // no segment there
        {2, NUD_REACHABLE, 0, EntryType::learnedDynamic},
        {2, NUD_REACHABLE, NTF_EXT_LEARNED, EntryType::evpnLocalSegment},
        {3, NUD_REACHABLE, NTF_EXT_LEARNED, EntryType::evpnDynamicRemote},
        {3, NUD_NOARP, NTF_EXT_LEARNED, EntryType::evpnConfiguredRemote},
        {3, NUD_NOARP, NTF_STICKY, EntryType::evpnConfiguredRemote},
        {3, NUD_REACHABLE, 0, EntryType::none}, // only a frame told of it
        {3, NUD_PERMANENT | NUD_NOARP, NTF_SELF, EntryType::none},
        {3, NUD_REACHABLE, NTF_SELF | NTF_EXT_LEARNED, EntryType::none},
        {4, NUD_REACHABLE, 0, EntryType::none}, // the switch's own
        {10, NUD_PERMANENT, 0, EntryType::none},
        {99, NUD_REACHABLE, 0, EntryType::none},
    };
    for (const Case& c : cases) {
        fdbIs(c.ifIndex, a, c.state, c.flags);
        EXPECT_EQ(fdbEntry(10, a).entryType, c.type) << c.ifIndex << " " << c.state;
        if (c.type != EntryType::none) {
            EXPECT_EQ(fdbEntry(10, a).intf, topology->bridgePort(c.ifIndex).intfId);
        }
        fdbDel(c.ifIndex, a);
        EXPECT_EQ(fdbEntries(), 0u) << c.ifIndex << " " << c.state;
    }
    EXPECT_EQ(fdbResyncs, 0);
}

TEST_F(FdbProviderTest, leavesOutZeroAndMulticast) {
    fdbIs(1, "00:00:00:00:00:00", NUD_NOARP);
    fdbIs(1, "33:33:00:00:00:01", NUD_NOARP);
    fdbIs(1, "ff:ff:ff:ff:ff:ff", NUD_NOARP);
    say(*fdb, {.ifIndex = 1, .address = "10.0.0.1", .macAddress = a});
    EXPECT_EQ(fdbEntries(), 0u);
    Vela::DumpContext dump;
    fdb->dumpState(dump, 0);
    EXPECT_NE(dump.text().find("ignored[noUnicast] 3\n"), std::string::npos) << dump.text();
    EXPECT_NE(dump.text().find("ignored[otherFamily] 1\n"), std::string::npos) << dump.text();
}

TEST_F(FdbProviderTest, followsAMove) {
    fdbIs(3, a, NUD_REACHABLE, NTF_EXT_LEARNED);
    EXPECT_EQ(fdbEntry(10, a), entry(10, a, "Vxlan10", EntryType::evpnDynamicRemote));
    fdbIs(1, a); // without a deletion
    EXPECT_EQ(fdbEntry(10, a), entry(10, a, "Ethernet1", EntryType::learnedDynamic));
    fdbDel(3, a); // of what does not stand any more
    EXPECT_EQ(fdbEntry(10, a), entry(10, a, "Ethernet1", EntryType::learnedDynamic));
    fdbIs(3, a, NUD_REACHABLE, NTF_EXT_LEARNED);
    EXPECT_EQ(fdbEntry(10, a), entry(10, a, "Vxlan10", EntryType::evpnDynamicRemote));
    fdbIs(3, a); // what frames tell of is not here any more, and not EVPN's either
    EXPECT_EQ(fdbEntries(), 0u);
}

TEST_F(FdbProviderTest, separatesVlans) {
    fdbIs(1, a);
    fdbIs(21, a, NUD_NOARP);
    EXPECT_EQ(fdbEntry(10, a), entry(10, a, "Ethernet1", EntryType::learnedDynamic));
    EXPECT_EQ(fdbEntry(20, a), entry(20, a, "Ethernet20", EntryType::configuredStatic));
    fdbDel(1, a);
    EXPECT_EQ(fdbEntries(), 1u);
}

TEST_F(FdbProviderTest, announcesAnEntryOnceHoweverOftenItIsRefreshed) {
    int announced = 0;
    auto reaction = state().bridgingStatus->quarryFdbStatusCollection().react(
        nullptr, [&](const Bridging::HostKey&) { ++announced; });
    fdbIs(1, a, NUD_REACHABLE);
    fdbIs(1, a, NUD_STALE);
    fdbIs(1, a, NUD_REACHABLE);
    runUntilIdle();
    EXPECT_EQ(announced, 1);
}

TEST_F(FdbProviderTest, sweepsWhatADumpDoesNotShow) {
    fdbIs(1, a);
    fdbIs(1, b);
    fdb->resyncStarted();
    say(*fdb, {.ifIndex = 1, .macAddress = b, .dumped = true});
    runUntilIdle();
    EXPECT_EQ(fdbEntries(), 2u); // it is not over
    EXPECT_FALSE(fdb->swept());
    fdb->resyncFinished();
    runUntilIdle();
    EXPECT_TRUE(fdb->swept());
    EXPECT_EQ(fdbEntries(), 1u);
    EXPECT_EQ(fdbEntry(10, b).entryType, EntryType::learnedDynamic);
    Vela::DumpContext dump;
    fdb->dumpState(dump, 0);
    EXPECT_NE(dump.text().find(" marks=0 "), std::string::npos) << dump.text();
    EXPECT_NE(dump.text().find("entries[learnedDynamic] 1\n"), std::string::npos) << dump.text();
}

TEST_F(FdbProviderTest, anEventOutranksTheDumpThatItOvertook) {
    fdbIs(1, a);
    fdb->resyncStarted();
    fdbDel(1, a);
    fdbIs(1, b);
    say(*fdb, {.ifIndex = 1, .macAddress = a, .dumped = true});
    say(*fdb, {.ifIndex = 3, .macAddress = b, .flags = NTF_EXT_LEARNED, .dumped = true});
    fdbDel(1, "02:00:00:00:00:0c"); // known only to the dump to come
    say(*fdb, {.ifIndex = 1, .macAddress = "02:00:00:00:00:0c", .dumped = true});
    fdb->resyncFinished();
    runUntilIdle();
    EXPECT_EQ(fdbEntries(), 1u);
    EXPECT_EQ(fdbEntry(10, b).entryType, EntryType::learnedDynamic);

    // The next dump knows nothing of those events.
    fdb->resyncStarted();
    say(*fdb, {.ifIndex = 1, .macAddress = a, .dumped = true});
    fdb->resyncFinished();
    runUntilIdle();
    EXPECT_EQ(fdbEntries(), 1u);
    EXPECT_EQ(fdbEntry(10, a).entryType, EntryType::learnedDynamic);
}

TEST_F(FdbProviderTest, keepsWhatComesDuringTheSweep) {
    constexpr int hosts = 2000;
    auto mac = [](int i) {
        return Zinc::EthAddr(Zinc::EthAddr::Bytes{2, 0, 0, 1, static_cast<uint8_t>(i >> 8),
                                                  static_cast<uint8_t>(i)})
            .toStrep();
    };
    for (int i = 0; i < hosts; ++i) {
        fdbIs(1, mac(i));
    }
    runUntilIdle();
    fdb->resyncStarted();
    fdb->resyncFinished(); // nothing is left of them
    turn();
    // Behind and before the bookmark: new ones, old ones that return, and one that goes.
    for (int i = 0; i < hosts; i += 2) {
        fdbIs(1, mac(i));
        fdbIs(1, mac(hosts + i));
    }
    fdbDel(1, mac(hosts));
    runUntilIdle();
    EXPECT_EQ(fdbEntries(), static_cast<size_t>(hosts - 1));
    EXPECT_EQ(fdbEntry(10, mac(1)).entryType, EntryType::none);
    EXPECT_EQ(fdbEntry(10, mac(0)).entryType, EntryType::learnedDynamic);
    EXPECT_EQ(fdbEntry(10, mac(hosts + 2)).entryType, EntryType::learnedDynamic);
    EXPECT_TRUE(fdb->swept());
}

TEST_F(FdbProviderTest, aResyncThatBeginsOverCountsForNothing) {
    fdbIs(1, a);
    fdb->resyncStarted();
    fdbIs(1, b);
    fdb->resyncStarted(); // something was lost
    say(*fdb, {.ifIndex = 1, .macAddress = a, .dumped = true});
    runUntilIdle();
    EXPECT_EQ(fdbEntries(), 2u);
    fdb->resyncFinished();
    turn();
    fdb->resyncStarted(); // and again while the sweep is under way
    say(*fdb, {.ifIndex = 1, .macAddress = b, .dumped = true});
    fdb->resyncFinished();
    runUntilIdle();
    EXPECT_EQ(fdbEntries(), 1u);
    EXPECT_EQ(fdbEntry(10, b).entryType, EntryType::learnedDynamic);
    EXPECT_TRUE(fdb->swept());
}

TEST_F(FdbProviderTest, asksForADumpWhenPortsOrFidsChange) {
    fdbIs(1, a);
    state().bridgingConfig->vlanToFidIs(VlanId(10), Bridging::Fid(1010));
    EXPECT_EQ(fdbResyncs, 1);
    fdb->resyncStarted();
    say(*fdb, {.ifIndex = 1, .macAddress = a, .dumped = true});
    fdb->resyncFinished();
    runUntilIdle();
    EXPECT_EQ(fdbEntries(), 1u);
    EXPECT_EQ(fdbEntry(1010, a), entry(1010, a, "Ethernet1", EntryType::learnedDynamic));

    topology->bridgePortDel(1);
    EXPECT_EQ(fdbResyncs, 2);
    fdbDel(1, a); // by now nobody knows whose that was
    fdb->resyncStarted();
    fdb->resyncFinished();
    runUntilIdle();
    EXPECT_EQ(fdbEntries(), 0u);
}

} // namespace
} // namespace Linux
