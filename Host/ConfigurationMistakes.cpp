#include "Host/ConfigurationMistakes.h"

#include <algorithm>
#include <cstdio>
#include <numeric>

namespace Host {

namespace {

constexpr size_t mostMistakes = 20;

std::string joined(const std::vector<std::string>& mistakes, size_t leftOut) {
    std::string text;
    for (const std::string& mistake : mistakes) {
        text += (text.empty() ? "" : "\n") + mistake;
    }
    if (leftOut != 0) {
        text += "\nand " + std::to_string(leftOut) + " more";
    }
    return text;
}

/// How many characters are missing, too many, wrong, or have changed places with their neighbour.
size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<size_t> beforeLast(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= a.size(); ++i) {
        beforeLast.swap(last);
        last.swap(row);
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t change = a[i - 1] == b[j - 1] ? 0 : 1;
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + change});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            }
        }
    }
    return row[b.size()];
}

std::string escaped(std::string_view text, std::string_view special) {
    constexpr size_t mostBytes = 100;
    std::string_view shown = text.substr(0, mostBytes);
    // No part of a character of several bytes.
    while (shown.size() < text.size() && !shown.empty() &&
           (static_cast<uint8_t>(text[shown.size()]) & 0xc0) == 0x80) {
        shown.remove_suffix(1);
    }
    std::string result;
    for (char c : shown) {
        if (uint8_t byte = static_cast<uint8_t>(c); byte < ' ' || byte == 0x7f) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04X", byte);
            result += escape;
        } else {
            result.append(special.find(c) == special.npos ? 0 : 1, '\\').append(1, c);
        }
    }
    return result + (shown.size() < text.size() ? "..." : "");
}

} // namespace

ConfigurationError::ConfigurationError(std::vector<std::string> mistakes, size_t leftOut)
    : std::runtime_error(joined(mistakes, leftOut)), mistakes_(std::move(mistakes)) {}

void ConfigurationMistakes::add(FilePlace place, std::string_view wrong,
                                std::string_view expected) {
    add(place, std::string(wrong) + "; expected " + std::string(expected));
}

void ConfigurationMistakes::addTwice(FilePlace second, std::string_view what, FilePlace first) {
    add(second,
        std::string(what) + " stands here a second time, first in line " +
            std::to_string(first.line),
        "it once");
}

void ConfigurationMistakes::add(FilePlace place, std::string text) {
    mistakes_.emplace_back(place, std::move(text));
}

ConfigurationError ConfigurationMistakes::error(std::string_view fileName) const {
    auto sorted = mistakes_;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    size_t shown = std::min(sorted.size(), mostMistakes);
    std::vector<std::string> lines;
    for (const auto& [place, text] : std::span(sorted).first(shown)) {
        std::string where(fileName);
        if (place.line != 0) {
            where += ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
        }
        lines.push_back(where + ": " + text);
    }
    return ConfigurationError(std::move(lines), sorted.size() - shown);
}

std::string quoted(std::string_view text) {
    return "\"" + escaped(text, "\"\\") + "\"";
}

std::string printable(std::string_view text) {
    return escaped(text, "");
}

std::string_view nearestName(std::string_view word, std::span<const std::string_view> names) {
    std::string_view nearest;
    // A third of the letters may differ: with more of them almost any two short words are alike.
    size_t bound = std::min(word.size() / 3, size_t{3});
    for (std::string_view name : names) {
        size_t difference = std::max(word.size(), name.size()) - std::min(word.size(), name.size());
        if (difference > bound) {
            continue; // also spares a long word the work
        }
        size_t distance = editDistance(word, name);
        if (distance <= bound && distance > 0) {
            nearest = name;
            bound = distance - 1;
        }
    }
    return nearest;
}

} // namespace Host
