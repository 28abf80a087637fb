#pragma once

#include <array>
#include <bit>
#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

namespace Vela {
class ValueParser;
}

namespace Zinc {

/// A MAC address; zero unless given. toStrep: 02:00:00:00:00:0a, value form: the same in quotes.
class EthAddr {
  public:
    using Bytes = std::array<uint8_t, 6>;

    constexpr EthAddr() = default;
    /// In the order of transmission.
    explicit constexpr EthAddr(const Bytes& bytes) : bytes_(bytes) {}
    /// From six pairs of hexadecimal digits, of either case, parted by colons. Throws ParseError.
    explicit EthAddr(std::string_view text);
    static EthAddr fromValue(Vela::ValueParser& parser);

    constexpr const Bytes& bytes() const { return bytes_; }
    constexpr bool isZero() const { return *this == EthAddr(); }
    /// The group bit: true for the broadcast address as well.
    constexpr bool isMulticast() const { return (bytes_[0] & 1) != 0; }

    uint64_t hash(uint64_t seed) const;
    std::string toStrep() const;
    std::string valueToStrep() const;

    friend constexpr bool operator==(const EthAddr& a, const EthAddr& b) {
        auto words = std::bit_cast<std::array<uint16_t, 3>>(a.bytes_);
        auto others = std::bit_cast<std::array<uint16_t, 3>>(b.bytes_);
        return ((words[0] ^ others[0]) | (words[1] ^ others[1]) | (words[2] ^ others[2])) == 0;
    }
    friend constexpr std::strong_ordering operator<=>(const EthAddr&, const EthAddr&) = default;
    friend std::ostream& operator<<(std::ostream& out, const EthAddr& v) {
        return out << v.valueToStrep();
    }

  private:
    Bytes bytes_{};
};

} // namespace Zinc
