#include "Platform/Model/Ip/Status.h"
#include "Platform/Model/Ip/VrfStatus.h"
#include "Platform/Model/Ip6/Status.h"

#include "Platform/Model/test/ExpectModel.h"
#include "Platform/State/test/StateFixture.h"
#include "Platform/Value/test/ExpectForms.h"

namespace {

using Ip::AddrWithMask;
using Vela::make;
using Zinc::IntfId;
using Zinc::IpGenAddr;

class IpStatusTest : public Vela::StateFixture {
  protected:
    const IntfId vlan10_{"Vlan10"};
    const IntfId vlan20_{"Vlan20"};
    const AddrWithMask addr1_{IpGenAddr("10.0.0.1"), 24};
    const AddrWithMask addr2_{IpGenAddr("10.0.0.2"), 16};
    const AddrWithMask addr6_{IpGenAddr("2001:db8::1"), 64};
};

TEST(AddrWithMaskTest, HoldsWhatItWasMadeOf) {
    AddrWithMask addr(IpGenAddr("10.0.0.1"), 24);
    EXPECT_EQ(addr.address(), IpGenAddr("10.0.0.1"));
    EXPECT_EQ(addr.prefixLen(), 24);
}

TEST(AddrWithMaskTest, ZeroAddressIsNone) {
    EXPECT_TRUE(AddrWithMask().isZero());
    EXPECT_TRUE(AddrWithMask(IpGenAddr("0.0.0.0"), 0).isZero());
    EXPECT_TRUE(AddrWithMask(IpGenAddr("0.0.0.0"), 24).isZero());
    EXPECT_TRUE(AddrWithMask(IpGenAddr("::"), 64).isZero());
    EXPECT_FALSE(AddrWithMask(IpGenAddr("10.0.0.1"), 0).isZero());
    EXPECT_FALSE(AddrWithMask(IpGenAddr("::1"), 128).isZero());
}

TEST(AddrWithMaskTest, PrefixIsNoLongerThanTheAddress) {
    const struct {
        const char* address;
        uint32_t longest;
        const char* text;
    } families[] = {{"", 0, "Ip::AddrWithMask::prefixLen > 0 not allowed"},
                    {"10.0.0.1", 32, "Ip::AddrWithMask::prefixLen > 32 not allowed"},
                    {"2001:db8::1", 128, "Ip::AddrWithMask::prefixLen > 128 not allowed"}};
    for (const auto& family : families) {
        IpGenAddr address(family.address);
        EXPECT_EQ(AddrWithMask(address, family.longest).prefixLen(), family.longest);
        for (uint32_t prefixLen : {family.longest + 1, family.longest + 256, ~0u}) {
            expectRangeError([&] { AddrWithMask(address, prefixLen); }, family.text);
        }
    }
}

TEST(AddrWithMaskTest, Forms) {
    AddrWithMask v4(IpGenAddr("10.0.0.1"), 24);
    AddrWithMask v6(IpGenAddr("fe80::1"), 128);
    expectOrderedAndHashed({AddrWithMask(), v4, AddrWithMask(v4.address(), 32),
                            AddrWithMask(IpGenAddr("10.0.0.2"), 8), v6});
    EXPECT_EQ(v4.toStrep(), "10.0.0.1/24");
    EXPECT_EQ(v6.toStrep(), "fe80::1/128");
    EXPECT_EQ(AddrWithMask().toStrep(), "");
    expectValueForm(v4, "Value('Ip::AddrWithMask', ** {'address': '10.0.0.1', 'prefixLen': 24})");
    expectValueForm(v6, "Value('Ip::AddrWithMask', ** {'address': 'fe80::1', 'prefixLen': 128})");
    expectValueForm(AddrWithMask(),
                    "Value('Ip::AddrWithMask', ** {'address': '', 'prefixLen': 0})");
    expectNoValueForm<AddrWithMask>(
        {"Value('Ip::AddrWithMask', ** {'address': '10.0.0.1', 'prefixLen': 33})",
         "Value('Ip::AddrWithMask', ** {'address': '', 'prefixLen': 1})",
         "Value('Ip::AddrWithMask', ** {'address': '10.0.0.1'})"});
}

TEST_F(IpStatusTest, IpIntfStatus) {
    auto intf = make<Ip::IpIntfStatus>(vlan10_, "red");
    EXPECT_EQ(intf->vrfName(), "red");
    EXPECT_TRUE(intf->activeAddrWithMask().isZero());
    expectAttribute(*intf, &Ip::IpIntfStatus::activeAddrWithMaskAttribute,
                    &Ip::IpIntfStatus::activeAddrWithMask, &Ip::IpIntfStatus::activeAddrWithMaskIs,
                    addr1_);
    expectSet(*intf, &Ip::IpIntfStatus::activeSecondaryWithMaskCollection,
              &Ip::IpIntfStatus::activeSecondaryWithMaskIs,
              &Ip::IpIntfStatus::activeSecondaryWithMaskDel,
              &Ip::IpIntfStatus::activeSecondaryWithMaskDelAll, addr1_, addr2_);
}

TEST_F(IpStatusTest, Ip6IntfStatus) {
    auto intf = make<Ip6::IntfStatus>(vlan10_, "red");
    EXPECT_EQ(intf->vrfName(), "red");
    expectSet(*intf, &Ip6::IntfStatus::addrCollection, &Ip6::IntfStatus::addrIs,
              &Ip6::IntfStatus::addrDel, &Ip6::IntfStatus::addrDelAll, addr1_, addr6_);
}

TEST_F(IpStatusTest, PrimaryAndSecondaryAddressesAnnounceApart) {
    auto intf = make<Ip::IpIntfStatus>(vlan10_, "red");
    unsigned primary = 0, secondary = 0;
    auto first = intf->activeAddrWithMaskAttribute().react(nullptr, [&] { ++primary; });
    auto second =
        intf->activeSecondaryWithMaskCollection().react(nullptr, [&](const auto&) { ++secondary; });
    intf->activeAddrWithMaskIs(addr1_);
    EXPECT_EQ(primary, 1u);
    EXPECT_EQ(secondary, 0u);
    intf->activeSecondaryWithMaskIs(addr1_);
    EXPECT_EQ(primary, 1u);
    EXPECT_EQ(secondary, 1u);
}

/// The ...Is of a directory of interfaces, for interfaces of one VRF.
template <class Directory, class Entry>
auto inRed(Vela::Ptr<Entry> (Directory::*is)(IntfId, const L3::VrfName&)) {
    return [is](Directory& directory, IntfId intfId) { return (directory.*is)(intfId, "red"); };
}

TEST_F(IpStatusTest, AnInterfaceThatMovesToAnotherVrfIsReplaced) {
    auto status = make<Ip::Status>();
    auto old = status->ipIntfStatusIs(vlan10_, "red");
    old->activeAddrWithMaskIs(addr1_);
    unsigned announced = 0;
    auto reaction = status->ipIntfStatusCollection().react(nullptr, [&](IntfId intfId) {
        ++announced;
        EXPECT_EQ(status->ipIntfStatus(intfId)->vrfName(), "blue");
        EXPECT_FALSE(old->destroyed());
    });
    EXPECT_EQ(status->ipIntfStatusIs(vlan10_, "red"), old);
    EXPECT_EQ(announced, 0u);
    auto moved = status->ipIntfStatusIs(vlan10_, "blue");
    EXPECT_EQ(announced, 1u);
    EXPECT_NE(moved, old);
    EXPECT_TRUE(moved->activeAddrWithMask().isZero());
    EXPECT_TRUE(old->destroyed());

    auto status6 = make<Ip6::Status>();
    auto old6 = status6->intfIs(vlan10_, "red");
    EXPECT_EQ(status6->intfIs(vlan10_, "red"), old6);
    EXPECT_EQ(status6->intfIs(vlan10_, "blue")->vrfName(), "blue");
    EXPECT_TRUE(old6->destroyed());
}

TEST_F(IpStatusTest, Children) {
    expectChildren(*make<Ip::Status>(), &Ip::Status::ipIntfStatusCollection,
                   &Ip::Status::ipIntfStatus, inRed(&Ip::Status::ipIntfStatusIs),
                   &Ip::Status::ipIntfStatusDel, &Ip::Status::ipIntfStatusDelAll,
                   &Ip::IpIntfStatus::intfId, vlan10_, vlan20_);
    expectChildren(*make<Ip6::Status>(), &Ip6::Status::intfCollection, &Ip6::Status::intf,
                   inRed(&Ip6::Status::intfIs), &Ip6::Status::intfDel, &Ip6::Status::intfDelAll,
                   &Ip6::IntfStatus::intfId, vlan10_, vlan20_);
    expectChildren(*make<Ip::AllVrfStatusLocal>(), &Ip::AllVrfStatusLocal::vrfCollection,
                   &Ip::AllVrfStatusLocal::vrf, &Ip::AllVrfStatusLocal::vrfIs,
                   &Ip::AllVrfStatusLocal::vrfDel, &Ip::AllVrfStatusLocal::vrfDelAll,
                   &Ip::VrfStatusLocal::vrfName, "blue", "red");
}

TEST_F(IpStatusTest, VrfStatusLocal) {
    auto vrf = make<Ip::VrfStatusLocal>("red");
    EXPECT_EQ(vrf->vrfName(), "red");
    EXPECT_EQ(vrf->state(), Ip::VrfState::initializing);
    EXPECT_EQ(vrf->networkNamespace(), "");
    for (auto state : {Ip::VrfState::active, Ip::VrfState::deleting}) {
        expectAttribute(*vrf, &Ip::VrfStatusLocal::stateAttribute, &Ip::VrfStatusLocal::state,
                        &Ip::VrfStatusLocal::stateIs, state);
    }
    expectAttribute(*vrf, &Ip::VrfStatusLocal::networkNamespaceAttribute,
                    &Ip::VrfStatusLocal::networkNamespace, &Ip::VrfStatusLocal::networkNamespaceIs,
                    "ns-red");
}

TEST_F(IpStatusTest, VrfStates) {
    std::ostringstream out;
    out << Ip::VrfState::initializing << ' ' << Ip::VrfState::active << ' '
        << Ip::VrfState::deleting;
    EXPECT_EQ(out.str(), "initializing active deleting");
}

TEST_F(IpStatusTest, VrfNamesHaveAtMostAHundredBytes) {
    auto vrfs = make<Ip::AllVrfStatusLocal>();
    expectRangeError([&] { vrfs->vrfIs(std::string(101, 'v')); },
                     "Vela::String::bytes > maxLength() not allowed");
    EXPECT_EQ(vrfs->vrfCollection().count(), 0u);
}

TEST_F(IpStatusTest, Dump) {
    auto status = make<Ip::Status>();
    auto intf = status->ipIntfStatusIs(vlan10_, "red");
    intf->activeAddrWithMaskIs(addr1_);
    intf->activeSecondaryWithMaskIs(addr2_);
    status->ipIntfStatusIs(vlan20_, "");
    EXPECT_EQ(dump(*status, 2), "  Ip::Status\n"
                                "    ipIntfStatus[] #2\n"
                                "      Ip::IpIntfStatus Vlan10\n"
                                "        vrfName=red\n"
                                "        activeAddrWithMask=10.0.0.1/24\n"
                                "        activeSecondaryWithMask[] #1\n"
                                "          10.0.0.2/16\n"
                                "      Ip::IpIntfStatus Vlan20\n"
                                "        vrfName=\n"
                                "        activeAddrWithMask=\n"
                                "        activeSecondaryWithMask[] #0\n");

    auto status6 = make<Ip6::Status>();
    status6->intfIs(vlan10_, "red");
    status6->intf(vlan10_)->addrIs(addr6_);
    EXPECT_EQ(dump(*status6), "Ip6::Status\n"
                              "  intf[] #1\n"
                              "    Ip6::IntfStatus Vlan10\n"
                              "      vrfName=red\n"
                              "      addr[] #1\n"
                              "        2001:db8::1/64\n");

    auto vrfs = make<Ip::AllVrfStatusLocal>();
    vrfs->vrfIs("red")->stateIs(Ip::VrfState::active);
    vrfs->vrf("red")->networkNamespaceIs("ns-red");
    EXPECT_EQ(dump(*vrfs), "Ip::AllVrfStatusLocal\n"
                           "  vrf[] #1\n"
                           "    Ip::VrfStatusLocal red\n"
                           "      state=active\n"
                           "      networkNamespace=ns-red\n");
}

TEST_F(IpStatusTest, TracesTellThemApart) {
    std::ostringstream out;
    make<Ip::IpIntfStatus>(vlan10_, "red")->formatTraceObject(out);
    make<Ip6::IntfStatus>(vlan20_, "red")->formatTraceObject(out);
    make<Ip::VrfStatusLocal>("red")->formatTraceObject(out);
    EXPECT_EQ(out.str(), "Ip::IpIntfStatus(Vlan10)Ip6::IntfStatus(Vlan20)Ip::VrfStatusLocal(red)");
}

} // namespace
