#include "Platform/Value/IntfNameTable.h"

#include "Platform/Base/Assert.h"
#include "Platform/Base/Errors.h"
#include "Platform/Base/UniqueFd.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Zinc {

struct IntfNameTable::Record {
    uint8_t length;
    char name[longestName];
};

namespace {

constexpr size_t headerBytes = 4096;
constexpr size_t recordBytes = 64;

struct Header {
    char magic[8];
    uint32_t layoutVersion;
    uint32_t recordBytes;
    uint64_t capacity;
};
static_assert(sizeof(Header) == 24 && offsetof(Header, layoutVersion) == 8 &&
              offsetof(Header, recordBytes) == 12 && offsetof(Header, capacity) == 16);

Header headerFor(uint64_t capacity) {
    return {{'V', 'e', 'l', 'a', 'I', 'n', 't', 'f'}, 1, recordBytes, capacity};
}

[[noreturn]] void throwSystemError(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

Vela::UniqueFd openExisting(const std::string& path, int access) {
    // Non-blocking: a pipe that stands in the file's place must not hold us.
    return Vela::UniqueFd(open(path.c_str(), access | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
}

/// Why the file cannot be a table, empty if it can; fills in its capacity.
std::string headerFault(int fd, uint64_t& capacity) {
    struct stat status {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        return "it is no regular file";
    }
    Header header{};
    if (pread(fd, &header, sizeof header, 0) != ssize_t{sizeof header}) {
        return "it is too short";
    }
    Header expected = headerFor(header.capacity);
    if (std::memcmp(header.magic, expected.magic, sizeof header.magic) != 0) {
        return "it begins with something else";
    }
    if (header.layoutVersion != expected.layoutVersion ||
        header.recordBytes != expected.recordBytes) {
        return "its layout is of version " + std::to_string(header.layoutVersion) + " with " +
               std::to_string(header.recordBytes) + " bytes per record";
    }
    auto bytes = static_cast<uint64_t>(status.st_size);
    if (header.capacity == 0 || bytes < headerBytes ||
        (bytes - headerBytes) / recordBytes != header.capacity || bytes % recordBytes != 0) {
        return "its " + std::to_string(bytes) + " bytes are not those of " +
               std::to_string(header.capacity) + " names";
    }
    capacity = header.capacity;
    return "";
}

void* mapFile(int fd, size_t bytes, int protection, const std::string& what) {
    void* memory = mmap(nullptr, bytes, protection, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED) {
        throwSystemError(errno, what);
    }
    return memory;
}

void allocate(int fd, size_t bytes, const std::string& what) {
    // A full file system is an error here, and not a SIGBUS at some later name.
    if (int error = posix_fallocate(fd, 0, static_cast<off_t>(bytes))) {
        throwSystemError(error, what);
    }
}

} // namespace

IntfNameTable::IntfNameTable(Mapping mapping, size_t recordsOffset, size_t capacity, bool writes)
    : mapping_(mapping), records_(static_cast<Record*>(static_cast<void*>(
                             static_cast<char*>(mapping.memory) + recordsOffset))),
      capacity_(capacity), writes_(writes) {
    static_assert(sizeof(Record) == recordBytes);
    ids_.emplace(std::string_view(), 0);
}

IntfNameTable::IntfNameTable(size_t capacity)
    : IntfNameTable(
          [capacity] {
              Vela::assertThat(capacity > 0, "capacity > 0");
              size_t bytes = capacity * sizeof(Record);
              void* memory =
                  mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
              if (memory == MAP_FAILED) {
                  throwSystemError(errno, "memory for interface names");
              }
              return Mapping{memory, bytes};
          }(),
          0, capacity, true) {}

IntfNameTable::~IntfNameTable() {
    munmap(mapping_.memory, mapping_.bytes);
}

std::unique_ptr<IntfNameTable> IntfNameTable::ownerOf(const std::string& path, size_t capacity) {
    Vela::assertThat(capacity > 0, "capacity > 0");
    auto table = existing(path, capacity);
    if (!table) {
        create(path, capacity);
        table = existing(path, capacity);
    }
    if (!table) {
        throw std::system_error(EIO, std::generic_category(), "interface names in " + path);
    }
    return table;
}

/// Continues the file; null if there is none that could be.
std::unique_ptr<IntfNameTable> IntfNameTable::existing(const std::string& path, size_t capacity) {
    const std::string what = "interface names in " + path;
    Vela::UniqueFd fd = openExisting(path, O_RDWR);
    if (!fd) {
        // A link, a directory or a socket is no table; a directory makes the rename fail.
        if (errno != ENOENT && errno != ELOOP && errno != EISDIR && errno != ENXIO) {
            throwSystemError(errno, what);
        }
        return nullptr;
    }
    uint64_t found = 0;
    if (!headerFault(fd.get(), found).empty() || found != capacity) {
        return nullptr;
    }
    size_t bytes = headerBytes + capacity * recordBytes;
    allocate(fd.get(), bytes, what); // it may have been copied with holes
    Mapping mapping{mapFile(fd.get(), bytes, PROT_READ | PROT_WRITE, what), bytes};
    std::unique_ptr<IntfNameTable> table(new IntfNameTable(mapping, headerBytes, capacity, true));
    if (!table->damage().empty()) {
        return nullptr;
    }
    table->index();
    table->clearUnfinished();
    return table;
}

void IntfNameTable::create(const std::string& path, size_t capacity) {
    const std::string what = "interface names in " + path;
    const std::string fresh = path + ".new";
    unlink(fresh.c_str()); // of an owner that died here
    Vela::UniqueFd fd(open(fresh.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!fd) {
        throwSystemError(errno, what);
    }
    try {
        allocate(fd.get(), headerBytes + capacity * recordBytes, what);
        Header header = headerFor(capacity);
        if (pwrite(fd.get(), &header, sizeof header, 0) != ssize_t{sizeof header} ||
            rename(fresh.c_str(), path.c_str()) != 0) {
            throwSystemError(errno, what);
        }
    } catch (const std::system_error&) {
        unlink(fresh.c_str());
        throw;
    }
}

std::unique_ptr<IntfNameTable> IntfNameTable::readerOf(const std::string& path) {
    const std::string what = "interface names in " + path;
    Vela::UniqueFd fd = openExisting(path, O_RDONLY);
    if (!fd) {
        throwSystemError(errno, what);
    }
    uint64_t capacity = 0;
    std::string fault = headerFault(fd.get(), capacity);
    if (fault.empty()) {
        size_t bytes = headerBytes + capacity * recordBytes;
        Mapping mapping{mapFile(fd.get(), bytes, PROT_READ, what), bytes};
        std::unique_ptr<IntfNameTable> table(
            new IntfNameTable(mapping, headerBytes, capacity, false));
        fault = table->damage();
        if (fault.empty()) {
            table->index();
            return table;
        }
    }
    throw std::runtime_error(path + " is no table of interface names: " + fault);
}

IntfNameTable::Record& IntfNameTable::record(size_t id) const {
    return records_[id];
}

uint8_t IntfNameTable::length(size_t id) const {
    return std::atomic_ref<uint8_t>(record(id).length).load(std::memory_order_acquire);
}

std::string_view IntfNameTable::text(size_t id) const {
    return {record(id).name, length(id)};
}

/// Takes in the names that another process, or an earlier one, has written.
void IntfNameTable::index() {
    for (size_t end = size(); ids_.size() < end;) {
        size_t before = ids_.size();
        ids_.emplace(text(before), static_cast<uint32_t>(before));
        if (ids_.size() == before) { // twice the same: no owner writes that
            break;
        }
    }
}

/// What is wrong with the records, empty if nothing is. What an owner left that died while it
/// wrote, a name without its length, is no damage.
std::string IntfNameTable::damage() const {
    auto which = [](size_t id) { return "name " + std::to_string(id); };
    if (length(0) != 0) {
        return which(0) + " is not the empty one";
    }
    std::unordered_map<std::string_view, size_t> seen;
    size_t id = 1;
    for (; id < capacity_ && length(id) != 0; ++id) {
        size_t bytes = length(id);
        if (bytes > longestName) {
            return which(id) + " has " + std::to_string(bytes) + " bytes";
        }
        std::string_view rest(record(id).name + bytes, longestName - bytes);
        if (rest.find_first_not_of('\0') != rest.npos) {
            return which(id) + " is longer than it says";
        }
        if (auto [first, isNew] = seen.emplace(text(id), id); !isNew) {
            return which(id) + " is that of " + std::to_string(first->second);
        }
    }
    // Only the owner can say so: a reader's file may have grown meanwhile.
    for (; writes_ && id < capacity_; ++id) {
        if (length(id) != 0) {
            return which(id) + " follows an unused one";
        }
    }
    return "";
}

void IntfNameTable::clearUnfinished() {
    if (size() < capacity_) {
        std::memset(record(size()).name, 0, longestName);
    }
}

uint32_t IntfNameTable::idOf(std::string_view name) {
    if (!writes_) {
        index();
    }
    if (auto found = ids_.find(name); found != ids_.end()) {
        return found->second;
    }
    if (!writes_) {
        throw Vela::RangeError("Zinc::IntfId::name of no known interface not allowed");
    }
    if (name.size() > longestName) {
        throw Vela::RangeError("Zinc::IntfId::name > 63 bytes not allowed");
    }
    if (ids_.size() == capacity_) {
        throw Vela::RangeError("Zinc::IntfId::names > " + std::to_string(capacity_) +
                               " not allowed");
    }
    auto id = static_cast<uint32_t>(ids_.size());
    Record& added = record(id);
    name.copy(added.name, name.size());
    ids_.emplace(std::string_view(added.name, name.size()), id);
    std::atomic_ref<uint8_t>(added.length)
        .store(static_cast<uint8_t>(name.size()), std::memory_order_release);
    return id;
}

std::string_view IntfNameTable::name(uint32_t id) const {
    if (writes_) {
        // Nobody else adds any: all names there are have been taken in.
        Vela::assertThat(id < ids_.size(), "id < size()");
        return text(id);
    }
    if (id == 0) {
        return "";
    }
    std::string_view found = id < capacity_ ? text(id) : "";
    return found.empty() || found.size() > longestName ? "?" : found;
}

size_t IntfNameTable::size() const {
    size_t end = ids_.size();
    while (end < capacity_ && length(end) != 0 && length(end) <= longestName) {
        ++end; // another process has added it
    }
    return end;
}

namespace {

std::unique_ptr<IntfNameTable>& ofThisProcess() {
    static auto& table = *new std::unique_ptr<IntfNameTable>;
    return table;
}

} // namespace

IntfNameTable& intfNameTable() {
    auto& table = ofThisProcess();
    if (!table) {
        table = std::make_unique<IntfNameTable>();
    }
    return *table;
}

void intfNameTableIs(std::unique_ptr<IntfNameTable> table) {
    auto& current = ofThisProcess();
    Vela::assertThat(!current || current->size() == 1, "no interface name interned yet");
    current = std::move(table);
}

} // namespace Zinc
