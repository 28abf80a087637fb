#include "Platform/Quarry/TableMapping.h"

#include "Platform/Base/Assert.h"
#include "Platform/Base/Hash.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Quarry {

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& what) {
    throw TableError(path + ": " + what);
}
[[noreturn]] void failWith(const std::string& path, const char* what, int error) {
    fail(path, std::string(what) + ": " + std::strerror(error));
}

uint64_t randomNumber() {
    std::random_device device;
    return uint64_t{device()} << 32 | device();
}

uint32_t recordBytesFor(uint32_t payloadBytes) {
    return static_cast<uint32_t>(sizeof(Format::Record) + Format::wordsFor(payloadBytes) * 8);
}

size_t fileBytesFor(const TableShape& shape) {
    return Format::fileBytes(std::bit_ceil(shape.capacity), shape.capacity,
                             recordBytesFor(shape.payloadBytes));
}

/// The name of a file until it is a table; a file that does not become one goes.
class UnfinishedFile {
  public:
    explicit UnfinishedFile(std::string path) : path_(std::move(path)) {
        unlink(path_.c_str()); // left behind by a process that died
    }
    ~UnfinishedFile() {
        if (!path_.empty()) {
            unlink(path_.c_str());
        }
    }
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;

    const char* path() const { return path_.c_str(); }
    bool rename(const std::string& path) {
        if (::rename(path_.c_str(), path.c_str()) != 0) {
            return false;
        }
        path_.clear();
        return true;
    }

  private:
    std::string path_;
};

void checkShape(const TableShape& shape) {
    using Vela::assertThat;
    assertThat(!shape.recordType.empty() && shape.recordType.size() < Format::recordTypeBytes,
               "shape.recordType.size() < Format::recordTypeBytes");
    assertThat(shape.keyBytes > 0 && shape.keyBytes <= shape.payloadBytes,
               "shape.keyBytes <= shape.payloadBytes");
    assertThat(shape.payloadBytes <= Format::pageBytes, "shape.payloadBytes <= Format::pageBytes");
}

/// Sets `closed` in the file that a new one has replaced; a file that is no table is left alone.
void markClosed(int fd) {
    struct {
        uint64_t magic;
        uint32_t layoutVersion;
    } file{};
    const uint32_t closed = 1;
    constexpr ssize_t needed = offsetof(Format::Header, layoutVersion) + sizeof(uint32_t);
    if (pread(fd, &file, needed, 0) == needed && file.magic == Format::magic &&
        file.layoutVersion == Format::layoutVersion) {
        // Failing that, readers find out by the writer's death.
        [[maybe_unused]] auto written =
            pwrite(fd, &closed, sizeof closed, offsetof(Format::Header, closed));
    }
}

int allocateRange(int fd, size_t begin, size_t end) {
    int error = 0;
    do {
        error = posix_fallocate(fd, static_cast<off_t>(begin), static_cast<off_t>(end - begin));
    } while (error == EINTR); // a tmpfs stops at any signal
    return error;
}

void fillHeader(Format::Header& header, const TableShape& shape) {
    header.layoutVersion = Format::layoutVersion;
    header.keyBytes = shape.keyBytes;
    header.payloadBytes = shape.payloadBytes;
    header.recordBytes = recordBytesFor(shape.payloadBytes);
    header.capacity = shape.capacity;
    header.bucketCapacity = std::bit_ceil(shape.capacity);
    // As the collections of the process have it: one that is filled by walking the table then grows
    // in its own order, next to what was touched just before.
    header.hashSeed = Vela::processHashSeed();
    header.generation = randomNumber();
    header.writerPid = static_cast<uint32_t>(getpid());
    shape.recordType.copy(header.recordType, Format::recordTypeBytes - 1);
    header.bucketCount = 1;
    header.magic = Format::magic;
}

/// What is wrong with the constant part of a header, or an empty text; `shape` has its capacity.
std::string faultOf(const Format::Header& header, size_t fileBytes, const TableShape& shape) {
    if (header.magic != Format::magic) {
        return "is no table";
    }
    if (header.layoutVersion != Format::layoutVersion) {
        return "has layout version " + std::to_string(header.layoutVersion) + ", expected " +
               std::to_string(Format::layoutVersion);
    }
    std::string type(header.recordType, strnlen(header.recordType, Format::recordTypeBytes));
    if (type != shape.recordType) {
        return "holds records of type \"" + type + "\", expected \"" + shape.recordType + "\"";
    }
    if (header.keyBytes != shape.keyBytes || header.payloadBytes != shape.payloadBytes ||
        header.recordBytes != recordBytesFor(shape.payloadBytes)) {
        return "has records of another size than " + type + " has here";
    }
    if (shape.capacity == 0 || shape.capacity > Format::maxCapacity ||
        header.bucketCapacity != std::bit_ceil(shape.capacity)) {
        return "has an impossible capacity";
    }
    size_t expected = fileBytesFor(shape);
    if (fileBytes < expected) {
        return "is cut off: " + std::to_string(fileBytes) + " of " + std::to_string(expected) +
               " bytes";
    }
    return {};
}

} // namespace

