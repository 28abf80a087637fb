// The walk of VlanL3InfoSm, and changes that are made while it makes its own.

#include "ArpSuppression/test/VlanL3InfoSmFixture.h"

#include "Platform/State/DumpContext.h"
#include "Testing/TraceCapture.h"

#include <utility>

namespace ArpSuppression {

namespace {

using Bridging::VlanId;
using Testing::TraceCapture;

/// VLANs 10 to 50 stand in the status when the machine starts, all of them in VRF "red"; each takes
/// longer than a slice may.
class VlanL3InfoSmWalkTest : public VlanL3InfoSmFixture {
  protected:
    VlanL3InfoSmWalkTest() {
        slow_ = l3->vlanL3InfoCollection().react(
            nullptr, [this](VlanId) { clock().advance(std::chrono::milliseconds(1)); });
        for (unsigned vlan : {10, 20, 30, 40, 50}) {
            status()->vlanIdIs(VlanId(vlan), true);
            ipv4Is(vlan, "red");
        }
        smIs();
    }
    void turnUntilAnnounced(size_t count) {
        while (announced.size() < count && turn()) {
        }
        ASSERT_EQ(announced.size(), count);
    }

  private:
    Vela::Reaction slow_;
};

TEST_F(VlanL3InfoSmWalkTest, yieldsAfterEachThatTookTooLong) {
    TraceCapture capture("ArpSuppression=8");
    for (size_t count : {1u, 2u, 3u, 4u, 5u}) {
        EXPECT_TRUE(sm->walkScheduled());
        EXPECT_FALSE(l3->initialArpSuppressionStatusSync());
        turnUntilAnnounced(count);
    }
    runUntilIdle();
    EXPECT_EQ(announced, (Vlans{10, 20, 30, 40, 50}));
    EXPECT_TRUE(l3->initialArpSuppressionStatusSync());
    EXPECT_EQ(capture.count("finished processed=1 moreWork=yes\n"), 4u) << capture.text();
    EXPECT_EQ(capture.count("finished processed=1 moreWork=no\n"), 1u);
}

TEST_F(VlanL3InfoSmWalkTest, dumpsWhereItGoesOn) {
    turnUntilAnnounced(2);
    Vela::DumpContext dump;
    sm->dumpState(dump, 0);
    EXPECT_EQ(dump.text().find("VlanL3InfoSm\n  bookmark=30\n"), 0u) << dump.text();
}

TEST_F(VlanL3InfoSmWalkTest, goesOnBehindABookmarkThatIsGone) {
    turnUntilAnnounced(2);
    status()->vlanIdDel(VlanId(30));
    runUntilIdle();
    EXPECT_EQ(announced, (Vlans{10, 20, 40, 50}));
    EXPECT_TRUE(l3->initialArpSuppressionStatusSync());
}

TEST_F(VlanL3InfoSmWalkTest, removalsBehindAndBeforeTheBookmark) {
    turnUntilAnnounced(2);
    status()->vlanIdDel(VlanId(10));
    status()->vlanIdDel(VlanId(50));
    runUntilIdle();
    EXPECT_EQ(announced, (Vlans{10, 20, 10, 30, 40}));
    EXPECT_EQ(vrfOf(10), "-");
    EXPECT_EQ(vrfOf(50), "-");
}

TEST_F(VlanL3InfoSmWalkTest, additionsBehindAndBeforeTheBookmark) {
    turnUntilAnnounced(2);
    ipv4Is(15, "red");
    ipv4Is(35, "red");
    status()->vlanIdIs(VlanId(15), true); // handled at once
    status()->vlanIdIs(VlanId(35), true);
    EXPECT_EQ(announced, (Vlans{10, 20, 15, 35}));
    runUntilIdle();
    EXPECT_EQ(announced, (Vlans{10, 20, 15, 35, 30, 40, 50}));
}

TEST_F(VlanL3InfoSmWalkTest, endsWhereEverythingIsGone) {
    turnUntilAnnounced(2);
    status()->vlanIdDelAll();
    TraceCapture capture("ArpSuppression=8");
    runUntilIdle();
    EXPECT_EQ(capture.count("finished processed=0 moreWork=no\n"), 1u) << capture.text();
    EXPECT_TRUE(l3->initialArpSuppressionStatusSync());
    EXPECT_EQ(l3->vlanL3InfoCollection().count(), 0u);
}

TEST_F(VlanL3InfoSmWalkTest, interfacesThatMoveMeanwhile) {
    turnUntilAnnounced(2);
    ipv4Is(20, "blue");
    EXPECT_EQ(vrfOf(20), "blue");
    ipv4Is(40, "blue"); // is handled at once, and met again
    auto forty = record(40);
    runUntilIdle();
    EXPECT_EQ(record(40), forty);
    EXPECT_EQ(vrfOf(40), "blue");
    EXPECT_EQ(announced, (Vlans{10, 20, 20, 20, 40, 30, 50}));
}

TEST_F(VlanL3InfoSmWalkTest, oneThatEndsMeanwhileWalksNoMore) {
    turnUntilAnnounced(2);
    sm->destroy();
    runUntilIdle();
    EXPECT_EQ(announced, (Vlans{10, 20}));
    EXPECT_FALSE(l3->initialArpSuppressionStatusSync());
}

TEST_F(VlanL3InfoSmFixture, entriesThatAreFalseAreVisitedAndHaveNoRecord) {
    status()->vlanIdIs(VlanId(10), false);
    status()->vlanIdIs(VlanId(20), true);
    ipv4Is(10, "red");
    ipv4Is(20, "red");
    TraceCapture capture("ArpSuppression=8");
    smIs();
    runUntilIdle();
    EXPECT_EQ(capture.count("No arpSuppressionStatus vlanId=10\n"), 1u) << capture.text();
    EXPECT_EQ(vrfOf(10), "-");
    EXPECT_EQ(vrfOf(20), "red");
}

TEST_F(VlanL3InfoSmFixture, anEmptyStatusIsInStepAfterOneWalk) {
    unsigned changes = 0;
    auto reaction =
        l3->initialArpSuppressionStatusSyncAttribute().react(nullptr, [&] { ++changes; });
    smIs();
    EXPECT_FALSE(l3->initialArpSuppressionStatusSync());
    runUntilIdle();
    EXPECT_TRUE(l3->initialArpSuppressionStatusSync());
    enable(10);
    runUntilIdle();
    EXPECT_EQ(changes, 1u);
}

// Changes within changes

/// Somebody publishes VLANs as active that EVPN serves and that can be used, as soon as he hears
/// of anything; an entry that should not be there he removes.
class Publisher final : public Vela::Entity {
  public:
    Publisher(const Vela::Ptr<VlanL3InfoStatus>& l3, const Vela::Ptr<EnabledVlans>& enabledVlans,
              const Vela::Ptr<ArpSuppressionStatus>& status)
        : l3_(*l3), enabledVlans_(*enabledVlans), status_(*status) {
        record_ = l3_.vlanL3InfoCollection().react(this, [this](VlanId vlanId) { look(vlanId); });
        updated_ = l3_.updatedVlanIdAttribute().react(this, [this] {
            if (l3_.updatedVlanId()) {
                look(l3_.updatedVlanId().vlanId());
            }
        });
    }
    const char* typeName() const noexcept override { return "Publisher"; }

