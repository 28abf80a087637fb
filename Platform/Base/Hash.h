#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

namespace Vela {

/// Hashes a value part by part: start from a seed, mix each part in order, take the result.
/// Every input bit reaches every output bit, so any bits of the result can pick a bucket. Two
/// processes that start from the same seed compute the same result.
class IncrementalHash {
  public:
    explicit IncrementalHash(uint64_t seed) : state_(seed ^ 0x9E3779B97F4A7C15ull) {}

    void mix(uint64_t part) { state_ = fold(state_ ^ part, 0xD6E8FEB86659FD93ull); }
    void mixBytes(std::span<const uint8_t> bytes);
    /// The same for a few bytes whose number is known.
    template <size_t N>
    requires(N <= sizeof(uint64_t)) void mixBytes(const std::array<uint8_t, N>& bytes) {
        uint64_t word = 0;
        std::memcpy(&word, bytes.data(), N);
        mix(N);
        mix(word);
    }
    void mixText(std::string_view text);

    uint64_t result() const { return fold(state_ ^ 0xA0761D6478BD642Full, 0xE7037ED1A0B428DBull); }

  private:
    void mixMemory(const void* bytes, size_t count);
    static uint64_t fold(uint64_t a, uint64_t b) {
        __extension__ using Wide = unsigned __int128;
        Wide product = static_cast<Wide>(a) * b;
        // Adding `a` keeps a zero product from forgetting it.
        return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64) ^ (a >> 32) ^
               a;
    }

    uint64_t state_;
};

/// Drawn once per process, so that nobody outside can choose keys that all fall into one bucket.
uint64_t processHashSeed();

} // namespace Vela
