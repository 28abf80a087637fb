#include "Ctl/Rounds.h"

#include <cerrno>
#include <ctime>

namespace Ctl {

namespace {

timespec timespecOf(std::chrono::duration<double> duration) {
    auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(duration).count();
    return nanoseconds > 0 ? timespec{nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000}
                           : timespec{0, 0};
}

} // namespace

Rounds::Rounds(std::chrono::duration<double> interval) : interval_(interval), last_(Clock::now()) {
    sigemptyset(&interruptions_);
    sigaddset(&interruptions_, SIGINT);
    sigaddset(&interruptions_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &interruptions_, &before_);
}

Rounds::~Rounds() {
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

std::optional<double> Rounds::next() {
    Clock::time_point end = last_ + std::chrono::duration_cast<Clock::duration>(interval_);
    for (;;) {
        timespec rest = timespecOf(end - Clock::now());
        if (sigtimedwait(&interruptions_, nullptr, &rest) >= 0) {
            return std::nullopt;
        }
        if (errno == EAGAIN) { // the time is over
            break;
        }
    }
    Clock::time_point now = Clock::now();
    double seconds = std::chrono::duration<double>(now - last_).count();
    last_ = now;
    return seconds;
}

} // namespace Ctl
