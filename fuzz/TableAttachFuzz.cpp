#include "Platform/Base/Hash.h"
#include "Platform/Quarry/AttachedTable.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

struct Key {
    uint64_t number = 0;
    uint64_t hash(uint64_t seed) const {
        Vela::IncrementalHash hash(seed);
        hash.mix(number);
        return hash.result();
    }
};

struct Record {
    using Key = ::Key;
    static constexpr const char* recordType = "Fuzz::Record";
    Key key;
    uint64_t value = 0;
};

using Table = Quarry::AttachedTable<Record>;
namespace Format = Quarry::Format;

constexpr uint32_t capacity = 32;
constexpr size_t bucketsBytes = capacity * sizeof(uint32_t);
constexpr size_t fileBytes = Format::fileBytes(capacity, capacity, 32);

/// An input is a table's file without the holes that nobody reads: header, buckets, records. One
/// that ends within the header or the buckets is a file of that length.
std::vector<uint8_t> fileOf(const uint8_t* data, size_t size) {
    std::vector<uint8_t> file(data, data + size);
    if (size < sizeof(Format::Header) + bucketsBytes) {
        return file;
    }
    file.assign(fileBytes, 0);
    auto place = [&](size_t offset, size_t bytes) {
        size_t count = std::min(bytes, size);
        std::copy_n(data, count, file.begin() + static_cast<ptrdiff_t>(offset));
        data += count;
        size -= count;
    };
    place(0, sizeof(Format::Header));
    place(Format::bucketsOffset, bucketsBytes);
    place(Format::recordsOffset(capacity), fileBytes - Format::recordsOffset(capacity));
    // Nobody is waited for in a closed table.
    const uint32_t closed = 1;
    std::memcpy(file.data() + offsetof(Format::Header, closed), &closed, sizeof closed);
    return file;
}

void require(bool holds) {
    if (!holds) {
        __builtin_trap();
    }
}

/// Steps through the table; what stands in it is in order, so there is an end.
size_t walk(Table::Cursor cursor) {
    size_t met = 0;
    for (; cursor; ++cursor) {
        require(++met <= capacity);
    }
    return met;
}

void readAll(const Table& table) {
    std::vector<Key> keys{{0}, {1}, {~uint64_t{0}}};
    for (auto cursor = table.first(); cursor && keys.size() < 100; ++cursor) {
        keys.push_back(cursor.key());
    }
    require(keys.size() <= capacity + 3);
    for (const Key& key : keys) {
        if (auto found = table.find(key)) {
            require(found->key.number == key.number);
            require(table.value(key).value == found->value);
        }
        walk(table.atOrAfter(key));
        if (auto after = table.recordAfter(key)) {
            require(after->key.number != key.number);
        }
    }
    (void)table.count();
    require(table.closed());
}

} // namespace

/// Whatever another process left in a table's file: it is refused, or reading it ends, stays within
/// it and gives out nothing under a key that it is not under.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int fd = memfd_create("table", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(fd);
    const std::vector<uint8_t> file = fileOf(data, size);
    require(ftruncate(fd, static_cast<off_t>(file.size())) == 0 &&
            pwrite(fd, file.data(), file.size(), 0) == static_cast<ssize_t>(file.size()));
    std::unique_ptr<Table> table;
    try {
        table = std::make_unique<Table>(path);
    } catch (const Quarry::TableError&) {
        return 0;
    }
    readAll(*table);
    return 0;
}
