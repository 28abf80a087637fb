#include "ArpSuppression/ArpSuppression.h"

#include "Platform/Base/Hash.h"
#include "Platform/Value/test/ExpectForms.h"
#include "Testing/CoreFixture.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <set>

namespace ArpSuppression {
namespace {

using Arp::Table::ArpKey;
using Bridging::VlanId;
using Vela::make;
using Vela::Ptr;
using Vrf::VrfId;
using Zinc::IntfId;
using Zinc::IpGenAddr;

class VrfIpAddressTest : public Testing::CoreFixture {
  protected:
    ~VrfIpAddressTest() override { status_->destroy(); }

    Ptr<VlanL3Info> addVlan(unsigned vlanId, const char* vrfName) {
        auto vlan = status_->vlanL3InfoIs(status_->vrfInfoIs(vrfName), VlanId(vlanId));
        status_->addVrfInterfaceWatch(vlan);
        return vlan;
    }

    VrfIpAddress keyOf(unsigned vlanId, const char* address) {
        return VrfIpAddress::fromVlanL3Info(status_->vlanL3Info(VlanId(vlanId)),
                                            IpGenAddr(address));
    }

    VrfIpAddress fromArpKey(const char* intfName, const char* address) {
        return VrfIpAddress::fromArpKey(*status_,
                                        ArpKey(VrfId(1), IntfId(intfName), IpGenAddr(address)));
    }