    unsigned looks = 0;

  private:
    void look(VlanId vlanId) {
        ++looks;
        if (enabledVlans_.vlanIdHas(vlanId) && l3_.usableVlanL3Info(vlanId)) {
            status_.vlanIdIs(vlanId, true);
        } else {
            status_.vlanIdDel(vlanId);
        }
    }

    VlanL3InfoStatus& l3_;
    EnabledVlans& enabledVlans_;
    ArpSuppressionStatus& status_;
    Vela::Reaction record_;
    Vela::Reaction updated_;
};

class VlanL3InfoSmNestedTest : public VlanL3InfoSmFixture {
  protected:
    ~VlanL3InfoSmNestedTest() override { status()->vlanIdDelAll(); }

    void publisherIs() { publisher_ = Vela::make<Publisher>(l3, enabledVlans, status()); }
    unsigned looks() { return std::exchange(publisher_->looks, 0); }
    bool active(unsigned vlan) { return status()->vlanIdCollection().value(VlanId(vlan)); }

    void expectAMoveToLeaveOneRecord() {
        Testing::deviceIs(state(), "Vlan10", 1010);
        enable(10);
        ipv4Is(10, "red");
        runUntilIdle();
        ASSERT_TRUE(active(10));
        auto before = record(10);
        announced.clear();
        ipv4Is(10, "blue");
        EXPECT_EQ(announced, (Vlans{10, 10})); // one goes, one comes
        EXPECT_EQ(vrfOf(10), "blue");
        EXPECT_NE(record(10), before);
        EXPECT_EQ(l3->vrfInterfaceWatch("Vlan10"), record(10));
        EXPECT_EQ(l3->vrfInfo("blue")->interfaceWatchCollection().count(), 1u);
        EXPECT_EQ(l3->vrfInfo("red"), nullptr);
        EXPECT_FALSE(sm->vrfInfoSm("red"));
        runUntilIdle();
        EXPECT_TRUE(active(10));
        EXPECT_EQ(record(10)->kniIntfIfIndex(), 1010u);
        EXPECT_EQ(announced, (Vlans{10, 10}));
        EXPECT_LE(looks(), 8u);
        runUntilIdle();
        EXPECT_EQ(looks(), 0u); // settled
        enabledVlans->vlanIdDel(VlanId(10));
        status()->vlanIdDel(VlanId(10));
        EXPECT_EQ(l3->vrfInfoCollection().count(), 0u); // none was asked for once more
    }

