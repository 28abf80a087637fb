#include "ArpSuppression/RemoteBindingStatus.h"

#include "Platform/State/DumpContext.h"
#include "Testing/CoreFixture.h"

#include <csignal>
#include <set>
#include <vector>

namespace ArpSuppression {
namespace {

using Bridging::VlanId;
using Vela::make;
using Vela::Ptr;
using Zinc::EthAddr;
using Zinc::IpGenAddr;

class RemoteBindingTest : public Testing::CoreFixture {
  protected:
    VrfIpAddress address(const char* ip) const { return {red_, IpGenAddr(ip)}; }

    const Ptr<VrfInfo> red_ = make<VrfInfo>("red");
    const VlanIdMacAddress mac1_{VlanId(10), EthAddr("02:00:00:00:00:01")};
    const VlanIdMacAddress mac2_{VlanId(10), EthAddr("02:00:00:00:00:02")};
    const VlanIdMacAddress mac3_{VlanId(20), EthAddr("02:00:00:00:00:01")};
};

class RemoteIpToMacTest : public RemoteBindingTest {
  protected:
    const Ptr<RemoteIpToMac> ipToMac_ = make<RemoteIpToMac>(address("10.0.0.1"));
};

TEST_F(RemoteIpToMacTest, StartsWithoutMac) {
    EXPECT_EQ(ipToMac_->vrfIpAddress(), address("10.0.0.1"));
    EXPECT_EQ(ipToMac_->vlanIdMacAddresses(), 0u);
    EXPECT_FALSE(ipToMac_->vlanIdMacAddressHas(mac1_));
    EXPECT_FALSE(ipToMac_->vlanIdMacAddressHas(VlanIdMacAddress()));
    EXPECT_FALSE(ipToMac_->isFirstVlanIdMacAddressLocalMultihomed());
    EXPECT_FALSE(ipToMac_->vlanIdMacAddressDel(mac1_));
}

TEST_F(RemoteIpToMacTest, OverwritesTheFlagOfAMacThatItHas) {
    EXPECT_TRUE(ipToMac_->vlanIdMacAddressIs(mac1_, false));
    EXPECT_FALSE(ipToMac_->isFirstVlanIdMacAddressLocalMultihomed());
    EXPECT_FALSE(ipToMac_->vlanIdMacAddressIs(mac1_, false));
    EXPECT_TRUE(ipToMac_->vlanIdMacAddressIs(mac1_, true));
    EXPECT_EQ(ipToMac_->vlanIdMacAddresses(), 1u);
    EXPECT_TRUE(ipToMac_->isFirstVlanIdMacAddressLocalMultihomed());
    EXPECT_TRUE(ipToMac_->isLocalMultihomed(mac1_));
    EXPECT_FALSE(ipToMac_->isLocalMultihomed(mac2_));
}

TEST_F(RemoteIpToMacTest, TheFirstStaysFirstUntilItIsRemoved) {
    ipToMac_->vlanIdMacAddressIs(mac3_, false);
    ipToMac_->vlanIdMacAddressIs(mac1_, true);
    ipToMac_->vlanIdMacAddressIs(mac2_, false);
    EXPECT_EQ(ipToMac_->vlanIdMacAddresses(), 3u);
    EXPECT_EQ(ipToMac_->firstVlanIdMacAddress(), mac3_);
    ipToMac_->vlanIdMacAddressIs(mac3_, false);
    EXPECT_FALSE(ipToMac_->isFirstVlanIdMacAddressLocalMultihomed());
    EXPECT_TRUE(ipToMac_->isLocalMultihomed(mac1_));

    EXPECT_TRUE(ipToMac_->vlanIdMacAddressDel(mac3_));
    EXPECT_EQ(ipToMac_->firstVlanIdMacAddress(), mac1_);
    EXPECT_TRUE(ipToMac_->isFirstVlanIdMacAddressLocalMultihomed());
    EXPECT_FALSE(ipToMac_->vlanIdMacAddressDel(mac3_));

    ipToMac_->vlanIdMacAddressIs(mac3_, true); // comes back as the last
    EXPECT_TRUE(ipToMac_->vlanIdMacAddressDel(mac2_));
    EXPECT_EQ(ipToMac_->firstVlanIdMacAddress(), mac1_);
    EXPECT_EQ(ipToMac_->vlanIdMacAddressCollection()[1].vlanIdMacAddress, mac3_);
    EXPECT_TRUE(ipToMac_->vlanIdMacAddressDel(mac1_));
    EXPECT_TRUE(ipToMac_->vlanIdMacAddressDel(mac3_));
    EXPECT_EQ(ipToMac_->vlanIdMacAddresses(), 0u);
    EXPECT_FALSE(ipToMac_->isFirstVlanIdMacAddressLocalMultihomed());
}

TEST_F(RemoteIpToMacTest, RemovesAll) {
    for (bool two : {false, true}) {
        ipToMac_->vlanIdMacAddressIs(mac1_, true);
        if (two) {
            ipToMac_->vlanIdMacAddressIs(mac2_, true);
        }
        ipToMac_->vlanIdMacAddressDelAll();
        EXPECT_EQ(ipToMac_->vlanIdMacAddresses(), 0u);
        EXPECT_FALSE(ipToMac_->vlanIdMacAddressHas(mac1_));
        EXPECT_FALSE(ipToMac_->isFirstVlanIdMacAddressLocalMultihomed());
    }
}

TEST_F(RemoteIpToMacTest, Prints) {
    const std::string head = "<vrfIpAddress=" + address("10.0.0.1").toStrep() + " macAddress=[";
    EXPECT_EQ(ipToMac_->toStrep(), head + "]>");
    ipToMac_->vlanIdMacAddressIs(mac1_, true);
    EXPECT_EQ(ipToMac_->toStrep(), head + "<vlanId=10 macAddress=02:00:00:00:00:01>]>");
    ipToMac_->vlanIdMacAddressIs(mac2_, false);
    EXPECT_EQ(ipToMac_->toStrep(), head + "<vlanId=10 macAddress=02:00:00:00:00:01> "
                                          "<vlanId=10 macAddress=02:00:00:00:00:02>]>");
    EXPECT_EQ(Vela::toStrep(Ptr<RemoteIpToMac>()), "NULL");
}

TEST(RemoteIpToMacDeathTest, HasNoFirstMacWhereThereIsNone) {
    EXPECT_EXIT(make<RemoteIpToMac>(VrfIpAddress())->firstVlanIdMacAddress(),
                testing::KilledBySignal(SIGABRT),
                "(^|\n)ArpSuppression/RemoteBindingStatus:[0-9]+ firstVlanIdMacAddress: "
                "assertion failed \"iter\"\n");
}

/// Counts how often one is compared with another.
struct Compared {
    unsigned value = 0;
    static inline uint64_t comparisons = 0;

