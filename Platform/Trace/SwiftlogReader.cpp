#include "Platform/Trace/SwiftlogReader.h"

#include "Platform/Base/UniqueFd.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace Vela {

namespace {

using namespace SwiftlogFormat;
using Bytes = std::span<const uint8_t>;

/// A T from the front of `bytes`, which must be long enough.
template <class T>
T taken(Bytes bytes) {
    T value;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

/// A T at `offset`, or nothing where the source ends before it does.
template <class T>
std::optional<T> readAs(const SwiftlogSource& source, uint64_t offset) {
    uint8_t bytes[sizeof(T)];
    if (source.read(offset, bytes) != sizeof(T)) {
        return std::nullopt;
    }
    return taken<T>(bytes);
}

/// Up to `most` bytes.
std::vector<uint8_t> readBytes(const SwiftlogSource& source, uint64_t offset, uint64_t most) {
    uint64_t left = offset < source.bytes ? source.bytes - offset : 0;
    std::vector<uint8_t> bytes(std::min(most, left));
    bytes.resize(source.read(offset, bytes));
    return bytes;
}

size_t readFile(int fd, uint64_t offset, std::span<uint8_t> into) {
    size_t done = 0;
    while (done < into.size()) {
        ssize_t got =
            pread(fd, into.data() + done, into.size() - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        done += static_cast<size_t>(got);
    }
    return done;
}

size_t readSpan(Bytes bytes, uint64_t offset, std::span<uint8_t> into) {
    Bytes there = bytes.subspan(std::min<uint64_t>(offset, bytes.size()));
    there = there.first(std::min(there.size(), into.size()));
    std::copy(there.begin(), there.end(), into.begin());
    return there.size();
}

std::string place(unsigned level, uint64_t block) {
    return "level " + std::to_string(level) + " block " + std::to_string(block) + ": ";
}

bool fits(const Field& field, uint16_t payloadBytes) {
    if (field.offset + field.bytes > payloadBytes) {
        return false;
    }
    switch (field.kind) {
    case FieldKind::boolean:
    case FieldKind::character:
        return field.bytes == 1;
    case FieldKind::signedInteger:
    case FieldKind::unsignedInteger:
        return field.bytes == 1 || field.bytes == 2 || field.bytes == 4 || field.bytes == 8;
    case FieldKind::floating:
    case FieldKind::pointer:
        return field.bytes == 8;
    case FieldKind::text:
        return field.bytes > 2;
    case FieldKind::ethAddr:
        return field.bytes == 6;
    case FieldKind::ipAddr:
        return field.bytes == 17;
    }
    return false;
}

/// Nanoseconds per tick between two moments; 0 if they do not tell.
double pace(const ClockPoint& from, const ClockPoint& to) {
    if (to.ticks <= from.ticks || to.monotonic <= from.monotonic) {
        return 0;
    }
    return static_cast<double>(to.monotonic - from.monotonic) /
           static_cast<double>(to.ticks - from.ticks);
}

} // namespace

SwiftlogReader::SwiftlogReader(const std::string& path) {
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!fd || fstat(fd.get(), &status) != 0) {
        problems_.push_back("cannot open " + path + ": " + std::strerror(errno));
        return;
    }
    if (!S_ISREG(status.st_mode)) {
        problems_.push_back(path + " is not a file");
        return;
    }
    read({static_cast<uint64_t>(status.st_size), [&fd](uint64_t offset, std::span<uint8_t> into) {
              return readFile(fd.get(), offset, into);
          }});
}

SwiftlogReader::SwiftlogReader(std::span<const uint8_t> bytes) {
    read({bytes.size(), [bytes](uint64_t offset, std::span<uint8_t> into) {
              return readSpan(bytes, offset, into);
          }});
}

SwiftlogReader::SwiftlogReader(const SwiftlogSource& source) {
    read(source);
}

/// Types and the latest clock come after the records: a living writer has described every type
/// before its first record.
void SwiftlogReader::read(const SwiftlogSource& source) {
    if (!readHeader(source)) {
        return;
    }
    readRings(source);
    readTypes(source);
    readLatestClock(source);
    resolve();
}

bool SwiftlogReader::readHeader(const SwiftlogSource& source) {
    std::optional<Header> header = readAs<Header>(source, 0);
    if (!header || std::memcmp(&header->magic, magicBytes, sizeof magicBytes) != 0) {
        problems_.push_back("not a ring-buffer file");
        return false;
    }
    if (header->version != formatVersion || header->blockBytes != blockSize ||
        header->levelCount != levels) {
        problems_.push_back("version " + std::to_string(header->version) + " with blocks of " +
                            std::to_string(header->blockBytes) + " bytes and " +
                            std::to_string(header->levelCount) + " levels cannot be read here");
        return false;
    }
    if (source.bytes < header->fileBytes) {
        problems_.push_back("cut off after " + std::to_string(source.bytes) + " of " +
                            std::to_string(header->fileBytes) + " bytes");
    }
    header_ = *header;
    clock_.push_back(header_.start);
    return true;
}

/// Rings lie in the order of their levels; one that does not is left out, so that no byte is read
/// for two levels.
void SwiftlogReader::readRings(const SwiftlogSource& source) {
    uint64_t end = blockSize;
    for (unsigned level = 0; level < levels; ++level) {
        const Ring& ring = header_.rings[level];
        if (ring.offset == 0 && ring.bytes == 0) {
            continue;
        }
        if (ring.offset < end || ring.offset > header_.fileBytes ||
            ring.bytes > header_.fileBytes - ring.offset || ring.offset % blockSize != 0 ||
            ring.bytes % blockSize != 0 || ring.bytes == 0) {
            problems_.push_back("level " + std::to_string(level) + ": its ring is out of place");
            continue;
        }
        end = ring.offset + ring.bytes;
        readRing(source, level);
    }
}

void SwiftlogReader::readRing(const SwiftlogSource& source, unsigned level) {
    const Ring& ring = header_.rings[level];
    for (uint64_t index = 0; index < ring.bytes / blockSize; ++index) {
        if (ring.offset + index * blockSize >= source.bytes) {
            break;
        }
        readBlock(source, level, index);
    }
    std::ranges::sort(blocks_[level], {}, &Block::sequence);
    for (const Block& block : blocks_[level]) {
        splitBlock(block, level);
    }
}

void SwiftlogReader::readBlock(const SwiftlogSource& source, unsigned level, uint64_t index) {
    const Ring& ring = header_.rings[level];
    uint64_t offset = ring.offset + index * blockSize;
    std::optional<BlockHeader> block = readAs<BlockHeader>(source, offset);
    if (!block || block->sequence == 0) {
        return;
    }
    // `used` was read before the records that it covers, the sequence is read again after them.
    std::vector<uint8_t> records =
        readBytes(source, offset + sizeof(BlockHeader), std::min(block->used, blockCapacity));
    std::optional<uint64_t> sequence = readAs<uint64_t>(source, offset);
    if (sequence != block->sequence) {
        return;
    }
    if (block->used > blockCapacity || (block->sequence - 1) % (ring.bytes / blockSize) != index) {
        problems_.push_back(place(level, index) + "its header is corrupt");
        return;
    }
    clock_.push_back(block->opened);
    blocks_[level].push_back({block->sequence, std::move(records)});
}

void SwiftlogReader::splitBlock(const Block& block, unsigned level) {
    Bytes left = block.records;
    while (left.size() >= sizeof(RecordHeader)) {
        RecordHeader record = taken<RecordHeader>(left);
        if (record.bytes < sizeof(RecordHeader) || record.bytes % 8 != 0 ||
            record.bytes > left.size() ||
            record.payloadBytes > record.bytes - sizeof(RecordHeader)) {
            break;
        }
        records_.push_back({.ticks = record.ticks,
                            .wall = 0,
                            .level = level,
                            .typeId = record.typeId,
                            .type = nullptr,
                            .payload = left.subspan(sizeof(RecordHeader), record.payloadBytes)});
        left = left.subspan(record.bytes);
    }
    if (!left.empty()) {
        uint64_t blocks = header_.rings[level].bytes / blockSize;
        problems_.push_back(place(level, (block.sequence - 1) % blocks) + "its last " +
                            std::to_string(left.size()) + " bytes are cut off or corrupt");
    }
}

void SwiftlogReader::readTypes(const SwiftlogSource& source) {
    std::optional<uint32_t> used = readAs<uint32_t>(source, offsetof(Header, typeAreaUsed));
    if (!used || *used > header_.typeAreaBytes) {
        problems_.push_back("the type area's size is corrupt");
        return;
    }
    std::vector<uint8_t> area = readBytes(source, header_.typeAreaOffset, *used);
    Bytes left = area;
    while (left.size() >= sizeof(TypeDescription)) {
        TypeDescription description = taken<TypeDescription>(left);
        if (description.bytes < sizeof(TypeDescription) || description.bytes % 8 != 0 ||
            description.bytes > left.size() || description.typeId != types_.size() + 1) {
            break;
        }
        types_.push_back(parseType(left.first(description.bytes)));
        if (!types_.back()) {
            problems_.push_back("type " + std::to_string(description.typeId) +
                                ": its description is corrupt");
        }
        left = left.subspan(description.bytes);
    }
    if (!left.empty() || area.size() < *used) {
        problems_.push_back("the type area is cut off or corrupt after " +
                            std::to_string(types_.size()) + " types");
    }
}

std::unique_ptr<SwiftlogDescription> SwiftlogReader::parseType(std::span<const uint8_t> bytes) {
    TypeDescription description = taken<TypeDescription>(bytes);
    size_t stringBytes =
        size_t{description.unitBytes} + description.titleBytes + description.closingBytes;
    size_t fieldBytes = description.fieldCount * sizeof(Field);
    Bytes left = bytes.subspan(sizeof(TypeDescription));
    if (fieldBytes > left.size()) {
        return nullptr;
    }
    std::vector<Field> fields;
    for (unsigned i = 0; i < description.fieldCount; ++i) {
        fields.push_back(taken<Field>(left.subspan(i * sizeof(Field))));
        if (!fits(fields.back(), description.payloadBytes)) {
            return nullptr;
        }
        stringBytes += fields.back().labelBytes;
    }
    left = left.subspan(fieldBytes);
    if (stringBytes > left.size()) {
        return nullptr;
    }
    auto takeString = [&left](size_t size) {
        Bytes front = left.first(size);
        std::string text(front.begin(), front.end());
        left = left.subspan(size);
        return text;
    };
    auto type = std::make_unique<SwiftlogDescription>();
    type->payloadBytes = description.payloadBytes;
    type->unit = takeString(description.unitBytes);
    type->title = takeString(description.titleBytes);
    for (const Field& field : fields) {
        type->fields.push_back(
            {takeString(field.labelBytes), field.kind, field.offset, field.bytes});
    }
    type->closing = takeString(description.closingBytes);
    return type;
}

void SwiftlogReader::readLatestClock(const SwiftlogSource& source) {
    constexpr uint64_t sequenceAt = offsetof(Header, latestSequence);
    std::optional<uint64_t> before = readAs<uint64_t>(source, sequenceAt);
    std::optional<ClockPoint> latest = readAs<ClockPoint>(source, offsetof(Header, latest));
    std::optional<uint64_t> after = readAs<uint64_t>(source, sequenceAt);
    if (latest && before == after && *before % 2 == 0) {
        header_.latest = *latest;
        clock_.push_back(*latest);
    }
}

/// Gives the records their types and times and puts them in order.
void SwiftlogReader::resolve() {
    std::ranges::stable_sort(clock_, {}, &ClockPoint::ticks);
    for (SwiftlogRecord& record : records_) {
        record.wall = wallAt(record.ticks);
        if (record.typeId >= 1 && record.typeId <= types_.size()) {
            record.type = types_[record.typeId - 1].get();
        }
    }
    std::ranges::stable_sort(records_, {}, &SwiftlogRecord::ticks);
}

int64_t SwiftlogReader::wallAt(uint64_t ticks) const {
    auto next = std::ranges::upper_bound(clock_, ticks, {}, &ClockPoint::ticks);
    const ClockPoint& base = next == clock_.begin() ? *next : *std::prev(next);
    double nanosecondsPerTick =
        next == clock_.begin() || next == clock_.end() ? 0 : pace(base, *next);
    if (nanosecondsPerTick == 0) {
        nanosecondsPerTick = pace(clock_.front(), clock_.back());
    }
    double since = ticks >= base.ticks ? static_cast<double>(ticks - base.ticks)
                                       : -static_cast<double>(base.ticks - ticks);
    // Beyond a century either way the file is corrupt and any time does.
    double nanoseconds = std::clamp(since * nanosecondsPerTick, -3e18, 3e18);
    int64_t wall;
    if (__builtin_add_overflow(static_cast<int64_t>(base.wall), static_cast<int64_t>(nanoseconds),
                               &wall)) {
        return static_cast<int64_t>(base.wall);
    }
    return wall;
}

} // namespace Vela
