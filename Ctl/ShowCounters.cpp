#include "Ctl/ShowCounters.h"

#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"
#include "Platform/Quarry/AttachedTable.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iomanip>
#include <ostream>
#include <system_error>

namespace Ctl {

namespace {

using ArpSuppression::Counter;

/// Why the counters do not move any more, or an empty text.
std::string standstill(const Quarry::AttachedTable<Counter>& counters) {
    if (counters.closed()) {
        return "arpsupd has stopped; these are its counters at the end";
    }
    auto pid = static_cast<pid_t>(counters.writerPid());
    bool alive = pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
    if (!alive) {
        return "arpsupd (process " + std::to_string(counters.writerPid()) +
               ") is dead; these are its counters at the end";
    }
    return {};
}

const char* reason(Quarry::Outcome outcome) {
    return outcome == Quarry::Outcome::writerDead ? "arpsupd died while it wrote it"
                                                  : "the table is damaged";
}

} // namespace

int showCounters(const std::string& runtimeDirectory, bool all, std::ostream& out,
                 std::ostream& errors) {
    const std::string file = runtimeDirectory + "/tables/arpSuppression/counter/counter";
    if (std::error_code error; !std::filesystem::exists(file, error) && !error) {
        errors << "error: there are no counters: no agent has run in " << runtimeDirectory << '\n';
        return 1;
    }
    try {
        Quarry::AttachedTable<Counter> counters(file);
        int status = 0;
        bool any = false;
        for (uint32_t number = 0; number < ArpSuppression::arpSuppressionCounters; ++number) {
            ArpSuppression::ArpSuppressionCounterId id{number};
            if (auto counter = counters.find({id})) {
                if (all || counter->count > 0) {
                    out << std::setw(2) << number << ' ' << std::left << std::setw(36)
                        << toStrep(id) << std::right << std::setw(12) << counter->count << '\n';
                    any = true;
                }
            } else if (counters.trouble() != Quarry::Outcome::absent) {
                // Those that can be read are worth having all the same.
                errors << "error: counter " << number << ' ' << toStrep(id)
                       << " cannot be read: " << reason(counters.trouble()) << '\n';
                status = 1;
            }
        }
        if (!any && status == 0) {
            errors << "note: nothing has been counted yet\n";
        }
        std::string text = standstill(counters);
        if (!text.empty()) {
            errors << "note: " << text << '\n';
        }
        if (!out.flush()) {
            errors << "error: the counters cannot be written\n";
            return 1;
        }
        return status;
    } catch (const Quarry::TableError& error) {
        errors << "error: " << error.what() << '\n';
        return 1;
    }
}

} // namespace Ctl
