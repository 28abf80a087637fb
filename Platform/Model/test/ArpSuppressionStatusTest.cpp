#include "Platform/Model/ArpSuppression/ArpSuppressionStatus.h"

#include "Platform/Model/test/ExpectModel.h"
#include "Platform/State/test/StateFixture.h"

#include <array>
#include <csignal>
#include <functional>
#include <utility>

namespace ArpSuppression {
namespace {

using Bridging::VlanId;
using Image = std::array<uint8_t, ArpSuppressionStatus::imageBytes>;
using Vela::make;
using Vela::Ptr;

/// Kept in an image, and not.
class ArpSuppressionStatusTest : public Vela::StateFixture,
                                 public ::testing::WithParamInterface<bool> {
  protected:
    std::span<uint8_t> image() { return GetParam() ? image_ : std::span<uint8_t>(); }

    Image image_{};
    const Ptr<ArpSuppressionStatus> status_ = make<ArpSuppressionStatus>(image());
};

INSTANTIATE_TEST_SUITE_P(Kept, ArpSuppressionStatusTest, ::testing::Bool(),
                         [](const auto& kept) { return kept.param ? "InAnImage" : "Nowhere"; });

TEST_P(ArpSuppressionStatusTest, StartsEmpty) {
    EXPECT_FALSE(status_->runnable());
    EXPECT_EQ(status_->vlanIds(), 0u);
    EXPECT_FALSE(status_->vlanIdHas(VlanId(10)));
}

TEST_P(ArpSuppressionStatusTest, Runnable) {
    expectAttribute(*status_, &ArpSuppressionStatus::runnableAttribute,
                    &ArpSuppressionStatus::runnable, &ArpSuppressionStatus::runnableIs, true);
    EXPECT_EQ(status_->vlanIds(), 0u);
}

TEST_P(ArpSuppressionStatusTest, VlanId) {
    expectValues(*status_, &ArpSuppressionStatus::vlanIdCollection, &ArpSuppressionStatus::vlanIdIs,
                 &ArpSuppressionStatus::vlanIdDel, &ArpSuppressionStatus::vlanIdDelAll, VlanId(1),
                 VlanId(4094), true, false);
    EXPECT_FALSE(status_->runnable());
}

TEST_P(ArpSuppressionStatusTest, CountsAndFindsVlans) {
    status_->vlanIdIs(VlanId(10), false);
    status_->vlanIdIs(VlanId(20), true);
    EXPECT_EQ(status_->vlanIds(), 2u);
    EXPECT_TRUE(status_->vlanIdHas(VlanId(10)));
    EXPECT_FALSE(status_->vlanIdHas(VlanId(11)));
}

TEST_P(ArpSuppressionStatusTest, ReactionMayDropItWhileAllVlansGo) {
    auto status = make<ArpSuppressionStatus>(image());
    status->vlanIdIs(VlanId(10), true);
    status->vlanIdIs(VlanId(20), true);
    std::vector<VlanId> seen;
    auto reaction = status->vlanIdCollection().react(nullptr, [&](VlanId vlanId) {
        seen.push_back(vlanId);
        status.reset();
    });
    status->vlanIdDelAll();
    EXPECT_EQ(status, nullptr);
    EXPECT_EQ(seen, (std::vector{VlanId(10), VlanId(20)}));
    EXPECT_EQ(image_, Image{});
}

TEST_P(ArpSuppressionStatusTest, Dump) {
    status_->runnableIs(true);
    status_->vlanIdIs(VlanId(20), false);
    status_->vlanIdIs(VlanId(10), true);
    EXPECT_EQ(dump(*status_, 2), "  ArpSuppression::ArpSuppressionStatus\n"
                                 "    runnable=yes\n"
                                 "    vlanId[] #2\n"
                                 "      10 -> yes\n"
                                 "      20 -> no\n");
}

class ArpSuppressionStatusImageTest : public Vela::StateFixture {
  protected:
    ArpSuppressionStatusImageTest() { status_ = make<ArpSuppressionStatus>(image_); }

    /// As the next process finds it.
    std::string reloaded() {
        Image found = image_;
        return dump(*make<ArpSuppressionStatus>(found));
    }