TableMapping::TableMapping(std::string path, Vela::UniqueFd fd, void* base, size_t bytes,
                           const TableShape& shape)
    : path_(std::move(path)), fd_(std::move(fd)), base_(base), bytes_(bytes),
      allAllocated_(shape.allocateAll), capacity_(shape.capacity),
      bucketCapacity_(std::bit_ceil(shape.capacity)), keyWords_(Format::wordsFor(shape.keyBytes)),
      payloadWords_(Format::wordsFor(shape.payloadBytes)),
      recordBytes_(recordBytesFor(shape.payloadBytes)),
      records_(Format::recordsOffset(bucketCapacity_)),
      lastKeyMask_(~uint64_t{0} >> (keyWords_ * 8 - shape.keyBytes) * 8) {}

TableMapping::TableMapping(TableMapping&& other) noexcept
    : path_(std::move(other.path_)), fd_(std::move(other.fd_)),
      base_(std::exchange(other.base_, nullptr)), bytes_(other.bytes_),
      allAllocated_(other.allAllocated_), capacity_(other.capacity_),
      bucketCapacity_(other.bucketCapacity_), keyWords_(other.keyWords_),
      payloadWords_(other.payloadWords_), recordBytes_(other.recordBytes_),
      records_(other.records_), lastKeyMask_(other.lastKeyMask_) {}

TableMapping::~TableMapping() {
    if (base_) {
        munmap(base_, bytes_);
    }
}

int TableMapping::allocate(size_t begin, size_t end) const {
    return allocateRange(fd_.get(), begin, end);
}

TableMapping TableMapping::create(const std::string& path, const TableShape& shape) {
    checkShape(shape);
    Vela::assertThat(shape.capacity > 0 && shape.capacity <= Format::maxCapacity,
                     "shape.capacity <= Format::maxCapacity");
    std::filesystem::path file(path);
    std::error_code error;
    std::filesystem::create_directories(file.parent_path(), error);
    if (error) {
        failWith(path, "cannot make its directory", error.value());
    }
    // Readers find a table under its name only once it is one.
    UnfinishedFile unfinished((file.parent_path() / ("." + file.filename().string())).string());
    Vela::UniqueFd fd(open(unfinished.path(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!fd) {
        failWith(path, "cannot be created", errno);
    }
    const size_t bytes = fileBytesFor(shape);
    if (ftruncate(fd.get(), static_cast<off_t>(bytes)) != 0) {
        failWith(path, "cannot get its size", errno);
    }
    // The header and the first buckets: without them there is no table.
    if (int failure =
            allocateRange(fd.get(), 0, shape.allocateAll ? bytes : 2 * Format::pageBytes)) {
        failWith(path, "cannot be allocated", failure);
    }
    void* base = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    if (base == MAP_FAILED) {
        failWith(path, "cannot be mapped", errno);
    }
    fillHeader(*new (base) Format::Header(), shape);
    TableMapping mapping(path, std::move(fd), base, bytes, shape);
    mapping.bucket(0).store(Format::endLink, std::memory_order_release);

    Vela::UniqueFd old(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
    if (!unfinished.rename(path)) {
        failWith(path, "cannot be put in place", errno);
    }
    // Only now: who sees the mark opens the file anew and must find this one.
    if (old) {
        markClosed(old.get());
    }
    return mapping;
}

TableMapping TableMapping::attach(const std::string& path, TableShape shape) {
    checkShape(shape);
    Vela::UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd) {
        failWith(path, "cannot be opened", errno);
    }
    struct stat status {};
    if (fstat(fd.get(), &status) != 0) {
        failWith(path, "cannot be looked at", errno);
    }
    auto bytes = static_cast<size_t>(status.st_size);
    if (!S_ISREG(status.st_mode) || bytes < Format::pageBytes) {
        fail(path, "is no table");
    }
    void* base = mmap(nullptr, bytes, PROT_READ, MAP_SHARED, fd.get(), 0);
    if (base == MAP_FAILED) {
        failWith(path, "cannot be mapped", errno);
    }
    shape.capacity = static_cast<Format::Header*>(base)->capacity;
    std::string fault = faultOf(*static_cast<Format::Header*>(base), bytes, shape);
    if (!fault.empty()) {
        munmap(base, bytes);
        fail(path, fault);
    }
    return TableMapping(path, Vela::UniqueFd(), base, bytes, shape);
}

} // namespace Quarry
