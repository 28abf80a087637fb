#include "Platform/StateDb/MountGroup.h"

#include "Platform/Base/Assert.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Trace.h"

#include <array>
#include <utility>

namespace Vela {

namespace {

const TraceHandle trace("StateDb");

} // namespace

MountGroup::MountGroup(Ptr<EntityManager> entityManager, Mounter& mounter)
    : entityManager_(std::move(entityManager)), mounter_(mounter) {
    task_ = make<Task>(entityManager_->scheduler_, 3, "Mounts", this, [this] { return check(); });
    auto handle = [this](const std::string& path) { handlePath(path); };
    entityReaction_ = entityManager_->entityCollection().react(this, handle);
    populatingReaction_ = entityManager_->populatingCollection().react(this, handle);
}

void MountGroup::dumpState(DumpContext& context, int indent) const {
    static constexpr std::array<const char*, 4> names = {"awaited", "populating", "mounted",
                                                         "failed"};
    context.print(indent, "MountGroup complete=%s\n", complete_ ? "yes" : "no");
    for (const auto& [path, type] : mounts_) {
        context.print(indent + 2, "%s %s %s\n", path.c_str(), type.c_str(),
                      names[static_cast<size_t>(stateOf(path, type))]);
    }
}

void MountGroup::mount(const std::string& path, const std::string& typeName,
                       const std::string& mode) {
    assertThat(!closed_, "!closed_");
    assertThat(mode == "r" || mode == "wc" || mode == "wS",
               "mode == \"r\" || mode == \"wc\" || mode == \"wS\"");
    TRACE(trace, 5, this, "path=" << path << " typeName=" << typeName << " mode=" << mode);
    std::string entityPath = path.ends_with('/') ? path.substr(0, path.size() - 1) : path;
    mounts_[entityPath] = typeName;
    if (mode != "r") {
        entityManager_->writable_.insert(entityPath);
    }
}

void MountGroup::close() {
    closed_ = true;
    task_->schedule();
}

MountGroup::State MountGroup::stateOf(const std::string& path, const std::string& typeName) const {
    Ptr<Entity> entity = entityManager_->entity_.value(path);
    if (!entity) {
        return State::awaited;
    }
    if (entity->typeName() != typeName) {
        return State::failed;
    }
    return entityManager_->populating(path) ? State::populating : State::mounted;
}

void MountGroup::handlePath(const std::string& path) {
    if (closed_ && !complete_ && mounts_.contains(path)) {
        task_->schedule();
    }
}

SliceResult MountGroup::check() {
    if (complete_) {
        return {};
    }
    for (const auto& [path, type] : mounts_) {
        State state = stateOf(path, type);
        if (state == State::awaited || state == State::populating) {
            TRACE(trace, 5, this, "waiting for path=" << path << " typeName=" << type);
            return {};
        }
    }
    complete_ = true;
    MountStatus status = MountStatus::complete;
    for (const auto& [path, type] : mounts_) {
        if (stateOf(path, type) == State::failed) {
            TRACE(trace, 0, this,
                  "path=" << path << " is no " << type << " but a "
                          << entityManager_->entity_.value(path)->typeName());
            status = MountStatus::failed;
        }
    }
    mounter_.doMountsComplete(status, entityManager_);
    return {false, static_cast<uint32_t>(mounts_.size())};
}

void mountIpStatus(MountGroup& group, bool ip, bool ip6) {
    if (ip) {
        group.mount("ip/status", "Ip::Status", "r");
    }
    if (ip6) {
        group.mount("ip6/status", "Ip6::Status", "r");
    }
}

} // namespace Vela