    Image image_{};
    Ptr<ArpSuppressionStatus> status_;
};

TEST_F(ArpSuppressionStatusImageTest, HoldsWhatTheStatusHolds) {
    EXPECT_EQ(image_, Image{});
    Image expected{};
    status_->runnableIs(true);
    expected[0] = 1;
    EXPECT_EQ(image_, expected);
    status_->vlanIdIs(VlanId(1), false);
    status_->vlanIdIs(VlanId(4094), true);
    expected[1] = 1;
    expected[4094] = 2;
    EXPECT_EQ(image_, expected);
    status_->vlanIdIs(VlanId(1), true);
    status_->vlanIdDel(VlanId(4094));
    expected[1] = 2;
    expected[4094] = 0;
    EXPECT_EQ(image_, expected);
    status_->runnableIs(false);
    status_->vlanIdDelAll();
    EXPECT_EQ(image_, Image{});
}

TEST_F(ArpSuppressionStatusImageTest, OutlivesTheStatus) {
    status_->runnableIs(true);
    status_->vlanIdIs(VlanId(10), true);
    status_->vlanIdIs(VlanId(20), false);
    const Image before = image_;
    const std::string state = dump(*status_);
    status_->destroy();
    status_.reset();
    EXPECT_EQ(image_, before);
    EXPECT_EQ(reloaded(), state);
}

TEST_F(ArpSuppressionStatusImageTest, ClearsWhatItDoesNotKnow) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        SCOPED_TRACE(byte);
        Image image;
        image.fill(static_cast<uint8_t>(byte));
        auto status = make<ArpSuppressionStatus>(image);
        EXPECT_EQ(status->runnable(), byte == 1);
        EXPECT_EQ(image[0], byte == 1 ? 1 : 0);
        EXPECT_EQ(status->vlanIds(), byte == 1 || byte == 2 ? 4094u : 0u);
        for (unsigned vlan : {1, 2, 4093, 4094}) {
            const bool* active = status->vlanIdCollection().find(VlanId(vlan));
            EXPECT_EQ(active != nullptr, byte == 1 || byte == 2);
            EXPECT_EQ(active && *active, byte == 2);
            EXPECT_EQ(image[vlan], byte == 1 || byte == 2 ? byte : 0);
        }
    }
}

TEST_F(ArpSuppressionStatusImageTest, OneBadByteCostsNoOther) {
    image_[0] = 1;
    image_[10] = 2;
    image_[11] = 3;
    image_[12] = 1;
    EXPECT_EQ(dump(*make<ArpSuppressionStatus>(image_)), "ArpSuppression::ArpSuppressionStatus\n"
                                                         "  runnable=yes\n"
                                                         "  vlanId[] #2\n"
                                                         "    10 -> yes\n"
                                                         "    12 -> no\n");
    EXPECT_EQ(image_[10], 2);
    EXPECT_EQ(image_[11], 0);
    EXPECT_EQ(image_[12], 1);
}

TEST_F(ArpSuppressionStatusImageTest, IsWrittenBeforeTheChangeIsAnnounced) {
    unsigned announced = 0;
    auto compare = [&] {
        ++announced;
        EXPECT_EQ(reloaded(), dump(*status_));
    };
    auto runnable = status_->runnableAttribute().react(nullptr, compare);
    auto vlanId = status_->vlanIdCollection().react(nullptr, [&](VlanId) { compare(); });
    const std::function<void()> changes[] = {
        [&] { status_->runnableIs(true); },           [&] { status_->vlanIdIs(VlanId(10), false); },
        [&] { status_->vlanIdIs(VlanId(10), true); }, [&] { status_->vlanIdDel(VlanId(10)); },
        [&] { status_->runnableIs(false); },
    };
    for (const auto& change : changes) {
        unsigned before = announced;
        change();
        EXPECT_EQ(announced, before + 1);
    }
    for (unsigned vlan : {10, 20, 30}) {
        status_->vlanIdIs(VlanId(vlan), true);
    }
    unsigned before = announced;
    status_->vlanIdDelAll();
    EXPECT_EQ(announced, before + 3);
}

TEST_F(ArpSuppressionStatusImageTest, FollowsReactionsThatChangeTheStatusWhileAllVlansGo) {
    status_->vlanIdIs(VlanId(10), true);
    status_->vlanIdIs(VlanId(20), true);
    bool once = true;
    auto reaction = status_->vlanIdCollection().react(nullptr, [&](VlanId) {
        if (std::exchange(once, false)) {
            status_->vlanIdIs(VlanId(5), true);  // its turn is over
            status_->vlanIdIs(VlanId(30), true); // still to come
        }
    });
    status_->vlanIdDelAll();
    EXPECT_TRUE(status_->vlanIdHas(VlanId(5)));
    EXPECT_EQ(status_->vlanIds(), 1u);
    EXPECT_EQ(reloaded(), dump(*status_));
}

TEST_F(ArpSuppressionStatusImageTest, HasOneSize) {
    std::array<uint8_t, ArpSuppressionStatus::imageBytes - 1> shorter{};
    EXPECT_EXIT(make<ArpSuppressionStatus>(shorter), ::testing::KilledBySignal(SIGABRT),
                "image.size\\(\\) == imageBytes");
}

} // namespace
} // namespace ArpSuppression
