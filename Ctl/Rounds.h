#pragma once

#include <chrono>
#include <csignal>
#include <optional>

namespace Ctl {

/// The rounds of something that is shown again and again until somebody interrupts it. While it
/// exists, SIGINT and SIGTERM end the rounds and not the process.
class Rounds {
  public:
    explicit Rounds(std::chrono::duration<double> interval);
    ~Rounds();
    Rounds(const Rounds&) = delete;
    Rounds& operator=(const Rounds&) = delete;

    /// Waits for the next round: the seconds since the last one, or since the beginning; nothing
    /// if there was an interruption.
    std::optional<double> next();

  private:
    using Clock = std::chrono::steady_clock;

    const std::chrono::duration<double> interval_;
    sigset_t interruptions_;
    sigset_t before_;
    Clock::time_point last_;
};

} // namespace Ctl
