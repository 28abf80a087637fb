// A table's writer and its readers at once, as threads on one mapping: so the thread sanitizer sees
// both sides of every word.

#include "Testing/TemporaryDirectory.h"
#include "tests/TableStorm.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace {

class Reading final : Quarry::ReadTrouble, public Quarry::RecordReading<Storm::Record> {
  public:
    explicit Reading(const Quarry::TableMapping& mapping)
        : RecordReading(mapping, static_cast<const ReadTrouble&>(*this)) {}
    Quarry::Outcome trouble() const { return trouble_; }

  private:
    void handleTrouble(Quarry::Outcome outcome) const override { trouble_ = outcome; }
    mutable Quarry::Outcome trouble_ = Quarry::Outcome::absent;
};

struct Seen {
    std::string fault;
    uint64_t rounds = 0;
    Quarry::Outcome trouble = Quarry::Outcome::absent;
};

void readUntil(const std::atomic<bool>& over, const Quarry::TableMapping& mapping, unsigned seed,
               Seen& seen) {
    Reading reading(mapping);
    Storm::Reader reader(reading, seed);
    while (!over && reader.fault().empty() && reading.trouble() == Quarry::Outcome::absent) {
        reader.round();
        ++seen.rounds;
    }
    seen.fault = reader.fault();
    seen.trouble = reading.trouble();
}

TEST(TableRaceTest, readersSeeWhatStaysAndNothingTorn) {
    Testing::TemporaryDirectory directory;
    Storm::Writer writer(directory.path() + "/table");
    std::atomic<bool> over = false;
    Seen seen[2];
    std::thread first([&] { readUntil(over, writer.mapping(), 1, seen[0]); });
    std::thread second([&] { readUntil(over, writer.mapping(), 2, seen[1]); });

    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(2500);
    uint64_t blows = 0;
    for (; std::chrono::steady_clock::now() < end; ++blows) {
        writer.blow();
    }
    over = true;
    first.join();
    second.join();
    for (const Seen& s : seen) {
        EXPECT_EQ(s.fault, "");
        EXPECT_EQ(s.trouble, Quarry::Outcome::absent) << toString(s.trouble);
        EXPECT_GT(s.rounds, 10u);
    }
    EXPECT_GT(blows, 100u);
}

} // namespace
