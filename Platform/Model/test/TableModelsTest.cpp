// The tables whose class says little more than what a record is.

#include "Platform/Model/Arp/TableStatus.h"
#include "Platform/Model/ArpSuppression/RemoteBindingConfig.h"
#include "Platform/Model/Bridging/FdbStatus.h"

#include "Platform/Model/test/ExpectModel.h"
#include "Platform/Model/test/TableFixture.h"

#include <sstream>

namespace {

using Bridging::Fid;
using Bridging::VlanId;
using Vrf::VrfId;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;

const EthAddr macA("02:00:00:00:00:0a");
const EthAddr macB("02:00:00:00:00:0b");

template <class T>
std::string streamed(const T& value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

class RemoteBindingConfigTest : public TableFixture {
  protected:
    using RemoteBinding = ArpSuppression::RemoteBinding;
    Vela::Ptr<ArpSuppression::RemoteBindingConfig> config =
        table<ArpSuppression::RemoteBindingConfig>("arpSuppression/remoteBindingConfig/evpn");
    const ArpSuppression::RemoteBindingKey ipv4{VlanId(10), IpGenAddr("10.0.0.1")};
    const ArpSuppression::RemoteBindingKey ipv6{VlanId(10), IpGenAddr("2001:db8::1")};
};

TEST_F(RemoteBindingConfigTest, aRecordIsSmall) {
    EXPECT_EQ(sizeof(RemoteBinding), 28u);
    EXPECT_STREQ(config->typeName(), "ArpSuppression::RemoteBindingConfig");
}

TEST_F(RemoteBindingConfigTest, holdsBindings) {
    expectRecords(
        config->remoteBindingCollection(), RemoteBinding{ipv4, macA, 0, 0},
        RemoteBinding{ipv4, macA, 0, 1}, RemoteBinding{ipv6, macA, 1, 0},
        [&](const auto& record) { return config->remoteBindingIs(record); },
        [&](const auto& key) { return config->remoteBindingDel(key); }, [&] { runUntilIdle(); });
}

TEST_F(RemoteBindingConfigTest, aBindingThatIsNotThereIsTheDefaultOne) {
    EXPECT_EQ(config->remoteBinding(ipv4), RemoteBinding());
    EXPECT_FALSE(config->remoteBinding(ipv4).key);
    config->remoteBindingIs({ipv4, macA, 1, 0});
    EXPECT_EQ(config->remoteBinding(ipv4).macAddress, macA);
    EXPECT_EQ(config->remoteBinding(ipv6), RemoteBinding());
    EXPECT_EQ(config->remoteBinding({VlanId(11), ipv4.ipAddress()}), RemoteBinding());
}

TEST_F(RemoteBindingConfigTest, eachPartOfABindingCounts) {
    const RemoteBinding binding{ipv4, macA, 0, 0};
    EXPECT_NE(binding, (RemoteBinding{ipv6, macA, 0, 0}));
    EXPECT_NE(binding, (RemoteBinding{ipv4, macB, 0, 0}));
    EXPECT_NE(binding, (RemoteBinding{ipv4, macA, 1, 0}));
    EXPECT_NE(binding, (RemoteBinding{ipv4, macA, 0, 1}));
}

TEST_F(RemoteBindingConfigTest, text) {
    const RemoteBinding binding{ipv4, macA, 1, 0};
    const std::string text =
        "<vlanId=10 ipAddress=10.0.0.1 macAddress=02:00:00:00:00:0a vxlan=1 localMultihomed=0>";
    EXPECT_EQ(binding.toStrep(), text);
    EXPECT_EQ(streamed(binding), text);
    EXPECT_EQ((RemoteBinding{ipv6, macB, 0, 1}.toStrep()),
              "<vlanId=10 ipAddress=2001:db8::1 macAddress=02:00:00:00:00:0b vxlan=0 "
              "localMultihomed=1>");
}

class ArpTableStatusTest : public TableFixture {
  protected:
    using ArpEntry = Arp::Table::ArpEntry;
    Vela::Ptr<Arp::Table::Status> status = table<Arp::Table::Status>("arp/status");
    const Arp::Table::ArpKey ipv4{VrfId(1), IntfId("Vlan10"), IpGenAddr("10.0.0.1")};
    const Arp::Table::ArpKey ipv6{VrfId(1), IntfId("Vlan10"), IpGenAddr("2001:db8::1")};
};

TEST_F(ArpTableStatusTest, aRecordIsSmall) {
    EXPECT_EQ(sizeof(ArpEntry), 36u);
    EXPECT_STREQ(status->typeName(), "Arp::Table::Status");
}

TEST_F(ArpTableStatusTest, entriesStandWithTheirFamily) {
    EXPECT_TRUE(status->entryIs({ipv4, macA}));
    EXPECT_EQ(status->arpEntryCollection().count(), 1u);
    EXPECT_EQ(status->neighborEntryCollection().count(), 0u);
    EXPECT_TRUE(status->entryIs({ipv6, macB}));
    EXPECT_EQ(status->arpEntryCollection().count(), 1u);
    EXPECT_EQ(status->arpEntryCollection().value(ipv4).macAddress, macA);
    EXPECT_EQ(status->neighborEntryCollection().count(), 1u);
    EXPECT_EQ(status->neighborEntryCollection().value(ipv6).macAddress, macB);
    EXPECT_TRUE(status->entryDel(ipv4));
    EXPECT_FALSE(status->entryDel(ipv4));
    EXPECT_EQ(status->arpEntryCollection().count(), 0u);
    EXPECT_EQ(status->neighborEntryCollection().count(), 1u);
    EXPECT_TRUE(status->entryDel(ipv6));
    EXPECT_EQ(status->neighborEntryCollection().count(), 0u);
}

TEST_F(ArpTableStatusTest, holdsEntries) {
    const Arp::Table::ArpKey otherVrf{VrfId(2), ipv4.intfId(), ipv4.addr()};
    expectRecords(
        status->arpEntryCollection(), ArpEntry{ipv4, macA}, ArpEntry{ipv4, macA, true},
        ArpEntry{otherVrf, macB}, [&](const auto& entry) { return status->entryIs(entry); },
        [&](const auto& key) { return status->entryDel(key); }, [&] { runUntilIdle(); });
    const Arp::Table::ArpKey otherIntf{ipv6.vrfId(), IntfId("Vlan20"), ipv6.addr()};
    expectRecords(
        status->neighborEntryCollection(), ArpEntry{ipv6, macA},
        ArpEntry{ipv6, macA, false, Arp::ArpSource::arpSuppression}, ArpEntry{otherIntf, macA},
        [&](const auto& entry) { return status->entryIs(entry); },
        [&](const auto& key) { return status->entryDel(key); }, [&] { runUntilIdle(); });
}

TEST_F(ArpTableStatusTest, text) {
    EXPECT_EQ((ArpEntry{ipv4, macA}.toStrep()), "[Vlan10,10.0.0.1,02:00:00:00:00:0a,static "
                                                "N,kernel]");
    EXPECT_EQ(streamed(ArpEntry{ipv6, macB, true, Arp::ArpSource::arpSuppression}),
              "[Vlan10,2001:db8::1,02:00:00:00:00:0b,static Y,arpSuppression]");
}

using ArpTableStatusDeathTest = ArpTableStatusTest;

TEST_F(ArpTableStatusDeathTest, anAddressHasAFamily) {
    EXPECT_EXIT(status->entryIs({{VrfId(1), IntfId("Vlan10"), IpGenAddr()}, macA}),
                testing::KilledBySignal(SIGABRT), "key.addr\\(\\).af\\(\\) == Zinc::ipv6\\(\\)");
}

class FdbStatusTest : public TableFixture {
  protected:
    using Entry = Bridging::QuarryFdbStatus;
    Vela::Ptr<Quarry::Bridging::Status> status = table<Quarry::Bridging::Status>("bridging/status");
    const Bridging::HostKey hostA{Fid(10), macA};
    const Bridging::HostKey otherVlan{Fid(11), macA};
    const IntfId ethernet1{"Ethernet1"};
};

TEST_F(FdbStatusTest, aRecordIsSmall) {
    EXPECT_EQ(sizeof(Bridging::HostKey), 8u);
    EXPECT_EQ(sizeof(Entry), 16u);
    EXPECT_STREQ(status->typeName(), "Quarry::Bridging::Status");
}

TEST_F(FdbStatusTest, holdsEntries) {
    using Bridging::EntryType;
    expectRecords(
        status->quarryFdbStatusCollection(), Entry{hostA, ethernet1, EntryType::learnedDynamic},
        Entry{hostA, ethernet1, EntryType::evpnLocalSegment},
        Entry{otherVlan, ethernet1, EntryType::learnedDynamic},
        [&](const auto& entry) { return status->quarryFdbStatusIs(entry); },
        [&](const auto& key) { return status->quarryFdbStatusDel(key); }, [&] { runUntilIdle(); });
}

TEST_F(FdbStatusTest, anEntryThatIsNotThereIsTheDefaultOne) {
    status->quarryFdbStatusIs({hostA, ethernet1, Bridging::EntryType::learnedDynamic});
    EXPECT_EQ(status->quarryFdbStatus(hostA).intf, ethernet1);
    EXPECT_EQ(status->quarryFdbStatus(otherVlan), Entry());
    EXPECT_EQ(status->quarryFdbStatus({Fid(10), macB}), Entry());
    EXPECT_EQ(Entry().entryType, Bridging::EntryType::none);
    EXPECT_FALSE(Entry().intf);
}

TEST_F(FdbStatusTest, whichEntriesAreLocalAndWhichComeFromEvpn) {
    using enum Bridging::EntryType;
    const struct {
        Bridging::EntryType type;
        const char* name;
        bool local, evpn;
    } table[] = {{none, "none", false, false},
                 {learnedDynamic, "learnedDynamic", true, false},
                 {configuredStatic, "configuredStatic", true, false},
                 {evpnDynamicRemote, "evpnDynamicRemote", false, true},
                 {evpnConfiguredRemote, "evpnConfiguredRemote", false, true},
                 {evpnLocalSegment, "evpnLocalSegment", true, true}};
    uint8_t number = 0;
    for (const auto& row : table) {
        EXPECT_EQ(row.type, Bridging::EntryType(number++)) << row.name;
        EXPECT_EQ(Bridging::isEntryTypeLocal(row.type), row.local) << row.name;
        EXPECT_EQ(Bridging::isEntryTypeEvpn(row.type), row.evpn) << row.name;
        EXPECT_EQ(streamed(row.type), row.name);
    }
    // What another process could have written.
    EXPECT_FALSE(Bridging::isEntryTypeLocal(Bridging::EntryType(6)));
    EXPECT_FALSE(Bridging::isEntryTypeEvpn(Bridging::EntryType(255)));
    EXPECT_STREQ(toStrep(Bridging::EntryType(6)), "?");
}

TEST_F(FdbStatusTest, text) {
    EXPECT_EQ(streamed(hostA), "<fid=10 macAddress=02:00:00:00:00:0a>");
    EXPECT_EQ(streamed(Entry{hostA, ethernet1, Bridging::EntryType::learnedDynamic}),
              "<fid=10 macAddress=02:00:00:00:00:0a intf=Ethernet1 entryType=learnedDynamic>");
}

TEST_F(FdbStatusTest, keysSpread) {
    EXPECT_NE(hostA.hash(1), hostA.hash(2));
    EXPECT_NE(hostA.hash(1), otherVlan.hash(1));
    EXPECT_NE(hostA.hash(1), (Bridging::HostKey{Fid(10), macB}.hash(1)));
    EXPECT_EQ(hostA.hash(1), (Bridging::HostKey{Fid(10), macA}.hash(1)));
}

} // namespace
