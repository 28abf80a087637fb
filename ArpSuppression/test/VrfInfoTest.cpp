#include "ArpSuppression/ArpSuppression.h"

#include "Platform/State/DumpContext.h"
#include "Testing/CoreFixture.h"
#include "Testing/TraceCapture.h"

#include <memory>
#include <vector>

namespace ArpSuppression {
namespace {

using Bridging::VlanId;
using Vela::make;
using Vela::Ptr;
using Vrf::VrfId;
using Zinc::IntfId;
using Zinc::IpGenAddr;

class VrfInfoTest : public Testing::CoreFixture {
  protected:
    ~VrfInfoTest() override { red_->destroy(); }

    void makeUsable() {
        red_->netNsIs("ns-red");
        red_->netlinkSocketIs(7);
    }

    std::string dump(const Vela::Entity& entity, int indent = 0) {
        Vela::DumpContext context;
        entity.dumpState(context, indent);
        return context.text();
    }

    const Ptr<VrfInfo> red_ = make<VrfInfo>("red");
};

TEST_F(VrfInfoTest, StartsWithItsNameAlone) {
    EXPECT_EQ(red_->vrfName(), "red");
    EXPECT_EQ(red_->vrfId(), VrfId());
    EXPECT_FALSE(red_->vrfId().isValid());
    EXPECT_EQ(red_->netNs(), "");
    EXPECT_EQ(red_->netlinkSocket(), 0u);
    EXPECT_EQ(red_->userCollection().count(), 0u);
    EXPECT_EQ(red_->interfaceWatchCollection().count(), 0u);
}

TEST_F(VrfInfoTest, AnnouncesAnIdOnlyWhenItChanges) {
    std::vector<uint32_t> seen;
    auto reaction =
        red_->vrfIdAttribute().react(nullptr, [&] { seen.push_back(red_->vrfId().value()); });
    red_->vrfIdIs(VrfId());
    red_->vrfIdIs(VrfId(1));
    red_->vrfIdIs(VrfId(1));
    red_->vrfIdIs(VrfId());
    EXPECT_EQ(seen, (std::vector<uint32_t>{1, 0xffffff}));
}

TEST_F(VrfInfoTest, UsableNeedsNamespaceAndSocket) {
    Testing::TraceCapture lines("ArpSuppression=8");
    EXPECT_FALSE(red_->usable());
    EXPECT_EQ(lines.count("no netNs"), 1u);
    EXPECT_EQ(lines.count("no netlinkSocket"), 0u);

    lines.clear();
    red_->netNsIs("ns-red");
    EXPECT_FALSE(red_->usable());
    EXPECT_EQ(lines.count("no netNs"), 0u);
    EXPECT_EQ(lines.count("no netlinkSocket"), 1u);

    lines.clear();
    red_->netlinkSocketIs(7);
    EXPECT_TRUE(red_->usable());
    red_->netNsIs("");
    EXPECT_EQ(lines.text(), "");
    EXPECT_FALSE(red_->usable());
    EXPECT_EQ(lines.count("no netNs"), 1u);
}

TEST_F(VrfInfoTest, TracesItsReasonUnderHandleUnitAndObject) {
    Testing::TraceCapture lines("ArpSuppression=8");
    red_->usable();
    EXPECT_TRUE(lines.contains(" ArpSuppression 8 ArpSuppression/ArpSuppression:")) << lines.text();
    EXPECT_TRUE(lines.contains(" usable VrfInfo(red) no netNs\n")) << lines.text();
}

TEST_F(VrfInfoTest, TracesNothingWhenLevelEightIsOff) {
    Testing::TraceCapture lines("ArpSuppression=7");
    EXPECT_FALSE(red_->usable());
    EXPECT_EQ(lines.text(), "");
}

TEST_F(VrfInfoTest, TextForms) {
    EXPECT_EQ(red_->toStrep(), "<vrfName=red vrfId=16777215>");
    red_->vrfIdIs(VrfId(3));
    EXPECT_EQ(red_->toStrep(), "<vrfName=red vrfId=3>");
    EXPECT_EQ(Vela::toStrep(red_), "<vrfName=red vrfId=3>");
    EXPECT_EQ(Vela::toStrep(Ptr<VrfInfo>()), "NULL");
}

TEST_F(VrfInfoTest, FilesUsersOnceEach) {
    auto one = make<VrfUser>(red_);
    auto two = make<VrfUser>(red_);
    unsigned announced = 0;
    auto reaction = red_->userCollection().react(nullptr, [&](const auto&) { ++announced; });
    red_->userIs(one, true);
    red_->userIs(one, true);
    red_->userIs(two, true);
    EXPECT_EQ(red_->userCollection().count(), 2u);
    EXPECT_TRUE(red_->userCollection().value(one));
    EXPECT_EQ(announced, 2u);
    red_->userIs(one, false);
    EXPECT_TRUE(red_->userCollection().has(one));
    EXPECT_FALSE(red_->userCollection().value(one));
    EXPECT_EQ(announced, 3u);
    red_->userDel(one);
    red_->userDel(one);
    EXPECT_FALSE(red_->userCollection().has(one));
    EXPECT_EQ(announced, 4u);
    red_->userDelAll();
    EXPECT_EQ(red_->userCollection().count(), 0u);
    EXPECT_EQ(announced, 5u);
}

TEST_F(VrfInfoTest, FilesWatchesByKernelName) {
    auto fabric = make<VrfInterfaceWatch>(red_, "fabric");
    auto vlan = make<VlanL3Info>(red_, VlanId(10));
    std::vector<std::string> announced;
    auto reaction = red_->interfaceWatchCollection().react(
        nullptr, [&](const std::string& name) { announced.push_back(name); });
    red_->interfaceWatchIs(fabric);
    red_->interfaceWatchIs(fabric);
    red_->interfaceWatchIs(vlan);
    EXPECT_EQ(red_->interfaceWatchCollection().value("fabric"), fabric);
    EXPECT_EQ(red_->interfaceWatchCollection().value("Vlan10"), vlan);
    EXPECT_EQ(red_->interfaceWatchCollection().count(), 2u);
    red_->interfaceWatchDel("fabric");
    EXPECT_FALSE(red_->interfaceWatchCollection().has("fabric"));
    red_->interfaceWatchDelAll();
    EXPECT_EQ(red_->interfaceWatchCollection().count(), 0u);
    EXPECT_EQ(announced, (std::vector<std::string>{"fabric", "Vlan10", "fabric", "Vlan10"}));
}

TEST_F(VrfInfoTest, DumpsCountsAndWatches) {
    EXPECT_EQ(dump(*red_), "VrfInfo <vrfName=red vrfId=16777215> usable=false #user=0 "
                           "#interfaceWatch=0:\n");
    makeUsable();
    red_->vrfIdIs(VrfId(3));
    auto fabric = make<VrfInterfaceWatch>(red_, "fabric");
    auto vlan = make<VlanL3Info>(red_, VlanId(10));
    auto user = make<VrfUser>(red_);
    fabric->kniIntfIfIndexIs(4);
    red_->interfaceWatchIs(fabric);
    red_->interfaceWatchIs(vlan);
    red_->userIs(user, true);
    EXPECT_EQ(dump(*red_, 2),
              "  VrfInfo <vrfName=red vrfId=3> usable=true #user=1 #interfaceWatch=2:\n"
              "    <vrfName=red intfName=Vlan10 usable=no>\n"
              "    <vrfName=red intfName=fabric usable=yes>\n");
}

TEST_F(VrfInfoTest, DumpsAndTextFormsTraceNothing) {
    auto fabric = make<VrfInterfaceWatch>(red_, "fabric");
    red_->interfaceWatchIs(fabric);
    Testing::TraceCapture lines("ArpSuppression=8");
    dump(*red_);
    dump(*fabric);
    fabric->toStrep();
    EXPECT_EQ(lines.text(), "");
}

TEST_F(VrfInfoTest, ItsEndLetsGoOfUsersAndWatches) {
    std::vector<std::string> announced;
    auto users =
        red_->userCollection().react(nullptr, [&](const auto&) { announced.push_back("user"); });
    auto watches = red_->interfaceWatchCollection().react(
        nullptr, [&](const std::string& name) { announced.push_back(name); });
    red_->userIs(make<VrfUser>(red_), true);
    red_->interfaceWatchIs(make<VrfInterfaceWatch>(red_, "fabric"));
    announced.clear();
    red_->destroy();
    EXPECT_EQ(red_->userCollection().count(), 0u);
    EXPECT_EQ(red_->interfaceWatchCollection().count(), 0u);
    EXPECT_EQ(announced, (std::vector<std::string>{"user", "fabric"}));
}

TEST_F(VrfInfoTest, UserMayUseNone) {
    auto user = make<VrfUser>(nullptr);
    EXPECT_EQ(user->vrfInfo(), nullptr);
    EXPECT_EQ(make<VrfUser>(red_)->vrfInfo(), red_);
}

TEST_F(VrfInfoTest, WatchKnowsItsInterface) {
    auto watch = make<VrfInterfaceWatch>(red_, "fabric");
    EXPECT_EQ(watch->vrfInfo(), red_);
    EXPECT_EQ(watch->intfName(), "fabric");
    EXPECT_EQ(watch->kniIntfName(), "fabric");
    EXPECT_EQ(watch->kniIntfIfIndex(), 0u);
    EXPECT_TRUE(watch->hasNotificationActive());
}

TEST_F(VrfInfoTest, WatchAnnouncesAnIndexOnlyWhenItChanges) {
    auto watch = make<VrfInterfaceWatch>(red_, "fabric");
    std::vector<uint32_t> seen;
    auto reaction = watch->kniIntfIfIndexAttribute().react(
        nullptr, [&] { seen.push_back(watch->kniIntfIfIndex()); });
    watch->kniIntfIfIndexIs(0);
    watch->kniIntfIfIndexIs(4);
    watch->kniIntfIfIndexIs(4);
    watch->kniIntfIfIndexIs(0);
    EXPECT_EQ(seen, (std::vector<uint32_t>{4, 0}));
}

TEST_F(VrfInfoTest, WatchIsUsableWithUsableVrfAndIndex) {
    auto watch = make<VrfInterfaceWatch>(red_, "fabric");
    EXPECT_FALSE(watch->usable());
    watch->kniIntfIfIndexIs(4);
    EXPECT_FALSE(watch->usable());
    makeUsable();
    EXPECT_TRUE(watch->usable());
    watch->kniIntfIfIndexIs(0);
    EXPECT_FALSE(watch->usable());

    auto without = make<VrfInterfaceWatch>(nullptr, "fabric");
    without->kniIntfIfIndexIs(4);
    EXPECT_FALSE(without->usable());
}

TEST_F(VrfInfoTest, WatchTextForms) {
    auto watch = make<VrfInterfaceWatch>(red_, "fabric");
    EXPECT_EQ(watch->toStrep(), "<vrfName=red intfName=fabric usable=no>");
    watch->kniIntfIfIndexIs(4);
    EXPECT_EQ(watch->toStrep(), "<vrfName=red intfName=fabric usable=no>");
    makeUsable();
    EXPECT_EQ(watch->toStrep(), "<vrfName=red intfName=fabric usable=yes>");
    watch->kniIntfIfIndexIs(0);
    EXPECT_EQ(watch->toStrep(), "<vrfName=red intfName=fabric usable=no>");
    EXPECT_EQ(make<VrfInterfaceWatch>(nullptr, "fabric")->toStrep(),
              "<vrfName= intfName=fabric usable=no>");
    EXPECT_EQ(Vela::toStrep(Ptr<VrfInterfaceWatch>()), "NULL");
}

TEST_F(VrfInfoTest, VlanIsTheWatchOfItsInterface) {
    auto vlan = make<VlanL3Info>(red_, VlanId(10));
    EXPECT_EQ(vlan->vlanId(), VlanId(10));
    EXPECT_EQ(vlan->vlanIntfId(), IntfId("Vlan10"));
    EXPECT_EQ(vlan->intfName(), "Vlan10");
    EXPECT_EQ(vlan->kniIntfName(), "Vlan10");
    EXPECT_EQ(vlan->vrfInfo(), red_);
    EXPECT_EQ(vlan->toStrep(), "<vrfName=red vlanId=10>");
    EXPECT_EQ(Vela::toStrep(Ptr<VlanL3Info>()), "NULL");
    EXPECT_EQ(make<VlanL3Info>(nullptr, VlanId(10))->toStrep(), "<vrfName= vlanId=10>");
}

TEST_F(VrfInfoTest, VlanNamesItsInterface) {
    EXPECT_EQ(VlanL3Info::constructIntfNameFromVlanId(VlanId(1)), "Vlan1");
    EXPECT_EQ(VlanL3Info::constructIntfNameFromVlanId(VlanId(4094)), "Vlan4094");
}

TEST_F(VrfInfoTest, VlanKeepsItsAddresses) {
    auto vlan = make<VlanL3Info>(red_, VlanId(10));
    const IpGenAddr v4("10.0.0.1"), v6("2001:db8::1");
    std::vector<IpGenAddr> announced;
    auto reaction = vlan->ipAddressCollection().react(
        nullptr, [&](const IpGenAddr& address) { announced.push_back(address); });
    vlan->ipAddressIs(v4, true);
    vlan->ipAddressIs(v4, true);
    vlan->ipAddressIs(v6, true);
    EXPECT_TRUE(vlan->ipAddressCollection().value(v4));
    vlan->ipAddressIs(v4, false);
    EXPECT_TRUE(vlan->ipAddressCollection().has(v4));
    EXPECT_FALSE(vlan->ipAddressCollection().value(v4));
    EXPECT_EQ(vlan->ipAddressCollection().count(), 2u);
    EXPECT_FALSE(vlan->ipAddressCollection().value(IpGenAddr("10.0.0.2")));
    vlan->ipAddressDel(v4);
    vlan->ipAddressDel(v4);
    vlan->ipAddressDelAll();
    EXPECT_EQ(vlan->ipAddressCollection().count(), 0u);
    EXPECT_EQ(announced, (std::vector<IpGenAddr>{v4, v6, v4, v4, v6}));
}

TEST_F(VrfInfoTest, UsersDumpTheirAttributes) {
    EXPECT_EQ(dump(*make<VrfUser>(red_), 2), "  VrfUser\n"
                                             "    vrfInfo=<vrfName=red vrfId=16777215>\n");
    EXPECT_EQ(dump(*make<VrfUser>(nullptr)), "VrfUser\n"
                                             "  vrfInfo=NULL\n");

    auto watch = make<VrfInterfaceWatch>(red_, "fabric");
    watch->kniIntfIfIndexIs(4);
    EXPECT_EQ(dump(*watch), "VrfInterfaceWatch\n"
                            "  vrfInfo=<vrfName=red vrfId=16777215>\n"
                            "  intfName=fabric\n"
                            "  kniIntfName=fabric\n"
                            "  kniIntfIfIndex=4\n");

    auto vlan = make<VlanL3Info>(red_, VlanId(10));
    vlan->ipAddressIs(IpGenAddr("10.0.0.1"), true);
    vlan->ipAddressIs(IpGenAddr("fe80::1"), false);
    EXPECT_EQ(dump(*vlan), "VlanL3Info\n"
                           "  vrfInfo=<vrfName=red vrfId=16777215>\n"
                           "  intfName=Vlan10\n"
                           "  kniIntfName=Vlan10\n"
                           "  kniIntfIfIndex=0\n"
                           "  vlanId=10\n"
                           "  vlanIntfId=Vlan10\n"
                           "  ipAddress #2\n"
                           "    10.0.0.1 yes\n"
                           "    fe80::1 no\n");
}

} // namespace
} // namespace ArpSuppression
