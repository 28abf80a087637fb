#include "Ctl/Standstill.h"

#include <cerrno>
#include <csignal>

namespace Ctl {

std::string standstill(bool closed, uint32_t writerPid, const std::string& what) {
    if (closed) {
        return "arpsupd has stopped; these are its " + what + " at the end";
    }
    auto pid = static_cast<pid_t>(writerPid);
    bool alive = pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
    return alive ? ""
                 : "arpsupd (process " + std::to_string(writerPid) + ") is dead; these are its " +
                       what + " at the end";
}

const char* reasonOf(Quarry::Outcome outcome) {
    return outcome == Quarry::Outcome::writerDead ? "arpsupd died while it wrote it"
                                                  : "the table is damaged";
}

} // namespace Ctl
