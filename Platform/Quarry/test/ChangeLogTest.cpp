#include "Platform/Quarry/test/QuarryFixture.h"

#include "Platform/State/DumpContext.h"

#include <vector>

namespace Quarry {

namespace {

class ChangeLogTest : public QuarryFixture {
  protected:
    Vela::Ptr<NumberTable> table = mountWriter();
    Vela::Ptr<ChangeLog> log = service->changeLog(); // of 64
    std::vector<uint64_t> heard;
    Vela::Reaction hear = table->number().react(
        nullptr, [this](const NumberKey& key) { heard.push_back(key.number); });
};

TEST_F(ChangeLogTest, saysWhenItIsOverHalfFullAndWhenAQuarterIsLeft) {
    std::vector<bool> said;
    std::vector<size_t> at;
    auto reaction = log->overHalfFullAttribute().react(nullptr, [&] {
        said.push_back(log->overHalfFull());
        at.push_back(log->entries());
    });
    for (uint64_t number = 0; number < 32; ++number) {
        table->number().set({{number}, 1});
    }
    EXPECT_FALSE(log->overHalfFull());
    for (uint64_t number = 32; number < 50; ++number) {
        table->number().set({{number}, 1});
    }
    EXPECT_EQ(said, (std::vector<bool>{true}));
    runUntilIdle();
    EXPECT_EQ(said, (std::vector<bool>{true, false}));
    EXPECT_EQ(at, (std::vector<size_t>{33, 16}));
    EXPECT_EQ(log->mostEntries(), 50u);
    EXPECT_EQ(heard.size(), 50u);
}

/// Puts numbers into the table as long as it may, as who reads a netlink socket does.
class Provider final : public Vela::Entity {
  public:
    Provider(Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<NumberTable> table,
             Vela::Ptr<ChangeLog> log, uint64_t end)
        : table_(std::move(table)), log_(std::move(log)), end_(end) {
        task_ = Vela::make<Vela::Task>(std::move(scheduler), 3, "Provider", this,
                                       [this] { return provide(); });
        reaction_ = log_->overHalfFullAttribute().react(this, [this] {
            if (!log_->overHalfFull()) {
                ++resumptions;
                task_->schedule();
            }
        });
        task_->schedule();
    }
    const char* typeName() const noexcept override { return "Provider"; }

    unsigned resumptions = 0;

  protected:
    void handleDestroy() noexcept override { task_.reset(); }

  private:
    Vela::SliceResult provide() {
        uint32_t items = 0;
        for (; next_ < end_ && !log_->overHalfFull(); ++items, ++next_) {
            table_->number().set({{next_}, 1});
        }
        return {false, items};
    }

    Vela::Ptr<NumberTable> table_;
    Vela::Ptr<ChangeLog> log_;
    const uint64_t end_;
    uint64_t next_ = 0;
    Vela::Owned<Vela::Task> task_;
    Vela::Reaction reaction_;
};

TEST_F(ChangeLogTest, aProviderThatPausesAndGoesOnLosesNothing) {
    auto provider = Vela::make<Provider>(scheduler(), table, log, 1000);
    runUntilIdle();
    ASSERT_EQ(heard.size(), 1000u);
    for (uint64_t number = 0; number < heard.size(); ++number) {
        EXPECT_EQ(heard[number], number);
    }
    EXPECT_GT(provider->resumptions, 10u);
    EXPECT_EQ(log->mostEntries(), 33u) << "it stopped at the first over half";
    provider->destroy();
}

TEST_F(ChangeLogTest, aListenerThatIsGoneIsPassedOver) {
    struct Listener final : ChangeListener {
        void handleChange(const uint64_t* key) override { keys.push_back(*key); }
        std::vector<uint64_t> keys;
    };
    Listener gone;
    Listener stays;
    const uint64_t first = log->listenerIs(gone);
    const uint64_t second = log->listenerIs(stays);
    EXPECT_NE(first, second);
    for (uint64_t key : {1, 2, 3}) {
        log->record(first, {&key, 1});
        log->record(second, {&key, 1});
    }
    log->listenerDel(first);
    EXPECT_NE(log->listenerIs(gone), first) << "what waits for the first must not reach it";
    runUntilIdle();
    EXPECT_TRUE(gone.keys.empty());
    EXPECT_EQ(stays.keys, (std::vector<uint64_t>{1, 2, 3}));
}

TEST_F(ChangeLogTest, dumps) {
    table->number().set({{1}, 1});
    Vela::DumpContext dump;
    log->dumpState(dump, 0);
    EXPECT_EQ(dump.text(), "Quarry::ChangeLog entries=1 mostEntries=1 capacity=64 announced=0\n");
}

} // namespace

} // namespace Quarry
