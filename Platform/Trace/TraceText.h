#pragma once

#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>

namespace Vela {

/// "2025-03-01 12:00:00.123456" for nanoseconds since 1970, UTC; fractions are cut off.
std::string utcText(int64_t nanoseconds);

/// `text` with every control character as "\n", "\t" or "\x1b": whatever is traced, a line stays
/// one line and cannot drive the terminal that shows it.
std::string oneLine(std::string_view text);

/// Bytes to be printed; only valid within the full expression that names them.
struct HexBytes {
    std::span<const uint8_t> bytes;
};

/// Prints lowercase digits without separators: " data=" << hex(frame).
inline HexBytes hex(std::span<const uint8_t> bytes) {
    return {bytes};
}

std::ostream& operator<<(std::ostream& out, HexBytes hex);

} // namespace Vela
