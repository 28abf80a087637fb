#include "ArpSuppression/VrfUseTracker.h"

#include "Platform/State/DumpContext.h"
#include "Testing/CoreFixture.h"
#include "Testing/TraceCapture.h"

#include <csignal>

namespace ArpSuppression {
namespace {

using Vela::make;
using Vela::Ptr;

/// A table of bindings without the bindings.
class Tracker final : public VrfUseTracker {
  public:
    explicit Tracker(Ptr<VlanL3InfoStatus> status) : VrfUseTracker(std::move(status)) {}
    const char* typeName() const noexcept override { return "Tracker"; }
    void dumpState(Vela::DumpContext& context, int indent) const override {
        dumpVrfUseTrackerState(context, indent);
    }
    using VrfUseTracker::vrfReferenceCountDel;
    using VrfUseTracker::vrfReferenceCountIs;
};

class VrfUseTrackerTest : public Testing::CoreFixture {
  protected:
    ~VrfUseTrackerTest() override {
        tracker_->destroy();
        status_->destroy();
    }

    /// A VRF that stays while it has users and no longer.
    Ptr<VrfInfo> addVrf(const char* name) {
        auto watch = status_->findOrCreateVrfInterfaceWatch(name, name);
        auto keep = make<VrfUser>(watch->vrfInfo());
        status_->addVrfUser(keep);
        status_->delVrfInterfaceWatch(watch);
        tracker_->referenceVrf(keep->vrfInfo());
        status_->delVrfUser(keep);
        return keep->vrfInfo();
    }
    bool hasRed() { return status_->vrfInfoCollection().has("red"); }

