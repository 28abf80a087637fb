#include "Platform/Quarry/TableService.h"

#include "Platform/Base/Assert.h"
#include "Platform/Quarry/TableTrace.h"
#include "Platform/State/DumpContext.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace Quarry {

TableService::TableService(Vela::Ptr<Vela::TaskScheduler> scheduler, std::string directory,
                           size_t changeLogCapacity)
    : directory_(std::move(directory)),
      changeLog_(Vela::make<ChangeLog>(std::move(scheduler), changeLogCapacity)) {}

TableService::~TableService() = default;

void TableService::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "Quarry::TableService directory=%s\n", directory_.c_str());
    context.child(indent + 2, "changeLog", changeLog_.get());
    for (const auto& [path, mounted] : mounted_) {
        context.child(indent + 2, path.c_str(), mounted.table.get());
    }
}

Vela::Ptr<MountGroup> TableService::mountGroup() {
    return Vela::make<MountGroup>(Vela::Ptr<TableService>(this));
}

void TableService::handleDestroy() noexcept {
    for (auto& [path, mounted] : std::exchange(mounted_, {})) {
        mounted.table->destroy();
    }
    changeLog_->destroy();
}

Vela::Ptr<Table> TableService::mount(const std::string& path, const char* tableType,
                                     std::vector<CollectionDeclaration> declarations,
                                     const Factory& factory) {
    auto found = mounted_.find(path);
    if (found != mounted_.end()) {
        found->second.table->declarationsCompare(declarations);
    } else {
        try {
            auto table = factory({path, directory_, std::move(declarations), changeLog_});
            found = mounted_.emplace(path, Mounted{std::move(table)}).first;
        } catch (const TableError& error) {
            TRACE(trace, 0, this, "cannot mount " << path << ": " << error.what());
            return nullptr;
        }
    }
    Mounted& mounted = found->second;
    if (std::string_view(mounted.table->typeName()) != tableType) {
        TRACE(trace, 0, this,
              "cannot mount " << path << " as " << tableType << ": it is a "
                              << mounted.table->typeName());
        return nullptr;
    }
    ++mounted.mounts;
    return mounted.table;
}

void TableService::unmount(const std::string& path) noexcept {
    auto found = mounted_.find(path);
    if (found == mounted_.end() || --found->second.mounts > 0) {
        return;
    }
    Vela::Ptr<Table> table = std::move(found->second.table);
    mounted_.erase(found);
    table->destroy();
}

void MountGroup::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "Quarry::MountGroup ready=%s\n", ready() ? "yes" : "no");
    for (const auto& [path, mount] : mounts_) {
        const char* complete = mount.table && mount.table->complete() ? "yes" : "no";
        context.print(indent + 2, "%s %s complete=%s\n",
                      mount.type == MountType::writer ? "writer" : "reader", path.c_str(),
                      mount.table ? complete : "not mounted");
    }
}

void MountGroup::add(const std::string& path, MountType type, Vela::Ptr<Table> table) {
    Vela::assertThat(!closed_, "!closed_");
    Vela::assertThat(!mounts_.contains(path), "!mounts_.contains(path)");
    Vela::Reaction reaction;
    if (table) {
        reaction = table->completeAttribute().react(this, [this] { update(); });
    }
    mounts_.emplace(path, Mount{type, std::move(table), std::move(reaction)});
}

void MountGroup::unmount(const std::string& path) {
    auto found = mounts_.find(path);
    if (found != mounts_.end()) {
        Mount mount = std::move(found->second);
        mounts_.erase(found);
        if (mount.table) {
            service_->unmount(path);
        }
        update();
    }
}

void MountGroup::close() {
    closed_ = true;
    update();
}

void MountGroup::update() {
    ready_.set(closed_ && std::all_of(mounts_.begin(), mounts_.end(), [](const auto& entry) {
                   const Mount& mount = entry.second;
                   return mount.table &&
                          (mount.type == MountType::writer || mount.table->complete());
               }));
}

void MountGroup::handleDestroy() noexcept {
    for (auto& [path, mount] : std::exchange(mounts_, {})) {
        if (mount.table) {
            service_->unmount(path);
        }
    }
}

} // namespace Quarry
