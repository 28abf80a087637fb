// How long a VrfInfo lives, whoever uses it and whatever reactions do meanwhile. That nothing is
// left behind is checked at the end of each test, by the fixture.

#include "ArpSuppression/ArpSuppression.h"

#include "Testing/CoreFixture.h"

#include <vector>

namespace ArpSuppression {
namespace {

using Bridging::VlanId;
using Vela::make;
using Vela::Ptr;

class VrfLifeTest : public Testing::CoreFixture {
  protected:
    ~VrfLifeTest() override { status_->destroy(); }

    bool hasRed() { return status_->vrfInfoCollection().has("red"); }

    /// As a VLAN's record enters and leaves the model.
    Ptr<VlanL3Info> addVlan(VlanId vlanId, const L3::VrfName& vrfName) {
        auto vlan = status_->vlanL3InfoIs(status_->vrfInfoIs(vrfName), vlanId);
        status_->addVrfInterfaceWatch(vlan);
        return vlan;
    }
    void removeVlan(VlanId vlanId) {
        status_->delVrfInterfaceWatch(status_->vlanL3Info(vlanId));
        status_->vlanL3InfoDel(vlanId);
    }

    Ptr<VlanL3InfoStatus> status_ = make<VlanL3InfoStatus>();
    const VlanId vlan10_{10};
    const VlanId vlan20_{20};
};

TEST_F(VrfLifeTest, GoesWithItsLastWatch) {
    addVlan(vlan10_, "red");
    addVlan(vlan20_, "red");
    auto red = status_->vrfInfo("red");
    unsigned announced = 0;
    auto reaction =
        status_->vrfInfoCollection().react(nullptr, [&](const L3::VrfName&) { ++announced; });
    removeVlan(vlan10_);
    EXPECT_EQ(status_->vrfInfo("red"), red);
    EXPECT_FALSE(red->destroyed());
    EXPECT_EQ(announced, 0u);
    removeVlan(vlan20_);
    EXPECT_FALSE(hasRed());
    EXPECT_TRUE(red->destroyed());
    EXPECT_EQ(announced, 1u);
}

TEST_F(VrfLifeTest, GoesWithItsLastUser) {
    auto red = addVlan(vlan10_, "red")->vrfInfo();
    auto one = make<VrfUser>(red);
    auto two = make<VrfUser>(red);
    status_->addVrfUser(one);
    status_->addVrfUser(two);
    removeVlan(vlan10_);
    EXPECT_TRUE(hasRed());
    status_->delVrfUser(one);
    EXPECT_TRUE(hasRed());
    status_->delVrfUser(one); // no more a user
    EXPECT_TRUE(hasRed());
    status_->delVrfUser(two);
    EXPECT_FALSE(hasRed());
    EXPECT_TRUE(red->destroyed());
}

TEST_F(VrfLifeTest, OutlivesItsUsersWhileWatched) {
    auto red = addVlan(vlan10_, "red")->vrfInfo();
    auto user = make<VrfUser>(red);
    status_->addVrfUser(user);
    status_->delVrfUser(user);
    EXPECT_EQ(status_->vrfInfo("red"), red);
    removeVlan(vlan10_);
    EXPECT_FALSE(hasRed());
}

TEST_F(VrfLifeTest, OtherVrfsStay) {
    addVlan(vlan10_, "red");
    addVlan(vlan20_, "blue");
    removeVlan(vlan10_);
    EXPECT_FALSE(hasRed());
    EXPECT_TRUE(status_->vrfInfoCollection().has("blue"));
}

TEST_F(VrfLifeTest, StaysUntilItsFirstWatch) {
    auto red = status_->vrfInfoIs("red");
    auto user = make<VrfUser>(red);
    status_->addVrfUser(user);
    status_->delVrfUser(user);
    EXPECT_EQ(status_->vrfInfo("red"), red);
    EXPECT_FALSE(red->destroyed());

    addVlan(vlan10_, "red");
    EXPECT_EQ(status_->vrfInfo("red"), red);
    removeVlan(vlan10_);
    EXPECT_FALSE(hasRed());
}

TEST_F(VrfLifeTest, StaysUntilTheNextWatchWhenAskedForAgain) {
    auto old = addVlan(vlan10_, "red");
    auto red = status_->vrfInfoIs("red");
    removeVlan(vlan10_);
    EXPECT_EQ(status_->vrfInfo("red"), red);
    EXPECT_FALSE(red->destroyed());

    auto vlan = status_->vlanL3InfoIs(red, vlan20_);
    status_->addVrfInterfaceWatch(vlan);
    EXPECT_EQ(vlan->vrfInfo(), old->vrfInfo());
    removeVlan(vlan20_);
    EXPECT_FALSE(hasRed());
}

TEST_F(VrfLifeTest, StaysWhenAReactionToItsWatchAsksForItAgain) {
    auto red = status_->vrfInfoIs("red");
    auto watch = make<VrfInterfaceWatch>(red, "eth0");
    auto reaction = status_->vrfInterfaceWatchCollection().react(
        nullptr, [&](const std::string&) { status_->vrfInfoIs("red"); });
    status_->addVrfInterfaceWatch(watch);
    reaction.clear();
    status_->delVrfInterfaceWatch(watch);
    EXPECT_EQ(status_->vrfInfo("red"), red);
    addVlan(vlan10_, "red");
    removeVlan(vlan10_);
    EXPECT_FALSE(hasRed());
}

TEST_F(VrfLifeTest, AReactionMayDropTheLastReferenceToTheStatus) {
    auto last = make<VlanL3InfoStatus>();
    auto* status = last.get();
    auto watch = make<VrfInterfaceWatch>(last->vrfInfoIs("red"), "eth0");
    auto reaction = last->vrfInterfaceWatchCollection().react(
        nullptr, [&](const std::string&) { last.reset(); });
    status->addVrfInterfaceWatch(watch);
    EXPECT_EQ(last, nullptr);
    EXPECT_EQ(watch->vrfInfo()->interfaceWatchCollection().count(), 0u);
}

TEST_F(VrfLifeTest, WhatIsRegisteredAfterTheEndOfTheStatusGoesWithIt) {
    auto ended = make<VlanL3InfoStatus>();
    ended->destroy();
    auto red = ended->findOrCreateVrfInterfaceWatch("eth0", "red")->vrfInfo();
    EXPECT_EQ(red->interfaceWatchCollection().count(), 1u);
    ended.reset();
    EXPECT_TRUE(red->destroyed());
    EXPECT_EQ(red->interfaceWatchCollection().count(), 0u);
}

TEST_F(VrfLifeTest, IsANewObjectWhenItComesBack) {
    auto gone = addVlan(vlan10_, "red")->vrfInfo();
    gone->vrfIdIs(Vrf::VrfId(3));
    removeVlan(vlan10_);
    auto red = addVlan(vlan10_, "red")->vrfInfo();
    EXPECT_NE(red, gone);
    EXPECT_FALSE(red->vrfId().isValid());
}

TEST_F(VrfLifeTest, VlanMovesToAnotherVrf) {
    auto old = addVlan(vlan10_, "red");
    removeVlan(vlan10_);
    auto vlan = addVlan(vlan10_, "blue");
    EXPECT_NE(vlan, old);
    EXPECT_FALSE(hasRed());
    EXPECT_EQ(status_->vrfInterfaceWatch("Vlan10"), vlan);
    EXPECT_EQ(status_->vrfInfo("blue")->interfaceWatchCollection().value("Vlan10"), vlan);
}

TEST_F(VrfLifeTest, UserThatComesTooLateIsNotFiled) {
    auto gone = addVlan(vlan10_, "red")->vrfInfo();
    removeVlan(vlan10_);
    auto user = make<VrfUser>(gone);
    status_->addVrfUser(user);
    EXPECT_EQ(gone->userCollection().count(), 0u);
    EXPECT_FALSE(hasRed());
    addVlan(vlan10_, "red");
    status_->delVrfUser(user); // does not touch the VRF that came after
    EXPECT_TRUE(hasRed());
}

TEST_F(VrfLifeTest, StatusBreaksEveryCycleAtItsEnd) {
    auto vlan = addVlan(vlan10_, "red");
    auto red = vlan->vrfInfo();
    status_->addVrfUser(make<VrfUser>(red));
    status_->findOrCreateVrfInterfaceWatch("fabric", "default");
    status_->vrfInfoIs("blue"); // never watched
    auto blue = status_->vrfInfo("blue");
    status_->destroy();
    EXPECT_EQ(status_->vlanL3InfoCollection().count(), 0u);
    EXPECT_EQ(status_->vrfInfoCollection().count(), 0u);
    EXPECT_EQ(status_->vrfInterfaceWatchCollection().count(), 0u);
    EXPECT_EQ(red->userCollection().count(), 0u);
    EXPECT_EQ(red->interfaceWatchCollection().count(), 0u);
    EXPECT_TRUE(vlan->destroyed());
    EXPECT_TRUE(red->destroyed());
    EXPECT_TRUE(blue->destroyed());
}

TEST_F(VrfLifeTest, StatusBreaksEveryCycleWithItsLastReference) {
    addVlan(vlan10_, "red");
    status_->addVrfUser(make<VrfUser>(status_->vrfInfo("red")));
    uint64_t before = Vela::Entity::liveCount();
    status_ = make<VlanL3InfoStatus>();
    EXPECT_EQ(Vela::Entity::liveCount(), before - 3); // the VLAN, the VRF, the user
}

TEST_F(VrfLifeTest, UsersLeaveAfterTheStatusEnded) {
    auto red = addVlan(vlan10_, "red")->vrfInfo();
    auto user = make<VrfUser>(red);
    status_->addVrfUser(user);
    status_->destroy();
    status_->delVrfUser(user);
    status_->addVrfUser(user);
    EXPECT_EQ(red->userCollection().count(), 0u);
}

TEST_F(VrfLifeTest, DeletesAllVrfs) {
    auto vlan = addVlan(vlan10_, "red");
    auto red = vlan->vrfInfo();
    status_->addVrfUser(make<VrfUser>(red));
    std::vector<std::string> announced;
    auto reaction = status_->vrfInfoCollection().react(
        nullptr, [&](const L3::VrfName& name) { announced.push_back(name.bytes()); });
    status_->vrfInfoDelAll();
    EXPECT_EQ(status_->vrfInfoCollection().count(), 0u);
    EXPECT_TRUE(red->destroyed());
    EXPECT_EQ(red->userCollection().count(), 0u);
    EXPECT_EQ(red->interfaceWatchCollection().count(), 0u);
    EXPECT_EQ(announced, (std::vector<std::string>{"red"}));

    EXPECT_EQ(status_->vrfInterfaceWatch("Vlan10"), vlan);
    removeVlan(vlan10_);
    EXPECT_EQ(status_->vrfInterfaceWatch("Vlan10"), nullptr);
    EXPECT_EQ(announced.size(), 1u);
}

TEST_F(VrfLifeTest, DeletesAllWatches) {
    addVlan(vlan10_, "red");
    auto fabric = status_->findOrCreateVrfInterfaceWatch("fabric", "default");
    status_->vrfInterfaceWatchDelAll();
    EXPECT_EQ(status_->vrfInterfaceWatchCollection().count(), 0u);
    EXPECT_EQ(status_->vrfInfoCollection().count(), 0u);
    EXPECT_EQ(status_->vlanL3InfoCollection().count(), 1u);
    EXPECT_EQ(fabric->vrfInfo()->interfaceWatchCollection().count(), 0u);
}

// Reactions that act while the model changes

TEST_F(VrfLifeTest, ReactionsToAGoneVrfSeeTheModelWithoutIt) {
    auto vlan = addVlan(vlan10_, "red");
    unsigned called = 0;
    auto reaction = status_->vrfInfoCollection().react(nullptr, [&](const L3::VrfName& name) {
        ++called;
        EXPECT_FALSE(status_->vrfInfoCollection().has(name));
        EXPECT_EQ(status_->vrfInterfaceWatch("Vlan10"), nullptr);
        EXPECT_EQ(vlan->vrfInfo()->interfaceWatchCollection().count(), 0u);
    });
    removeVlan(vlan10_);
    EXPECT_EQ(called, 1u);
}

TEST_F(VrfLifeTest, ReactionToAGoneVrfBringsItBack) {
    addVlan(vlan10_, "red");
    bool again = true;
    auto reaction = status_->vrfInfoCollection().react(nullptr, [&](const L3::VrfName& name) {
        if (!status_->vrfInfoCollection().has(name) && std::exchange(again, false)) {
            status_->findOrCreateVrfInterfaceWatch("fabric", name);
        }
    });
    removeVlan(vlan10_);
    ASSERT_TRUE(hasRed());
    EXPECT_FALSE(status_->vrfInfo("red")->destroyed());
    EXPECT_EQ(status_->vrfInfo("red")->interfaceWatchCollection().count(), 1u);
    EXPECT_EQ(status_->vrfInterfaceWatch("fabric")->vrfInfo(), status_->vrfInfo("red"));
}

TEST_F(VrfLifeTest, ReactionToANewWatchRemovesIt) {
    auto reaction =
        status_->vrfInterfaceWatchCollection().react(nullptr, [&](const std::string& name) {
            if (auto watch = status_->vrfInterfaceWatch(name)) {
                status_->delVrfInterfaceWatch(watch);
            }
        });
    auto vlan = addVlan(vlan10_, "red");
    EXPECT_EQ(status_->vrfInterfaceWatch("Vlan10"), nullptr);
    EXPECT_EQ(vlan->vrfInfo()->interfaceWatchCollection().count(), 0u);
    EXPECT_FALSE(hasRed());
    EXPECT_TRUE(vlan->vrfInfo()->destroyed());
}

TEST_F(VrfLifeTest, ReactionOfTheVrfToANewWatchRemovesIt) {
    auto red = status_->vrfInfoIs("red");
    auto reaction = red->interfaceWatchCollection().react(nullptr, [&](const std::string& name) {
        if (auto watch = status_->vrfInterfaceWatch(name)) {
            status_->delVrfInterfaceWatch(watch);
        }
    });
    addVlan(vlan10_, "red");
    EXPECT_EQ(status_->vrfInterfaceWatch("Vlan10"), nullptr);
    EXPECT_EQ(red->interfaceWatchCollection().count(), 0u);
    EXPECT_FALSE(hasRed());
}

TEST_F(VrfLifeTest, ReactionToANewWatchRemovesTheLastUser) {
    auto red = addVlan(vlan10_, "red")->vrfInfo();
    auto user = make<VrfUser>(red);
    status_->addVrfUser(user);
    removeVlan(vlan10_);
    auto reaction = status_->vrfInterfaceWatchCollection().react(
        nullptr, [&](const std::string&) { status_->delVrfUser(user); });
    auto vlan = status_->vlanL3InfoIs(red, vlan20_);
    status_->addVrfInterfaceWatch(vlan);
    EXPECT_EQ(status_->vrfInfo("red"), red);
    EXPECT_FALSE(red->destroyed());
    EXPECT_EQ(red->userCollection().count(), 0u);
    EXPECT_EQ(red->interfaceWatchCollection().value("Vlan20"), vlan);
}

TEST_F(VrfLifeTest, ReactionToAGoneWatchPutsAnotherInItsPlace) {
    for (const char* vrfName : {"red", "blue"}) {
        auto gone = status_->findOrCreateVrfInterfaceWatch("fabric", "red");
        bool again = true;
        auto reaction =
            status_->vrfInterfaceWatchCollection().react(nullptr, [&](const std::string& name) {
                if (std::exchange(again, false)) {
                    status_->findOrCreateVrfInterfaceWatch(name, vrfName);
                }
            });
        status_->delVrfInterfaceWatch(gone);
        auto watch = status_->vrfInterfaceWatch("fabric");
        ASSERT_NE(watch, nullptr);
        EXPECT_NE(watch, gone);
        EXPECT_EQ(status_->vrfInfoCollection().count(), 1u);
        ASSERT_EQ(watch->vrfInfo(), status_->vrfInfo(vrfName));
        EXPECT_EQ(watch->vrfInfo()->interfaceWatchCollection().value("fabric"), watch);
        reaction.clear();
        status_->delVrfInterfaceWatch(watch);
    }
}

TEST_F(VrfLifeTest, ReactionToAGoneWatchRegistersItAgain) {
    auto watch = status_->findOrCreateVrfInterfaceWatch("fabric", "red");
    bool again = true;
    auto reaction = status_->vrfInterfaceWatchCollection().react(nullptr, [&](const std::string&) {
        if (std::exchange(again, false)) {
            status_->addVrfInterfaceWatch(watch);
        }
    });
    status_->delVrfInterfaceWatch(watch);
    EXPECT_EQ(status_->vrfInterfaceWatch("fabric"), watch);
    EXPECT_EQ(watch->vrfInfo(), status_->vrfInfo("red"));
    EXPECT_EQ(watch->vrfInfo()->interfaceWatchCollection().value("fabric"), watch);
}

TEST_F(VrfLifeTest, ReactionThatPutsEveryWatchBackDoesNotKeepDelAllFromItsEnd) {
    auto watch = status_->findOrCreateVrfInterfaceWatch("fabric", "red");
    auto reaction =
        status_->vrfInterfaceWatchCollection().react(nullptr, [&](const std::string& name) {
            if (!status_->vrfInterfaceWatch(name)) {
                status_->addVrfInterfaceWatch(watch);
            }
        });
    status_->vrfInterfaceWatchDelAll();
    EXPECT_EQ(status_->vrfInterfaceWatchCollection().count(), 1u);
    reaction.clear();
}

TEST_F(VrfLifeTest, ReactionToTheEndOfAVrfFindsItClosed) {
    auto red = addVlan(vlan10_, "red")->vrfInfo();
    auto user = make<VrfUser>(red);
    status_->addVrfUser(user);
    unsigned called = 0;
    auto reaction = red->userCollection().react(nullptr, [&](const auto&) {
        ++called;
        EXPECT_TRUE(red->destroyed());
        status_->addVrfUser(user);
    });
    status_->vrfInfoDelAll();
    EXPECT_EQ(called, 1u);
    EXPECT_EQ(red->userCollection().count(), 0u);
}

TEST_F(VrfLifeTest, ReactionToAChangeEndsTheStatus) {
    for (auto change :
         {+[](VlanL3InfoStatus& status) {
              status.delVrfInterfaceWatch(status.vrfInterfaceWatch("Vlan10"));
          },
          +[](VlanL3InfoStatus& status) { status.vlanL3InfoDel(VlanId(10)); },
          +[](VlanL3InfoStatus& status) { status.findOrCreateVrfInterfaceWatch("fabric", "blue"); },
          +[](VlanL3InfoStatus& status) { status.vrfInfoIs("blue"); }}) {
        auto ending = make<VlanL3InfoStatus>();
        auto vlan = ending->vlanL3InfoIs(ending->vrfInfoIs("red"), vlan10_);
        ending->addVrfInterfaceWatch(vlan);
        auto atWatch = ending->vrfInterfaceWatchCollection().react(
            nullptr, [&](const std::string&) { ending->destroy(); });
        auto atVlan =
            ending->vlanL3InfoCollection().react(nullptr, [&](VlanId) { ending->destroy(); });
        auto atVrf = ending->vrfInfoCollection().react(
            nullptr, [&](const L3::VrfName&) { ending->destroy(); });
        change(*ending);
        EXPECT_TRUE(ending->destroyed());
        EXPECT_EQ(vlan->vrfInfo()->interfaceWatchCollection().count(), 0u);
    }
}

} // namespace
} // namespace ArpSuppression
