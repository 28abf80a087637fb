#include "Platform/Trace/Trace.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Vela {

namespace {

void writeToStandardError(std::string_view line) {
    // A line that cannot be written is lost: there is nowhere left to say so.
    [[maybe_unused]] ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

struct Registry {
    std::vector<TraceHandle*> handles;
    TraceSettings settings;
    TraceSink sink;

    Registry() {
        const char* text = std::getenv("VELA_TRACE");
        std::vector<std::string> problems;
        settings = TraceSettings::parse(text ? text : "", problems);
        for (const std::string& problem : problems) {
            writeToStandardError("VELA_TRACE: " + problem + "\n");
        }
    }
};

/// Handles are globals of many units, so the registry is there before the first of them and is
/// never destroyed.
Registry& registry() {
    static Registry* const registry = new Registry;
    return *registry;
}

} // namespace

TraceHandle::TraceHandle(std::string_view name)
    : name_(name), levels_(registry().settings.levels(name)) {
    registry().handles.push_back(this);
}

TraceHandle::~TraceHandle() {
    std::erase(registry().handles, this);
}

std::vector<std::string> traceLevelsIs(std::string_view settings) {
    std::vector<std::string> problems;
    registry().settings = TraceSettings::parse(settings, problems);
    for (TraceHandle* handle : registry().handles) {
        handle->levelsIs(registry().settings.levels(handle->name()));
    }
    return problems;
}

TraceSink traceSinkIs(TraceSink sink) {
    return std::exchange(registry().sink, std::move(sink));
}

TraceLine::TraceLine(const TraceHandle& handle, int level, SourceSite site) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    out_ << utcText(int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec) << ' ' << handle.name()
         << ' ' << level << ' ' << site.unit() << ':' << site.line << ' ' << site.function << ' ';
}

void TraceLine::end() {
    std::string line = oneLine(out_.view());
    line += '\n';
    const TraceSink& sink = registry().sink;
    if (sink) {
        sink(line);
    } else {
        writeToStandardError(line);
    }
}

} // namespace Vela
