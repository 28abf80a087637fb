#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace Vela {

/// Reads a frame field by field, integers in network byte order. Reading beyond the end gives
/// zeros and is remembered: read every field, then ask once whether all of them were there.
class WireReader {
  public:
    /// The bytes must outlive the reader.
    explicit WireReader(std::span<const uint8_t> bytes) : rest_(bytes) {}

    uint8_t u8() { return static_cast<uint8_t>(number<1>()); }
    uint16_t u16() { return static_cast<uint16_t>(number<2>()); }
    uint32_t u32() { return static_cast<uint32_t>(number<4>()); }
    template <size_t N>
    std::array<uint8_t, N> bytes() {
        std::array<uint8_t, N> bytes{};
        std::span<const uint8_t> taken = take(N);
        std::copy(taken.begin(), taken.end(), bytes.begin());
        return bytes;
    }
    /// The next `count` bytes where they are; none if there are fewer.
    std::span<const uint8_t> take(size_t count) {
        if (count > rest_.size()) {
            failed_ = true;
            rest_ = {};
            return {};
        }
        std::span<const uint8_t> taken = rest_.first(count);
        rest_ = rest_.subspan(count);
        return taken;
    }
    void skip(size_t count) { take(count); }

    /// What has not been read.
    std::span<const uint8_t> rest() const { return rest_; }
    /// Whether everything that was read was there.
    bool ok() const { return !failed_; }

  private:
    template <size_t N>
    uint64_t number() {
        uint64_t value = 0;
        for (uint8_t byte : bytes<N>()) {
            value = value << 8 | byte;
        }
        return value;
    }

    std::span<const uint8_t> rest_;
    bool failed_ = false;
};

/// Writes a frame field by field, integers in network byte order. What does not fit is not written,
/// and remembered.
class WireWriter {
  public:
    /// The bytes must outlive the writer.
    explicit WireWriter(std::span<uint8_t> bytes) : rest_(bytes) {}

    void u8(uint8_t value) { number<1>(value); }
    void u16(uint16_t value) { number<2>(value); }
    void u32(uint32_t value) { number<4>(value); }
    void bytes(std::span<const uint8_t> bytes) {
        if (bytes.size() > rest_.size()) {
            failed_ = true;
            rest_ = {};
            return;
        }
        std::copy(bytes.begin(), bytes.end(), rest_.begin());
        rest_ = rest_.subspan(bytes.size());
    }

    /// Room that is left.
    size_t room() const { return rest_.size(); }
    /// Whether everything fitted.
    bool ok() const { return !failed_; }

  private:
    template <size_t N>
    void number(uint64_t value) {
        std::array<uint8_t, N> bigEndian;
        for (size_t i = 0; i < N; ++i) {
            bigEndian[i] = static_cast<uint8_t>(value >> 8 * (N - 1 - i));
        }
        bytes(bigEndian);
    }

    std::span<uint8_t> rest_;
    bool failed_ = false;
};

} // namespace Vela
