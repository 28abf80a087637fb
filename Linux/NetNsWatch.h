#pragma once

#include "Platform/Scheduler/FileDescriptor.h"
#include "Platform/Scheduler/Task.h"

#include <cstdint>
#include <functional>
#include <set>
#include <string>

namespace Linux {

/// Follows which of some names below /run/netns stand for network namespaces.
class NetNsWatch final : public Vela::Entity {
  public:
    /// `changed` is called for a name, from the loop, when what it stands for may have changed;
    /// compare `inode`. Throws std::system_error where names cannot be followed.
    NetNsWatch(Vela::Ptr<Vela::TaskScheduler> scheduler,
               std::function<void(const std::string& name)> changed);

    const char* typeName() const noexcept override { return "Linux::NetNsWatch"; }

    /// The names that count, each of which is announced soon.
    void namesAre(std::set<std::string> names);

    /// Tells one namespace from another while both are there; 0: there is none of that name (yet).
    static uint64_t inode(const std::string& name);

    /// Announces a name once more in a while: what it stood for could not be used.
    void announceAgain(const std::string& name);

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;

  private:
    Vela::SliceResult read();
    bool readEvents();
    void watchDirectory();
    void announce(const std::string& name);

    Vela::Ptr<Vela::TaskScheduler> scheduler_;
    const std::function<void(const std::string& name)> changed_;
    std::set<std::string> names_;
    std::set<std::string> due_;   // to be announced
    std::set<std::string> later_; // to be looked at again
    Vela::MonotonicTime laterDue_{0};
    Vela::MonotonicTime nextLook_{0};
    double secondsUntilLater_ = 0;
    bool watching_ = false;
    Vela::Owned<Vela::FileDescriptor> events_;
    Vela::Owned<Vela::Task> task_;
    Vela::Reaction readableReaction_;
};

} // namespace Linux
