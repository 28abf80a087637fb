#include "ArpSuppression/LocalRequestRecordSm.h"

#include "Platform/State/DumpContext.h"
#include "Testing/CoreFixture.h"
#include "Testing/TraceCapture.h"

#include <optional>

namespace ArpSuppression {
namespace {

using Bridging::VlanId;
using Vela::make;
using Vela::Ptr;
using Zinc::IpGenAddr;

class LocalRequestRecordSmTest : public Testing::CoreFixture {
  protected:
    LocalRequestRecordSmTest() { runUntilIdle(); }

    static Ptr<const TrappedMessage> request(const RemoteBindingKey& key) {
        bool v6 = key.ipAddress().af() == Zinc::ipv6();
        return trappedMessageFactory(
            key.vlanId(), v6 ? MessageType::v6NeighborSolicitation : MessageType::request,
            Zinc::IntfId("Ethernet1"), false, IpGenAddr("10.0.0.9"),
            Zinc::EthAddr("02:00:00:00:00:09"), key.ipAddress(), nullptr);
    }
    void trap(const RemoteBindingKey& key) {
        auto& trap = key.ipAddress().af() == Zinc::ipv6() ? trapV6_ : trapV4_;
        trap->lastTrappedMessageIs(request(key));
    }
    bool has(const RemoteBindingKey& key) const { return record_->entry(key) != nullptr; }

    /// Seconds until the machine's next walk; none if it sleeps for good.
    std::optional<double> nextWalk() {
        auto due = scheduler()->nextDue();
        if (!due) {
            return std::nullopt;
        }
        return std::chrono::duration<double>(*due - clock().now()).count();
    }

