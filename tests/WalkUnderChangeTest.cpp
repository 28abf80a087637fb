// A machine that mirrors a table, the way the agent's machines do: a walk takes over what is there,
// a reaction what changes, and both share what is done with one key. Meanwhile others add and
// remove entries between the walk's slices, among them the very entry that it stopped at.

#include "ArpSuppression/ArpSuppression.h"
#include "Platform/Scheduler/WalkSmBase.h"
#include "Testing/CoreFixture.h"

#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using ArpSuppression::VlanL3InfoStatus;
using ArpSuppression::VrfIpAddress;
using Bridging::VlanId;
using Vela::make;
using Vela::Ptr;
using Zinc::IpGenAddr;

using Table = Vela::HashMap<VrfIpAddress, uint32_t>;

/// What one item takes: at the default budget a slice has some hundred of them.
constexpr auto itemTime = std::chrono::microseconds(10);

class MirrorSm final : public Vela::WalkSmBase {
  public:
    MirrorSm(Ptr<Vela::TaskScheduler> scheduler, Testing::SimulatedClock& clock, const Table& table)
        : WalkSmBase(std::move(scheduler), 3, "MirrorSm"), clock_(clock), table_(table) {
        reaction_ = table_.react(this, [this](const VrfIpAddress& key) { mirrorKey(key); });
    }

    const char* typeName() const noexcept override { return "MirrorSm"; }

    const Table& mirror() const { return mirror_; }
    /// What the walk met, as opposed to the reaction.
    const std::set<VrfIpAddress>& met() const { return met_; }
    const VrfIpAddress& bookmark() const { return bookmark_; }
    bool complete() const { return complete_; }

  protected:
    Vela::WalkRet walk() override {
        uint32_t count =
            walkCollection(table_, bookmark_, [this](const VrfIpAddress& key, uint32_t value) {
                EXPECT_EQ(table_.value(key), value);
                met_.insert(key);
                mirrorKey(key);
                clock_.advance(itemTime);
            });
        return {bookmark_ ? 1u : 0u, count};
    }
    void walkFinishedNotification() override { complete_ = true; }

  private:
    void mirrorKey(const VrfIpAddress& key) {
        if (const uint32_t* value = table_.find(key)) {
            mirror_.set(key, *value);
        } else {
            mirror_.del(key);
        }
    }

    Testing::SimulatedClock& clock_;
    const Table& table_;
    Table mirror_;
    std::set<VrfIpAddress> met_;
    VrfIpAddress bookmark_;
    bool complete_ = false;
    Vela::Reaction reaction_;
};

/// Hosts spread over four VLANs in three VRFs.
class WalkUnderChangeTest : public Testing::CoreFixture {
  protected:
    WalkUnderChangeTest() {
        const char* const vrfNames[] = {"red", "blue", "blue", "green"};
        for (uint32_t i = 0; i < 4; ++i) {
            status_->addVrfInterfaceWatch(
                status_->vlanL3InfoIs(status_->vrfInfoIs(vrfNames[i]), vlanOf(i)));
        }
    }
    ~WalkUnderChangeTest() override { status_->destroy(); }

    static VlanId vlanOf(uint32_t host) { return VlanId(10 + host % 4); }

    /// Every host's key is its own. A quarter each are IPv4, the IPv6 addresses of the same bytes
    /// (which have the same hash), link-local and global.
    VrfIpAddress keyOf(uint32_t host) const {
        IpGenAddr address(0x0a000000 + host);
        IpGenAddr::Bytes v6{};
        switch (host / 4 % 4) {
        case 0:
            break;
        case 1:
            address = IpGenAddr(IpGenAddr(0x0a000000 + host - 4).bytes());
            break;
        case 2: // the same on all VLANs
            v6 = {0xfe, 0x80, static_cast<uint8_t>(host / 16), static_cast<uint8_t>(host >> 12)};
            address = IpGenAddr(v6);
            break;
        case 3:
            v6 = {0x20, 1, 0xd, 0xb8, static_cast<uint8_t>(host), static_cast<uint8_t>(host >> 8)};
            address = IpGenAddr(v6);
            break;
        }
        return VrfIpAddress::fromVlanL3Info(status_->vlanL3Info(vlanOf(host)), address);
    }

