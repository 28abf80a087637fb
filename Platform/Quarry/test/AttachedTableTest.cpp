// What another process's file must be like before it is read.

#include "Platform/Quarry/AttachedTable.h"
#include "Platform/Quarry/test/QuarryFixture.h"

#include <array>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace Quarry {

namespace {

struct ForeignRecord {
    using Key = NumberKey;
    static constexpr const char* recordType = "Quarry::ForeignRecord";
    NumberKey key;
    uint64_t value = 0;
};
/// As one that was built from other sources would have it.
struct LongerRecord {
    using Key = NumberKey;
    static constexpr const char* recordType = NumberRecord::recordType;
    NumberKey key;
    uint64_t value[2] = {};
};
struct ShorterKeyRecord {
    struct Key {
        uint32_t number = 0;
        uint64_t hash(uint64_t) const { return number; }
    };
    static constexpr const char* recordType = NumberRecord::recordType;
    Key key;
    uint32_t value[3] = {};
};
static_assert(sizeof(ShorterKeyRecord) == sizeof(NumberRecord));

class AttachedTableTest : public QuarryFixture {
  protected:
    AttachedTableTest() {
        group->mount<NumberTable>("numbers", MountType::writer, {{"number", 40, true}});
        auto table = group->entity<NumberTable>("numbers");
        for (uint64_t number = 0; number < 20; ++number) {
            table->number().set({{number}, number + 100});
        }
        std::ifstream in(file(), std::ios::binary);
        bytes.assign(std::istreambuf_iterator<char>(in), {});
    }

    template <class R = NumberRecord>
    std::string refusal(const std::string& path) const {
        try {
            AttachedTable<R> attached(path);
            return "none";
        } catch (const TableError& error) {
            EXPECT_EQ(std::string(error.what()).find(path + ": "), 0u) << error.what();
            return std::string(error.what()).substr(path.size() + 2);
        }
    }
    /// Of a file with a part of it changed.
    template <class T>
    std::string refusalWith(size_t offset, const T& value) {
        std::string changed = bytes;
        std::memcpy(changed.data() + offset, &value, sizeof value);
        return refusal(written(changed));
    }
    std::string written(const std::string& content) const {
        std::ofstream(copy, std::ios::binary | std::ios::trunc) << content;
        return copy;
    }

    const std::string copy = directory.path() + "/copy";
    std::string bytes;
};

TEST_F(AttachedTableTest, readsACopyOfATable) {
    AttachedTable<NumberRecord> attached(written(bytes));
    EXPECT_EQ(attached.count(), 20u);
    for (uint64_t number = 0; number < 20; ++number) {
        EXPECT_EQ(attached.value({number}).value, number + 100);
    }
    EXPECT_FALSE(attached.has({20}));
    size_t met = 0;
    for (auto cursor = attached.first(); cursor; ++cursor) {
        ++met;
    }
    EXPECT_EQ(met, 20u);
    EXPECT_EQ(attached.trouble(), Outcome::absent);
}

TEST_F(AttachedTableTest, refusesWhatIsNotThere) {
    EXPECT_EQ(refusal(directory.path() + "/nowhere"),
              "cannot be opened: No such file or directory");
}

TEST_F(AttachedTableTest, refusesWhatIsNoFile) {
    EXPECT_EQ(refusal(directory.path()), "is no table");
    const std::string fifo = directory.path() + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(refusal(fifo), "is no table");
    EXPECT_EQ(refusal("/dev/null"), "is no table");
}

TEST_F(AttachedTableTest, refusesEveryPrefix) {
    ASSERT_EQ(bytes.size(), Format::fileBytes(64, 40, 32));
    written(bytes);
    EXPECT_EQ(refusal(copy), "none");
    for (size_t size = bytes.size(); size-- > 0;) {
        ASSERT_EQ(truncate(copy.c_str(), static_cast<off_t>(size)), 0);
        std::string expected = "is no table";
        if (size >= Format::pageBytes) {
            expected = "is cut off: " + std::to_string(size) + " of " +
                       std::to_string(bytes.size()) + " bytes";
        }
        ASSERT_EQ(refusal(copy), expected);
    }
}

TEST_F(AttachedTableTest, refusesAForeignHeader) {
    using Format::Header;
    EXPECT_EQ(refusalWith(offsetof(Header, magic), Format::magic + 1), "is no table");
    EXPECT_EQ(refusalWith(offsetof(Header, layoutVersion), Format::layoutVersion + 1),
              "has layout version 2, expected 1");
    const std::string sizes = "has records of another size than Quarry::NumberRecord has here";
    EXPECT_EQ(refusalWith(offsetof(Header, keyBytes), 9u), sizes);
    EXPECT_EQ(refusalWith(offsetof(Header, payloadBytes), 24u), sizes);
    EXPECT_EQ(refusalWith(offsetof(Header, recordBytes), 24u), sizes);
    for (uint32_t capacity : {0u, 1u << 30, 0x7fffffffu, 0x80000000u, ~0u}) {
        EXPECT_EQ(refusalWith(offsetof(Header, capacity), capacity), "has an impossible capacity");
    }
    EXPECT_NE(refusalWith(offsetof(Header, capacity), 64u).find("is cut off"), 0u)
        << "the same number of pages, in which that many records fit";
    EXPECT_EQ(refusalWith(offsetof(Header, bucketCapacity), 32u), "has an impossible capacity");
    EXPECT_EQ(refusalWith(offsetof(Header, recordType), 'X'),
              "holds records of type \"Xuarry::NumberRecord\", expected \"Quarry::NumberRecord\"");
    std::array<char, Format::recordTypeBytes> endless;
    endless.fill('Q');
    EXPECT_EQ(refusalWith(offsetof(Header, recordType), endless),
              "holds records of type \"" + std::string(endless.size(), 'Q') +
                  "\", expected \"Quarry::NumberRecord\"");
}

TEST_F(AttachedTableTest, refusesRecordsOfAnotherTypeOrSize) {
    EXPECT_EQ(refusal<ForeignRecord>(file()),
              "holds records of type \"Quarry::NumberRecord\", expected \"Quarry::ForeignRecord\"");
    const std::string sizes = "has records of another size than Quarry::NumberRecord has here";
    EXPECT_EQ(refusal<LongerRecord>(file()), sizes);
    EXPECT_EQ(refusal<ShorterKeyRecord>(file()), sizes);
    EXPECT_EQ(refusal(file()), "none");
}

TEST_F(AttachedTableTest, seesWhatIsWrittenAfterwards) {
    AttachedTable<NumberRecord> attached(file());
    auto table = group->entity<NumberTable>("numbers");
    const uint64_t changes = attached.changes();
    table->number().set({{30}, 1});
    table->number().del({3});
    table->completeIs(true);
    EXPECT_EQ(attached.changes(), changes + 2);
    EXPECT_EQ(attached.value({30}).value, 1u);
    EXPECT_FALSE(attached.has({3}));
    EXPECT_TRUE(attached.complete());
}

} // namespace

} // namespace Quarry
