#include "Platform/Trace/SwiftlogReader.h"
#include "Platform/Trace/TraceText.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <sstream>

namespace Vela {

namespace {

using namespace SwiftlogFormat;
using Bytes = std::span<const uint8_t>;

/// Labels and texts may overlap in a corrupt file: no record prints more than this.
constexpr size_t maxTextBytes = 16384;

uint64_t unsignedValue(Bytes bytes) {
    switch (bytes.size()) {
    case 1:
        return bytes[0];
    case 2: {
        uint16_t value;
        std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }
    case 4: {
        uint32_t value;
        std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }
    default: {
        uint64_t value;
        std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }
    }
}

int64_t signedValue(Bytes bytes) {
    unsigned unusedBits = 64 - 8 * static_cast<unsigned>(bytes.size());
    return static_cast<int64_t>(unsignedValue(bytes) << unusedBits) >> unusedBits;
}

std::string floatingText(Bytes bytes) {
    double value;
    std::memcpy(&value, bytes.data(), sizeof value);
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

std::string hexText(Bytes bytes) {
    std::ostringstream out;
    out << hex(bytes);
    return out.str();
}

std::string pointerText(Bytes bytes) {
    uint64_t value = unsignedValue(bytes);
    char text[24] = "0x";
    return value ? std::string(text, std::to_chars(text + 2, text + sizeof text, value, 16).ptr)
                 : "NULL";
}

std::string ethAddrText(Bytes bytes) {
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1], bytes[2],
                  bytes[3], bytes[4], bytes[5]);
    return text;
}

std::string ipAddrText(Bytes bytes) {
    if (bytes[0] != 1 && bytes[0] != 2) {
        return "none";
    }
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(bytes[0] == 1 ? AF_INET : AF_INET6, bytes.data() + 1, text, sizeof text);
}

/// `bytes` may end before the room for the text does.
std::string textText(Bytes bytes) {
    Bytes there = bytes.subspan(2);
    size_t length = bytes[0];
    Bytes kept = there.first(std::min(length, there.size()));
    std::string text(kept.begin(), kept.end());
    return bytes[1] != 0 || length > there.size() ? text + "..." : text;
}

std::string fieldText(FieldKind kind, Bytes bytes) {
    switch (kind) {
    case FieldKind::boolean:
        return bytes[0] ? "yes" : "no";
    case FieldKind::character:
        return std::string(1, static_cast<char>(bytes[0]));
    case FieldKind::signedInteger:
        return std::to_string(signedValue(bytes));
    case FieldKind::unsignedInteger:
        return std::to_string(unsignedValue(bytes));
    case FieldKind::floating:
        return floatingText(bytes);
    case FieldKind::pointer:
        return pointerText(bytes);
    case FieldKind::text:
        return textText(bytes);
    case FieldKind::ethAddr:
        return ethAddrText(bytes);
    case FieldKind::ipAddr:
        return ipAddrText(bytes);
    }
    return {};
}

} // namespace

std::string SwiftlogRecord::text() const {
    if (!type) {
        return "data=" + hexText(payload);
    }
    std::string text;
    for (const SwiftlogDescription::Field& field : type->fields) {
        text += field.label;
        Bytes there = bytesOf(field);
        bool whole = there.size() == field.bytes;
        if (!whole && (field.kind != FieldKind::text || there.size() < 2)) {
            return oneLine(text + "...");
        }
        text += fieldText(field.kind, there);
        if (text.size() > maxTextBytes) {
            text.resize(maxTextBytes);
            return oneLine(text + "...");
        }
    }
    return oneLine(text + type->closing);
}

Bytes SwiftlogRecord::bytesOf(const SwiftlogDescription::Field& field) const {
    Bytes there = payload.subspan(std::min<size_t>(field.offset, payload.size()));
    return there.first(std::min<size_t>(field.bytes, there.size()));
}

bool SwiftlogRecord::holds(const Zinc::IpGenAddr& address) const {
    return type && std::ranges::any_of(type->fields, [&](const SwiftlogDescription::Field& field) {
               Bytes bytes = bytesOf(field);
               return field.kind == FieldKind::ipAddr && bytes.size() == field.bytes &&
                      bytes[0] == static_cast<uint8_t>(address.af()) &&
                      std::ranges::equal(bytes.subspan(1), address.bytes());
           });
}

std::optional<uint64_t> SwiftlogRecord::number(std::string_view labelEnd) const {
    if (type) {
        for (const SwiftlogDescription::Field& field : type->fields) {
            Bytes bytes = bytesOf(field);
            if (field.kind == FieldKind::unsignedInteger && field.label.ends_with(labelEnd) &&
                bytes.size() == field.bytes) {
                return unsignedValue(bytes);
            }
        }
    }
    return std::nullopt;
}

std::ostream& operator<<(std::ostream& out, const SwiftlogRecord& record) {
    return out << utcText(record.wall) << ' ' << record.level << ' '
               << (record.type ? oneLine(record.type->unit) : "?") << ' '
               << (record.type ? oneLine(record.type->title) : "?") << ' ' << record.text();
}

} // namespace Vela