    const Ptr<MessageTrap> trapV4_ = make<MessageTrap>();
    const Ptr<MessageTrap> trapV6_ = make<MessageTrap>();
    const Ptr<LocalRequestRecord> record_ = make<LocalRequestRecord>(clock());
    Ptr<LocalRequestRecordSm> sm_ =
        make<LocalRequestRecordSm>(scheduler(), trapV4_, trapV6_, record_);
    const RemoteBindingKey key1_{VlanId(10), IpGenAddr("10.0.0.1")};
    const RemoteBindingKey key2_{VlanId(10), IpGenAddr("10.0.0.2")};
    const RemoteBindingKey key3_{VlanId(20), IpGenAddr("10.0.0.1")};
    const RemoteBindingKey key6_{VlanId(10), IpGenAddr("2001:db8::1")};
};

TEST_F(LocalRequestRecordSmTest, SleepsWhileThereIsNothing) {
    EXPECT_FALSE(sm_->walkScheduled());
    EXPECT_FALSE(nextWalk());
    trapV4_->lastTrappedMessageIs(nullptr);
    EXPECT_FALSE(sm_->walkScheduled());
    EXPECT_EQ(record_->entries(), 0u);
}

TEST_F(LocalRequestRecordSmTest, RecordsWhatBothTrapsSay) {
    trap(key1_);
    trap(key6_);
    trap(key3_); // the same address in another VLAN
    EXPECT_EQ(record_->entries(), 3u);
    EXPECT_TRUE(has(key1_));
    EXPECT_TRUE(has(key6_));
    EXPECT_TRUE(has(key3_));
}

TEST_F(LocalRequestRecordSmTest, TheFirstRequestArmsTheTimer) {
    trap(key1_);
    EXPECT_EQ(nextWalk(), 240.0);
    runFor(1);
    trap(key2_);
    EXPECT_EQ(nextWalk(), 239.0); // still for the first
    EXPECT_EQ(runUntilIdle(), 0u);
}

TEST_F(LocalRequestRecordSmTest, ForgetsAfter240Seconds) {
    trap(key1_);
    runFor(239.75);
    EXPECT_TRUE(has(key1_));
    runFor(0.25);
    EXPECT_FALSE(has(key1_));
    EXPECT_FALSE(sm_->walkScheduled());
    EXPECT_FALSE(nextWalk());
}

TEST_F(LocalRequestRecordSmTest, ARequestRenewsTheTime) {
    trap(key1_);
    runFor(200);
    trap(key1_);
    uint64_t before = scheduler()->slices();
    runFor(40);
    EXPECT_EQ(scheduler()->slices(), before + 1); // found it alive
    EXPECT_TRUE(has(key1_));
    EXPECT_EQ(nextWalk(), 200.0);
    runFor(199.75);
    EXPECT_TRUE(has(key1_));
    EXPECT_EQ(scheduler()->slices(), before + 1);
    runFor(0.25);
    EXPECT_FALSE(has(key1_));
    EXPECT_FALSE(sm_->walkScheduled());
}

TEST_F(LocalRequestRecordSmTest, EntriesExpireInTheirOrder) {
    trap(key1_);
    runFor(1);
    trap(key2_);
    runFor(239);
    EXPECT_FALSE(has(key1_));
    EXPECT_TRUE(has(key2_));
    EXPECT_EQ(nextWalk(), 1.0);
    runFor(1);
    EXPECT_FALSE(has(key2_));
    EXPECT_FALSE(nextWalk());
}

TEST_F(LocalRequestRecordSmTest, ALateWalkForgetsThemInOneGo) {
    trap(key1_);
    runFor(1);
    trap(key2_);
    trap(key3_);
    clock().advance(std::chrono::seconds(300));
    // Each deletion ends a slice that must yield; the last one finds nothing left.
    EXPECT_EQ(runUntilIdle(), alwaysYield() ? 4u : 1u);
    EXPECT_EQ(record_->entries(), 0u);
    EXPECT_FALSE(sm_->walkScheduled());
    EXPECT_FALSE(nextWalk());
}

TEST_F(LocalRequestRecordSmTest, ARequestBetweenTwoSlicesIsKept) {
    trap(key1_);
    trap(key2_);
    clock().advance(std::chrono::seconds(240));
    EXPECT_TRUE(turn());
    trap(key1_); // gone already, or not expired any more
    trap(key3_);
    runUntilIdle();
    EXPECT_TRUE(has(key1_));
    EXPECT_FALSE(has(key2_));
    EXPECT_TRUE(has(key3_));
    EXPECT_EQ(nextWalk(), 240.0);
    runFor(240);
    EXPECT_EQ(record_->entries(), 0u);
    EXPECT_FALSE(nextWalk());
}

TEST_F(LocalRequestRecordSmTest, ARecordEmptiedByOthersArmsAnew) {
    trap(key1_);
    runFor(100);
    record_->entryDelAll();
    trap(key2_);
    runFor(140); // the timer of the first request
    EXPECT_TRUE(has(key2_));
    EXPECT_EQ(nextWalk(), 100.0);
    runFor(100);
    EXPECT_EQ(record_->entries(), 0u);
    EXPECT_FALSE(nextWalk());
}

TEST_F(LocalRequestRecordSmTest, TakesOverARecordWithEntries) {
    sm_->destroy();
    record_->recordLocalRequest(key1_);
    runFor(100);
    sm_ = make<LocalRequestRecordSm>(scheduler(), trapV4_, trapV6_, record_);
    runUntilIdle();
    EXPECT_EQ(nextWalk(), 140.0);
    runFor(140);
    EXPECT_FALSE(has(key1_));
}

TEST_F(LocalRequestRecordSmTest, ItsEndCancelsWhatIsPending) {
    trap(key1_);
    sm_->destroy();
    EXPECT_FALSE(nextWalk());
    trap(key2_);
    EXPECT_FALSE(has(key2_));
    runFor(1000);
    EXPECT_TRUE(has(key1_));
}

TEST_F(LocalRequestRecordSmTest, OutlivesTrapsAndRecord) {
    trap(key1_);
    trapV4_->destroy();
    trapV6_->destroy();
    record_->destroy();
    EXPECT_EQ(record_->entries(), 0u);
    EXPECT_EQ(nextWalk(), 240.0);
    runFor(240);
    EXPECT_FALSE(sm_->destroyed());
    EXPECT_FALSE(sm_->walkScheduled());
    EXPECT_FALSE(nextWalk());
}

TEST_F(LocalRequestRecordSmTest, RunsAtPriority3UnderItsName) {
    Vela::DumpContext context;
    scheduler()->dumpState(context, 0);
    EXPECT_NE(context.text().find("LocalRequestRecordSm priority=3"), std::string::npos)
        << context.text();
}

TEST_F(LocalRequestRecordSmTest, Traces) {
    Testing::TraceCapture lines("ArpSuppression=8");
    trap(key1_);
    EXPECT_EQ(lines.count(" trappedRequest=" + request(key1_)->toStrep() + "\n"), 1u)
        << lines.text();
    EXPECT_EQ(lines.count(" traceEvent=scheduled\n"), 1u);
    lines.clear();
    runFor(240);
    EXPECT_EQ(lines.count(" deleting entry=" + key1_.toStrep() + "\n"), 1u);
    EXPECT_EQ(lines.count(" traceEvent=started\n"), 1u);
    EXPECT_EQ(lines.count(" traceEvent=yielded\n"), alwaysYield() ? 1u : 0u);
    EXPECT_EQ(lines.count(" traceEvent=finished\n"), 1u);
    EXPECT_FALSE(lines.contains("traceEvent=scheduled"));
}

TEST_F(LocalRequestRecordSmTest, Dumps) {
    trap(key1_);
    Vela::DumpContext context;
    sm_->dumpState(context, 2);
    EXPECT_EQ(context.text(), "  LocalRequestRecordSm\n");
}

} // namespace
} // namespace ArpSuppression
