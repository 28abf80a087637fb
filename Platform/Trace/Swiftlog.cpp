#include "Platform/Trace/Swiftlog.h"

#include "Platform/Base/Assert.h"
#include "Platform/Base/UniqueFd.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <new>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Vela::Swiftlog {

namespace {

using namespace SwiftlogFormat;

constexpr unsigned defaultLevelKiB = 32;

uint64_t readClock(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return uint64_t(now.tv_sec) * 1'000'000'000 + uint64_t(now.tv_nsec);
}

uint64_t readTicks() {
#if defined(__x86_64__)
    return __builtin_ia32_rdtsc();
#else
    return readClock(CLOCK_MONOTONIC);
#endif
}

/// Tries again when the process seems to have been interrupted between the clocks.
ClockPoint readClocks() {
    constexpr uint64_t uninterrupted = 1 << 13;
    ClockPoint now{};
    for (int attempt = 0; attempt < 3; ++attempt) {
        now = {readTicks(), readClock(CLOCK_MONOTONIC), readClock(CLOCK_REALTIME)};
        if (readTicks() - now.ticks < uninterrupted) {
            break;
        }
    }
    return now;
}

constexpr uint64_t roundedUp(uint64_t value, uint64_t unit) {
    return (value + unit - 1) / unit * unit;
}

template <class T>
void publish(T& where, T value) {
    std::atomic_ref<T>(where).store(value, std::memory_order_release);
}

/// Where everything lies in a file of this configuration; clocks and counters are left at 0.
Header layOut(const SwiftlogConfig& config) {
    Header header{};
    std::memcpy(&header.magic, magicBytes, sizeof magicBytes);
    header.version = formatVersion;
    header.blockBytes = blockSize;
    header.pid = static_cast<uint32_t>(getpid());
    header.levelCount = levels;
    header.typeAreaOffset = blockSize;
    header.typeAreaBytes =
        static_cast<uint32_t>(roundedUp(uint64_t{config.typeAreaKiB} * 1024, blockSize));
    uint64_t end = header.typeAreaOffset + header.typeAreaBytes;
    for (unsigned level = 0; level < levels; ++level) {
        unsigned index = level - config.firstLevel;
        bool named = level >= config.firstLevel && index < config.levelKiB.size();
        uint64_t kiB = named ? config.levelKiB[index] : defaultLevelKiB;
        if (kiB > 0) {
            header.rings[level] = {end, roundedUp(kiB * 1024, blockSize)};
            end += header.rings[level].bytes;
        }
    }
    header.fileBytes = end;
    return header;
}

/// A file mapped for writing.
class RingFile {
  public:
    /// Takes over a mapping of `layout.fileBytes` zero bytes.
    RingFile(void* mapping, const Header& layout, unsigned maxRecordBytes, uint64_t number);
    ~RingFile() { munmap(base_, bytes_); }
    RingFile(const RingFile&) = delete;
    RingFile& operator=(const RingFile&) = delete;

    void write(const RecordType& type, const void* payload);

  private:
    struct OpenRing {
        uint8_t* blocks = nullptr;
        uint64_t blockCount = 0;
        uint64_t sequence = 0;
        BlockHeader* block = nullptr;
        uint32_t used = blockCapacity; // nothing fits: the first record opens a block
    };

    void openBlock(OpenRing& ring);
    void describe(const RecordType& type);
    void refreshClock();