  private:
    Vela::Owned<Publisher> publisher_;
};

TEST_F(VlanL3InfoSmNestedTest, anActiveVlanThatMovesGetsOneRecordWhereThePublisherHearsFirst) {
    publisherIs();
    smIs();
    expectAMoveToLeaveOneRecord();
}

TEST_F(VlanL3InfoSmNestedTest, anActiveVlanThatMovesGetsOneRecordWhereThePublisherHearsLast) {
    smIs();
    publisherIs();
    expectAMoveToLeaveOneRecord();
}

TEST_F(VlanL3InfoSmNestedTest, anEntryOfAnEarlierRunThatIsRemovedWhileItsRecordIsMade) {
    for (bool publisherFirst : {true, false}) {
        status()->vlanIdIs(VlanId(10), true); // nobody serves it any more
        ipv4Is(10, "red");
        if (publisherFirst) {
            publisherIs();
        }
        smIs();
        if (!publisherFirst) {
            publisherIs();
        }
        announced.clear();
        runUntilIdle();
        EXPECT_FALSE(status()->vlanIdHas(VlanId(10)));
        EXPECT_EQ(announced, (Vlans{10, 10}));
        EXPECT_EQ(vrfOf(10), "-");
        EXPECT_EQ(l3->vrfInterfaceWatch("Vlan10"), nullptr);
        EXPECT_EQ(l3->vrfInfo("red"), nullptr);
        EXPECT_FALSE(sm->vlanL3AddrSm(VlanId(10)));
        EXPECT_TRUE(l3->initialArpSuppressionStatusSync());
        sm->destroy();
    }
}

TEST_F(VlanL3InfoSmNestedTest, aVlanThatMovesOnWhileItMoves) {
    smIs();
    enable(10);
    ipv4Is(10, "red");
    auto reaction = l3->vlanL3InfoCollection().react(nullptr, [&](VlanId) {
        if (!record(10)) {
            ipv4Is(10, "default");
        }
    });
    announced.clear();
    ipv4Is(10, "blue");
    EXPECT_EQ(vrfOf(10), "default");
    EXPECT_EQ(announced, (Vlans{10, 10}));
    EXPECT_EQ(l3->vrfInterfaceWatch("Vlan10"), record(10));
    EXPECT_EQ(l3->vrfInfo("blue"), nullptr);
    EXPECT_EQ(l3->vrfInfo("red"), nullptr);
}

TEST_F(VlanL3InfoSmNestedTest, aVlanThatMovesOnWhileItsRecordIsMade) {
    smIs();
    enable(10);
    auto reaction = l3->vlanL3InfoCollection().react(nullptr, [&](VlanId) {
        if (vrfOf(10) == "red") {
            ipv4Is(10, "blue"); // this record is not registered yet
        }
    });
    ipv4Is(10, "red");
    EXPECT_EQ(vrfOf(10), "blue");
    EXPECT_EQ(announced, (Vlans{10, 10, 10}));
    EXPECT_EQ(l3->vrfInterfaceWatch("Vlan10"), record(10));
    EXPECT_EQ(l3->vrfInfo("red"), nullptr);
    EXPECT_EQ(sm->vlanL3AddrSm(VlanId(10))->vlanL3Info(), record(10));
}

TEST_F(VlanL3InfoSmNestedTest, aVlanThatMovesOnWhileItsVrfIsMade) {
    smIs();
    enable(10);
    auto reaction = l3->vrfInfoCollection().react(nullptr, [&](const L3::VrfName& name) {
        if (name == L3::VrfName("red") && l3->vrfInfo("red") && vrfOf(10) == "-") {
            ipv4Is(10, "blue");
        }
    });
    ipv4Is(10, "red");
    EXPECT_EQ(vrfOf(10), "blue");
    EXPECT_EQ(announced, Vlans{10});
    EXPECT_EQ(l3->vrfInterfaceWatch("Vlan10"), record(10));
}

TEST_F(VlanL3InfoSmNestedTest, oneThatEndsAtItsOwnAnnouncement) {
    for (bool atRemoval : {false, true}) {
        announced.clear();
        smIs();
        enable(10);
        if (atRemoval) {
            ipv4Is(10, "red");
        }
        auto reaction = l3->vlanL3InfoCollection().react(nullptr, [&](VlanId) {
            if (sm && (record(10) == nullptr) == atRemoval) {
                auto old = std::exchange(sm, nullptr);
                old->destroy();
            }
        });
        ipv4Is(10, atRemoval ? "blue" : "red");
        EXPECT_FALSE(sm);
        EXPECT_EQ(vrfOf(10), atRemoval ? "-" : "red");
        if (record(10)) {
            l3->delVrfInterfaceWatch(record(10));
            l3->vlanL3InfoDel(VlanId(10));
        }
        enabledVlans->vlanIdDelAll();
        ipv4Del(10);
    }
}

} // namespace

} // namespace ArpSuppression
