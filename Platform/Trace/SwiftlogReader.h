#pragma once

#include "Platform/Trace/SwiftlogFormat.h"
#include "Platform/Value/IpGenAddr.h"

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Vela {

/// What a file says about one kind of record.
struct SwiftlogDescription {
    struct Field {
        std::string label;
        SwiftlogFormat::FieldKind kind;
        uint16_t offset;
        uint16_t bytes;
    };

    std::string unit;
    std::string title;
    std::string closing;
    uint16_t payloadBytes;
    std::vector<Field> fields;
};

/// A record; only valid as long as the reader that it came from.
struct SwiftlogRecord {
    uint64_t ticks;
    int64_t wall; ///< nanoseconds since 1970
    unsigned level;
    uint16_t typeId;
    const SwiftlogDescription* type; ///< null when the file does not describe it
    std::span<const uint8_t> payload;

    /// Labels and fields, always one line; the payload in hexadecimal when the type is unknown.
    /// "..." stands where the record or a text in it was cut.
    std::string text() const;
    /// Whether one of its fields is that address.
    bool holds(const Zinc::IpGenAddr& address) const;
    /// The first unsigned integer whose label ends so, as "vlanId="; nothing if there is none.
    std::optional<uint64_t> number(std::string_view labelEnd) const;

  private:
    /// Fewer bytes than the field has where the record was cut.
    std::span<const uint8_t> bytesOf(const SwiftlogDescription::Field& field) const;
};

/// "2025-03-01 12:00:00.123456 5 ArpSuppression/VlanL3InfoSm updateVrfId vrfInfo=red vrfId=7",
/// without a newline; unit and title of an unknown type are "?".
std::ostream& operator<<(std::ostream& out, const SwiftlogRecord& record);

/// Bytes that may change while they are read, such as the file of a running process.
struct SwiftlogSource {
    uint64_t bytes;
    /// Fills `into` from `offset` on and returns how many bytes there were.
    std::function<size_t(uint64_t offset, std::span<uint8_t> into)> read;
};

/// Reads a ring-buffer file, be its writer alive, dead or killed in the middle of a record. What
/// is cut off or corrupt yields a problem and whatever else can be read. Of a living writer's
/// file, blocks that are replaced meanwhile are left out; records are whole or absent. Memory is a
/// small multiple of the file's size.
class SwiftlogReader {
  public:
    explicit SwiftlogReader(const std::string& path);
    explicit SwiftlogReader(std::span<const uint8_t> bytes);
    explicit SwiftlogReader(const SwiftlogSource& source);
    SwiftlogReader(const SwiftlogReader&) = delete;
    SwiftlogReader& operator=(const SwiftlogReader&) = delete;

    /// Of all zeros if this is no ring-buffer file that we know; then there is a problem, too.
    const SwiftlogFormat::Header& header() const { return header_; }

    /// Of all levels, in the order of their times.
    const std::vector<SwiftlogRecord>& records() const { return records_; }

    const std::vector<std::string>& problems() const { return problems_; }

  private:
    struct Block {
        uint64_t sequence;
        std::vector<uint8_t> records;
    };

    void read(const SwiftlogSource& source);
    bool readHeader(const SwiftlogSource& source);
    void readRings(const SwiftlogSource& source);
    void readRing(const SwiftlogSource& source, unsigned level);
    void readBlock(const SwiftlogSource& source, unsigned level, uint64_t index);
    void splitBlock(const Block& block, unsigned level);
    void readTypes(const SwiftlogSource& source);
    std::unique_ptr<SwiftlogDescription> parseType(std::span<const uint8_t> bytes);
    void readLatestClock(const SwiftlogSource& source);
    void resolve();
    int64_t wallAt(uint64_t ticks) const;

    SwiftlogFormat::Header header_{};
    std::vector<Block> blocks_[SwiftlogFormat::levels];
    std::vector<std::unique_ptr<SwiftlogDescription>> types_; // of id 1, 2, …; null: unusable
    std::vector<SwiftlogFormat::ClockPoint> clock_;           // by ticks
    std::vector<SwiftlogRecord> records_;
    std::vector<std::string> problems_;
};

} // namespace Vela
