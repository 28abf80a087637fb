#include "Platform/Model/Arp/ArpKey.h"

#include "Platform/Value/test/ExpectForms.h"

namespace {

using Arp::Table::ArpKey;
using Vrf::VrfId;
using Zinc::IntfId;
using Zinc::IpGenAddr;

ArpKey key(uint32_t vrfId, const char* intfId, const char* addr) {
    return {VrfId(vrfId), IntfId(intfId), IpGenAddr(addr)};
}

TEST(ArpKeyTest, EmptyByDefault) {
    EXPECT_FALSE(ArpKey().vrfId().isValid());
    EXPECT_FALSE(ArpKey().intfId());
    EXPECT_TRUE(ArpKey().addr().isUnset());
}

TEST(ArpKeyTest, HoldsWhatItWasMadeOf) {
    ArpKey arpKey = key(1, "Vlan10", "10.0.0.1");
    EXPECT_EQ(arpKey.vrfId(), VrfId(1));
    EXPECT_EQ(arpKey.intfId(), IntfId("Vlan10"));
    EXPECT_EQ(arpKey.addr(), IpGenAddr("10.0.0.1"));
}

TEST(ArpKeyTest, OrdersByVrfThenInterfaceThenAddress) {
    IntfId("ArpKeyTestA");
    IntfId("ArpKeyTestB");
    expectOrderedAndHashed({key(1, "ArpKeyTestA", "10.0.0.2"), key(1, "ArpKeyTestA", "::1"),
                            key(1, "ArpKeyTestB", "10.0.0.1"), key(1, "ArpKeyTestB", "::1"),
                            key(2, "ArpKeyTestA", "10.0.0.1"), key(2, "ArpKeyTestA", "10.0.0.2")});
}

TEST(ArpKeyTest, Forms) {
    EXPECT_EQ(key(1, "Vlan10", "fe80::1").toStrep(), "<vrfId=1 intfId=Vlan10 addr=fe80::1>");
    expectValueForm(
        key(1, "Vlan10", "10.0.0.1"),
        "Value('Arp::Table::ArpKey', ** {'vrfId': 1, 'intfId': 'Vlan10', 'addr': '10.0.0.1'})");
    expectValueForm(
        ArpKey(), "Value('Arp::Table::ArpKey', ** {'vrfId': 16777215, 'intfId': '', 'addr': ''})");
    expectNoValueForm<ArpKey>(
        {"Value('Arp::Table::ArpKey', ** {'vrfId': 1, 'intfId': 'Vlan10', 'addr': 'x'})",
         "Value('Arp::Table::ArpKey', ** {'vrfId': 1, 'intfId': Vlan10, 'addr': '10.0.0.1'})",
         "Value('Arp::Table::ArpKey', ** {'vrfId': 1, 'addr': '10.0.0.1'})"});
}

} // namespace