    const Ptr<VlanL3InfoStatus> status_ = make<VlanL3InfoStatus>();
};

std::string valueForm(const std::string& vrfInfo) {
    return "Value('ArpSuppression::VrfIpAddress', ** {'vrfInfo': " + vrfInfo +
           ", 'ipAddress': '10.0.0.1', 'intfId': ''})";
}

TEST_F(VrfIpAddressTest, EmptyByDefault) {
    VrfIpAddress empty;
    EXPECT_EQ(empty.vrfInfo(), nullptr);
    EXPECT_TRUE(empty.ipAddress().isUnset());
    EXPECT_EQ(empty.intfId(), IntfId(""));
    EXPECT_FALSE(empty);
    EXPECT_EQ(empty, VrfIpAddress(nullptr, IpGenAddr(), IntfId("")));
}

TEST_F(VrfIpAddressTest, IsTrueWhenAnyFieldDiffersFromTheEmptyValue) {
    auto red = make<VrfInfo>("red");
    EXPECT_TRUE(VrfIpAddress(red, IpGenAddr()));
    EXPECT_TRUE(VrfIpAddress(nullptr, IpGenAddr("0.0.0.0")));
    EXPECT_TRUE(VrfIpAddress(nullptr, IpGenAddr("::")));
    EXPECT_TRUE(VrfIpAddress(nullptr, IpGenAddr(), IntfId("Vlan10")));
}

TEST_F(VrfIpAddressTest, IsSmall) {
    EXPECT_EQ(sizeof(VrfIpAddress), 32u);
}

TEST_F(VrfIpAddressTest, KeepsItsVrfAlive) {
    auto red = make<VrfInfo>("red");
    VrfIpAddress key(red, IpGenAddr("10.0.0.1"));
    red.reset();
    EXPECT_EQ(key.toStrep(), "<<vrfName=red vrfId=16777215>;10.0.0.1;>");
}

TEST_F(VrfIpAddressTest, ConstMeIsACopy) {
    VrfIpAddress key(make<VrfInfo>("red"), IpGenAddr("fe80::1"), IntfId("Vlan10"));
    EXPECT_EQ(key.constMe(), key);
    VrfIpAddress copy = key.constMe();
    key = VrfIpAddress();
    EXPECT_EQ(copy.vrfInfo()->vrfName(), "red");
    EXPECT_EQ(copy.ipAddress(), IpGenAddr("fe80::1"));
    EXPECT_EQ(copy.intfId(), IntfId("Vlan10"));
}

TEST_F(VrfIpAddressTest, LinkLocalAddressesAreScopedToTheirVlan) {
    auto vlan10 = addVlan(10, "red");
    addVlan(20, "red");
    VrfIpAddress on10 = keyOf(10, "fe80::1");
    EXPECT_EQ(on10.vrfInfo(), vlan10->vrfInfo());
    EXPECT_EQ(on10.ipAddress(), IpGenAddr("fe80::1"));
    EXPECT_EQ(on10.intfId(), IntfId("Vlan10"));
    EXPECT_EQ(keyOf(20, "fe80::1").intfId(), IntfId("Vlan20"));
    EXPECT_NE(keyOf(20, "fe80::1"), on10);
    EXPECT_EQ(keyOf(10, "fe80::1"), on10);
    EXPECT_NE(keyOf(10, "febf::1"), keyOf(20, "febf::1"));
}

TEST_F(VrfIpAddressTest, OtherAddressesAreScopedToTheVrf) {
    addVlan(10, "red");
    addVlan(20, "red");
    addVlan(30, "blue");
    for (const char* address :
         {"2001:db8::1", "10.0.0.1", "169.254.0.1", "fec0::1", "fe7f::1", "ff02::1", "::"}) {
        EXPECT_EQ(keyOf(10, address), keyOf(20, address)) << address;
        EXPECT_FALSE(keyOf(10, address).intfId()) << address;
        EXPECT_NE(keyOf(10, address), keyOf(30, address)) << address;
    }
}

TEST_F(VrfIpAddressTest, VlanWithoutVrfGivesAKeyWithoutVrf) {
    status_->vlanL3InfoIs(nullptr, VlanId(10));
    VrfIpAddress key = keyOf(10, "fe80::1");
    EXPECT_EQ(key.vrfInfo(), nullptr);
    EXPECT_EQ(key.intfId(), IntfId("Vlan10"));
    EXPECT_EQ(keyOf(11, "10.0.0.1"), VrfIpAddress(nullptr, IpGenAddr("10.0.0.1")));
    EXPECT_EQ(keyOf(11, "fe80::1"), VrfIpAddress(nullptr, IpGenAddr("fe80::1")));
}

TEST_F(VrfIpAddressTest, KernelEntryOnAVlanHasTheKeyOfThatVlan) {
    addVlan(10, "red");
    EXPECT_EQ(fromArpKey("Vlan10", "10.0.0.1"), keyOf(10, "10.0.0.1"));
    EXPECT_EQ(fromArpKey("Vlan10", "fe80::1"), keyOf(10, "fe80::1"));
    EXPECT_TRUE(fromArpKey("Vlan10", "10.0.0.1"));
}

TEST_F(VrfIpAddressTest, KernelEntryElsewhereHasNoKey) {
    addVlan(10, "red");
    for (const char* intfName :
         {"Ethernet1", "Ethernet1.10", "vlan10", "Vlan", "Vlan10.1", "Vlan010", ""}) {
        EXPECT_EQ(fromArpKey(intfName, "10.0.0.1"), VrfIpAddress()) << intfName;
    }
    EXPECT_EQ(fromArpKey("Vlan11", "10.0.0.1"), VrfIpAddress());
    EXPECT_FALSE(fromArpKey("Vlan4094", "fe80::1"));
}

TEST_F(VrfIpAddressTest, KernelEntryOutsideTheVlanRangeRaisesAnError) {
    for (const char* intfName : {"Vlan0", "Vlan4095", "Vlan65546", "Vlan4294967306"}) {
        expectRangeError([&] { fromArpKey(intfName, "10.0.0.1"); },
                         "Bridging::VlanId::value < 1 or > 4094 not allowed");
    }
}

TEST_F(VrfIpAddressTest, VrfsAreToldApartByIdentity) {
    auto one = make<VrfInfo>("red");
    auto two = make<VrfInfo>("red");
    const IpGenAddr address("10.0.0.1");
    EXPECT_NE(VrfIpAddress(one, address), VrfIpAddress(two, address));
    EXPECT_NE(VrfIpAddress(one, address).hash(1), VrfIpAddress(two, address).hash(1));
    EXPECT_EQ(VrfIpAddress(one, address), VrfIpAddress(one, address));
}

TEST_F(VrfIpAddressTest, OrdersByVrfThenAddressThenInterface) {
    Ptr<VrfInfo> low = make<VrfInfo>("a"), high = make<VrfInfo>("a");
    if (std::less<>()(high.get(), low.get())) {
        std::swap(low, high);
    }
    IntfId first("VrfIpAddressTestA"), second("VrfIpAddressTestB");
    expectOrderedAndHashed({
        VrfIpAddress(),
        VrfIpAddress(nullptr, IpGenAddr("ff02::1"), second),
        VrfIpAddress(low, IpGenAddr()),
        VrfIpAddress(low, IpGenAddr("10.0.0.2")),
        VrfIpAddress(low, IpGenAddr("10.0.0.2"), first),
        VrfIpAddress(low, IpGenAddr("10.0.0.2"), second),
        VrfIpAddress(low, IpGenAddr("10.0.1.1"), first),
        VrfIpAddress(low, IpGenAddr("::1")),
        VrfIpAddress(high, IpGenAddr("10.0.0.1")),
    });
}

TEST_F(VrfIpAddressTest, OneHashForBothFamiliesOfTheSameBytes) {
    auto red = make<VrfInfo>("red");
    VrfIpAddress v4(red, IpGenAddr("10.0.0.1"));
    VrfIpAddress v6(red, IpGenAddr("a00:1::"));
    ASSERT_EQ(v4.ipAddress().bytes(), v6.ipAddress().bytes());
    for (uint64_t seed : {uint64_t{0}, uint64_t{1}, Vela::processHashSeed()}) {
        EXPECT_EQ(v4.hash(seed), v6.hash(seed));
    }
    EXPECT_NE(v4, v6);
    EXPECT_LT(v4, v6);
}

TEST_F(VrfIpAddressTest, HashMixesVrfThenAddressThenInterface) {
    auto red = make<VrfInfo>("red");
    const IpGenAddr address("fe80::1");
    const IntfId intfId("Vlan10");
    for (const auto& vrfInfo : {red, Ptr<VrfInfo>()}) {
        Vela::IncrementalHash expected(5);
        expected.mix(std::bit_cast<uint64_t>(vrfInfo.get()));
        expected.mix(address.hash(5));
        expected.mix(intfId.hash(5));
        EXPECT_EQ(VrfIpAddress(vrfInfo, address, intfId).hash(5), expected.result());
    }
}

TEST_F(VrfIpAddressTest, HashOutlivesAChangeOfTheVrf) {
    auto red = make<VrfInfo>("red");
    VrfIpAddress key(red, IpGenAddr("10.0.0.1"));
    uint64_t before = key.hash(1);
    red->vrfIdIs(VrfId(3));
    red->netNsIs("ns-red");
    EXPECT_EQ(key.hash(1), before);
}

TEST_F(VrfIpAddressTest, CompactForm) {
    auto red = make<VrfInfo>("red");
    red->vrfIdIs(VrfId(3));
    EXPECT_EQ(VrfIpAddress(red, IpGenAddr("10.0.0.1")).toStrep(),
              "<<vrfName=red vrfId=3>;10.0.0.1;>");
    EXPECT_EQ(VrfIpAddress(red, IpGenAddr("fe80::1"), IntfId("Vlan10")).toStrep(),
              "<<vrfName=red vrfId=3>;fe80::1;Vl10>");
    EXPECT_EQ(VrfIpAddress(nullptr, IpGenAddr("2001:db8::1")).toStrep(), "<NULL;2001:db8::1;>");
    EXPECT_EQ(VrfIpAddress().toStrep(), "<NULL;;>");
}

TEST_F(VrfIpAddressTest, ValueFormOfAKeyWithoutVrf) {
    expectValueForm(VrfIpAddress(nullptr, IpGenAddr("fe80::1"), IntfId("Vlan10")),
                    "Value('ArpSuppression::VrfIpAddress', ** {'vrfInfo': None, "
                    "'ipAddress': 'fe80::1', 'intfId': 'Vlan10'})");
    expectValueForm(VrfIpAddress(nullptr, IpGenAddr("10.0.0.1")), valueForm("None"));
    expectValueForm(VrfIpAddress(), "Value('ArpSuppression::VrfIpAddress', ** {'vrfInfo': None, "
                                    "'ipAddress': '', 'intfId': ''})");
}

TEST_F(VrfIpAddressTest, ValueFormRefersToTheVrf) {
    auto red = make<VrfInfo>("red");
    auto other = make<VrfInfo>("red");
    VrfIpAddress key(red, IpGenAddr("10.0.0.1"));
    std::string reference =
        "Ref('VrfInfo', " + std::to_string(std::bit_cast<uint64_t>(red.get())) + ")";
    expectValueForm(key, valueForm(reference));
    EXPECT_EQ(VrfIpAddress(key.valueToStrep()).vrfInfo(), red);
    EXPECT_NE(VrfIpAddress(key.valueToStrep()).vrfInfo(), other);
}

TEST_F(VrfIpAddressTest, ReadsWhatItWrites) {
    for (const VrfIpAddress& key :
         {VrfIpAddress(), VrfIpAddress(make<VrfInfo>("red"), IpGenAddr("::"), IntfId("a'b\\"))}) {
        EXPECT_EQ(VrfIpAddress(key.valueToStrep()), key);
    }
}

TEST_F(VrfIpAddressTest, ReferenceToAGoneVrfIsAParseError) {
    auto red = make<VrfInfo>("red");
    VrfIpAddress key(red, IpGenAddr("10.0.0.1"));
    std::string text = key.valueToStrep();
    EXPECT_EQ(VrfIpAddress(text), key);
    red->destroy(); // its memory is still there
    EXPECT_THROW(VrfIpAddress{text}, Vela::ParseError);
    key = VrfIpAddress();
    red.reset();
    EXPECT_THROW(VrfIpAddress{text}, Vela::ParseError);
}

class NotAVrf final : public Vela::Referable {
  public:
    const char* typeName() const noexcept override { return "NotAVrf"; }
};

TEST_F(VrfIpAddressTest, ReferenceToAnotherTypeIsAParseError) {
    auto other = make<NotAVrf>();
    std::string reference = Vela::objectReference(other.get());
    EXPECT_THROW(VrfIpAddress{valueForm(reference)}, Vela::ParseError);
    std::string disguised =
        "Ref('VrfInfo', " + std::to_string(std::bit_cast<uint64_t>(other.get())) + ")";
    EXPECT_THROW(VrfIpAddress{valueForm(disguised)}, Vela::ParseError);
    EXPECT_THROW(VrfIpAddress{valueForm("Ref('VrfInfo', 0)")}, Vela::ParseError);
    EXPECT_THROW(VrfIpAddress{valueForm("Ref('VrfInfo', 1)")}, Vela::ParseError);
}

TEST_F(VrfIpAddressTest, AnyOtherTextIsAParseError) {
    auto red = make<VrfInfo>("red");
    std::string good = valueForm(Vela::objectReference(red.get()));
    EXPECT_NO_THROW(VrfIpAddress{good});
    for (size_t length = 0; length < good.size(); ++length) {
        EXPECT_THROW(VrfIpAddress{good.substr(0, length)}, Vela::ParseError) << length;
    }
    EXPECT_THROW(VrfIpAddress{good + " "}, Vela::ParseError);
    EXPECT_THROW(VrfIpAddress{" " + good}, Vela::ParseError);
    expectNoValueForm<VrfIpAddress>({
        "None",
        "<NULL;;>",
        "Value('VrfIpAddress', ** {'vrfInfo': None, 'ipAddress': '', 'intfId': ''})",
        "Value('ArpSuppression::VrfIpAddress', ** {'vrfInfo': none, 'ipAddress': '', "
        "'intfId': ''})",
        "Value('ArpSuppression::VrfIpAddress', ** {'vrfInfo':None, 'ipAddress': '', "
        "'intfId': ''})",
        "Value('ArpSuppression::VrfIpAddress', ** {'ipAddress': '', 'vrfInfo': None, "
        "'intfId': ''})",
        "Value('ArpSuppression::VrfIpAddress', ** {'vrfInfo': None, 'ipAddress': '10.0.0', "
        "'intfId': ''})",
        "Value('ArpSuppression::VrfIpAddress', ** {'vrfInfo': None, 'ipAddress': '', 'intfId': ''"
        ", 'x': 1})",
        "Value(\"ArpSuppression::VrfIpAddress\", ** {'vrfInfo': None, 'ipAddress': '', "
        "'intfId': ''})",
    });
}

// Keys of one hash are ordinary: every kind of collection keeps them apart, and a walk passes them.

VrfIpAddress twin(const Ptr<VrfInfo>& vrfInfo, bool v6) {
    return VrfIpAddress(vrfInfo, IpGenAddr(v6 ? "a00:1::" : "10.0.0.1"));
}

class Entry final : public Vela::Entity {
  public:
    explicit Entry(const VrfIpAddress& key) : key_(key) {}
    const char* typeName() const noexcept override { return "Entry"; }
    const VrfIpAddress& key() const { return key_; }

