#pragma once

#include "Platform/Quarry/Table.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Quarry {

class MountGroup;

enum class MountType : uint8_t { writer = 0, reader = 1 };

/// The tables of this process, by path.
class TableService final : public Vela::Entity {
  public:
    /// The tables' files stand below `directory`, which is made when needed.
    TableService(Vela::Ptr<Vela::TaskScheduler> scheduler, std::string directory,
                 size_t changeLogCapacity = ChangeLog::defaultCapacity);

    const char* typeName() const noexcept override { return "Quarry::TableService"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    Vela::Ptr<MountGroup> mountGroup();
    const Vela::Ptr<ChangeLog>& changeLog() const { return changeLog_; }

  protected:
    ~TableService() override;
    void handleDestroy() noexcept override;

  private:
    friend class MountGroup;
    using Factory = std::function<Vela::Ptr<Table>(const TableSite&)>;
    struct Mounted {
        Vela::Ptr<Table> table;
        unsigned mounts = 0;
    };

    Vela::Ptr<Table> mount(const std::string& path, const char* tableType,
                           std::vector<CollectionDeclaration> declarations, const Factory& factory);
    void unmount(const std::string& path) noexcept;

    const std::string directory_;
    Vela::Ptr<ChangeLog> changeLog_;
    std::map<std::string, Mounted> mounted_;
};

/// Mounts that belong together, and end together: with the group or by `unmount`.
class MountGroup final : public Vela::Entity {
  public:
    explicit MountGroup(Vela::Ptr<TableService> service) : service_(std::move(service)) {}

    const char* typeName() const noexcept override { return "Quarry::MountGroup"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// Mounts the table at `path`, making it if this is its first mount of either type in the
    /// process; declarations count then, and are reported in the trace if they come too late to be
    /// true. A table that cannot be made, or that is of another type, is reported, too; nothing is
    /// mounted, and the group does not become ready with that mount in it.
    template <class T>
    void mount(const std::string& path, MountType type,
               std::vector<CollectionDeclaration> declarations = {}) {
        add(path, type,
            service_->mount(path, T::tableType, std::move(declarations),
                            [](const TableSite& site) { return Vela::make<T>(site); }));
    }
    void unmount(const std::string& path);

    /// No more mounts: from now on the group can become ready.
    void close();
    /// Whether the group is closed, has all its tables, and those that it reads are complete.
    /// Announces a change.
    bool ready() const { return ready_.get(); }
    const Vela::Attribute<bool>& readyAttribute() const { return ready_; }

    /// A table of this group; empty if it is not mounted here, of another type, or, asked for
    /// without const, mounted for reading.
    template <class T>
    Vela::Ptr<T> entity(const std::string& path) const {
        auto found = mounts_.find(path);
        if (found == mounts_.end() ||
            (!std::is_const_v<T> && found->second.type == MountType::reader)) {
            return nullptr;
        }
        return boost::dynamic_pointer_cast<T>(found->second.table);
    }

  protected:
    void handleDestroy() noexcept override;

  private:
    struct Mount {
        MountType type;
        Vela::Ptr<Table> table; // null if it could not be mounted
        Vela::Reaction completeReaction;
    };

    void add(const std::string& path, MountType type, Vela::Ptr<Table> table);
    void update();

    Vela::Ptr<TableService> service_;
    std::map<std::string, Mount> mounts_;
    bool closed_ = false;
    Vela::Attribute<bool> ready_;
};

} // namespace Quarry
