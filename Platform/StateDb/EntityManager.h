#pragma once

#include "Platform/Quarry/TableService.h"
#include "Platform/State/Collection.h"

#include <memory>
#include <set>
#include <string>

namespace Vela {

class MountGroup;
class Mounter;

/// The state database of this process: published entities by path. The platform publishes what
/// there is to mount; agents mount it, through a MountGroup, and fetch it once the group is
/// complete. Entities are kept alive while they are published.
class EntityManager final : public Entity {
  public:
    EntityManager(Ptr<TaskScheduler> scheduler, Ptr<Quarry::TableService> tableService);

    const char* typeName() const noexcept override { return "EntityManager"; }
    /// The paths with their types; an entity's own dump is its owner's business.
    void dumpState(DumpContext& context, int indent) const override;

    /// Publishes an entity under its typeName(). One path has one entity: another one there is
    /// replaced.
    void entityIs(const std::string& path, Ptr<Entity> entity) { entity_.set(path, entity); }
    void entityDel(const std::string& path) { entity_.del(path); }

    /// An entity that is still being filled completes no mount. Announces a change.
    void populatingIs(const std::string& path, bool populating);
    bool populating(const std::string& path) const { return populating_.has(path); }

    /// A read-only view; empty where there is no entity or one of another type.
    template <class T>
    Ptr<const T> entity(const std::string& path) const {
        return boost::dynamic_pointer_cast<const T>(entity_.value(path));
    }
    /// The entity itself, for whoever has mounted it for writing; empty for everyone else.
    template <class T>
    Ptr<T> writableEntity(const std::string& path) const {
        return writable_.contains(path) ? boost::dynamic_pointer_cast<T>(entity_.value(path))
                                        : nullptr;
    }
    /// The entity that only this process has at `path`; made, with its name, if there is none.
    template <class T>
    void localEntityIs(const std::string& path, const std::string& name) {
        entity_.findOrAdd(path, [&]() -> Ptr<Entity> { return make<T>(name); });
    }

    /// Where this cell's instance of something stands that every cell of a switch has.
    static std::string cellPath(const std::string& path) { return "cell/1/" + path; }

    /// The mounter must outlive the group.
    Ptr<MountGroup> mountGroup(Mounter& mounter);

    const Ptr<Quarry::TableService>& tableService() const { return tableService_; }

    /// The collections announce every path at which something appears, is replaced or goes.
    const Map<std::string, Ptr<Entity>>& entityCollection() const { return entity_; }
    const Set<std::string>& populatingCollection() const { return populating_; }

  private:
    friend class MountGroup;

    Ptr<TaskScheduler> scheduler_;
    Ptr<Quarry::TableService> tableService_;
    Map<std::string, Ptr<Entity>> entity_;
    Set<std::string> populating_;
    std::set<std::string> writable_; // paths that somebody has mounted so
};

} // namespace Vela
