#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"

#include "Platform/Model/test/TableFixture.h"

#include <vector>

namespace ArpSuppression {

namespace {

class ArpSuppressionCounterStatusTest : public TableFixture {
  protected:
    Vela::Ptr<ArpSuppressionCounterStatus> counters =
        table<ArpSuppressionCounterStatus>("arpSuppression/counter");
};

TEST_F(ArpSuppressionCounterStatusTest, countersHaveTheirNumbersAndNames) {
    struct Row {
        ArpSuppressionCounterId id;
        const char* name;
    };
#define ROW(name)                                                                                  \
    { ArpSuppressionCounterId::name, #name }
    const std::vector<Row> rows = {
        ROW(inputPermanentAdded),
        ROW(inputPermanentRewritten),
        ROW(inputDynamicAdded),
        ROW(inputDynamicRewritten),
        ROW(inputDeleted),
        ROW(inputNoVlanL3Info),
        ROW(answeredFromRemoteBinding),
        ROW(answeredForDesignatedForwarder),
        ROW(answeredForNonDesignatedForwarder),
        ROW(unknownSourcePort),
        ROW(sourceAndTargetOnSamePort),
        ROW(sentToRemoteTeps),
        ROW(unused12),
        ROW(localTargetNotAnswered),
        ROW(replyFabricNotUsable),
        ROW(replyTransmitFailed),
        ROW(reinjectQueueDroppedOldest),
        ROW(staticBindingTriggered),
        ROW(staticBindingBadMac),
        ROW(staticBindingBadIp),
        ROW(staticBindingBridgeMac),
        ROW(staticBindingVarpMac),
        ROW(staticBindingNoVlanL3Info),
        ROW(targetIsMine),
        ROW(unused24),
        ROW(bindingBadMac),
        ROW(bindingBadIp),
        ROW(bindingBridgeMac),
        ROW(bindingVarpMac),
        ROW(bindingLocalMultihomedHost),
        ROW(bindingLocalMultihomedMac),
        ROW(bindingSeveralMacs),
        ROW(bindingNoVlanL3Info),
        ROW(bindingsFromLocalMac),
        ROW(bindingCreated),
        ROW(bindingRefreshed),
        ROW(bindingDeleted),
        ROW(varpArpMalformed),
        ROW(varpArpNotReply),
        ROW(varpArpExtraData),
        ROW(varpArpNotToVarpMac),
        ROW(varpArpAccepted),
        ROW(varpNaMalformed),
        ROW(varpNaNotToVarpMac),
        ROW(varpNaAccepted),
        ROW(trapReadFailed),
        ROW(trapMalformed),
        ROW(trapVlanNotSuppressed),
        ROW(trapArpNeitherRequestNorReply),
        ROW(trapArpExtraData),
        ROW(trapArpRequest),
        ROW(trapArpReply),
        ROW(trapNeighborSolicitation),
        ROW(trapNeighborAdvertisement),
        ROW(trapRouterSolicitation),
        ROW(reinjectWritten),
        ROW(reinjectWriteFailed),
        ROW(reinjectNoImetLabel),
    };
#undef ROW
    ASSERT_EQ(rows.size(), arpSuppressionCounters);
    uint32_t number = 0;
    for (const Row& row : rows) {
        EXPECT_EQ(static_cast<uint32_t>(row.id), number++) << row.name;
        EXPECT_STREQ(toStrep(row.id), row.name);
    }
    EXPECT_STREQ(toStrep(ArpSuppressionCounterId(58)), "?");
    EXPECT_STREQ(toStrep(ArpSuppressionCounterId(0xffffffff)), "?");
}

TEST_F(ArpSuppressionCounterStatusTest, allAreThereFromTheStart) {
    EXPECT_EQ(counters->counterCollection().count(), 58u);
    for (uint32_t number = 0; number < 58; ++number) {
        auto counter = counters->counterCollection().find({ArpSuppressionCounterId(number)});
        ASSERT_TRUE(counter) << number;
        EXPECT_EQ(counter->count, 0u);
    }
}

TEST_F(ArpSuppressionCounterStatusTest, eachCountsForItself) {
    for (uint32_t number = 0; number < 58; ++number) {
        for (uint32_t times = 0; times <= number; ++times) {
            counters->increment(ArpSuppressionCounterId(number));
        }
    }
    for (uint32_t number = 0; number < 58; ++number) {
        EXPECT_EQ(counters->count(ArpSuppressionCounterId(number)), number + 1);
    }
    EXPECT_EQ(counters->counterCollection().count(), 58u);
}

TEST_F(ArpSuppressionCounterStatusTest, announcesWhatIsCounted) {
    std::vector<ArpSuppressionCounterId> seen;
    auto reaction = counters->counterCollection().react(
        nullptr, [&](CounterKey key) { seen.push_back(key.id); });
    counters->increment(ArpSuppressionCounterId::targetIsMine);
    EXPECT_TRUE(seen.empty());
    runUntilIdle();
    EXPECT_EQ(seen, std::vector{ArpSuppressionCounterId::targetIsMine});
}

TEST_F(ArpSuppressionCounterStatusTest, thereIsNoRoomForAnother) {
    counters->increment(ArpSuppressionCounterId(58));
    EXPECT_EQ(counters->count(ArpSuppressionCounterId(58)), 0u);
    EXPECT_EQ(counters->counterCollection().count(), 58u);
}

TEST_F(ArpSuppressionCounterStatusTest, startsAgainFromZero) {
    counters->increment(ArpSuppressionCounterId::targetIsMine);
    group->unmount("arpSuppression/counter");
    counters = table<ArpSuppressionCounterStatus>("arpSuppression/counter",
                                                  {{"counter", arpSuppressionCounters, false}});
    ASSERT_TRUE(counters);
    EXPECT_EQ(counters->count(ArpSuppressionCounterId::targetIsMine), 0u);
    EXPECT_EQ(counters->counterCollection().count(), 58u);
    EXPECT_EQ(counters->counterCollection().refusals(), 0u);
}

} // namespace

} // namespace ArpSuppression
