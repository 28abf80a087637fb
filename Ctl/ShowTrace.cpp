#include "Ctl/ShowTrace.h"

#include "Platform/Base/JsonWriter.h"
#include "Platform/Trace/SwiftlogReader.h"
#include "Platform/Trace/TraceText.h"

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <span>
#include <system_error>
#include <vector>

namespace Ctl {

namespace {

namespace fs = std::filesystem;

/// Empty if there is none; then `why` says why.
std::string newestFile(const std::string& directory, std::string& why) {
    std::error_code error;
    fs::path newest;
    fs::file_time_type time;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code gone; // its owner may remove a file at any moment
        fs::file_time_type written = entry->last_write_time(gone);
        if (!gone && entry->path().extension() == ".sl" && entry->is_regular_file(gone) &&
            (newest.empty() || written > time)) {
            newest = entry->path();
            time = written;
        }
    }
    if (error) {
        why = directory + ": " + error.message();
        return "";
    }
    if (newest.empty()) {
        why = "no ring-buffer file (*.sl) in " + directory;
    }
    return newest;
}

bool isWanted(const Vela::SwiftlogRecord& record, const TraceRequest& request) {
    if (request.level && record.level > *request.level) {
        return false;
    }
    if (request.vlanId &&
        record.number("vlanId=").value_or(request.vlanId->value()) != request.vlanId->value()) {
        return false;
    }
    return !request.address || record.holds(*request.address);
}

/// "2025-03-01T12:00:00.123456Z"
std::string isoTime(int64_t nanoseconds) {
    std::string text = Vela::utcText(nanoseconds) + "Z";
    std::replace(text.begin(), text.end(), ' ', 'T');
    return text;
}

void writeJson(std::span<const Vela::SwiftlogRecord* const> records, std::ostream& out) {
    Vela::JsonWriter json;
    json.beginRows();
    for (const Vela::SwiftlogRecord* record : records) {
        json.beginObject()
            .field("time", isoTime(record->wall))
            .field("level", record->level)
            .field("unit", record->type ? record->type->unit : "?")
            .field("event", record->type ? record->type->title : "?")
            .field("text", record->text())
            .endObject();
        out << json.take();
    }
    out << json.endArray().take();
}

} // namespace

int showTrace(const TraceRequest& request, std::ostream& out, std::ostream& errors) {
    std::string file = request.file;
    if (file.empty()) {
        std::string why;
        file = newestFile(request.directory, why);
        if (file.empty()) {
            errors << "error: " << why << '\n';
            return 1;
        }
        errors << "from " << file << '\n';
    }

    Vela::SwiftlogReader reader(file);
    for (const std::string& problem : reader.problems()) {
        errors << file << ": " << problem << '\n';
    }
    std::vector<const Vela::SwiftlogRecord*> wanted;
    for (const Vela::SwiftlogRecord& record : reader.records()) {
        if (isWanted(record, request)) {
            wanted.push_back(&record);
        }
    }
    size_t count = request.last ? std::min(*request.last, wanted.size()) : wanted.size();
    auto last = std::span<const Vela::SwiftlogRecord* const>(wanted).last(count);
    if (request.json) {
        writeJson(last, out);
    } else {
        for (const Vela::SwiftlogRecord* record : last) {
            out << *record << '\n';
        }
    }
    out.flush();
    if (!out) {
        errors << "error: the records cannot be written\n";
        return 1;
    }
    return reader.header().version == 0 ? 1 : 0;
}

} // namespace Ctl