  private:
    const VrfIpAddress key_;
};

template <class Collection>
std::multiset<VrfIpAddress> keysFrom(typename Collection::Cursor cursor) {
    std::multiset<VrfIpAddress> keys;
    for (; cursor; ++cursor) {
        keys.insert(cursor.key());
    }
    return keys;
}

template <class Collection, class ValueOf>
void expectTwinsKeptApart(ValueOf valueOf) {
    auto red = make<VrfInfo>("red");
    const VrfIpAddress v4 = twin(red, false), v6 = twin(red, true);
    ASSERT_EQ(v4.hash(Vela::processHashSeed()), v6.hash(Vela::processHashSeed()));
    Collection collection;
    auto valueOfV4 = valueOf(v4);
    auto valueOfV6 = valueOf(v6);
    // The later of the two first: they stand in order all the same.
    collection.set(v6, valueOfV6);
    collection.set(v4, valueOfV4);
    collection.set(VrfIpAddress(), valueOf(VrfIpAddress()));
    EXPECT_EQ(collection.count(), 3u);
    EXPECT_EQ(collection.value(v4), valueOfV4);
    EXPECT_EQ(collection.value(v6), valueOfV6);
    EXPECT_EQ(keysFrom<Collection>(collection.first()),
              (std::multiset<VrfIpAddress>{VrfIpAddress(), v4, v6}));

    auto atV4 = collection.atOrAfter(v4);
    EXPECT_EQ(atV4.key(), v4);
    ++atV4;
    EXPECT_EQ(atV4.key(), v6);
    EXPECT_EQ(collection.atOrAfter(v6).key(), v6);

    collection.del(v4);
    EXPECT_FALSE(collection.has(v4));
    EXPECT_EQ(collection.value(v6), valueOfV6);
    EXPECT_EQ(collection.atOrAfter(v4).key(), v6);
    auto beforeV6 = keysFrom<Collection>(collection.atOrAfter(v6)).size();
    collection.del(v6);
    EXPECT_EQ(keysFrom<Collection>(collection.atOrAfter(v6)).size(), beforeV6 - 1);
}

TEST_F(VrfIpAddressTest, KeysOfOneHashInAnEntityMap) {
    expectTwinsKeptApart<Vela::EntityMap<Entry, &Entry::key>>(
        [](const VrfIpAddress& key) { return make<Entry>(key); });
}

TEST_F(VrfIpAddressTest, KeysOfOneHashInAHashMap) {
    expectTwinsKeptApart<Vela::HashMap<VrfIpAddress, std::string>>(
        [](const VrfIpAddress& key) { return key.toStrep(); });
}

TEST_F(VrfIpAddressTest, KeysOfOneHashInAMap) {
    expectTwinsKeptApart<Vela::Map<VrfIpAddress, std::string>>(
        [](const VrfIpAddress& key) { return key.toStrep(); });
}

} // namespace
} // namespace ArpSuppression
