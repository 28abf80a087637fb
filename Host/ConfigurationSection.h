#pragma once

#include "Host/ConfigurationMistakes.h"
#include "Host/ConfigurationTree.h"

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Host {

enum class Need { optional, required };

/// Reads one table key by key. What is missing or wrong goes to `mistakes`. Each reader gives
/// nothing if the key is absent or its value wrong, so that the caller keeps its default.
class ConfigurationSection {
  public:
    using Reader = std::function<void(ConfigurationSection&)>;

    /// `title` is how messages call the table: [[vrf]]. Table and mistakes outlive the section.
    ConfigurationSection(const ConfigurationTable& table, std::string title, FilePlace place,
                         ConfigurationMistakes& mistakes)
        : table_(table), title_(std::move(title)), place_(place), mistakes_(mistakes) {}

    bool has(std::string_view key) const { return table_.find(key) != nullptr; }

    FilePlace place() const { return place_; }
    /// Of the value of a key; of the table if there is none.
    FilePlace place(std::string_view key) const;

    std::optional<bool> boolean(std::string_view key);
    /// Between two bounds, both included.
    std::optional<int64_t> number(std::string_view key, int64_t least, int64_t most,
                                  Need need = Need::optional);
    /// Without control characters, of a length between two bounds.
    std::optional<std::string> text(std::string_view key, size_t least, size_t most,
                                    Need need = Need::optional);
    /// The path of a file or directory from the root.
    std::optional<std::string> path(std::string_view key, size_t most);
    /// A name for which isFileName holds.
    std::optional<std::string> fileName(std::string_view key, size_t most,
                                        Need need = Need::optional);
    std::optional<std::string> interfaceName(std::string_view key, Need need = Need::optional);
    std::optional<Bridging::VlanId> vlan(std::string_view key, Need need = Need::optional);
    /// That of one station: neither zero nor a group's.
    std::optional<Zinc::EthAddr> mac(std::string_view key, Need need = Need::optional);
    /// That of one host: neither unspecified nor a group's.
    std::optional<Zinc::IpGenAddr> ip(std::string_view key, Need need = Need::optional);
    /// A list of addresses with their prefix lengths, without repetition.
    std::vector<AddressConfiguration> addresses(std::string_view key, Zinc::AddressFamily family);

    template <class T>
    std::optional<T> choice(std::string_view key,
                            std::initializer_list<std::pair<std::string_view, T>> choices) {
        std::vector<std::string_view> names;
        for (const auto& [name, value] : choices) {
            names.push_back(name);
        }
        std::optional<size_t> index = choiceIndex(key, names);
        return index ? std::optional(std::data(choices)[*index].second) : std::nullopt;
    }

    /// The table [key], if there is one.
    void table(std::string_view key, const Reader& read);
    /// Each [[key]] in turn.
    void tables(std::string_view key, const Reader& read);

    /// Adds a mistake for each key that nobody has asked for. Call it after the last reader.
    void end();

  private:
    template <class T>
    const T* get(std::string_view key, std::string_view expected, Need need = Need::optional);
    const ConfigurationEntry* entry(std::string_view key);
    std::optional<size_t> choiceIndex(std::string_view key,
                                      const std::vector<std::string_view>& names);
    void readTable(std::string_view key, std::string title, const ConfigurationValue& value,
                   const Reader& read);
    std::string titleOf(std::string_view key) const;
    void wrongValue(std::string_view key, FilePlace place, std::string_view found,
                    std::string_view expected);

    const ConfigurationTable& table_;
    std::string title_;
    FilePlace place_;
    ConfigurationMistakes& mistakes_;
    std::vector<std::string_view> known_;
};

/// Whether a name can stand as one part of a path.
bool isFileName(std::string_view name);

} // namespace Host
