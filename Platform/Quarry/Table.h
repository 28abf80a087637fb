#pragma once

#include "Platform/Quarry/ChangeLog.h"
#include "Platform/Quarry/TableMapping.h"
#include "Platform/State/Attribute.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Quarry {

class CollectionFile;

/// What a mount says about a collection of the table.
struct CollectionDeclaration {
    std::string name;
    uint32_t size; ///< entries that it holds at most
    bool mayGrow;  ///< false: room for all of them is allocated at once
};

/// Where a table is and what it is made of: handed through a table's constructor to its base.
struct TableSite {
    std::string path; ///< its name for mounts
    std::string directory;
    std::vector<CollectionDeclaration> declarations;
    Vela::Ptr<ChangeLog> changeLog;
};

/// One mounted table: its class derives from this, has its collections as members, and says
/// `static constexpr const char* tableType`. In the process that writes it there is one object of
/// it, which its writers change and its readers see as const; it ends, and its files are marked
/// closed, with the last mount. Other processes read the files (AttachedTable.h), which are
/// <directory>/<path>/<collection>.
class Table : public Vela::Entity {
  public:
    const char* typeName() const noexcept override = 0;
    void formatDerivedType(std::ostream& out) const override;
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const std::string& path() const { return site_.path; }

    /// Whether the writer has put in all that it found at its start. Announces a change.
    bool complete() const { return complete_.get(); }
    const Vela::Attribute<bool>& completeAttribute() const { return complete_; }
    void completeIs(bool complete);

    /// Reports in the trace what does not hold of declarations that come after the table was made.
    void declarationsCompare(const std::vector<CollectionDeclaration>& declarations) const;

  protected:
    explicit Table(const TableSite& site) : site_(site) {}
    ~Table() override = default;
    void handleDestroy() noexcept override;

  private:
    friend class CollectionFile;

    const CollectionDeclaration* declaration(const std::string& collection) const;

    const TableSite site_;
    std::vector<CollectionFile*> collections_; // members of the derived class
    Vela::Attribute<bool> complete_;
};

} // namespace Quarry
