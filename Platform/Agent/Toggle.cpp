#include "Platform/Agent/Toggle.h"

#include "Platform/Base/FileText.h"
#include "Platform/Base/Strep.h"
#include "Platform/Trace/Trace.h"

#include <algorithm>
#include <boost/json/basic_parser_impl.hpp>
#include <cstdio>
#include <limits>
#include <map>

namespace Vela {

namespace {

const TraceHandle traceHandle("Toggle");

/// What may stand next in a toggle file.
enum class Next { object, firstName, colon, state, comma, name, endOfFile };

const char* textOf(Next next) {
    switch (next) {
    case Next::object:
        return "an object such as {\"SomeToggle\": true}";
    case Next::firstName:
        return "a toggle name in double quotes or '}'";
    case Next::colon:
        return "':'";
    case Next::state:
        return "true or false";
    case Next::comma:
        return "',' or '}'";
    case Next::name:
        return "a toggle name in double quotes";
    case Next::endOfFile:
        break;
    }
    return "the end of the file";
}

constexpr bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

constexpr size_t excerptBytes = 40;

std::string excerpt(std::string_view text) {
    return quotedForm(text.substr(0, excerptBytes)) + (text.size() > excerptBytes ? "..." : "");
}

/// Takes what the parser recognises, and refuses what is no toggle file although it is JSON.
struct ToggleHandler {
    static constexpr size_t max_object_size = std::numeric_limits<size_t>::max();
    static constexpr size_t max_array_size = max_object_size;
    static constexpr size_t max_key_size = max_object_size;
    static constexpr size_t max_string_size = max_object_size;

    using Text = boost::json::string_view;
    using Error = boost::json::error_code;

    bool on_document_begin(Error&) { return true; }
    bool on_document_end(Error&) { return true; }
    bool on_object_begin(Error& error) {
        if (next != Next::object) {
            return refuse(error);
        }
        nextIs(Next::firstName);
        return true;
    }
    bool on_object_end(size_t, Error&) {
        nextIs(Next::endOfFile);
        return true;
    }
    bool on_key_part(Text part, size_t, Error&) {
        name += part;
        return true;
    }
    bool on_key(Text part, size_t, Error& error) {
        name += part;
        auto [first, isNew] = starts.emplace(name, tokenStart.value());
        if (!isNew) {
            firstOfTwo = first->second;
            return refuse(error);
        }
        nextIs(Next::colon);
        return true;
    }
    bool on_bool(bool state, Error& error) {
        if (next != Next::state) {
            return refuse(error);
        }
        states.emplace(std::move(name), state);
        name.clear();
        nextIs(Next::comma);
        return true;
    }
    bool on_array_begin(Error& error) { return refuse(error); }
    bool on_array_end(size_t, Error& error) { return refuse(error); }
    bool on_string_part(Text, size_t, Error& error) { return refuse(error); }
    bool on_string(Text, size_t, Error& error) { return refuse(error); }
    bool on_number_part(Text, Error& error) { return refuse(error); }
    bool on_int64(int64_t, Text, Error& error) { return refuse(error); }
    bool on_uint64(uint64_t, Text, Error& error) { return refuse(error); }
    bool on_double(double, Text, Error& error) { return refuse(error); }
    bool on_null(Error& error) { return refuse(error); }
    bool on_comment_part(Text, Error& error) { return refuse(error); }
    bool on_comment(Text, Error& error) { return refuse(error); }

    static bool refuse(Error& error) {
        error = boost::json::error::syntax;
        return false;
    }
    void nextIs(Next what) {
        next = what;
        tokenStart.reset();
    }

