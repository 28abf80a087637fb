#include "ArpSuppression/ArpInputConfigTrigger.h"

#include "Platform/State/DumpContext.h"
#include "Testing/CoreFixture.h"

#include <utility>
#include <vector>

namespace ArpSuppression {
namespace {

using Vela::make;
using Vela::Ptr;
using Zinc::IpGenAddr;

class ArpInputConfigTriggerTest : public Testing::CoreFixture {
  protected:
    const Ptr<ArpInputConfigTrigger> trigger_ = arpInputConfigTriggerFactory();
    const VrfIpAddress address1_{make<VrfInfo>("red"), IpGenAddr("10.0.0.1")};
    const VrfIpAddress address2_{address1_.vrfInfo(), IpGenAddr("10.0.0.2")};
};

TEST_F(ArpInputConfigTriggerTest, StartsEmpty) {
    EXPECT_FALSE(trigger_->vrfIpAddress());
    EXPECT_FALSE(trigger_->suppressionEvent());
    EXPECT_EQ(trigger_->trigger(), 0u);
}

TEST_F(ArpInputConfigTriggerTest, AnnouncesEveryEventWithItsFieldsInPlace) {
    std::vector<std::pair<VrfIpAddress, bool>> handled;
    auto reaction = trigger_->triggerAttribute().react(nullptr, [&] {
        handled.emplace_back(trigger_->vrfIpAddress(), trigger_->suppressionEvent());
    });
    trigger_->event(address1_, true);
    trigger_->event(address1_, true);
    EXPECT_EQ(trigger_->trigger(), 2u);
    trigger_->event(address2_, false);
    EXPECT_EQ(trigger_->trigger(), 3u);
    EXPECT_EQ(handled, (std::vector<std::pair<VrfIpAddress, bool>>{
                           {address1_, true}, {address1_, true}, {address2_, false}}));
}

TEST_F(ArpInputConfigTriggerTest, AnnouncesNoTriggerThatStays) {
    std::vector<uint32_t> seen;
    auto reaction =
        trigger_->triggerAttribute().react(nullptr, [&] { seen.push_back(trigger_->trigger()); });
    trigger_->triggerIs(0);
    trigger_->triggerInc(0);
    EXPECT_TRUE(seen.empty());
    trigger_->triggerIs(5);
    trigger_->triggerIs(5);
    trigger_->triggerInc(0);
    trigger_->triggerInc(3);
    EXPECT_EQ(seen, (std::vector<uint32_t>{5, 8}));
    EXPECT_FALSE(trigger_->vrfIpAddress());
}

TEST_F(ArpInputConfigTriggerTest, WithoutObserverEventsOnlyUpdateTheAttributes) {
    trigger_->event(address1_, true);
    EXPECT_EQ(trigger_->vrfIpAddress(), address1_);
    EXPECT_TRUE(trigger_->suppressionEvent());
    EXPECT_EQ(trigger_->trigger(), 1u);
    trigger_->event(VrfIpAddress(), false);
    EXPECT_FALSE(trigger_->vrfIpAddress());
    EXPECT_FALSE(trigger_->suppressionEvent());
    EXPECT_EQ(trigger_->trigger(), 2u);
}

TEST_F(ArpInputConfigTriggerTest, TakesItsOwnAddress) {
    trigger_->event(address1_, true);
    trigger_->event(trigger_->vrfIpAddress(), false);
    EXPECT_EQ(trigger_->vrfIpAddress(), address1_);
    EXPECT_EQ(trigger_->trigger(), 2u);
}

TEST_F(ArpInputConfigTriggerTest, LetsGoOfTheVrfOfTheEventBefore) {
    uint64_t before = Vela::Entity::liveCount();
    trigger_->event(VrfIpAddress(make<VrfInfo>("blue"), IpGenAddr("10.0.0.1")), true);
    EXPECT_EQ(Vela::Entity::liveCount(), before + 1);
    trigger_->event(address1_, true);
    EXPECT_EQ(Vela::Entity::liveCount(), before);
}

TEST_F(ArpInputConfigTriggerTest, TheCounterWrapsAround) {
    unsigned announced = 0;
    auto reaction = trigger_->triggerAttribute().react(nullptr, [&] { ++announced; });
    trigger_->triggerIs(0xFFFF'FFFF);
    trigger_->event(address1_, false);
    EXPECT_EQ(trigger_->trigger(), 0u);
    EXPECT_EQ(announced, 2u);
}

TEST_F(ArpInputConfigTriggerTest, Dumps) {
    trigger_->event(address1_, true);
    Vela::DumpContext context;
    trigger_->dumpState(context, 2);
    EXPECT_EQ(context.text(), "  ArpInputConfigTrigger <vrfIpAddress=" + address1_.toStrep() +
                                  " suppressionEvent=yes trigger=1>\n");
}

} // namespace
} // namespace ArpSuppression
