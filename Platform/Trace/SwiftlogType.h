#pragma once

#include "Platform/Base/Assert.h"
#include "Platform/Trace/Swiftlog.h"
#include "Platform/Trace/SwiftlogFormat.h"
#include "Platform/Value/EthAddr.h"
#include "Platform/Value/IpGenAddr.h"

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Vela {

/// Text inside a record: what does not fit into N bytes is cut off, and printed with a "..." in
/// its place.
template <size_t N>
class SwiftlogText {
    static_assert(N >= 1 && N <= 255);

  public:
    SwiftlogText() = default;
    template <class Text>
    requires std::convertible_to<const Text&, std::string_view> SwiftlogText(const Text& text) {
        std::string_view bytes = text;
        length_ = static_cast<uint8_t>(std::min(bytes.size(), N));
        cut_ = bytes.size() > N;
        std::memcpy(bytes_.data(), bytes.data(), length_);
    }

  private:
    uint8_t length_ = 0;
    uint8_t cut_ = 0;
    std::array<char, N> bytes_{};
};

/// What the members of a record may be; each is kept as the bytes that it is made of.
template <class Member>
struct SwiftlogKind {};
template <>
struct SwiftlogKind<bool> {
    static constexpr auto kind = SwiftlogFormat::FieldKind::boolean;
};
template <>
struct SwiftlogKind<char> {
    static constexpr auto kind = SwiftlogFormat::FieldKind::character;
};
template <std::signed_integral Member>
requires(sizeof(Member) <= 8) struct SwiftlogKind<Member> {
    static constexpr auto kind = SwiftlogFormat::FieldKind::signedInteger;
};
template <std::unsigned_integral Member>
requires(sizeof(Member) <= 8) struct SwiftlogKind<Member> {
    static constexpr auto kind = SwiftlogFormat::FieldKind::unsignedInteger;
};
template <>
struct SwiftlogKind<double> {
    static constexpr auto kind = SwiftlogFormat::FieldKind::floating;
};
template <class Pointee>
struct SwiftlogKind<Pointee*> {
    static constexpr auto kind = SwiftlogFormat::FieldKind::pointer;
};
template <size_t N>
struct SwiftlogKind<SwiftlogText<N>> {
    static constexpr auto kind = SwiftlogFormat::FieldKind::text;
};
template <>
struct SwiftlogKind<Zinc::EthAddr> {
    static_assert(sizeof(Zinc::EthAddr) == 6);
    static constexpr auto kind = SwiftlogFormat::FieldKind::ethAddr;
};
template <>
struct SwiftlogKind<Zinc::IpGenAddr> {
    static_assert(sizeof(Zinc::IpGenAddr) == 17 && uint8_t(Zinc::ipv4()) == 1 &&
                  uint8_t(Zinc::ipv6()) == 2);
    static constexpr auto kind = SwiftlogFormat::FieldKind::ipAddr;
};

/// A literal and the member printed after it.
template <class T>
struct SwiftlogField {
    template <class Member>
    SwiftlogField(const char* literal, Member T::*member)
        : label(literal), kind(SwiftlogKind<Member>::kind), bytes(sizeof(Member)) {
        // A pointer to a data member is the member's offset in the C++ ABI of all our compilers.
        static_assert(sizeof member == sizeof(ptrdiff_t));
        offset = static_cast<uint16_t>(std::bit_cast<ptrdiff_t>(member));
    }

    const char* label;
    SwiftlogFormat::FieldKind kind;
    uint16_t offset;
    uint16_t bytes;
};

/// A kind of record: T is copied into the ring as it is and formatted when somebody reads the
/// file. One object per place that writes, with static lifetime; all texts are literals.
///
///   static const SwiftlogType<VrfIdUpdate> record{
///       "ArpSuppression/VlanL3InfoSm", "updateVrfId", 5,
///       {{"vrfInfo=", &VrfIdUpdate::vrfName}, {" vrfId=", &VrfIdUpdate::vrfId}}};
///   record.write({vrfName, vrfId});
template <class T>
class SwiftlogType {
    static_assert(std::is_trivially_copyable_v<T>);
    static_assert(sizeof(T) <=
                  SwiftlogFormat::blockCapacity - sizeof(SwiftlogFormat::RecordHeader));

  public:
    SwiftlogType(const char* unit, const char* title, unsigned level,
                 std::initializer_list<SwiftlogField<T>> fields, const char* closing = "")
        : type_{unit, title, closing, level, sizeof(T), {}} {
        assertThat(level < SwiftlogFormat::levels, "level < SwiftlogFormat::levels");
        assertThat(fields.size() <= 255, "fields.size() <= 255");
        for (const SwiftlogField<T>& field : fields) {
            type_.fields.push_back({field.label, field.kind, field.offset, field.bytes});
        }
    }

    void write(const T& record) const { Swiftlog::write(type_, &record); }

  private:
    Swiftlog::RecordType type_;
};

} // namespace Vela
