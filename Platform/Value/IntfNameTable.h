#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Zinc {

/// The interned interface names: a name's id is the number of its record, given out in order and
/// never taken back. Id 0 is the empty name.
///
/// The records lie in mapped memory of full size from the start, so that they never move and the
/// views that name() returns live as long as the table: memory of this process alone, or a file
/// that one process owns and any number of others read. For one thread.
///
/// File layout, numbers in the machine's byte order:
///
///     offset 0     8 bytes  "VelaIntf"
///            8     4 bytes  layout version, 1
///           12     4 bytes  bytes per record, 64
///           16     8 bytes  capacity in records; the file has 4096 + 64 * capacity bytes
///           24              zero
///         4096              records: 1 byte length, 63 bytes name, the unused rest zero
///
/// Record 0 is all zero; any other is unused while its length is zero, and so are all after it. The
/// length is stored after the name, with release order: who loads it with acquire order sees the
/// whole name. A file is only ever appended to; it is never truncated, and replaced by rename.
class IntfNameTable {
  public:
    static constexpr size_t longestName = 63;
    static constexpr size_t usualCapacity = 65536;

    /// In memory of this process, for `capacity` names, the empty one included.
    explicit IntfNameTable(size_t capacity = usualCapacity);

    /// In the file, which this process owns from now on: the caller sees to it that no other one
    /// does. Names of an earlier owner keep their ids. A file that is no such table, is damaged or
    /// has another capacity is replaced by an empty one. Throws std::system_error.
    static std::unique_ptr<IntfNameTable> ownerOf(const std::string& path,
                                                  size_t capacity = usualCapacity);

    /// Reads the file of another process and sees the names that its owner adds. If that owner
    /// replaces the file, the reader stays with the old one. Throws std::system_error, or
    /// std::runtime_error if the file is no such table.
    static std::unique_ptr<IntfNameTable> readerOf(const std::string& path);

    ~IntfNameTable();
    IntfNameTable(const IntfNameTable&) = delete;
    IntfNameTable& operator=(const IntfNameTable&) = delete;

    /// The id of a name, which is added if the table does not hold it yet. Throws RangeError for a
    /// name that is too long or one too many, and then the table is unchanged. A reader adds
    /// nothing: every name that it does not know is a RangeError.
    uint32_t idOf(std::string_view name);

    /// The id must have been given out; to a reader it may be anything, and it answers "?" as long
    /// as there is no such name.
    std::string_view name(uint32_t id) const;

    /// Names held, the empty one included.
    size_t size() const;

  private:
    struct Record;
    struct Mapping {
        void* memory;
        size_t bytes;
    };

    IntfNameTable(Mapping mapping, size_t recordsOffset, size_t capacity, bool writes);
    static std::unique_ptr<IntfNameTable> existing(const std::string& path, size_t capacity);
    static void create(const std::string& path, size_t capacity);

    Record& record(size_t id) const;
    uint8_t length(size_t id) const;
    std::string_view text(size_t id) const;
    void index();
    std::string damage() const;
    void clearUnfinished();

    const Mapping mapping_;
    Record* const records_;
    const size_t capacity_;
    const bool writes_;
    std::unordered_map<std::string_view, uint32_t> ids_; // keys point into the records
};

/// The table behind the IntfIds of this process. It is never destroyed, so that objects that die
/// at exit can still print their names.
IntfNameTable& intfNameTable();

/// Chooses it, instead of one in memory of this process. To be called at start-up, before any name
/// has been interned.
void intfNameTableIs(std::unique_ptr<IntfNameTable> table);

} // namespace Zinc