    uint8_t* base_;
    uint64_t bytes_;
    Header* header_;
    uint32_t maxRecordBytes_;
    uint64_t number_;
    uint64_t nextClockTicks_ = 0;
    uint16_t typeCount_ = 0;
    OpenRing rings_[levels];
};

RingFile::RingFile(void* mapping, const Header& layout, unsigned maxRecordBytes, uint64_t number)
    : base_(static_cast<uint8_t*>(mapping)), bytes_(layout.fileBytes),
      maxRecordBytes_(
          std::clamp(maxRecordBytes / 8 * 8, uint32_t{sizeof(RecordHeader)}, blockCapacity)),
      number_(number) {
    Header header = layout;
    header.magic = 0;
    header.start = header.latest = readClocks();
    header_ = new (mapping) Header(header);
    nextClockTicks_ = header.start.ticks;
    for (unsigned level = 0; level < levels; ++level) {
        if (header.rings[level].bytes > 0) {
            rings_[level].blocks = base_ + header.rings[level].offset;
            rings_[level].blockCount = header.rings[level].bytes / blockSize;
        }
    }
    publish(header_->magic, layout.magic);
}

/// The reader needs two moments far apart to know how long a tick is. `latest` is renewed so often
/// that records never stand further beyond it than it stands from the start, nor by more than a
/// second or so.
void RingFile::refreshClock() {
    constexpr uint64_t leastTicks = 1 << 12;
    constexpr uint64_t mostTicks = 1u << 31;
    ClockPoint now = readClocks();
    std::atomic_ref<uint64_t> sequence(header_->latestSequence);
    // The exchange keeps the stores below from moving in front of it.
    sequence.exchange(header_->latestSequence + 1, std::memory_order_acq_rel);
    header_->latest = now;
    sequence.store(header_->latestSequence + 1, std::memory_order_release);
    nextClockTicks_ =
        now.ticks + std::clamp(now.ticks - header_->start.ticks, leastTicks, mostTicks);
}

/// A reader drops a block whose sequence changed while it read, so the old sequence has to be gone
/// before the first old byte, and the new one must not show before the old bytes are given up.
void RingFile::openBlock(OpenRing& ring) {
    uint8_t* at = ring.blocks + ring.sequence % ring.blockCount * blockSize;
    ++ring.sequence;
    ring.block = static_cast<BlockHeader*>(static_cast<void*>(at));
    ring.used = 0;
    // The exchange keeps the stores below from moving in front of it.
    std::atomic_ref<uint64_t>(ring.block->sequence).exchange(0, std::memory_order_acq_rel);
    publish(ring.block->used, uint32_t{0});
    ring.block->opened = readClocks();
    publish(ring.block->sequence, ring.sequence);
}

/// Adds the type to the type area, or decides that it stays unknown because there is no room.
void RingFile::describe(const RecordType& type) {
    type.describedIn = number_;
    type.typeId = 0;

    uint64_t bytes = sizeof(TypeDescription) + type.unit.size() + type.title.size() +
                     type.fields.size() * sizeof(Field) + type.closing.size();
    for (const RecordField& field : type.fields) {
        bytes += field.label.size();
    }
    bytes = roundedUp(bytes, 8);
    if (bytes > header_->typeAreaBytes - header_->typeAreaUsed || bytes > UINT16_MAX ||
        typeCount_ == UINT16_MAX) {
        return;
    }
    type.typeId = ++typeCount_;

    uint8_t* at = base_ + header_->typeAreaOffset + header_->typeAreaUsed;
    auto append = [&at](const void* from, size_t size) {
        std::memcpy(at, from, size);
        at += size;
    };
    TypeDescription description{.typeId = type.typeId,
                                .bytes = static_cast<uint16_t>(bytes),
                                .payloadBytes = static_cast<uint16_t>(type.payloadBytes),
                                .level = static_cast<uint8_t>(type.level),
                                .fieldCount = static_cast<uint8_t>(type.fields.size()),
                                .unitBytes = static_cast<uint16_t>(type.unit.size()),
                                .titleBytes = static_cast<uint16_t>(type.title.size()),
                                .closingBytes = static_cast<uint16_t>(type.closing.size()),
                                .reserved = 0};
    append(&description, sizeof description);
    for (const RecordField& field : type.fields) {
        Field described{.offset = field.offset,
                        .bytes = field.bytes,
                        .kind = field.kind,
                        .reserved = 0,
                        .labelBytes = static_cast<uint16_t>(field.label.size())};
        append(&described, sizeof described);
    }
    append(type.unit.data(), type.unit.size());
    append(type.title.data(), type.title.size());
    for (const RecordField& field : type.fields) {
        append(field.label.data(), field.label.size());
    }
    append(type.closing.data(), type.closing.size());
    publish(header_->typeAreaUsed, static_cast<uint32_t>(header_->typeAreaUsed + bytes));
}

void RingFile::write(const RecordType& type, const void* payload) {
    OpenRing& ring = rings_[type.level];
    if (!ring.blocks) {
        return;
    }
    if (type.describedIn != number_) [[unlikely]] {
        describe(type);
    }
    uint32_t whole = static_cast<uint32_t>(sizeof(RecordHeader)) + type.payloadBytes;
    uint32_t kept = std::min(whole, maxRecordBytes_);
    uint32_t bytes = (kept + 7) & ~7u;
    if (bytes > blockCapacity - ring.used) [[unlikely]] {
        openBlock(ring);
    }
    RecordHeader record{.typeId = type.typeId,
                        .bytes = static_cast<uint16_t>(bytes),
                        .payloadBytes = kept - static_cast<uint32_t>(sizeof(RecordHeader)),
                        .ticks = readTicks()};
    if (record.ticks >= nextClockTicks_) [[unlikely]] {
        refreshClock();
    }
    if (record.typeId == 0) [[unlikely]] {
        ++header_->unknownTypeRecords;
    }
    uint8_t* at = static_cast<uint8_t*>(static_cast<void*>(ring.block + 1)) + ring.used;
    std::memcpy(at, &record, sizeof record);
    std::memcpy(at + sizeof record, payload, record.payloadBytes);
    ring.used += bytes;
    publish(ring.block->used, ring.used);
}

/// Stays mapped to the very end of the process, so that destructors of statics may still write.
RingFile* current = nullptr;
uint64_t fileCount = 0;
std::string currentName;
std::string defaultDirectory = "/var/log/swiftlog";

std::string chosenPath(const std::string& fileName) {
    const char* fromEnvironment = std::getenv("SWIFTLOGDIR");
    std::string path = fromEnvironment && *fromEnvironment ? fromEnvironment : defaultDirectory;
    std::string name = fileName;
    std::string pid = std::to_string(getpid());
    for (size_t at = 0; (at = name.find("%d", at)) != name.npos; at += pid.size()) {
        name.replace(at, 2, pid);
    }
    return path + "/" + name;
}

/// Creates and maps the file; an error is the errno of the step that failed.
std::unique_ptr<RingFile> create(const std::string& path, const SwiftlogConfig& config,
                                 std::error_code& error) {
    auto failed = [&error](int number) {
        error.assign(number, std::generic_category());
        return nullptr;
    };
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    if (error) {
        return nullptr;
    }
    if (rename(path.c_str(), (path + ".1").c_str()) != 0 && errno != ENOENT) {
        return failed(errno);
    }
    UniqueFd fd(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0640));
    if (!fd) {
        return failed(errno);
    }
    Header layout = layOut(config);
    off_t bytes = static_cast<off_t>(layout.fileBytes);
    int sizing = config.preallocate ? posix_fallocate(fd.get(), 0, bytes)
                                    : (ftruncate(fd.get(), bytes) == 0 ? 0 : errno);
    void* mapping = MAP_FAILED;
    if (sizing == 0) {
        mapping = mmap(nullptr, layout.fileBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
        sizing = mapping == MAP_FAILED ? errno : 0;
    }
    if (sizing != 0) {
        unlink(path.c_str());
        return failed(sizing);
    }
    return std::make_unique<RingFile>(mapping, layout, config.maxRecordBytes, ++fileCount);
}

} // namespace

void initialize(const SwiftlogConfig& config) {
    assertThat(config.threading == SwiftlogThreading::single, "false");
    assertThat(config.secondaryFileName.empty(), "secondaryFileName.empty()");
    assertThat(config.firstLevel + config.levelKiB.size() <= levels,
               "firstLevel + levelKiB.size() <= SwiftlogFormat::levels");
    [[maybe_unused]] static const int closedInChildren = pthread_atfork(nullptr, nullptr, close);
    close();

    std::string path = chosenPath(config.fileName);
    std::error_code error;
    current = create(path, config, error).release();
    if (current) {
        currentName = path;
    } else {
        std::fprintf(stderr, "Swiftlog: cannot create %s: %s; records are not kept\n", path.c_str(),
                     error.message().c_str());
    }
}

void close() {
    delete std::exchange(current, nullptr);
    currentName.clear();
}

const std::string& fileName() {
    return currentName;
}

void defaultDirectoryIs(std::string directory) {
    defaultDirectory = std::move(directory);
}

void write(const RecordType& type, const void* payload) {
    if (current) {
        current->write(type, payload);
    }
}

} // namespace Vela::Swiftlog
