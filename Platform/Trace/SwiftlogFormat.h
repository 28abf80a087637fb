#pragma once

#include <cstddef>
#include <cstdint>

/// The ring-buffer file as it lies on disk, for its writer and its reader; docs/trace.md explains
/// it. Native byte order. Every change of a layout here raises `formatVersion`.
namespace Vela::SwiftlogFormat {

inline constexpr char magicBytes[8] = {'V', 'e', 'l', 'a', 'S', 'l', 'o', 'g'};
inline constexpr uint32_t formatVersion = 1;
inline constexpr uint32_t levels = 10;
inline constexpr uint32_t blockSize = 4096; ///< header page, and unit of type area and rings

/// One moment on three clocks.
struct ClockPoint {
    uint64_t ticks;     ///< what records are stamped with
    uint64_t monotonic; ///< CLOCK_MONOTONIC, nanoseconds
    uint64_t wall;      ///< CLOCK_REALTIME, nanoseconds since 1970
};

struct Ring {
    uint64_t offset; ///< from the start of the file, 0 if the level keeps no records
    uint64_t bytes;
};

struct Header {
    uint64_t magic; ///< the eight bytes above; stored last, when all else is in place
    uint32_t version;
    uint32_t blockBytes;
    uint64_t fileBytes;
    uint32_t pid;
    uint32_t levelCount;
    uint64_t typeAreaOffset;
    uint32_t typeAreaBytes;
    uint32_t typeAreaUsed;       ///< stored after the descriptions it covers
    uint64_t unknownTypeRecords; ///< records written with type 0 because the type area was full
    ClockPoint start;
    uint64_t latestSequence; ///< odd while `latest` is being replaced
    ClockPoint latest;
    Ring rings[levels];
};

struct BlockHeader {
    uint64_t sequence; ///< 1, 2, 3, … within the ring; 0 while empty or being replaced
    uint32_t used;     ///< bytes of records that follow this header; stored after them
    uint32_t reserved;
    ClockPoint opened;
};

struct RecordHeader {
    uint16_t typeId; ///< 0 when the type is unknown
    uint16_t bytes;  ///< header, payload and padding; a multiple of 8
    uint32_t payloadBytes;
    uint64_t ticks;
};

/// Followed by the fields; then the bytes of unit, title, each field's label and closing; then
/// padding to a multiple of 8.
struct TypeDescription {
    uint16_t typeId; ///< 1, 2, 3, … in the order of the type area
    uint16_t bytes;  ///< everything, padding included
    uint16_t payloadBytes;
    uint8_t level;
    uint8_t fieldCount;
    uint16_t unitBytes;
    uint16_t titleBytes;
    uint16_t closingBytes;
    uint16_t reserved;
};

enum class FieldKind : uint8_t {
    boolean = 1,
    character = 2,
    signedInteger = 3,   ///< 1, 2, 4 or 8 bytes
    unsignedInteger = 4, ///< 1, 2, 4 or 8 bytes
    floating = 5,        ///< 8 bytes
    pointer = 6,         ///< 8 bytes
    text = 7,            ///< one byte length, one byte "was cut", then room for the text
    ethAddr = 8,         ///< 6 bytes as on the wire
    ipAddr = 9,          ///< one byte family (1 IPv4, 2 IPv6, else none), 16 bytes as on the wire
};

struct Field {
    uint16_t offset; ///< within the payload
    uint16_t bytes;
    FieldKind kind;
    uint8_t reserved;
    uint16_t labelBytes;
};

inline constexpr uint32_t blockCapacity = blockSize - sizeof(BlockHeader);

static_assert(sizeof(ClockPoint) == 24 && sizeof(Ring) == 16);
static_assert(sizeof(Header) == 272 && sizeof(Header) <= blockSize);
static_assert(offsetof(Header, typeAreaUsed) == 44 && offsetof(Header, start) == 56);
static_assert(offsetof(Header, latest) == 88 && offsetof(Header, rings) == 112);
static_assert(sizeof(BlockHeader) == 40 && offsetof(BlockHeader, used) == 8);
static_assert(sizeof(RecordHeader) == 16 && sizeof(TypeDescription) == 16 && sizeof(Field) == 8);

} // namespace Vela::SwiftlogFormat
