#pragma once

#include "Platform/Base/Assert.h"
#include "Platform/Base/Hash.h"

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

/// Text forms: ipunknown, ipv4, ipv6.
enum class AddressFamily : uint8_t { ipunknown = 0, ipv4 = 1, ipv6 = 2 };

constexpr AddressFamily ipunknown() {
    return AddressFamily::ipunknown;
}
constexpr AddressFamily ipv4() {
    return AddressFamily::ipv4;
}
constexpr AddressFamily ipv6() {
    return AddressFamily::ipv6;
}

const char* toStrep(AddressFamily af);
inline std::ostream& operator<<(std::ostream& out, AddressFamily af) {
    return out << toStrep(af);
}

/// An IPv4 or IPv6 address, or unset: of unknown family, all bytes zero. 17 bytes, none of them
/// padding. toStrep: 10.0.0.1, 2001:db8::1, nothing if unset; value form: the same in quotes.
class IpGenAddr {
  public:
    using Bytes = std::array<uint8_t, 16>;

    constexpr IpGenAddr() = default;
    /// An IPv4 address in host byte order.
    explicit constexpr IpGenAddr(uint32_t v4)
        : af_(ipv4()), bytes_{static_cast<uint8_t>(v4 >> 24), static_cast<uint8_t>(v4 >> 16),
                              static_cast<uint8_t>(v4 >> 8), static_cast<uint8_t>(v4)} {}
    /// An IPv6 address in the order of transmission.
    explicit constexpr IpGenAddr(const Bytes& v6) : af_(ipv6()), bytes_(v6) {}
    /// From the usual notations; the empty text gives the unset address. Throws ParseError.
    explicit IpGenAddr(std::string_view text);
    /// Accepts only the one notation that toStrep writes.
    static IpGenAddr fromValue(Vela::ValueParser& parser);

    constexpr AddressFamily af() const { return af_; }
    /// An IPv4 address stands in the first four bytes, zeros follow.
    constexpr const Bytes& bytes() const { return bytes_; }
    /// The IPv4 address in host byte order; a programming error for any other family.
    uint32_t v4() const {
        Vela::assertThat(af_ == ipv4(), "af() == Zinc::ipv4()");
        return uint32_t{bytes_[0]} << 24 | uint32_t{bytes_[1]} << 16 | uint32_t{bytes_[2]} << 8 |
               bytes_[3];
    }

    constexpr bool isUnset() const { return af_ == ipunknown(); }
    /// 0.0.0.0 or ::, but not the unset address.
    constexpr bool isUnspecified() const {
        Words w = words();
        return !isUnset() && (w.front >> 8 | w.back | w.last) == 0;
    }
    /// 224.0.0.0/4 or ff00::/8
    constexpr bool isMulticast() const {
        return (af_ == ipv4() && bytes_[0] >> 4 == 0xe) || (af_ == ipv6() && bytes_[0] == 0xff);
    }
    /// fe80::/10; no IPv4 address is.
    constexpr bool isLinkLocal() const {
        return af_ == ipv6() && bytes_[0] == 0xfe && (bytes_[1] & 0xc0) == 0x80;
    }

    /// Of the 16 bytes alone, as for an IPv6 address: the family is not mixed in.
    uint64_t hash(uint64_t seed) const {
        Words words = this->words();
        Vela::IncrementalHash hash(seed);
        hash.mix(words.front >> 8 | words.back << 56);
        hash.mix(words.back >> 8 | uint64_t{words.last} << 56);
        return hash.result();
    }
    std::string toStrep() const;
    std::string valueToStrep() const;

    /// By family, then by bytes.
    friend constexpr bool operator==(const IpGenAddr& a, const IpGenAddr& b) {
        return a.words() == b.words();
    }
    friend constexpr std::strong_ordering operator<=>(const IpGenAddr&, const IpGenAddr&) = default;
    friend std::ostream& operator<<(std::ostream& out, const IpGenAddr& v) {
        return out << v.valueToStrep();
    }

  private:
    /// The object in the pieces that it is copied in: what was written a moment ago in one piece is
    /// read from the processor's store buffer, what straddles two waits for the cache.
    struct Words {
        uint64_t front;
        uint64_t back;
        uint8_t last;
        friend constexpr bool operator==(const Words& a, const Words& b) {
            return ((a.front ^ b.front) | (a.back ^ b.back) | uint64_t(a.last ^ b.last)) == 0;
        }
    };
    constexpr Words words() const {
        struct Pieces {
            std::array<uint8_t, 8> front;
            std::array<uint8_t, 8> back;
            uint8_t last;
        };
        auto pieces = std::bit_cast<Pieces>(*this);
        return {std::bit_cast<uint64_t>(pieces.front), std::bit_cast<uint64_t>(pieces.back),
                pieces.last};
    }

    AddressFamily af_ = AddressFamily::ipunknown;
    Bytes bytes_{};
};

} // namespace Zinc
