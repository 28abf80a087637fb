#include "Platform/StateDb/EntityManager.h"

#include "Platform/State/DumpContext.h"
#include "Platform/StateDb/MountGroup.h"

#include <utility>

namespace Vela {

EntityManager::EntityManager(Ptr<TaskScheduler> scheduler, Ptr<Quarry::TableService> tableService)
    : scheduler_(std::move(scheduler)), tableService_(std::move(tableService)) {}

void EntityManager::dumpState(DumpContext& context, int indent) const {
    context.print(indent, "EntityManager\n");
    for (auto cursor = entity_.first(); cursor; ++cursor) {
        context.print(indent + 2, "%s %s%s%s\n", cursor.key().c_str(), cursor.value()->typeName(),
                      writable_.contains(cursor.key()) ? " writable" : "",
                      populating(cursor.key()) ? " populating" : "");
    }
}

void EntityManager::populatingIs(const std::string& path, bool populating) {
    if (populating) {
        populating_.set(path, {});
    } else {
        populating_.del(path);
    }
}

Ptr<MountGroup> EntityManager::mountGroup(Mounter& mounter) {
    return make<MountGroup>(Ptr<EntityManager>(this), mounter);
}

} // namespace Vela
