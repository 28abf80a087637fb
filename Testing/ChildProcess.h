#pragma once

#include "Platform/Base/UniqueFd.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Testing {

/// A program that runs beside the test, which keeps what it writes. It is killed with this object,
/// and with the test's process.
class ChildProcess {
  public:
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return pid_; }
    void signal(int number) const;

    /// What it has written so far.
    std::string output() const;
    std::string errors() const;

    /// Waits for its end, for a minute at most: the exit status, minus the signal that ended it,
    /// or nothing if it runs on.
    std::optional<int> status();

  private:
    pid_t pid_;
    Vela::UniqueFd output_;
    Vela::UniqueFd errors_;
    std::optional<int> status_;
};

} // namespace Testing
