#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace Vela {

/// An integer with its bytes in network order from one in the machine's order, or the other way.
template <std::unsigned_integral T>
constexpr T networkOrder(T value) {
    if constexpr (std::endian::native == std::endian::big || sizeof(T) == 1) {
        return value;
    } else if constexpr (sizeof(T) == 2) {
        return __builtin_bswap16(value);
    } else {
        static_assert(sizeof(T) == 4);
        return __builtin_bswap32(value);
    }
}

/// Reads a frame field by field, integers in network byte order. Reading beyond the end gives
/// zeros and is remembered: read every field, then ask once whether all of them were there.
class WireReader {
  public:
    /// The bytes must outlive the reader.
    explicit WireReader(std::span<const uint8_t> bytes) : rest_(bytes) {}

    uint8_t u8() { return number<uint8_t>(); }
    uint16_t u16() { return number<uint16_t>(); }
    uint32_t u32() { return number<uint32_t>(); }
    template <size_t N>
    std::array<uint8_t, N> bytes() {
        std::array<uint8_t, N> bytes{};
        if (std::span<const uint8_t> taken = take(N); !taken.empty()) {
            std::memcpy(bytes.data(), taken.data(), N);
        }
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
    template <std::unsigned_integral T>
    T number() {
        return networkOrder(std::bit_cast<T>(bytes<sizeof(T)>()));
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

    void u8(uint8_t value) { number(value); }
    void u16(uint16_t value) { number(value); }
    void u32(uint32_t value) { number(value); }
    void bytes(std::span<const uint8_t> bytes) {
        if (uint8_t* room = take(bytes.size())) {
            std::copy(bytes.begin(), bytes.end(), room);
        }
    }
    template <size_t N>
    void bytes(const std::array<uint8_t, N>& bytes) {
        if (uint8_t* room = take(N)) {
            std::memcpy(room, bytes.data(), N);
        }
    }

    /// Room that is left.
    size_t room() const { return rest_.size(); }
    /// Whether everything fitted.
    bool ok() const { return !failed_; }

  private:
    /// Null if there is less room.
    uint8_t* take(size_t count) {
        if (count > rest_.size()) {
            failed_ = true;
            rest_ = {};
            return nullptr;
        }
        uint8_t* room = rest_.data();
        rest_ = rest_.subspan(count);
        return room;
    }
    template <std::unsigned_integral T>
    void number(T value) {
        bytes(std::bit_cast<std::array<uint8_t, sizeof(T)>>(networkOrder(value)));
    }

    std::span<uint8_t> rest_;
    bool failed_ = false;
};

} // namespace Vela
