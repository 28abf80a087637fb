#pragma once

#include <cstdint>
#include <random>
#include <vector>

namespace Random {

/// The same throws for the same seed.
class Dice {
  public:
    explicit Dice(uint64_t seed) : engine_(seed) {}

    uint32_t below(uint32_t bound) { return static_cast<uint32_t>(engine_() % bound); }
    bool chance(uint32_t percent) { return below(100) < percent; }
    template <class T>
    const T& oneOf(const std::vector<T>& things) {
        return things[below(static_cast<uint32_t>(things.size()))];
    }

  private:
    std::mt19937_64 engine_;
};

} // namespace Random
