#pragma once

#include "Platform/Base/Hash.h"

#include <array>
#include <compare>
#include <cstdint>
#include <ostream>

namespace Vela {

/// A key with a hash as hashes should be, but the same in each process, so that what happened once
/// can be repeated.
struct SpreadKey {
    uint32_t number = 0;

    uint64_t hash(uint64_t) const {
        IncrementalHash hash(1);
        hash.mix(number);
        return hash.result();
    }
    friend auto operator<=>(SpreadKey, SpreadKey) = default;
};

/// A key whose hashes are few: some tell nothing in their low bits, others only there, and
/// of some the lower halves agree.
struct FewHashesKey {
    uint32_t number = 0;

    uint64_t hash(uint64_t) const {
        constexpr std::array<uint64_t, 8> hashes = {0,     ~uint64_t{0}, uint64_t{1} << 63, 1, 2,
                                                    0x100, 0x1ff,        uint64_t{3} << 40};
        return hashes[number % hashes.size()];
    }
    friend auto operator<=>(FewHashesKey, FewHashesKey) = default;
};

/// A key all of whose hashes are equal.
struct OneHashKey {
    uint32_t number = 0;

    uint64_t hash(uint64_t) const { return 0x123456789abcdef0; }
    friend auto operator<=>(OneHashKey, OneHashKey) = default;
};

template <class Key>
requires requires(const Key& key) {
    key.number;
}
std::ostream& operator<<(std::ostream& out, const Key& key) {
    return out << key.number;
}

} // namespace Vela
