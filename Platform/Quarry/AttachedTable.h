#pragma once

#include "Platform/Quarry/TableCollection.h"

#include <string>

namespace Quarry {

/// A table's file, read by another process than its writer's. The keys of interfaces are numbers
/// of the writer's table of interface names.
template <TableRecord R>
class AttachedTable final : ReadTrouble, TableMapping, public RecordReading<R> {
  public:
    /// `file` is <directory>/<path>/<collection>. Throws TableError.
    explicit AttachedTable(const std::string& file)
        : TableMapping(attach(file, shapeOf<R>(0))), RecordReading<R>(
                                                         static_cast<const TableMapping&>(*this),
                                                         static_cast<const ReadTrouble&>(*this)) {}

    /// A closed table does not change any more; a newer one may stand in its place.
    bool closed() const { return header().closed.load(std::memory_order_acquire) != 0; }
    bool complete() const { return header().complete.load(std::memory_order_acquire) != 0; }
    /// Goes up with every change.
    uint64_t changes() const { return header().changes.load(std::memory_order_acquire); }
    uint64_t generation() const { return header().generation; }
    uint32_t writerPid() const { return header().writerPid; }

    /// What went wrong last: absent if nothing did.
    Outcome trouble() const { return trouble_; }

  private:
    void handleTrouble(Outcome outcome) const override { trouble_ = outcome; }

    mutable Outcome trouble_ = Outcome::absent;
};

} // namespace Quarry
