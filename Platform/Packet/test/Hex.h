#pragma once

#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

namespace Vela {

using Bytes = std::vector<uint8_t>;

/// Pairs of hexadecimal digits; blanks count for nothing.
inline Bytes hex(std::string_view text) {
    Bytes bytes;
    std::string digits;
    for (char c : text) {
        if (c == ' ') {
            continue;
        }
        digits += c;
        if (digits.size() == 2) {
            char* end = nullptr;
            bytes.push_back(static_cast<uint8_t>(std::strtoul(digits.c_str(), &end, 16)));
            EXPECT_EQ(*end, '\0') << text;
            digits.clear();
        }
    }
    EXPECT_TRUE(digits.empty()) << text;
    return bytes;
}

/// An allocation of its own that ends with the last byte, where the address sanitizer watches.
inline Bytes prefix(const Bytes& bytes, size_t count) {
    return Bytes(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(count));
}

} // namespace Vela
