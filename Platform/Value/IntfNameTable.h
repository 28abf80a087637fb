#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <unordered_map>

namespace Zinc {

/// The interned interface names: a name's id is the number of its record, given out in order and
/// never taken back. Id 0 is the empty name.
///
/// The records lie in mapped memory of full size from the start, so that they never move and the
/// views that name() returns live as long as the table. Record layout, 64 bytes: 1 byte length,
/// 63 bytes name, the unused rest zero. All records but the first are unused while their length is
/// zero. The records alone carry the names; the index beside them serves this process.
class IntfNameTable {
  public:
    static constexpr size_t longestName = 63;

    /// For `capacity` names, the empty one included.
    explicit IntfNameTable(size_t capacity);
    ~IntfNameTable();
    IntfNameTable(const IntfNameTable&) = delete;
    IntfNameTable& operator=(const IntfNameTable&) = delete;

    /// The id of a name, which is added if the table does not hold it yet. Throws RangeError for a
    /// name that is too long or one too many, and then the table is unchanged.
    uint32_t idOf(std::string_view name);
    std::string_view name(uint32_t id) const;
    /// Names held, the empty one included.
    size_t size() const { return ids_.size(); }

  private:
    struct Record {
        uint8_t length;
        char name[longestName];
    };
    static_assert(sizeof(Record) == 64);

    size_t capacity_;
    Record* records_;
    std::unordered_map<std::string_view, uint32_t> ids_; // keys point into the records
};

} // namespace Zinc
