#pragma once

#include "Host/ConfigurationMistakes.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace Host {

// A configuration file as TOML gives it: tables of keys and values that know where they stand.
// What the keys mean is not known here.

struct ConfigurationEntry;
struct ConfigurationValue;

using ConfigurationList = std::vector<ConfigurationValue>;

struct ConfigurationTable {
    std::vector<ConfigurationEntry> entries; // in the order of their names

    const ConfigurationEntry* find(std::string_view name) const;
};

struct ConfigurationValue {
    /// What no key of ours takes: dates, times and numbers that are no integers.
    struct Other {};

    FilePlace place;
    std::variant<Other, bool, int64_t, std::string, ConfigurationList, ConfigurationTable> content;
};

struct ConfigurationEntry {
    std::string name;
    FilePlace place; // of the name
    ConfigurationValue value;
};

/// Where the text is no TOML, that is added to `mistakes` and the result is an empty table. TOML
/// nested so deep that nobody means it counts as a mistake.
ConfigurationTable parseConfigurationTree(std::string_view text, ConfigurationMistakes& mistakes);

} // namespace Host