    Next next = Next::object;
    std::optional<size_t> tokenStart; // where that which may stand next begins
    std::string name;
    std::map<std::string, size_t> starts;
    std::optional<size_t> firstOfTwo; // where a name stands that now comes a second time
    std::map<std::string, bool, std::less<>> states;
};

struct Place {
    size_t line;
    size_t column;
};

Place placeOf(std::string_view text, size_t offset) {
    std::string_view before = text.substr(0, offset);
    size_t line = 1 + static_cast<size_t>(std::count(before.begin(), before.end(), '\n'));
    size_t lineStart = before.rfind('\n') + 1; // 0 in the first line
    return {line, 1 + offset - lineStart};
}

/// What is wrong where the parser or its handler stopped.
std::string mistake(const ToggleHandler& handler, std::string_view text, size_t offset) {
    if (handler.firstOfTwo) {
        return "toggle " + excerpt(handler.name) + " stands here a second time, first in line " +
               std::to_string(placeOf(text, *handler.firstOfTwo).line) + "; expected it once";
    }
    std::string_view rest = text.substr(offset);
    std::string_view word =
        rest.substr(0, std::max(rest.find_first_of(" \t\r\n,:{}[]"), size_t{1}));
    std::string found = rest.empty() ? "the file ends" : "found " + excerpt(word);
    std::string expected = textOf(handler.next);
    if (handler.next == Next::state) {
        expected += " for toggle " + excerpt(handler.name);
    }
    return found + "; expected " + expected;
}

using States = std::map<std::string, bool, std::less<>>;

States parseStates(std::string_view text, std::string_view fileName) {
    if (text.size() > toggleFileBytes) {
        throw ToggleError(std::string(fileName) + ": is longer than " +
                          std::to_string(toggleFileBytes) + " bytes");
    }
    boost::json::basic_parser<ToggleHandler> parser{boost::json::parse_options()};
    ToggleHandler& handler = parser.handler();
    auto fail = [&](size_t offset) {
        Place place = placeOf(text, offset);
        throw ToggleError(std::string(fileName) + ":" + std::to_string(place.line) + ":" +
                          std::to_string(place.column) + ": " + mistake(handler, text, offset));
    };
    // The parser tells its handler what it has read but not where: a byte at a time the place is
    // known.
    for (size_t i = 0; i < text.size(); ++i) {
        char byte = text[i];
        if (!isBlank(byte) && !handler.tokenStart) {
            handler.tokenStart = i;
        }
        bool parsed = true;
        if (handler.next == Next::endOfFile) {
            parsed = isBlank(byte);
        } else {
            boost::json::error_code error;
            parser.write_some(true, &byte, 1, error);
            parsed = !error;
        }
        if (!parsed) {
            fail(handler.tokenStart.value_or(i));
        }
        if (handler.next == Next::colon && byte == ':') {
            handler.nextIs(Next::state);
        } else if (handler.next == Next::comma && byte == ',') {
            handler.nextIs(Next::name);
        }
    }
    if (handler.next != Next::endOfFile) {
        fail(text.size());
    }
    return std::move(handler.states);
}

std::string& directory() {
    static std::string directory = "/etc/arpsup/toggles";
    return directory;
}

} // namespace

std::optional<bool> parseToggle(std::string_view text, std::string_view fileName,
                                std::string_view toggleName) {
    States states = parseStates(text, fileName);
    auto toggle = states.find(toggleName);
    return toggle == states.end() ? std::nullopt : std::optional(toggle->second);
}

void toggleDirectoryIs(std::string path) {
    directory() = std::move(path);
}

bool getToggleState(std::string_view toggleName, std::string_view fileName, bool defaultState) {
    std::string path = directory() + "/" + std::string(fileName);
    std::string trouble;
    try {
        std::optional<std::string> text = readFileText(path, toggleFileBytes);
        return text ? parseToggle(*text, path, toggleName).value_or(defaultState) : defaultState;
    } catch (const ToggleError& error) {
        trouble = error.what();
    } catch (const std::runtime_error& error) {
        trouble = path + " " + error.what();
    }
    trouble += "; toggle " + excerpt(toggleName) + " keeps its default, " +
               (defaultState ? "true" : "false");
    TRACE(traceHandle, 0, nullptr, trouble);
    std::fprintf(stderr, "Toggle: %s\n", trouble.c_str());
    return defaultState;
}

} // namespace Vela
