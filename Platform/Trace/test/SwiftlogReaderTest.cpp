#include "Platform/Trace/test/SwiftlogFixture.h"

#include <cstring>
#include <limits>
#include <sstream>

namespace Vela {
namespace {

using namespace SwiftlogFormat;
using Strings = std::vector<std::string>;
using Bytes = std::vector<uint8_t>;

constexpr uint64_t ringOffset =
    uint64_t{2} * blockSize; // behind header page and type area of config()

class SwiftlogReaderTest : public SwiftlogFixture {
  protected:
    /// A file of one level with two blocks and `count` numbers.
    Bytes numbersFile(uint64_t count) {
        Swiftlog::initialize(config({8}));
        for (uint64_t n = 1; n <= count; ++n) {
            numberRecord().write({n});
        }
        return bytesOf(Swiftlog::fileName());
    }

    template <class T>
    static void patch(Bytes& bytes, uint64_t offset, T value) {
        ASSERT_LE(offset + sizeof value, bytes.size());
        std::memcpy(bytes.data() + offset, &value, sizeof value);
    }

    /// Reads and formats everything, which must not run into anything.
    static Strings readAll(const Bytes& bytes) {
        SwiftlogReader reader(bytes);
        std::ostringstream out;
        for (const SwiftlogRecord& record : reader.records()) {
            out << record << '\n';
        }
        return texts(reader);
    }

