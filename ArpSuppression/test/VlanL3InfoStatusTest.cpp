#include "ArpSuppression/ArpSuppression.h"

#include "Platform/State/DumpContext.h"
#include "Testing/CoreFixture.h"
#include "Testing/TraceCapture.h"

#include <csignal>
#include <type_traits>
#include <vector>

namespace ArpSuppression {
namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Vela::make;
using Vela::Ptr;
using Vrf::VrfId;

class VlanL3InfoStatusTest : public Testing::CoreFixture {
  protected:
    ~VlanL3InfoStatusTest() override { status_->destroy(); }

    /// A VLAN with everything that it takes to send there.
    Ptr<VlanL3Info> addUsableVlan(VlanId vlanId) {
        auto vrfInfo = status_->vrfInfoIs("red");
        vrfInfo->netNsIs("ns-red");
        vrfInfo->netlinkSocketIs(7);
        auto vlan = status_->vlanL3InfoIs(vrfInfo, vlanId);
        status_->addVrfInterfaceWatch(vlan);
        vlan->kniIntfIfIndexIs(4);
        return vlan;
    }

    std::string dump(int indent = 0) {
        Vela::DumpContext context;
        status_->dumpState(context, indent);
        return context.text();
    }

    const Ptr<VlanL3InfoStatus> status_ = make<VlanL3InfoStatus>();
    const VlanId vlan10_{10};
};

TEST_F(VlanL3InfoStatusTest, StartsEmpty) {
    EXPECT_EQ(status_->vlanL3InfoCollection().count(), 0u);
    EXPECT_EQ(status_->vrfInfoCollection().count(), 0u);
    EXPECT_EQ(status_->vrfInterfaceWatchCollection().count(), 0u);
    EXPECT_EQ(status_->vlanL3Info(vlan10_), nullptr);
    EXPECT_EQ(status_->vrfInfo("red"), nullptr);
    EXPECT_EQ(status_->vrfInterfaceWatch("Vlan10"), nullptr);
    EXPECT_FALSE(status_->updatedVlanId());
    EXPECT_FALSE(status_->initialArpSuppressionStatusSync());
}

TEST_F(VlanL3InfoStatusTest, FindsOrCreatesTheRecordOfAVlan) {
    std::vector<int> announced;
    auto reaction = status_->vlanL3InfoCollection().react(
        nullptr, [&](VlanId vlanId) { announced.push_back(vlanId.value()); });
    auto red = status_->vrfInfoIs("red");
    auto vlan = status_->vlanL3InfoIs(red, vlan10_);
    EXPECT_EQ(vlan->vlanId(), vlan10_);
    EXPECT_EQ(vlan->vrfInfo(), red);
    EXPECT_EQ(status_->vlanL3InfoIs(red, vlan10_), vlan);
    EXPECT_EQ(status_->vlanL3Info(vlan10_), vlan);
    EXPECT_EQ(status_->vlanL3Info(VlanId(11)), nullptr);
    EXPECT_EQ(announced, (std::vector<int>{10}));

    status_->vlanL3InfoDel(VlanId(11));
    EXPECT_EQ(announced.size(), 1u);
    status_->vlanL3InfoDel(vlan10_);
    EXPECT_EQ(status_->vlanL3Info(vlan10_), nullptr);
    EXPECT_TRUE(vlan->destroyed());
    EXPECT_EQ(announced, (std::vector<int>{10, 10}));
    EXPECT_NE(status_->vlanL3InfoIs(red, vlan10_), vlan);
}

TEST_F(VlanL3InfoStatusTest, RecreatingARecordWithAnotherVrfRaisesAnError) {
    auto red = status_->vrfInfoIs("red");
    auto blue = status_->vrfInfoIs("blue");
    auto vlan = status_->vlanL3InfoIs(red, vlan10_);
    unsigned announced = 0;
    auto reaction = status_->vlanL3InfoCollection().react(nullptr, [&](VlanId) { ++announced; });
    EXPECT_THROW(status_->vlanL3InfoIs(blue, vlan10_), Vela::EntryExistsError);
    EXPECT_THROW(status_->vlanL3InfoIs(nullptr, vlan10_), Vela::EntryExistsError);
    EXPECT_EQ(status_->vlanL3Info(vlan10_), vlan);
    EXPECT_EQ(vlan->vrfInfo(), red);
    EXPECT_EQ(announced, 0u);
}

TEST_F(VlanL3InfoStatusTest, RecordMayHaveNoVrf) {
    auto vlan = status_->vlanL3InfoIs(nullptr, vlan10_);
    vlan->kniIntfIfIndexIs(4);
    EXPECT_EQ(vlan->vrfInfo(), nullptr);
    EXPECT_EQ(status_->usableVlanL3Info(vlan10_), nullptr);
}

TEST_F(VlanL3InfoStatusTest, DeletesAllRecords) {
    auto vlan10 = addUsableVlan(vlan10_);
    auto vlan20 = addUsableVlan(VlanId(20));
    std::vector<int> announced;
    auto reaction = status_->vlanL3InfoCollection().react(
        nullptr, [&](VlanId vlanId) { announced.push_back(vlanId.value()); });
    status_->vlanL3InfoDelAll();
    EXPECT_EQ(status_->vlanL3InfoCollection().count(), 0u);
    EXPECT_TRUE(vlan10->destroyed());
    EXPECT_TRUE(vlan20->destroyed());
    EXPECT_EQ(announced, (std::vector<int>{10, 20}));
}

TEST_F(VlanL3InfoStatusTest, GivesAUsableVlan) {
    auto vlan = addUsableVlan(vlan10_);
    Testing::TraceCapture lines("ArpSuppression=8");
    EXPECT_EQ(status_->usableVlanL3Info(vlan10_), vlan);
    EXPECT_EQ(status_->usableVlanL3InfoNonConst(vlan10_), vlan);
    EXPECT_EQ(lines.text(), "");
    using Given = decltype(status_->usableVlanL3Info(vlan10_));
    using GivenNonConst = decltype(status_->usableVlanL3InfoNonConst(vlan10_));
    static_assert(std::is_same_v<Given, Ptr<const VlanL3Info>>);
    static_assert(std::is_same_v<GivenNonConst, Ptr<VlanL3Info>>);
}

TEST_F(VlanL3InfoStatusTest, GivesNothingForAVlanWithoutRecord) {
    Testing::TraceCapture lines("ArpSuppression=8");
    EXPECT_EQ(status_->usableVlanL3Info(vlan10_), nullptr);
    EXPECT_EQ(status_->usableVlanL3InfoNonConst(vlan10_), nullptr);
    EXPECT_EQ(lines.text(), "");
}

TEST_F(VlanL3InfoStatusTest, GivesNothingForAVlanWhoseVrfHasNoSocket) {
    auto vlan = addUsableVlan(vlan10_);
    vlan->vrfInfo()->netlinkSocketIs(0);
    Testing::TraceCapture lines("ArpSuppression=8");
    EXPECT_EQ(status_->usableVlanL3Info(vlan10_), nullptr);
    EXPECT_EQ(lines.count("not usable vlanL3Info=<vrfName=red vlanId=10>\n"), 1u) << lines.text();
    EXPECT_EQ(lines.count("no netlinkSocket"), 1u);
    EXPECT_EQ(lines.count("ArpSuppression/ArpSuppression:"), 2u);

    lines.clear();
    EXPECT_EQ(status_->usableVlanL3InfoNonConst(vlan10_), nullptr);
    EXPECT_EQ(lines.count("not usable vlanL3Info=<vrfName=red vlanId=10>\n"), 1u);
    EXPECT_EQ(status_->vlanL3Info(vlan10_), vlan);
}

TEST_F(VlanL3InfoStatusTest, UsabilityIsLostAndRegained) {
    auto vlan = addUsableVlan(vlan10_);
    auto red = vlan->vrfInfo();
    red->netNsIs("");
    EXPECT_EQ(status_->usableVlanL3Info(vlan10_), nullptr);
    red->netNsIs("ns-red");
    EXPECT_EQ(status_->usableVlanL3Info(vlan10_), vlan);

    vlan->kniIntfIfIndexIs(0);
    Testing::TraceCapture lines("ArpSuppression=8");
    EXPECT_EQ(status_->usableVlanL3Info(vlan10_), nullptr);
    EXPECT_TRUE(lines.contains("not usable vlanL3Info=<vrfName=red vlanId=10>\n"));
    vlan->kniIntfIfIndexIs(5);
    EXPECT_EQ(status_->usableVlanL3Info(vlan10_), vlan);
}

TEST_F(VlanL3InfoStatusTest, AnnouncesEveryUpdatedVlan) {
    // The same VLAN twice in a row has changed twice.
    std::vector<int> seen;
    auto reaction = status_->updatedVlanIdAttribute().react(
        nullptr, [&] { seen.push_back(status_->updatedVlanId().value()); });
    status_->updatedVlanIdIs(vlan10_);
    status_->updatedVlanIdIs(vlan10_);
    status_->updatedVlanIdIs(VlanIdOrNone());
    EXPECT_EQ(seen, (std::vector<int>{10, 10, 0}));
}

TEST_F(VlanL3InfoStatusTest, AnUpdatedVlanIsAnnouncedAfterNone) {
    auto vlan10 = addUsableVlan(vlan10_);
    std::vector<int> seen;
    auto reaction = status_->updatedVlanIdAttribute().react(
        nullptr, [&] { seen.push_back(status_->updatedVlanId().value()); });
    status_->vlanUpdated(vlan10);
    status_->vlanUpdated(vlan10);
    EXPECT_EQ(seen, (std::vector<int>{0, 10, 0, 10}));
    EXPECT_EQ(status_->updatedVlanId(), vlan10_);
}

TEST_F(VlanL3InfoStatusTest, AReactionMayAnnounceAnotherVlanOrDropTheRecord) {
    auto vlan10 = addUsableVlan(vlan10_);
    auto vlan20 = addUsableVlan(VlanId(20));
    std::vector<int> seen;
    auto reaction = status_->updatedVlanIdAttribute().react(nullptr, [&] {
        seen.push_back(status_->updatedVlanId().value());
        if (status_->updatedVlanId() == vlan10_) {
            status_->vlanUpdated(vlan20);
        } else if (seen.size() == 1) {
            status_->delVrfInterfaceWatch(vlan10);
            status_->vlanL3InfoDel(vlan10_);
            vlan10.reset();
        }
    });
    status_->vlanUpdated(status_->vlanL3Info(vlan10_));
    EXPECT_EQ(seen, (std::vector<int>{0, 10, 0, 20}));
    EXPECT_EQ(status_->updatedVlanId(), VlanId(20));
}

TEST_F(VlanL3InfoStatusTest, AnnouncesTheFirstSynchronisationOnce) {
    unsigned announced = 0;
    auto reaction =
        status_->initialArpSuppressionStatusSyncAttribute().react(nullptr, [&] { ++announced; });
    status_->initialArpSuppressionStatusSyncIs(false);
    EXPECT_EQ(announced, 0u);
    status_->initialArpSuppressionStatusSyncIs(true);
    status_->initialArpSuppressionStatusSyncIs(true);
    EXPECT_TRUE(status_->initialArpSuppressionStatusSync());
    EXPECT_EQ(announced, 1u);
}

TEST_F(VlanL3InfoStatusTest, HasOneVrfInfoPerName) {
    std::vector<std::string> announced;
    auto reaction = status_->vrfInfoCollection().react(
        nullptr, [&](const L3::VrfName& name) { announced.push_back(name.bytes()); });
    auto red = status_->vrfInfoIs("red");
    EXPECT_EQ(red->vrfName(), "red");
    EXPECT_FALSE(red->vrfId().isValid());
    EXPECT_EQ(status_->vrfInfoIs("red"), red);
    EXPECT_EQ(status_->vrfInfo("red"), red);
    EXPECT_NE(status_->vrfInfoIs("blue"), red);
    EXPECT_EQ(status_->vrfInfo("green"), nullptr);
    EXPECT_EQ(announced, (std::vector<std::string>{"red", "blue"}));
}

TEST_F(VlanL3InfoStatusTest, VrfNamesHaveAtMostAHundredBytes) {
    EXPECT_EQ(status_->vrfInfoIs(std::string(100, 'v'))->vrfName().size(), 100u);
    for (auto create :
         {+[](VlanL3InfoStatus&status, const std::string&name) { status.vrfInfoIs(name); },
          +[](VlanL3InfoStatus&status, const std::string&name) {
              status.findOrCreateVrfInterfaceWatch("fabric", name);
          }}) {
        try {
            create(*status_, std::string(101, 'v'));
            ADD_FAILURE() << "no range error";
        } catch (const Vela::RangeError& error) {
            EXPECT_STREQ(error.what(), "Vela::String::bytes > maxLength() not allowed");
        }
    }
    EXPECT_EQ(status_->vrfInfoCollection().count(), 1u);
    EXPECT_EQ(status_->vrfInterfaceWatchCollection().count(), 0u);
}

TEST_F(VlanL3InfoStatusTest, RegistersUsersWithTheirVrf) {
    auto red = status_->vrfInfoIs("red");
    auto user = make<VrfUser>(red);
    status_->addVrfUser(user);
    status_->addVrfUser(user);
    EXPECT_EQ(red->userCollection().count(), 1u);
    EXPECT_TRUE(red->userCollection().value(user));
    EXPECT_EQ(red->interfaceWatchCollection().count(), 0u);
    status_->delVrfUser(user);
    EXPECT_EQ(red->userCollection().count(), 0u);
}

TEST_F(VlanL3InfoStatusTest, RegistersWatchesByInterface) {
    auto red = status_->vrfInfoIs("red");
    auto watch = make<VrfInterfaceWatch>(red, "fabric");
    std::vector<std::string> announced;
    auto registered = status_->vrfInterfaceWatchCollection().react(
        nullptr, [&](const std::string& name) { announced.push_back("status " + name); });
    auto filed = red->interfaceWatchCollection().react(
        nullptr, [&](const std::string& name) { announced.push_back("vrf " + name); });
    status_->addVrfInterfaceWatch(watch);
    EXPECT_EQ(status_->vrfInterfaceWatch("fabric"), watch);
    EXPECT_EQ(red->interfaceWatchCollection().value("fabric"), watch);
    EXPECT_EQ(red->userCollection().count(), 0u);
    EXPECT_EQ(announced, (std::vector<std::string>{"status fabric", "vrf fabric"}));

    announced.clear();
    status_->delVrfInterfaceWatch(watch);
    EXPECT_EQ(status_->vrfInterfaceWatch("fabric"), nullptr);
    EXPECT_EQ(red->interfaceWatchCollection().count(), 0u);
    EXPECT_EQ(announced, (std::vector<std::string>{"status fabric", "vrf fabric"}));
}

TEST_F(VlanL3InfoStatusTest, FindsOrCreatesAWatch) {
    auto watch = status_->findOrCreateVrfInterfaceWatch("fabric", "default");
    EXPECT_EQ(watch->intfName(), "fabric");
    EXPECT_EQ(watch->vrfInfo(), status_->vrfInfo("default"));
    EXPECT_TRUE(watch->hasNotificationActive());
    EXPECT_EQ(status_->vrfInterfaceWatch("fabric"), watch);
    EXPECT_EQ(watch->vrfInfo()->interfaceWatchCollection().value("fabric"), watch);

    EXPECT_EQ(status_->findOrCreateVrfInterfaceWatch("fabric", "default"), watch);
    EXPECT_EQ(status_->vrfInfoCollection().count(), 1u);
    EXPECT_EQ(status_->vrfInterfaceWatchCollection().count(), 1u);

    // A VLAN's record is the watch of its interface.
    auto vlan = addUsableVlan(vlan10_);
    EXPECT_EQ(status_->findOrCreateVrfInterfaceWatch("Vlan10", "red"), vlan);

    auto other = status_->findOrCreateVrfInterfaceWatch("arpinject", "default");
    EXPECT_NE(other, watch);
    EXPECT_EQ(other->vrfInfo(), watch->vrfInfo());
}

TEST_F(VlanL3InfoStatusTest, Dumps) {
    EXPECT_EQ(dump(), "VlanL3InfoStatus\n"
                      "  VlanL3Info #0\n"
                      "  VrfInfo #0\n");
    addUsableVlan(VlanId(20));
    addUsableVlan(vlan10_)->kniIntfIfIndexIs(0);
    status_->vrfInfo("red")->vrfIdIs(VrfId(3));
    status_->findOrCreateVrfInterfaceWatch("fabric", "default");
    auto user = make<VrfUser>(status_->vrfInfo("red"));
    status_->addVrfUser(user);
    EXPECT_EQ(dump(2),
              "  VlanL3InfoStatus\n"
              "    VlanL3Info #2\n"
              "      <vrfName=red vlanId=10>\n"
              "      <vrfName=red vlanId=20>\n"
              "    VrfInfo #2\n"
              "      VrfInfo <vrfName=default vrfId=16777215> usable=false #user=0 "
              "#interfaceWatch=1:\n"
              "        <vrfName=default intfName=fabric usable=no>\n"
              "      VrfInfo <vrfName=red vrfId=3> usable=true #user=1 #interfaceWatch=2:\n"
              "        <vrfName=red intfName=Vlan10 usable=no>\n"
              "        <vrfName=red intfName=Vlan20 usable=yes>\n");
}

// The first words name the function, since several have the same assertion.
void expectAssertion(const char* function, const char* text, void (*call)(VlanL3InfoStatus&)) {
    EXPECT_EXIT(
        {
            auto status = make<VlanL3InfoStatus>();
            call(*status);
        },
        testing::KilledBySignal(SIGABRT),
        std::string("(^|\n)ArpSuppression/ArpSuppression:[0-9]+ ") + function +
            ": assertion failed \"" + text + "\"\n");
}

TEST(VlanL3InfoStatusDeathTest, UserMustHaveAVrf) {
    expectAssertion("addVrfUser", "__null != vrfInfo",
                    [](auto& status) { status.addVrfUser(make<VrfUser>(nullptr)); });
    expectAssertion("delVrfUser", "__null != vrfInfo",
                    [](auto& status) { status.delVrfUser(make<VrfUser>(nullptr)); });
}

TEST(VlanL3InfoStatusDeathTest, WatchMustHaveAVrf) {
    expectAssertion("addVrfInterfaceWatch", "__null != vrfInfo", [](auto& status) {
        status.addVrfInterfaceWatch(make<VrfInterfaceWatch>(nullptr, "fabric"));
    });
}

TEST(VlanL3InfoStatusDeathTest, OneWatchPerInterface) {
    const char* text = "nullptr == vrfInterfaceWatch\\( watch->intfName\\(\\) \\)";
    expectAssertion("addVrfInterfaceWatch", text, [](auto& status) {
        auto watch = status.findOrCreateVrfInterfaceWatch("fabric", "default");
        status.addVrfInterfaceWatch(watch);
    });
    // Asked before the VRF is.
    expectAssertion("addVrfInterfaceWatch", text, [](auto& status) {
        status.findOrCreateVrfInterfaceWatch("fabric", "default");
        status.addVrfInterfaceWatch(make<VrfInterfaceWatch>(nullptr, "fabric"));
    });
}

TEST(VlanL3InfoStatusDeathTest, OnlyTheRegisteredWatchIsUnregistered) {
    const char* text = "watch == vrfInterfaceWatch\\( watch->intfName\\(\\) \\)";
    expectAssertion("delVrfInterfaceWatch", text, [](auto& status) {
        auto watch = status.findOrCreateVrfInterfaceWatch("fabric", "default");
        status.delVrfInterfaceWatch(make<VrfInterfaceWatch>(watch->vrfInfo(), "fabric"));
    });
    expectAssertion("delVrfInterfaceWatch", text, [](auto& status) {
        status.delVrfInterfaceWatch(make<VrfInterfaceWatch>(status.vrfInfoIs("red"), "fabric"));
    });
}

TEST(VlanL3InfoStatusDeathTest, WatchFoundMustBeOfTheVrf) {
    expectAssertion("findOrCreateVrfInterfaceWatch",
                    "watch->vrfInfo\\(\\)->vrfName\\(\\) == vrfName", [](auto& status) {
                        status.findOrCreateVrfInterfaceWatch("fabric", "default");
                        status.findOrCreateVrfInterfaceWatch("fabric", "red");
                    });
}

} // namespace
} // namespace ArpSuppression
