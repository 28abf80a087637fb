#include "Platform/Trace/TraceSettings.h"

#include "Platform/Trace/TraceText.h"

#include <algorithm>
#include <limits>

namespace Vela {

namespace {

std::string_view trimmed(std::string_view text) {
    size_t first = text.find_first_not_of(" \t");
    if (first == text.npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

} // namespace

TraceSettings TraceSettings::parse(std::string_view text, std::vector<std::string>& problems) {
    TraceSettings settings;
    if (trimmed(text).empty()) {
        return settings;
    }
    for (size_t start = 0; start <= text.size();) {
        size_t end = std::min(text.find(',', start), text.size());
        std::string_view piece = trimmed(text.substr(start, end - start));
        start = end + 1;

        size_t equals = piece.find('=');
        std::string_view name = trimmed(piece.substr(0, equals));
        std::string_view level =
            equals == piece.npos ? std::string_view() : trimmed(piece.substr(equals + 1));
        bool isPrefix = name.ends_with('*');
        std::string_view literal = isPrefix ? name.substr(0, name.size() - 1) : name;
        bool levelFits = level.size() == 1 && level[0] >= '0' && level[0] <= '9';
        if (!levelFits || name.empty() || literal.find('*') != literal.npos) {
            problems.push_back("\"" + oneLine(piece) +
                               "\": expected handle=level, level 0 to 9, a '*' only at the "
                               "handle's end");
            continue;
        }
        settings.entries_.push_back(
            {std::string(literal), isPrefix, traceLevelsUpTo(level[0] - '0')});
    }
    return settings;
}

int TraceSettings::Entry::fit(std::string_view handleName) const {
    if (isPrefix) {
        return handleName.starts_with(name) ? static_cast<int>(name.size()) : -1;
    }
    return handleName == name ? std::numeric_limits<int>::max() : -1;
}

uint32_t TraceSettings::levels(std::string_view handleName) const {
    int best = -1;
    uint32_t levels = 0;
    for (const Entry& entry : entries_) {
        int fit = entry.fit(handleName);
        if (fit >= 0 && fit >= best) {
            best = fit;
            levels = entry.levels;
        }
    }
    return levels;
}

} // namespace Vela
