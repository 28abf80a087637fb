#pragma once

#include "Host/Configuration.h"

#include <compare>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Host {

/// A place in a configuration file; both count from 1, columns in characters.
struct FilePlace {
    uint32_t line = 0; // 0: the file as a whole
    uint32_t column = 0;

    auto operator<=>(const FilePlace&) const = default;
};

/// Collects what is wrong with a configuration file.
class ConfigurationMistakes {
  public:
    /// "what is wrong; expected what"
    void add(FilePlace place, std::string_view wrong, std::string_view expected);
    void addTwice(FilePlace second, std::string_view what, FilePlace first);
    /// A text that says it all.
    void add(FilePlace place, std::string text);

    bool none() const { return mistakes_.empty(); }
    ConfigurationError error(std::string_view fileName) const;

  private:
    std::vector<std::pair<FilePlace, std::string>> mistakes_;
};

/// Tells what stands in a file once from what stands there again.
template <class Key>
class FirstPlaces {
  public:
    explicit FirstPlaces(ConfigurationMistakes& mistakes) : mistakes_(mistakes) {}

    /// False if the key stands there again. `what` is how messages call the thing that has it.
    bool add(const Key& key, FilePlace place, std::string_view what) {
        auto [first, isFirst] = places_.emplace(key, place);
        if (!isFirst) {
            mistakes_.addTwice(place, what, first->second);
        }
        return isFirst;
    }

  private:
    ConfigurationMistakes& mistakes_;
    std::map<Key, FilePlace> places_;
};

/// One printable line: control characters escaped, the rest of a long text left out.
std::string printable(std::string_view text);

/// The same in double quotes, those within it escaped.
std::string quoted(std::string_view text);

/// The name that is most like `word`, empty if none is much like it.
std::string_view nearestName(std::string_view word, std::span<const std::string_view> names);

} // namespace Host
