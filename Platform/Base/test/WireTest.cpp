#include "Platform/Base/Wire.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

using Vela::WireReader;
using Vela::WireWriter;
using Bytes = std::vector<uint8_t>;

Bytes counted(size_t count) {
    Bytes bytes;
    for (size_t i = 1; i <= count; ++i) {
        bytes.push_back(static_cast<uint8_t>(i));
    }
    return bytes;
}

TEST(WireReaderTest, IntegersAreInNetworkByteOrder) {
    Bytes bytes = {0xfe, 0x80, 0x01, 0x89, 0xab, 0xcd, 0xef};
    WireReader reader(bytes);
    EXPECT_EQ(reader.u8(), 0xfe);
    EXPECT_EQ(reader.u16(), 0x8001);
    EXPECT_EQ(reader.u32(), 0x89abcdef);
    EXPECT_TRUE(reader.ok());
    EXPECT_TRUE(reader.rest().empty());
}

TEST(WireReaderTest, BytesAreCopiedAndTakenOnesAreNot) {
    Bytes bytes = counted(6);
    WireReader reader(bytes);
    EXPECT_EQ(reader.bytes<2>(), (std::array<uint8_t, 2>{1, 2}));
    std::span<const uint8_t> taken = reader.take(3);
    EXPECT_EQ(taken.data(), &bytes[2]);
    EXPECT_EQ(taken.size(), 3u);
    EXPECT_EQ(reader.rest().data(), &bytes[5]);
    EXPECT_EQ(reader.rest().size(), 1u);
    EXPECT_TRUE(reader.ok());
}

TEST(WireReaderTest, SkippedBytesAreNotRead) {
    Bytes bytes = counted(4);
    WireReader reader(bytes);
    reader.skip(3);
    EXPECT_EQ(reader.u8(), 4);
    EXPECT_TRUE(reader.ok());
    reader.skip(1);
    EXPECT_FALSE(reader.ok());
}

TEST(WireReaderTest, NothingIsAlwaysThere) {
    WireReader reader(std::span<const uint8_t>{});
    reader.skip(0);
    EXPECT_TRUE(reader.take(0).empty());
    EXPECT_TRUE(reader.ok());
    EXPECT_EQ(reader.u8(), 0);
    EXPECT_FALSE(reader.ok());
}

/// The fields of seven bytes, read from the first `count` of them.
struct Fields {
    explicit Fields(const Bytes& all, size_t count)
        : reader(std::span(all).first(count)), a(reader.u8()), b(reader.u16()), c(reader.u32()) {}
    WireReader reader;
    uint8_t a;
    uint16_t b;
    uint32_t c;
};

TEST(WireReaderTest, EveryPrefixGivesZerosForWhatIsNotThere) {
    const Bytes all = counted(7);
    for (size_t count = 0; count <= all.size(); ++count) {
        SCOPED_TRACE(count);
        Fields fields(all, count);
        // The bytes behind the prefix are there, and must not show.
        EXPECT_EQ(fields.a, count >= 1 ? 0x01 : 0);
        EXPECT_EQ(fields.b, count >= 3 ? 0x0203 : 0);
        EXPECT_EQ(fields.c, count >= 7 ? 0x04050607u : 0u);
        EXPECT_EQ(fields.reader.ok(), count == 7);
        EXPECT_TRUE(fields.reader.rest().empty());
    }
}

TEST(WireReaderTest, NoPrefixIsReadBeyondItsEnd) {
    const Bytes all = counted(7);
    for (size_t count = 0; count < all.size(); ++count) {
        Bytes exact(all.begin(), all.begin() + static_cast<ptrdiff_t>(count));
        exact.shrink_to_fit(); // the address sanitizer watches the end of an allocation
        Fields fields(exact, count);
        EXPECT_FALSE(fields.reader.ok()) << count;
    }
}

TEST(WireReaderTest, AFailureSticks) {
    Bytes bytes = counted(3);
    WireReader reader(bytes);
    EXPECT_EQ(reader.u32(), 0u);
    EXPECT_FALSE(reader.ok());
    // What would have fitted does not come any more: it would be of another field.
    EXPECT_EQ(reader.u8(), 0);
    EXPECT_EQ(reader.u16(), 0);
    EXPECT_EQ(reader.bytes<1>(), (std::array<uint8_t, 1>{}));
    EXPECT_TRUE(reader.take(1).empty());
    EXPECT_TRUE(reader.take(0).empty());
    EXPECT_TRUE(reader.rest().empty());
    EXPECT_FALSE(reader.ok());
}

TEST(WireReaderTest, AHugeCountIsJustTooMuch) {
    Bytes bytes = counted(3);
    WireReader reader(bytes);
    reader.skip(1);
    EXPECT_TRUE(reader.take(SIZE_MAX).empty());
    EXPECT_FALSE(reader.ok());
}

TEST(WireReaderTest, ACopyGoesItsOwnWay) {
    Bytes bytes = counted(2);
    WireReader reader(bytes);
    WireReader copy = reader;
    EXPECT_EQ(copy.u32(), 0u);
    EXPECT_FALSE(copy.ok());
    EXPECT_TRUE(reader.ok());
    EXPECT_EQ(reader.u16(), 0x0102);
}

TEST(WireWriterTest, IntegersAreInNetworkByteOrder) {
    Bytes bytes(9);
    WireWriter writer(bytes);
    EXPECT_EQ(writer.room(), 9u);
    writer.u8(0xfe);
    writer.u16(0x8001);
    writer.u32(0x89abcdef);
    EXPECT_EQ(writer.room(), 2u);
    writer.bytes(counted(2));
    EXPECT_EQ(bytes, (Bytes{0xfe, 0x80, 0x01, 0x89, 0xab, 0xcd, 0xef, 1, 2}));
    EXPECT_EQ(writer.room(), 0u);
    EXPECT_TRUE(writer.ok());
}

TEST(WireWriterTest, WhatDoesNotFitIsNotWritten) {
    const Bytes all = counted(7);
    for (size_t room = 0; room <= all.size(); ++room) {
        SCOPED_TRACE(room);
        Bytes bytes(10, 0xee);
        WireWriter writer(std::span<uint8_t>(bytes).first(room));
        writer.u8(0x01);
        writer.u16(0x0203);
        writer.u32(0x04050607);
        EXPECT_EQ(writer.ok(), room == 7);
        EXPECT_EQ(writer.room(), 0u);
        size_t written = room >= 7 ? 7 : room >= 3 ? 3 : room >= 1 ? 1 : 0;
        Bytes expected = counted(written);
        expected.resize(10, 0xee);
        EXPECT_EQ(bytes, expected);
    }
}

TEST(WireWriterTest, AFailureSticks) {
    Bytes bytes(3, 0xee);
    WireWriter writer(bytes);
    writer.bytes(counted(4));
    EXPECT_FALSE(writer.ok());
    EXPECT_EQ(writer.room(), 0u);
    writer.u8(1);
    writer.u16(1);
    writer.bytes({});
    EXPECT_FALSE(writer.ok());
    EXPECT_EQ(bytes, Bytes(3, 0xee));
}

TEST(WireWriterTest, NothingAlwaysFits) {
    WireWriter writer(std::span<uint8_t>{});
    writer.bytes({});
    EXPECT_TRUE(writer.ok());
    writer.u8(1);
    EXPECT_FALSE(writer.ok());
}

} // namespace