    friend bool operator==(const Compared& a, const Compared& b) {
        ++comparisons;
        return a.value == b.value;
    }
    friend bool operator<(const Compared& a, const Compared& b) {
        ++comparisons;
        return a.value < b.value;
    }
};

TEST(FirstInPlaceSetTest, LooksAtFewOfVeryManyElements) {
    constexpr unsigned many = 10'000;
    FirstInPlaceSet<Compared> set;
    for (unsigned i = 0; i < many; ++i) {
        set.insert({i});
        ASSERT_TRUE(set.has({i}));
        ASSERT_FALSE(set.has({many + i}));
    }
    EXPECT_EQ(set.size(), many);
    for (unsigned i = many; i-- > 0;) {
        set.erase({i});
        ASSERT_FALSE(set.has({i}));
    }
    EXPECT_EQ(set.size(), 0u);
    EXPECT_LT(Compared::comparisons, uint64_t{many} * 200);
}

TEST(FirstInPlaceSetTest, AnotherTakesThePlaceOfTheFirst) {
    FirstInPlaceSet<int> set;
    for (int i : {5, 9, 7}) {
        set.insert(i);
    }
    std::vector<int> seen;
    auto see = [&](int i) { seen.push_back(i); };
    set.erase(5);
    set.each(see);
    EXPECT_EQ(seen, (std::vector<int>{7, 9}));
    set.erase(7);
    set.erase(7);
    set.insert(5);
    seen.clear();
    set.each(see);
    EXPECT_EQ(seen, (std::vector<int>{9, 5}));
    set.erase(9);
    set.erase(5);
    EXPECT_EQ(set.size(), 0u);
    EXPECT_FALSE(set.has(5)) << "what stands in place of an element is none";
    set.insert(5);
    EXPECT_EQ(set.size(), 1u);
}

class RemoteMacToIpTest : public RemoteBindingTest {
  protected:
    const Ptr<RemoteMacToIp> macToIp_ = make<RemoteMacToIp>(mac1_);
    const IpGenAddr ip1_{"10.0.0.1"};
    const IpGenAddr ip2_{"2001:db8::1"};
    const IpGenAddr ip3_{"10.0.0.3"};
};

TEST_F(RemoteMacToIpTest, HoldsEachAddressOnce) {
    EXPECT_EQ(macToIp_->vlanIdMacAddress(), mac1_);
    EXPECT_EQ(macToIp_->ipAddresses(), 0u);
    EXPECT_FALSE(macToIp_->ipAddressHas(IpGenAddr()));
    macToIp_->ipAddressIs(ip2_);
    macToIp_->ipAddressIs(ip1_);
    macToIp_->ipAddressIs(ip2_);
    macToIp_->ipAddressIs(ip3_);
    EXPECT_EQ(macToIp_->ipAddresses(), 3u);
    std::multiset<IpGenAddr> seen;
    macToIp_->ipAddressCollection().each([&](const IpGenAddr& ip) { seen.insert(ip); });
    EXPECT_EQ(seen, (std::multiset<IpGenAddr>{ip1_, ip2_, ip3_}));

    macToIp_->ipAddressDel(ip1_);
    macToIp_->ipAddressDel(ip1_);
    EXPECT_EQ(macToIp_->ipAddresses(), 2u);
    EXPECT_FALSE(macToIp_->ipAddressHas(ip1_));
    EXPECT_TRUE(macToIp_->ipAddressHas(ip2_));
    EXPECT_TRUE(macToIp_->ipAddressHas(ip3_));
    macToIp_->ipAddressDelAll();
    EXPECT_EQ(macToIp_->ipAddresses(), 0u);
    EXPECT_FALSE(macToIp_->ipAddressHas(ip2_));
}

TEST_F(RemoteMacToIpTest, Prints) {
    const std::string head =
        "<vlanIdMacAddress=<vlanId=10 macAddress=02:00:00:00:00:01> ipAddress=[";
    EXPECT_EQ(macToIp_->toStrep(), head + "]>");
    macToIp_->ipAddressIs(ip1_);
    EXPECT_EQ(macToIp_->toStrep(), head + "10.0.0.1]>");
    macToIp_->ipAddressIs(ip2_);
    EXPECT_EQ(macToIp_->toStrep(), head + "10.0.0.1 2001:db8::1]>");
    EXPECT_EQ(Vela::toStrep(Ptr<RemoteMacToIp>()), "NULL");
}

class RemoteBindingStatusTest : public RemoteBindingTest {
  protected:
    std::string dump(int indent = 0) const {
        Vela::DumpContext context;
        status_->dumpState(context, indent);
        return context.text();
    }

