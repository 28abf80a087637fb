#pragma once

#include "Platform/Base/UniqueFd.h"

#include <string>

namespace Host {

/// The directory that holds what this host shares with other processes and with its successor. One
/// host per directory: the lock is held as long as the object lives, and the kernel releases it
/// when the process dies, however it does. Directory and lock file stay.
///
/// The lock is on the file "lock", which holds the process id of its latest holder in decimal. It
/// is flock()'s: a forked child that keeps descriptors across its parent's death would keep the
/// lock, too; exec() closes it.
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

    /// For a forked child to close: it must not hold the lock when its parent is gone.
    int lockDescriptor() const { return lock_.get(); }

  private:
    std::string path_;
    Vela::UniqueFd lock_;
};

} // namespace Host
