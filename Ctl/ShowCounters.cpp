#include "Ctl/ShowCounters.h"

#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"
#include "Platform/Quarry/AttachedTable.h"

#include <cerrno>
#include <csignal>
#include <iomanip>
#include <ostream>

namespace Ctl {

namespace {

using ArpSuppression::Counter;

/// Why the counters do not move any more, or an empty text.
std::string standstill(const Quarry::AttachedTable<Counter>& counters) {
    if (counters.closed()) {
        return "arpsupd has stopped; these are its counters at the end";
    }
    bool alive = kill(static_cast<pid_t>(counters.writerPid()), 0) == 0 || errno == EPERM;
    if (!alive) {
        return "arpsupd (process " + std::to_string(counters.writerPid()) +
               ") is dead; these are its counters at the end";
    }
    return {};
}

} // namespace

int showCounters(const std::string& runtimeDirectory, bool all, std::ostream& out,
                 std::ostream& errors) {
    try {
        Quarry::AttachedTable<Counter> counters(runtimeDirectory +
                                                "/tables/arpSuppression/counter/counter");
        for (uint32_t number = 0; number < ArpSuppression::arpSuppressionCounters; ++number) {
            ArpSuppression::ArpSuppressionCounterId id{number};
            auto counter = counters.find({id});
            if (counters.trouble() != Quarry::Outcome::absent) {
                errors << "error: counter " << number
                       << " cannot be read: " << toString(counters.trouble()) << '\n';
                return 1;
            }
            if (counter && (all || counter->count > 0)) {
                out << std::setw(2) << number << ' ' << std::left << std::setw(36) << toStrep(id)
                    << std::right << std::setw(12) << counter->count << '\n';
            }
        }
        std::string text = standstill(counters);
        if (!text.empty()) {
            errors << "note: " << text << '\n';
        }
        return out.flush() ? 0 : 1;
    } catch (const Quarry::TableError& error) {
        errors << "error: " << error.what() << "; did an agent ever run in " << runtimeDirectory
               << "?\n";
        return 1;
    }
}

} // namespace Ctl