    const Ptr<VlanL3InfoStatus> vlanL3InfoStatus_ = make<VlanL3InfoStatus>();
    const Ptr<RemoteBindingStatus> status_ = make<RemoteBindingStatus>(vlanL3InfoStatus_);
};

TEST_F(RemoteBindingStatusTest, StartsEmpty) {
    EXPECT_EQ(status_->vlanL3InfoStatus(), vlanL3InfoStatus_);
    EXPECT_EQ(status_->vlanIds(), 0u);
    EXPECT_EQ(status_->ipToMacs(), 0u);
    EXPECT_EQ(status_->macToIps(), 0u);
    EXPECT_FALSE(status_->lastVrfIpAddressChange());
    EXPECT_FALSE(status_->initialPopulationComplete());
    EXPECT_EQ(status_->ipToMac(address("10.0.0.1")), nullptr);
    EXPECT_EQ(status_->macToIp(mac1_), nullptr);
    EXPECT_EQ(status_->ipToMacDel(address("10.0.0.1")), nullptr);
    EXPECT_EQ(status_->macToIpDel(mac1_), nullptr);
}

TEST_F(RemoteBindingStatusTest, AnnouncesAnAddressThatDiffers) {
    std::vector<VrfIpAddress> seen;
    auto reaction = status_->lastVrfIpAddressChangeAttribute().react(
        nullptr, [&] { seen.push_back(status_->lastVrfIpAddressChange()); });
    status_->lastVrfIpAddressChangeIs(VrfIpAddress());
    EXPECT_TRUE(seen.empty());
    status_->lastVrfIpAddressChangeIs(address("10.0.0.1"));
    status_->lastVrfIpAddressChangeIs(address("10.0.0.1"));
    EXPECT_EQ(seen, (std::vector<VrfIpAddress>{address("10.0.0.1")}));
    status_->lastVrfIpAddressChangeIs(address("10.0.0.2"));
    EXPECT_EQ(seen, (std::vector<VrfIpAddress>{address("10.0.0.1"), address("10.0.0.2")}));
}

TEST_F(RemoteBindingStatusTest, AnnouncesTheFirstPopulationOnce) {
    unsigned announced = 0;
    auto reaction =
        status_->initialPopulationCompleteAttribute().react(nullptr, [&] { ++announced; });
    status_->initialPopulationCompleteIs(false);
    EXPECT_EQ(announced, 0u);
    status_->initialPopulationCompleteIs(true);
    status_->initialPopulationCompleteIs(true);
    EXPECT_TRUE(status_->initialPopulationComplete());
    EXPECT_EQ(announced, 1u);
}

TEST_F(RemoteBindingStatusTest, AnnouncesVlansThatComeAndGo) {
    std::vector<int> seen;
    auto reaction = status_->vlanIdCollection().react(
        nullptr, [&](VlanId vlanId) { seen.push_back(vlanId.value()); });
    status_->vlanIdIs(VlanId(20));
    status_->vlanIdIs(VlanId(10));
    status_->vlanIdIs(VlanId(20));
    EXPECT_EQ(status_->vlanIds(), 2u);
    EXPECT_TRUE(status_->vlanIdHas(VlanId(10)));
    status_->vlanIdDel(VlanId(30));
    EXPECT_EQ(seen, (std::vector<int>{20, 10}));
    status_->vlanIdDel(VlanId(20));
    EXPECT_FALSE(status_->vlanIdHas(VlanId(20)));
    status_->vlanIdIs(VlanId(20));
    status_->vlanIdDelAll();
    EXPECT_EQ(status_->vlanIds(), 0u);
    EXPECT_EQ(seen, (std::vector<int>{20, 10, 20, 20, 10, 20}));
}

TEST_F(RemoteBindingStatusTest, FindsOrCreatesAndRemovesByAddress) {
    auto ipToMac = status_->ipToMacIs(address("10.0.0.1"));
    EXPECT_EQ(ipToMac->vrfIpAddress(), address("10.0.0.1"));
    EXPECT_EQ(ipToMac->vlanIdMacAddresses(), 0u);
    EXPECT_EQ(status_->ipToMacIs(address("10.0.0.1")), ipToMac);
    EXPECT_EQ(status_->ipToMac(address("10.0.0.1")), ipToMac);
    EXPECT_TRUE(status_->ipToMacHas(address("10.0.0.1")));
    EXPECT_FALSE(status_->ipToMacHas(address("10.0.0.2")));
    EXPECT_EQ(status_->ipToMacs(), 1u);

    EXPECT_EQ(status_->ipToMacDel(ipToMac->vrfIpAddress()), ipToMac);
    EXPECT_TRUE(ipToMac->destroyed());
    EXPECT_EQ(status_->ipToMacs(), 0u);
    EXPECT_EQ(status_->ipToMacDel(address("10.0.0.1")), nullptr);
    EXPECT_NE(status_->ipToMacIs(address("10.0.0.1")), ipToMac);
    EXPECT_EQ(status_->macToIps(), 0u);
}

TEST_F(RemoteBindingStatusTest, FindsOrCreatesAndRemovesByHost) {
    auto macToIp = status_->macToIpIs(mac1_);
    EXPECT_EQ(macToIp->vlanIdMacAddress(), mac1_);
    EXPECT_EQ(status_->macToIpIs(mac1_), macToIp);
    EXPECT_EQ(status_->macToIp(mac1_), macToIp);
    EXPECT_TRUE(status_->macToIpHas(mac1_));
    EXPECT_FALSE(status_->macToIpHas(mac3_)); // the same MAC address on another VLAN
    EXPECT_EQ(status_->macToIps(), 1u);

    EXPECT_EQ(status_->macToIpDel(macToIp->vlanIdMacAddress()), macToIp);
    EXPECT_TRUE(macToIp->destroyed());
    EXPECT_EQ(status_->macToIp(mac1_), nullptr);
    EXPECT_EQ(status_->macToIpDel(mac1_), nullptr);
    EXPECT_EQ(status_->ipToMacs(), 0u);
}

TEST_F(RemoteBindingStatusTest, WalksGoOnAtAKey) {
    for (uint32_t i = 0; i < 1000; ++i) {
        status_->ipToMacIs({red_, IpGenAddr(0x0a000000 + i)});
    }
    std::set<IpGenAddr> seen;
    auto cursor = status_->ipToMacCollection().first();
    while (cursor) {
        VrfIpAddress here = cursor.key();
        seen.insert(here.ipAddress());
        status_->ipToMacDel(here);
        cursor = status_->ipToMacCollection().atOrAfter(here);
    }
    EXPECT_EQ(seen.size(), 1000u);
    EXPECT_EQ(status_->ipToMacs(), 0u);
}

TEST_F(RemoteBindingStatusTest, RemovesAll) {
    std::vector<Ptr<Vela::Entity>> entries;
    for (uint32_t i = 0; i < 100; ++i) {
        VrfIpAddress key(red_, IpGenAddr(0x0a000000 + i));
        entries.push_back(status_->ipToMacIs(key));
        entries.push_back(status_->macToIpIs({VlanId(i + 1), EthAddr("02:00:00:00:00:01")}));
    }
    status_->ipToMacDelAll();
    EXPECT_EQ(status_->ipToMacs(), 0u);
    EXPECT_EQ(status_->macToIps(), 100u);
    status_->macToIpDelAll();
    EXPECT_EQ(status_->macToIps(), 0u);
    for (const auto& entry : entries) {
        EXPECT_TRUE(entry->destroyed());
    }
}

TEST_F(RemoteBindingStatusTest, LeavesNothingBehindAtItsEnd) {
    auto vrfInfo = vlanL3InfoStatus_->vrfInfoIs("blue");
    status_->referenceVrf(vrfInfo);
    auto ipToMac = status_->ipToMacIs({vrfInfo, IpGenAddr("10.0.0.1")});
    auto macToIp = status_->macToIpIs(mac1_);
    EXPECT_EQ(vrfInfo->userCollection().count(), 1u);
    status_->destroy();
    EXPECT_TRUE(ipToMac->destroyed());
    EXPECT_TRUE(macToIp->destroyed());
    EXPECT_EQ(status_->ipToMacs(), 0u);
    EXPECT_EQ(status_->macToIps(), 0u);
    EXPECT_EQ(vrfInfo->userCollection().count(), 0u);
    EXPECT_EQ(status_->vrfReferenceCountCollection().count(), 0u);
}

TEST_F(RemoteBindingStatusTest, Dumps) {
    EXPECT_EQ(dump(), "RemoteBindingStatus\n"
                      "    initialPopulationComplete=no\n"
                      "    macToIp[] #0\n"
                      "    ipToMac[] #0\n"
                      "    vrfReferenceCount #0\n"
                      "    vrfUser #0\n");
    status_->initialPopulationCompleteIs(true);
    status_->vlanIdIs(VlanId(10));
    auto macToIp = status_->macToIpIs(mac1_);
    macToIp->ipAddressIs(IpGenAddr("10.0.0.1"));
    macToIp->ipAddressIs(IpGenAddr("10.0.0.2"));
    auto ipToMac = status_->ipToMacIs(address("10.0.0.1"));
    ipToMac->vlanIdMacAddressIs(mac1_, true);
    ipToMac->vlanIdMacAddressIs(mac2_, false);
    EXPECT_EQ(dump(2), "  RemoteBindingStatus\n"
                       "      initialPopulationComplete=yes\n"
                       "      macToIp[] #1\n"
                       "          RemoteMacToIp <vlanId=10 macAddress=02:00:00:00:00:01> -> "
                       "10.0.0.1 10.0.0.2\n"
                       "      ipToMac[] #1\n"
                       "          RemoteIpToMac " +
                           address("10.0.0.1").toStrep() +
                           " <vlanId=10 macAddress=02:00:00:00:00:01>"
                           " <vlanId=10 macAddress=02:00:00:00:00:02>\n"
                           "      vrfReferenceCount #0\n"
                           "      vrfUser #0\n");
}

} // namespace
} // namespace ArpSuppression
