#pragma once

#include "Platform/Base/UniqueFd.h"

#include <string>

namespace Host {

/// The directory that holds what this host shares with other processes and with its successor. One
/// host per directory: the lock is held as long as the object lives, and the kernel releases it
/// when the process dies, however it does. Directory and lock file stay.
///
/// The lock is flock()'s, on the file "lock", which holds the process id of its latest holder in
/// decimal. A forked child closes its descriptors, lest it keep the lock when its parent has died;
/// exec() does so by itself.
class RuntimeDirectory {
  public:
    /// Creates the directory (mode 0755) and those above it where they are missing. Throws
    /// StartError if that fails, or if another process holds the lock.
    explicit RuntimeDirectory(std::string path);
    RuntimeDirectory(const RuntimeDirectory&) = delete;
    RuntimeDirectory& operator=(const RuntimeDirectory&) = delete;

    const std::string& path() const { return path_; }
    /// Of a file in it.
    std::string path(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
    Vela::UniqueFd lock_;
};

} // namespace Host
