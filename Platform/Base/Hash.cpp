#include "Platform/Base/Hash.h"

#include "Platform/Base/Assert.h"
#include "Platform/Base/HashSeed.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <random>

namespace Vela {

namespace {

std::optional<uint64_t> givenSeed;
bool seedIsUsed = false;

uint64_t drawnSeed() {
    std::random_device random;
    return uint64_t{random()} << 32 | random();
}

} // namespace

void IncrementalHash::mixBytes(std::span<const uint8_t> bytes) {
    mixMemory(bytes.data(), bytes.size());
}

void IncrementalHash::mixText(std::string_view text) {
    mixMemory(text.data(), text.size());
}

void IncrementalHash::mixMemory(const void* bytes, size_t count) {
    mix(count);
    for (size_t at = 0; at < count; at += sizeof(uint64_t)) {
        uint64_t word = 0;
        std::memcpy(&word, static_cast<const char*>(bytes) + at, std::min(sizeof word, count - at));
        mix(word);
    }
}

uint64_t processHashSeed() {
    static const uint64_t seed = [] {
        seedIsUsed = true;
        return givenSeed ? *givenSeed : drawnSeed();
    }();
    return seed;
}

void processHashSeedIs(uint64_t seed) {
    assertThat(!seedIsUsed, "!seedIsUsed");
    givenSeed = seed;
}

} // namespace Vela