    const Ptr<VlanL3InfoStatus> status_ = make<VlanL3InfoStatus>();
    const Ptr<Tracker> tracker_ = make<Tracker>(status_);
};

TEST_F(VrfUseTrackerTest, KeepsAVrfUntilItsLastRelease) {
    auto red = addVrf("red"); // referenced once
    tracker_->referenceVrf(red);
    tracker_->referenceVrf(red);
    EXPECT_EQ(tracker_->vrfReferenceCount(red), 3u);
    EXPECT_EQ(red->userCollection().count(), 1u);

    tracker_->releaseVrf(red);
    tracker_->releaseVrf(red);
    EXPECT_EQ(tracker_->vrfReferenceCount(red), 1u);
    EXPECT_TRUE(tracker_->vrfUserHas(red));
    EXPECT_EQ(red->userCollection().count(), 1u);
    EXPECT_TRUE(hasRed());

    auto user = tracker_->vrfUserCollection().value(red);
    tracker_->releaseVrf(red);
    EXPECT_FALSE(tracker_->vrfReferenceCountHas(red));
    EXPECT_FALSE(tracker_->vrfUserHas(red));
    EXPECT_EQ(red->userCollection().count(), 0u);
    EXPECT_TRUE(user->destroyed());
    EXPECT_TRUE(red->destroyed());
    EXPECT_FALSE(hasRed());
}

TEST_F(VrfUseTrackerTest, RegistersItsOwnUser) {
    auto red = addVrf("red");
    auto user = tracker_->vrfUserCollection().value(red);
    ASSERT_NE(user, nullptr);
    EXPECT_EQ(user->vrfInfo(), red);
    EXPECT_TRUE(red->userCollection().value(user));
    EXPECT_EQ(tracker_->vlanL3InfoStatus(), status_);
}

TEST_F(VrfUseTrackerTest, TwoTrackersHaveAUserEach) {
    auto other = make<Tracker>(status_);
    auto red = addVrf("red");
    other->referenceVrf(red);
    other->referenceVrf(red);
    EXPECT_EQ(red->userCollection().count(), 2u);
    EXPECT_NE(tracker_->vrfUserCollection().value(red), other->vrfUserCollection().value(red));

    other->releaseVrf(red);
    other->releaseVrf(red);
    EXPECT_EQ(red->userCollection().count(), 1u);
    EXPECT_TRUE(red->userCollection().has(tracker_->vrfUserCollection().value(red)));
    EXPECT_EQ(tracker_->vrfReferenceCount(red), 1u);
    EXPECT_TRUE(hasRed());
    tracker_->releaseVrf(red);
    EXPECT_FALSE(hasRed());
}

TEST_F(VrfUseTrackerTest, ReferencingBeforeReleasingNeverUnregisters) {
    auto red = addVrf("red");
    unsigned announced = 0;
    auto reaction = red->userCollection().react(nullptr, [&](const Ptr<VrfUser>&) { ++announced; });
    tracker_->referenceVrf(red); // the new binding
    tracker_->releaseVrf(red);   // the one that it replaces
    EXPECT_EQ(announced, 0u);
    EXPECT_EQ(tracker_->vrfReferenceCount(red), 1u);
}

TEST_F(VrfUseTrackerTest, CountsEachVrfForItself) {
    auto red = addVrf("red");
    auto blue = addVrf("blue");
    tracker_->referenceVrf(blue);
    tracker_->releaseVrf(red);
    EXPECT_FALSE(hasRed());
    EXPECT_EQ(tracker_->vrfReferenceCount(blue), 2u);
    EXPECT_EQ(blue->userCollection().count(), 1u);
    EXPECT_EQ(tracker_->vrfUserCollection().count(), 1u);
    EXPECT_EQ(tracker_->vrfReferenceCountCollection().count(), 1u);
}

TEST_F(VrfUseTrackerTest, AVrfThatCameBackIsAnother) {
    auto gone = addVrf("red");
    tracker_->releaseVrf(gone);
    auto red = addVrf("red");
    EXPECT_NE(red, gone);
    EXPECT_EQ(tracker_->vrfReferenceCount(gone), 0u);
    EXPECT_EQ(tracker_->vrfReferenceCount(red), 1u);
}

TEST_F(VrfUseTrackerTest, TakesAReferenceThatGoesMeanwhile) {
    addVrf("red");
    tracker_->releaseVrf(tracker_->vrfUserCollection().first().value()->vrfInfo());
    EXPECT_EQ(tracker_->vrfUserCollection().count(), 0u);
    EXPECT_FALSE(hasRed());
}

TEST_F(VrfUseTrackerTest, UnregistersItsUsersAtItsEnd) {
    auto other = make<Tracker>(status_);
    auto red = addVrf("red");
    auto blue = addVrf("blue");
    tracker_->referenceVrf(red);
    other->referenceVrf(blue);
    tracker_->destroy();
    EXPECT_EQ(tracker_->vrfUserCollection().count(), 0u);
    EXPECT_EQ(tracker_->vrfReferenceCountCollection().count(), 0u);
    EXPECT_EQ(red->userCollection().count(), 0u);
    EXPECT_FALSE(hasRed());
    EXPECT_EQ(status_->vrfInfo("blue"), blue);
    EXPECT_TRUE(blue->userCollection().has(other->vrfUserCollection().value(blue)));
    EXPECT_EQ(blue->userCollection().count(), 1u);
}

TEST_F(VrfUseTrackerTest, UnregistersItsUsersWithItsLastReference) {
    auto red = addVrf("red");
    auto other = make<Tracker>(status_);
    other->referenceVrf(red);
    uint64_t before = Vela::Entity::liveCount();
    other.reset();
    EXPECT_EQ(Vela::Entity::liveCount(), before - 2); // the tracker and its user
    EXPECT_EQ(red->userCollection().count(), 1u);
}

TEST_F(VrfUseTrackerTest, MayEndAfterTheStatus) {
    auto red = addVrf("red");
    status_->destroy();
    EXPECT_EQ(tracker_->vrfReferenceCount(red), 1u);
    tracker_->destroy();
    EXPECT_EQ(tracker_->vrfUserCollection().count(), 0u);
}

TEST_F(VrfUseTrackerTest, Traces) {
    auto red = addVrf("red");
    red->vrfIdIs(Vrf::VrfId(3));
    tracker_->releaseVrf(red);
    Testing::TraceCapture lines("ArpSuppression=8");
    tracker_->referenceVrf(red);
    tracker_->referenceVrf(red);
    tracker_->releaseVrf(red);
    const std::string vrf = " vrfInfo=<vrfName=red vrfId=3>";
    EXPECT_EQ(lines.count(vrf + " alreadyPresent=no vrfReferenceCount=0\n"), 1u) << lines.text();
    EXPECT_EQ(lines.count(vrf + " alreadyPresent=yes vrfReferenceCount=1\n"), 1u);
    EXPECT_EQ(lines.count(vrf + " vrfReferenceCount=2\n"), 1u);
    EXPECT_EQ(lines.count("ArpSuppression/VrfUseTracker:"), 3u);
}

TEST_F(VrfUseTrackerTest, Dumps) {
    auto dump = [&] {
        Vela::DumpContext context;
        tracker_->dumpState(context, 2);
        return context.text();
    };
    EXPECT_EQ(dump(), "  vrfReferenceCount #0\n"
                      "  vrfUser #0\n");
    tracker_->referenceVrf(addVrf("red"));
    EXPECT_EQ(dump(), "  vrfReferenceCount #1\n"
                      "    red 2\n"
                      "  vrfUser #1\n"
                      "    red\n");
}

void expectAssertion(const char* function, const char* text,
                     void (*call)(Tracker&, const Ptr<VrfInfo>&)) {
    EXPECT_EXIT(
        {
            auto status = make<VlanL3InfoStatus>();
            auto tracker = make<Tracker>(status);
            call(*tracker, status->vrfInfoIs("red"));
        },
        testing::KilledBySignal(SIGABRT),
        std::string("(^|\n)ArpSuppression/VrfUseTracker:[0-9]+ ") + function +
            ": assertion failed \"" + text + "\"\n");
}

TEST(VrfUseTrackerDeathTest, ReleasesOnlyWhatWasReferenced) {
    expectAssertion("releaseVrf", "0 != referenceCount",
                    [](auto& tracker, const auto& red) { tracker.releaseVrf(red); });
    expectAssertion("releaseVrf", "0 != referenceCount", [](auto& tracker, const auto& red) {
        tracker.referenceVrf(red);
        tracker.releaseVrf(red);
        tracker.releaseVrf(red);
    });
}

TEST(VrfUseTrackerDeathTest, HasAUserForEachCount) {
    expectAssertion("releaseVrf", "vrfUserHas\\( vrfInfo \\)", [](auto& tracker, const auto& red) {
        tracker.vrfReferenceCountIs(red, 1);
        tracker.releaseVrf(red);
    });
    expectAssertion("referenceVrf", "vrfReferenceCountHas\\( vrfInfo \\)",
                    [](auto& tracker, const auto& red) {
                        tracker.referenceVrf(red);
                        tracker.vrfReferenceCountDel(red);
                        tracker.referenceVrf(red);
                    });
}

} // namespace
} // namespace ArpSuppression