    void addHosts(uint32_t from, uint32_t to) {
        for (uint32_t host = from; host < to; ++host) {
            ASSERT_TRUE(table_.set(keyOf(host), host)) << "no key of its own: " << host;
        }
    }

    Ptr<MirrorSm> makeMirror() { return make<MirrorSm>(scheduler(), clock(), table_); }

    void expectMirrored(const MirrorSm& sm) {
        EXPECT_TRUE(sm.complete());
        EXPECT_EQ(sm.mirror().count(), table_.count());
        for (auto entry = table_.first(); entry; ++entry) {
            const uint32_t* mirrored = sm.mirror().find(entry.key());
            ASSERT_NE(mirrored, nullptr) << entry.key();
            ASSERT_EQ(*mirrored, entry.value());
        }
    }

    const Ptr<VlanL3InfoStatus> status_ = make<VlanL3InfoStatus>();
    Table table_;
};

TEST_F(WalkUnderChangeTest, MeetsEveryKeyThatStays) {
    constexpr uint32_t staying = 4000, going = 2000, coming = 20000;
    addHosts(0, staying + going);
    auto sm = makeMirror();

    std::mt19937 random(1);
    uint32_t lastHost = staying + going;
    auto removeOne = [&] { table_.del(keyOf(staying + static_cast<uint32_t>(random()) % going)); };
    auto addOne = [&] {
        if (lastHost < staying + going + coming) {
            uint32_t host = lastHost++;
            table_.set(keyOf(host), host);
        }
    };
    // One change leads to another.
    uint32_t changes = 0;
    auto reaction = table_.react(nullptr, [&](const VrfIpAddress&) {
        if (++changes % 3 == 0) {
            removeOne();
        } else if (changes % 5 == 0) {
            addOne();
        }
    });

    uint32_t bookmarksRemoved = 0;
    while (turn()) {
        const uint32_t* next = table_.find(sm->bookmark());
        if (next && *next >= staying) {
            table_.del(VrfIpAddress(sm->bookmark()));
            ++bookmarksRemoved;
        }
        for (int i = 0; i < (alwaysYield() ? 2 : 200); ++i) {
            removeOne();
            addOne();
        }
    }

    EXPECT_GT(bookmarksRemoved, 0u);
    EXPECT_GT(table_.count(), 2 * (staying + going));
    for (uint32_t host = 0; host < staying; ++host) {
        ASSERT_EQ(table_.value(keyOf(host)), host);
        ASSERT_TRUE(sm->met().contains(keyOf(host))) << keyOf(host);
    }
    expectMirrored(*sm);
}

TEST_F(WalkUnderChangeTest, EndsWhenTheTableIsEmptiedBetweenTwoSlices) {
    addHosts(0, 3000);
    auto sm = makeMirror();
    turn();
    ASSERT_TRUE(sm->bookmark());
    size_t metBefore = sm->met().size();
    table_.delAll();
    EXPECT_EQ(runUntilIdle(), 1u);
    EXPECT_FALSE(sm->bookmark());
    EXPECT_EQ(sm->met().size(), metBefore);
    expectMirrored(*sm);
}

TEST_F(WalkUnderChangeTest, GoesOnWhenTheVrfItStoppedInIsGone) {
    addHosts(0, 3000);
    auto sm = makeMirror();
    turn();
    ASSERT_TRUE(sm->bookmark());

    auto gone = sm->bookmark().vrfInfo();
    for (auto vlan = status_->vlanL3InfoCollection().first(); vlan; ++vlan) {
        if (vlan.value()->vrfInfo() == gone) {
            status_->delVrfInterfaceWatch(vlan.value());
            status_->vlanL3InfoDel(vlan.key());
        }
    }
    ASSERT_TRUE(gone->destroyed());
    std::vector<VrfIpAddress> staying;
    for (auto entry = table_.first(); entry; ++entry) {
        if (entry.key().vrfInfo() == gone) {
            table_.del(entry.key());
        } else {
            staying.push_back(entry.key());
        }
    }
    ASSERT_GE(staying.size(), 1500u);

    runUntilIdle();
    for (const VrfIpAddress& key : staying) {
        ASSERT_TRUE(sm->met().contains(key)) << key;
    }
    expectMirrored(*sm);
}

} // namespace