    static Strings problemsOf(const Bytes& bytes) { return SwiftlogReader(bytes).problems(); }
};

TEST_F(SwiftlogReaderTest, PathAndBytesReadAlike) {
    Bytes bytes = numbersFile(5);
    EXPECT_EQ(readAll(bytes), numberTexts(1, 5));
    EXPECT_EQ(texts(Swiftlog::fileName()), numberTexts(1, 5));
    EXPECT_EQ(problemsOf(bytes), Strings{});
}

TEST_F(SwiftlogReaderTest, WhatIsNoFileIsAProblem) {
    EXPECT_EQ(SwiftlogReader(path("none.sl")).problems(),
              Strings{"cannot open " + path("none.sl") + ": No such file or directory"});
    EXPECT_EQ(SwiftlogReader(directory_).problems(), Strings{directory_ + " is not a file"});
}

TEST_F(SwiftlogReaderTest, WhatIsNoRingBufferFileIsAProblem) {
    for (const Bytes& bytes : {Bytes{}, Bytes{1, 2, 3}, Bytes(uint64_t{3} * blockSize, 0)}) {
        SwiftlogReader reader(bytes);
        EXPECT_EQ(reader.problems(), Strings{"not a ring-buffer file"});
        EXPECT_EQ(reader.records().size(), 0u);
        EXPECT_EQ(reader.header().version, 0u);
    }
}

TEST_F(SwiftlogReaderTest, AnotherVersionIsNotRead) {
    Bytes bytes = numbersFile(5);
    patch<uint32_t>(bytes, offsetof(Header, version), 2);
    EXPECT_EQ(readAll(bytes), Strings{});
    EXPECT_EQ(problemsOf(bytes),
              Strings{"version 2 with blocks of 4096 bytes and 10 levels cannot be read here"});
}

TEST_F(SwiftlogReaderTest, EveryTruncationYieldsWhatIsLeft) {
    // The first record of the second block, so that both blocks matter.
    constexpr uint64_t perBlock = blockCapacity / (sizeof(RecordHeader) + sizeof(Number));
    Bytes whole = numbersFile(perBlock + 1);
    size_t previous = 0;
    for (size_t length = 0; length < whole.size(); ++length) {
        // An exact allocation lets the sanitizer see every byte read beyond the end.
        Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
        cut.shrink_to_fit();
        SwiftlogReader reader(cut);
        EXPECT_NE(reader.problems(), Strings{}) << length;
        ASSERT_GE(reader.records().size(), previous) << length;
        ASSERT_LE(reader.records().size(), perBlock + 1) << length;
        previous = reader.records().size();
        for (size_t n = 0; n < previous; n += 40) {
            ASSERT_EQ(reader.records()[n].text(), "n=" + std::to_string(n + 1)) << length;
        }
    }
    EXPECT_EQ(previous, perBlock + 1);
    EXPECT_EQ(readAll(whole), numberTexts(1, perBlock + 1));
}

TEST_F(SwiftlogReaderTest, EachHeaderByteMayBeAnything) {
    Bytes whole = numbersFile(20);
    for (uint64_t at = 0; at < sizeof(Header); ++at) {
        for (uint8_t flip : Bytes{0x01, 0x80, 0xff}) {
            Bytes flipped = whole;
            flipped[at] ^= flip;
            Strings read = readAll(flipped);
            bool untouched = read == numberTexts(1, 20);
            EXPECT_TRUE(untouched || !problemsOf(flipped).empty()) << at;
            EXPECT_LE(read.size(), 20u) << at;
        }
    }
}

TEST_F(SwiftlogReaderTest, EachByteOfABlockOrTypeMayBeAnything) {
    Bytes whole = numbersFile(3);
    auto flipAll = [&](uint64_t from, uint64_t bytes) {
        for (uint64_t at = from; at < from + bytes; ++at) {
            for (uint8_t flip : Bytes{0x01, 0x80, 0xff}) {
                Bytes flipped = whole;
                flipped[at] ^= flip;
                EXPECT_LE(readAll(flipped).size(), 3u) << at;
            }
        }
    };
    flipAll(blockSize, 80);
    flipAll(ringOffset, sizeof(BlockHeader) + 3 * (sizeof(RecordHeader) + sizeof(Number)));
}

TEST_F(SwiftlogReaderTest, ARingOutOfPlaceIsLeftOutAndTheOthersAreRead) {
    static const SwiftlogType<Number> other{"U", "t", 1, {{"other=", &Number::value}}};
    Swiftlog::initialize(config({4, 4}));
    numberRecord().write({1});
    other.write({2});
    Bytes whole = bytesOf(Swiftlog::fileName());
    constexpr uint64_t firstOffset = offsetof(Header, rings) + offsetof(Ring, offset);
    constexpr uint64_t firstBytes = offsetof(Header, rings) + offsetof(Ring, bytes);
    const Strings expected{"level 0: its ring is out of place"};

    for (uint64_t offset : {uint64_t{0}, uint64_t{8}, ringOffset + 8, uint64_t{1} << 40,
                            std::numeric_limits<uint64_t>::max() - 4095}) {
        Bytes bytes = whole;
        patch<uint64_t>(bytes, firstOffset, offset);
        EXPECT_EQ(readAll(bytes), Strings{"other=2"}) << offset;
        EXPECT_EQ(problemsOf(bytes), expected) << offset;
    }
    for (uint64_t size : {uint64_t{0}, uint64_t{100}, uint64_t{1} << 40,
                          std::numeric_limits<uint64_t>::max() - 4095}) {
        Bytes bytes = whole;
        patch<uint64_t>(bytes, firstBytes, size);
        EXPECT_EQ(readAll(bytes), Strings{"other=2"}) << size;
        EXPECT_EQ(problemsOf(bytes), expected) << size;
    }
}

TEST_F(SwiftlogReaderTest, NoByteIsReadForTwoLevels) {
    Bytes bytes = numbersFile(3);
    for (unsigned level = 1; level < levels; ++level) {
        patch<Ring>(bytes, offsetof(Header, rings) + level * sizeof(Ring),
                    {ringOffset, uint64_t{2} * blockSize});
    }
    EXPECT_EQ(readAll(bytes), numberTexts(1, 3));
    EXPECT_EQ(problemsOf(bytes).size(), levels - 1);
}

TEST_F(SwiftlogReaderTest, ARingAsLongAsAHugeSparseFileClaimsIsReadWithoutMemory) {
    Bytes bytes = numbersFile(3);
    patch<uint64_t>(bytes, offsetof(Header, fileBytes), uint64_t{1} << 60);
    patch<uint64_t>(bytes, offsetof(Header, rings) + offsetof(Ring, bytes), uint64_t{1} << 59);
    patch<uint32_t>(bytes, offsetof(Header, typeAreaBytes), 0xffffffff);
    EXPECT_EQ(readAll(bytes), numberTexts(1, 3));
    EXPECT_EQ(problemsOf(bytes).size(), 1u);
}

TEST_F(SwiftlogReaderTest, ACorruptBlockHeaderCostsThatBlock) {
    constexpr uint64_t perBlock = blockCapacity / (sizeof(RecordHeader) + sizeof(Number));
    Bytes whole = numbersFile(perBlock + 2);
    Strings second = numberTexts(perBlock + 1, perBlock + 2);
    const Strings problem{"level 0 block 0: its header is corrupt"};

    Bytes bytes = whole;
    patch<uint32_t>(bytes, ringOffset + offsetof(BlockHeader, used), blockCapacity + 8);
    EXPECT_EQ(readAll(bytes), second);
    EXPECT_EQ(problemsOf(bytes), problem);

    bytes = whole; // the sequence of the other block
    patch<uint64_t>(bytes, ringOffset + offsetof(BlockHeader, sequence), 2);
    EXPECT_EQ(readAll(bytes), second);
    EXPECT_EQ(problemsOf(bytes), problem);

    bytes = whole; // being replaced
    patch<uint64_t>(bytes, ringOffset + offsetof(BlockHeader, sequence), 0);
    EXPECT_EQ(readAll(bytes), second);
    EXPECT_EQ(problemsOf(bytes), Strings{});
}

TEST_F(SwiftlogReaderTest, ACorruptRecordEndsItsBlock) {
    constexpr uint64_t recordBytes = sizeof(RecordHeader) + sizeof(Number);
    Bytes whole = numbersFile(5);
    uint64_t third = ringOffset + sizeof(BlockHeader) + 2 * recordBytes;
    const Strings problem{"level 0 block 0: its last 72 bytes are cut off or corrupt"};
    for (uint16_t size : std::vector<uint16_t>{0, 8, 15, 17, 80, 65528}) {
        Bytes bytes = whole;
        patch<uint16_t>(bytes, third + offsetof(RecordHeader, bytes), size);
        EXPECT_EQ(readAll(bytes), numberTexts(1, 2)) << size;
        EXPECT_EQ(problemsOf(bytes), problem) << size;
    }
    Bytes bytes = whole;
    patch<uint32_t>(bytes, third + offsetof(RecordHeader, payloadBytes), 0xfffffff0);
    EXPECT_EQ(readAll(bytes), numberTexts(1, 2));
    EXPECT_EQ(problemsOf(bytes), problem);
}

TEST_F(SwiftlogReaderTest, ACorruptDescriptionMakesItsRecordsUnknown) {
    static const SwiftlogType<Number> second{"U", "t", 0, {{"second=", &Number::value}}};
    Swiftlog::initialize(config());
    numberRecord().write({1});
    second.write({2});
    Bytes whole = bytesOf(Swiftlog::fileName());
    constexpr uint64_t field = blockSize + sizeof(TypeDescription);
    const Strings unknown{"data=0100000000000000", "second=2"};
    const Strings problem{"type 1: its description is corrupt"};

    Bytes bytes = whole;
    patch<uint16_t>(bytes, field + offsetof(Field, offset), 8);
    EXPECT_EQ(readAll(bytes), unknown);
    EXPECT_EQ(problemsOf(bytes), problem);

    bytes = whole;
    patch<uint16_t>(bytes, field + offsetof(Field, bytes), 3);
    EXPECT_EQ(readAll(bytes), unknown);

    bytes = whole;
    patch<uint8_t>(bytes, field + offsetof(Field, kind), 10);
    EXPECT_EQ(readAll(bytes), unknown);

    bytes = whole;
    patch<uint16_t>(bytes, field + offsetof(Field, labelBytes), 0xffff);
    EXPECT_EQ(readAll(bytes), unknown);

    bytes = whole;
    patch<uint8_t>(bytes, blockSize + offsetof(TypeDescription, fieldCount), 255);
    EXPECT_EQ(readAll(bytes), unknown);
    EXPECT_EQ(problemsOf(bytes), problem);
}

TEST_F(SwiftlogReaderTest, WhereDescriptionsLoseTheirOrderTheTypeAreaEnds) {
    static const SwiftlogType<Number> second{"U", "t", 0, {{"second=", &Number::value}}};
    Swiftlog::initialize(config());
    numberRecord().write({1});
    second.write({2});
    Bytes whole = bytesOf(Swiftlog::fileName());
    Bytes bytes = whole;
    patch<uint16_t>(bytes, blockSize, 2);
    EXPECT_EQ(readAll(bytes), (Strings{"data=0100000000000000", "data=0200000000000000"}));
    EXPECT_EQ(problemsOf(bytes), Strings{"the type area is cut off or corrupt after 0 types"});

    bytes = whole;
    patch<uint32_t>(bytes, offsetof(Header, typeAreaUsed), 8192);
    EXPECT_EQ(readAll(bytes), (Strings{"data=0100000000000000", "data=0200000000000000"}));
    EXPECT_EQ(problemsOf(bytes), Strings{"the type area's size is corrupt"});
}

TEST_F(SwiftlogReaderTest, FieldsBeyondAShorterPayloadAreCut) {
    Bytes bytes = numbersFile(1);
    patch<uint32_t>(bytes, ringOffset + sizeof(BlockHeader) + offsetof(RecordHeader, payloadBytes),
                    7);
    EXPECT_EQ(readAll(bytes), Strings{"n=..."});
}

TEST_F(SwiftlogReaderTest, TextsThatOverlapDoNotMultiply) {
    Bytes bytes = numbersFile(1);
    constexpr unsigned count = 255;
    Bytes type(sizeof(TypeDescription) + count * sizeof(Field));
    patch<TypeDescription>(type, 0,
                           {.typeId = 1,
                            .bytes = static_cast<uint16_t>(type.size()),
                            .payloadBytes = 255,
                            .level = 0,
                            .fieldCount = count,
                            .unitBytes = 0,
                            .titleBytes = 0,
                            .closingBytes = 0,
                            .reserved = 0});
    for (unsigned i = 0; i < count; ++i) {
        patch<Field>(
            type, sizeof(TypeDescription) + i * sizeof(Field),
            {.offset = 0, .bytes = 255, .kind = FieldKind::text, .reserved = 0, .labelBytes = 0});
    }
    std::copy(type.begin(), type.end(), bytes.begin() + blockSize);
    patch<uint32_t>(bytes, offsetof(Header, typeAreaUsed), static_cast<uint32_t>(type.size()));
    uint64_t record = ringOffset + sizeof(BlockHeader);
    patch<uint32_t>(bytes, ringOffset + offsetof(BlockHeader, used), 16 + 256);
    patch<uint16_t>(bytes, record + offsetof(RecordHeader, bytes), 16 + 256);
    patch<uint32_t>(bytes, record + offsetof(RecordHeader, payloadBytes), 255);
    patch<uint8_t>(bytes, record + sizeof(RecordHeader), 253);
    Strings read = readAll(bytes);
    ASSERT_EQ(read.size(), 1u);
    EXPECT_LE(read[0].size(), 5 * 16 * 1024u); // a control character takes four
    EXPECT_GE(read[0].size(), 16 * 1024u);
    EXPECT_TRUE(read[0].ends_with("..."));
}

/// Times from known clock points: 1 000 ticks are 500 ns from the start to the block, and 2 000 ns
/// from the block to the latest point, where the wall clock had been set.
TEST_F(SwiftlogReaderTest, TimesAreInterpolatedBetweenClockPoints) {
    Bytes bytes = numbersFile(6);
    patch<ClockPoint>(bytes, offsetof(Header, start), {10'000, 1'000'000, 50'000'000});
    patch<ClockPoint>(bytes, ringOffset + offsetof(BlockHeader, opened),
                      {20'000, 1'005'000, 50'005'000});
    patch<ClockPoint>(bytes, offsetof(Header, latest), {30'000, 1'025'000, 90'000'000});
    const uint64_t ticks[] = {9'000, 12'000, 20'000, 25'000, 30'000, 40'000};
    for (unsigned n = 0; n < 6; ++n) {
        patch<uint64_t>(bytes,
                        ringOffset + sizeof(BlockHeader) +
                            n * (sizeof(RecordHeader) + sizeof(Number)) +
                            offsetof(RecordHeader, ticks),
                        ticks[n]);
    }
    SwiftlogReader reader(bytes);
    std::vector<int64_t> walls;
    for (const SwiftlogRecord& record : reader.records()) {
        walls.push_back(record.wall);
    }
    // Outside of all points by the pace of the whole: 25 000 ns for 20 000 ticks.
    EXPECT_EQ(walls, (std::vector<int64_t>{49'998'750, 50'001'000, 50'005'000, 50'015'000,
                                           90'000'000, 90'012'500}));
}

TEST_F(SwiftlogReaderTest, ALatestPointThatIsBeingReplacedIsIgnored) {
    Bytes bytes = numbersFile(1);
    patch<ClockPoint>(bytes, offsetof(Header, start), {10'000, 1'000'000, 50'000'000});
    patch<ClockPoint>(bytes, ringOffset + offsetof(BlockHeader, opened),
                      {20'000, 1'010'000, 50'010'000});
    patch<ClockPoint>(bytes, offsetof(Header, latest), {20'001, 0, 77});
    patch<uint64_t>(bytes, offsetof(Header, latestSequence), 5);
    patch<uint64_t>(bytes, ringOffset + sizeof(BlockHeader) + offsetof(RecordHeader, ticks),
                    21'000);
    EXPECT_EQ(SwiftlogReader(bytes).records()[0].wall, 50'011'000);
}

TEST_F(SwiftlogReaderTest, AbsurdClocksStillYieldRecords) {
    Bytes bytes = numbersFile(2);
    constexpr uint64_t huge = std::numeric_limits<uint64_t>::max();
    patch<ClockPoint>(bytes, offsetof(Header, start), {0, 0, huge / 2});
    patch<ClockPoint>(bytes, offsetof(Header, latest), {1, huge, huge});
    patch<uint64_t>(bytes, ringOffset + sizeof(BlockHeader) + offsetof(RecordHeader, ticks), huge);
    EXPECT_EQ(readAll(bytes), (Strings{"n=2", "n=1"}));
}

} // namespace
} // namespace Vela
