#include "Platform/Base/Hash.h"
#include "Platform/Base/HashSeed.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <vector>

namespace {

using namespace Vela;

uint64_t hashOf(uint64_t seed, std::initializer_list<uint64_t> parts) {
    IncrementalHash hash(seed);
    for (uint64_t part : parts) {
        hash.mix(part);
    }
    return hash.result();
}

uint64_t hashOfBytes(std::span<const uint8_t> bytes) {
    IncrementalHash hash(1);
    hash.mixBytes(bytes);
    return hash.result();
}

TEST(HashTest, SameSeedAndPartsGiveTheSameResult) {
    EXPECT_EQ(hashOf(7, {1, 2, 3}), hashOf(7, {1, 2, 3}));
}

TEST(HashTest, SeedPartsOrderAndNumberOfPartsCount) {
    std::vector<uint64_t> hashes = {
        hashOf(7, {1, 2}), hashOf(8, {1, 2}), hashOf(7, {2, 1}), hashOf(7, {1, 3}),
        hashOf(7, {1}),    hashOf(7, {}),     hashOf(7, {0}),    hashOf(7, {0, 0}),
    };
    EXPECT_EQ(std::set(hashes.begin(), hashes.end()).size(), hashes.size());
}

TEST(HashTest, TakingTheResultDoesNotEndTheHash) {
    IncrementalHash hash(7);
    hash.mix(1);
    EXPECT_EQ(hash.result(), hash.result());
    hash.mix(2);
    EXPECT_EQ(hash.result(), hashOf(7, {1, 2}));
}

TEST(HashTest, BytesAreHashedWithTheirLength) {
    std::array<uint8_t, 17> zeros{};
    std::set<uint64_t> hashes;
    for (size_t length = 0; length <= zeros.size(); ++length) {
        hashes.insert(hashOfBytes(std::span(zeros).first(length)));
    }
    EXPECT_EQ(hashes.size(), zeros.size() + 1);
}

TEST(HashTest, EveryByteCounts) {
    std::array<uint8_t, 17> bytes{};
    std::set<uint64_t> hashes = {hashOfBytes(bytes)};
    for (uint8_t& byte : bytes) {
        byte = 1;
        hashes.insert(hashOfBytes(bytes));
        byte = 0;
    }
    EXPECT_EQ(hashes.size(), bytes.size() + 1);
}

uint64_t hashOfText(std::string_view text) {
    IncrementalHash hash(1);
    hash.mixText(text);
    return hash.result();
}

TEST(HashTest, TextIsHashedAsItsBytes) {
    std::array<uint8_t, 9> bytes = {'E', 't', 'h', 'e', 'r', 'n', 'e', 't', '1'};
    EXPECT_EQ(hashOfText("Ethernet1"), hashOfBytes(bytes));
    EXPECT_NE(hashOfText("Ethernet1"), hashOfText("Ethernet2"));
    EXPECT_NE(hashOfText("Ethernet1"), hashOfText("Ethernet"));
    EXPECT_NE(hashOfText(std::string_view("a\0", 2)), hashOfText("a"));
    EXPECT_EQ(hashOfText(""), hashOfBytes({}));
}

TEST(HashTest, ProcessSeedStaysTheSame) {
    EXPECT_EQ(processHashSeed(), processHashSeed());
}

/// In a process that has not asked for it yet.
TEST(HashTest, ProcessSeedCanBeGiven) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            processHashSeedIs(5);
            std::exit(processHashSeed() == 5 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(HashTest, ProcessSeedCannotBeGivenOnceItIsUsed) {
    EXPECT_EXIT(
        {
            processHashSeed();
            processHashSeedIs(5);
        },
        testing::KilledBySignal(SIGABRT), "!seedIsUsed");
}

/// Flips each bit of many inputs and counts how often each bit of the output flips with it: it
/// should be half of the time, and is never off by more than a tenth.
void expectAvalanche(const std::function<uint64_t(uint64_t)>& hash) {
    constexpr int inputs = 2000;
    for (int bit = 0; bit < 64; ++bit) {
        std::array<int, 64> flips{};
        for (uint64_t input = 0; input < inputs; ++input) {
            uint64_t difference = hash(input) ^ hash(input ^ uint64_t{1} << bit);
            for (int out = 0; out < 64; ++out) {
                flips[out] += static_cast<int>(difference >> out & 1);
            }
        }
        auto [fewest, most] = std::minmax_element(flips.begin(), flips.end());
        EXPECT_GT(*fewest, inputs * 4 / 10) << "input bit " << bit;
        EXPECT_LT(*most, inputs * 6 / 10) << "input bit " << bit;
    }
}

TEST(HashTest, EveryBitOfAPartReachesEveryBitOfTheResult) {
    expectAvalanche([](uint64_t input) { return hashOf(7, {input}); });
}

TEST(HashTest, EveryBitOfAnEarlierPartReachesEveryBitOfTheResult) {
    expectAvalanche([](uint64_t input) { return hashOf(7, {input, 5}); });
}

TEST(HashTest, EveryBitOfTheSeedReachesEveryBitOfTheResult) {
    expectAvalanche([](uint64_t input) { return hashOf(input, {5}); });
}

/// Buckets by the bits of `hash >> shift`; 100 to a bucket would be even.
void expectEvenSpread(unsigned shift) {
    constexpr uint32_t first = 10u << 24; // 10.0.0.0
    std::array<int, 1024> buckets{};
    for (uint32_t i = 0; i < 1024 * 100; ++i) {
        uint32_t v4 = first + i;
        std::array<uint8_t, 16> bytes = {uint8_t(v4 >> 24), uint8_t(v4 >> 16), uint8_t(v4 >> 8),
                                         uint8_t(v4)};
        ++buckets[hashOfBytes(bytes) >> shift & 1023];
    }
    auto [emptiest, fullest] = std::minmax_element(buckets.begin(), buckets.end());
    EXPECT_GT(*emptiest, 50);
    EXPECT_LT(*fullest, 150);
}

TEST(HashTest, SequentialAddressesSpreadOverTheLowBits) {
    expectEvenSpread(0);
}

TEST(HashTest, SequentialAddressesSpreadOverTheHighBits) {
    expectEvenSpread(54);
}

} // namespace
