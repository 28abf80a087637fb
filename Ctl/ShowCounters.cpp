#include "Ctl/ShowCounters.h"

#include "Ctl/CounterRules.h"
#include "Ctl/Standstill.h"
#include "Platform/Base/JsonWriter.h"
#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"
#include "Platform/Quarry/AttachedTable.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <iomanip>
#include <ostream>
#include <system_error>

namespace Ctl {

namespace {

using ArpSuppression::ArpSuppressionCounterId;
using ArpSuppression::arpSuppressionCounters;
using ArpSuppression::Counter;

/// The counters at one moment.
struct Reading {
    std::array<std::optional<uint64_t>, arpSuppressionCounters> counts = {}; // none: unreadable
    uint64_t generation = 0;                                                 // of the table
    bool anyCounted = false;
    std::string errors = {}; // a line each
    std::string standstill = {};

    /// What is to be said besides the counters.
    std::string remarks(const CountersRequest& request) const {
        std::string text = errors;
        if (!anyCounted && errors.empty() && !request.all && !request.json) {
            text += "note: nothing has been counted yet\n";
        }
        return standstill.empty() ? text : text + "note: " + standstill + '\n';
    }
};

/// Whatever was the matter is an error with its text.
Reading read(const std::string& runtimeDirectory) {
    const std::string file = runtimeDirectory + "/tables/arpSuppression/counter/counter";
    if (std::error_code error; !std::filesystem::exists(file, error) && !error) {
        throw Quarry::TableError("there are no counters: no agent has run in " + runtimeDirectory);
    }
    Quarry::AttachedTable<Counter> counters(file);
    Reading reading;
    reading.generation = counters.generation();
    for (uint32_t number = 0; number < arpSuppressionCounters; ++number) {
        ArpSuppressionCounterId id{number};
        if (auto counter = counters.find({id})) {
            reading.counts[number] = counter->count;
            reading.anyCounted = reading.anyCounted || counter->count > 0;
        } else if (counters.trouble() != Quarry::Outcome::absent) {
            // Those that can be read are worth having all the same.
            reading.errors += "error: counter " + std::to_string(number) + ' ' + toStrep(id) +
                              " cannot be read: " + reasonOf(counters.trouble()) + '\n';
        }
    }
    reading.standstill = standstill(counters, "counters");
    return reading;
}

/// Two readings and the time between them; for a single one there is none.
struct Round {
    const Reading& now;
    const Reading* before = nullptr;
    double seconds = 0;
    bool watched = false;

    /// A daemon that is new counts from zero.
    double perSecond(uint32_t number) const {
        uint64_t count = *now.counts[number];
        bool same = before->generation == now.generation && before->counts[number] <= count;
        uint64_t base = same ? before->counts[number].value_or(count) : 0;
        return seconds > 0 ? static_cast<double>(count - base) / seconds : 0;
    }
};

void writeText(const Round& round, bool all, std::ostream& out) {
    for (uint32_t number = 0; number < arpSuppressionCounters; ++number) {
        std::optional<uint64_t> count = round.now.counts[number];
        if (!count || (!all && *count == 0)) {
            continue;
        }
        out << std::setw(2) << number << ' ' << std::left << std::setw(36)
            << toStrep(ArpSuppressionCounterId{number}) << std::right << std::setw(12) << *count;
        if (round.before) {
            out << std::setw(12) << std::fixed << std::setprecision(1) << round.perSecond(number)
                << "/s";
        } else if (!round.watched) {
            out << "  " << ruleOf(ArpSuppressionCounterId{number});
        }
        out << '\n';
    }
}

void writeJson(Vela::JsonWriter& json, const Round& round) {
    for (uint32_t number = 0; number < arpSuppressionCounters; ++number) {
        if (std::optional<uint64_t> count = round.now.counts[number]) {
            json.beginObject()
                .field("id", number)
                .field("name", toStrep(ArpSuppressionCounterId{number}))
                .field("count", *count);
            if (round.before) {
                json.field("perSecond", round.perSecond(number));
            }
            json.endObject();
        }
    }
    json.endArray();
}

int finish(std::ostream& out, std::ostream& errors) {
    if (!out.flush()) {
        errors << "error: the counters cannot be written\n";
        return 1;
    }
    return 0;
}

int fail(const Quarry::TableError& error, std::ostream& errors) {
    errors << "error: " << error.what() << '\n';
    return 1;
}

} // namespace

int showCounters(const CountersRequest& request, std::ostream& out, std::ostream& errors) {
    try {
        Reading reading = read(request.runtimeDirectory);
        if (request.json) {
            Vela::JsonWriter json;
            writeJson(json.beginRows(), {reading});
            out << json.take();
        } else {
            writeText({reading}, request.all, out);
        }
        if (finish(out, errors) != 0) {
            return 1;
        }
        errors << reading.remarks(request);
        return reading.errors.empty() ? 0 : 1;
    } catch (const Quarry::TableError& error) {
        return fail(error, errors);
    }
}

int watchCounters(const CountersRequest& request, const NextRound& nextRound, std::ostream& out,
                  std::ostream& errors) {
    try {
        Reading now = read(request.runtimeDirectory);
        std::string said = now.remarks(request);
        errors << said;
        std::optional<Reading> before;
        std::optional<double> seconds = 0;
        do {
            if (before) {
                now = read(request.runtimeDirectory);
            }
            // What is wrong stays wrong: it is said once.
            if (std::string text = now.remarks(request); text != said) {
                errors << text;
                said = text;
            }
            Round round{now, before ? &*before : nullptr, *seconds, true};
            if (request.json) {
                Vela::JsonWriter json;
                json.beginObject();
                if (before) {
                    json.field("seconds", *seconds);
                }
                writeJson(json.key("counters").beginArray(), round);
                out << json.endObject().take();
            } else {
                out << (before ? "\n" : "");
                writeText(round, request.all, out);
            }
            if (finish(out, errors) != 0) {
                return 1;
            }
            before = now;
        } while ((seconds = nextRound()));
        return 0;
    } catch (const Quarry::TableError& error) {
        return fail(error, errors);
    }
}

} // namespace Ctl
