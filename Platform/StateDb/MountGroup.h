#pragma once

#include "Platform/Scheduler/Task.h"
#include "Platform/State/Attribute.h"
#include "Platform/StateDb/EntityManager.h"

#include <map>
#include <string>

namespace Vela {

/// How the mounts of a group ended.
enum class MountStatus : uint8_t {
    complete, ///< every path has an entity of the type asked for
    failed    ///< some have one of another type, as the trace says
};

/// Who mounts.
class Mounter {
  public:
    /// All mounts of a group are there. Called once per group, from a task of its own.
    virtual void doMountsComplete(MountStatus status, const Ptr<EntityManager>& entityManager) = 0;

  protected:
    ~Mounter() = default;
};

/// Mounts that are waited for together. A mount whose path nobody has published yet, or that is
/// still being filled, is waited for; one of another type is not, and is reported when the group
/// completes. With the group's end, which may come from within doMountsComplete, its mounter hears
/// nothing more; what it fetched stays its own.
class MountGroup final : public Entity {
  public:
    MountGroup(Ptr<EntityManager> entityManager, Mounter& mounter);

    const char* typeName() const noexcept override { return "MountGroup"; }
    /// Says what is being waited for.
    void dumpState(DumpContext& context, int indent) const override;

    /// Modes: "r" for reading; for writing "wc", kept by the database when the process dies, and
    /// "wS", the mounter's own slice of something that others have slices of. A slash at the end of
    /// the path means nothing.
    void mount(const std::string& path, const std::string& typeName, const std::string& mode);

    /// No more mounts follow. Completion is announced from the loop, at the earliest in its next
    /// turn.
    void close();

    bool complete() const { return complete_; }

  protected:
    void handleDestroy() noexcept override { task_.reset(); }

  private:
    enum class State : uint8_t { awaited, populating, mounted, failed };

    State stateOf(const std::string& path, const std::string& typeName) const;
    void handlePath(const std::string& path);
    SliceResult check();

    Ptr<EntityManager> entityManager_;
    Mounter& mounter_;
    std::map<std::string, std::string> mounts_; // path to type name
    bool closed_ = false;
    bool complete_ = false;
    Owned<Task> task_;
    Reaction entityReaction_;
    Reaction populatingReaction_;
};

/// Mounts the addresses of interfaces for reading: "ip/status", "ip6/status", or both.
void mountIpStatus(MountGroup& group, bool ip, bool ip6);

} // namespace Vela
