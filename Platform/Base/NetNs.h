#pragma once

#include "Platform/Base/UniqueFd.h"

#include <string>

namespace Vela {

/// Moves the calling thread into a named network namespace below /run/netns and, when it ends, back
/// to where it was: what is opened meanwhile belongs to the namespace and stays there. "default"
/// and the empty name stand for the process's own namespace and move nobody. For one call on the
/// stack; nothing else changes namespaces.
class NetNsGuard {
  public:
    /// Throws std::system_error where there is no such namespace or it may not be entered; the
    /// thread is where it was then.
    explicit NetNsGuard(const std::string& netNs);
    ~NetNsGuard();
    NetNsGuard(const NetNsGuard&) = delete;
    NetNsGuard& operator=(const NetNsGuard&) = delete;

  private:
    UniqueFd previous_; // none: nobody was moved
};

} // namespace Vela
