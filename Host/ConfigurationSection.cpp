#include "Host/ConfigurationSection.h"

#include "Platform/Base/Errors.h"

#include <algorithm>
#include <charconv>

namespace Host {

namespace {

bool isControl(char c) {
    uint8_t byte = static_cast<uint8_t>(c);
    return byte < ' ' || byte == 0x7f;
}

std::string lengthText(size_t least, size_t most) {
    std::string bound = std::to_string(most) + " bytes";
    return "a text of " +
           (least == 0 ? "at most " + bound : std::to_string(least) + " to " + bound) +
           " without control characters";
}

bool isOneHost(const Zinc::IpGenAddr& address) {
    return !address.isUnset() && !address.isUnspecified() && !address.isMulticast() &&
           address != Zinc::IpGenAddr(0xffffffff);
}

/// "true", "a list", 4095; the texts are quoted.
std::string valueText(const ConfigurationValue& value) {
    if (auto boolean = std::get_if<bool>(&value.content)) {
        return *boolean ? "true" : "false";
    }
    if (auto number = std::get_if<int64_t>(&value.content)) {
        return std::to_string(*number);
    }
    if (auto text = std::get_if<std::string>(&value.content)) {
        return quoted(*text);
    }
    if (std::holds_alternative<ConfigurationList>(value.content)) {
        return "a list";
    }
    return std::holds_alternative<ConfigurationTable>(value.content)
               ? "a table"
               : "a date, a time or a number with a fraction";
}

std::optional<Zinc::IpGenAddr> parseIp(std::string_view text) {
    try {
        return Zinc::IpGenAddr(text);
    } catch (const Vela::ParseError&) {
        return std::nullopt;
    }
}

std::optional<AddressConfiguration> parseAddress(std::string_view text,
                                                 Zinc::AddressFamily family) {
    size_t slash = text.find('/');
    if (slash == text.npos) {
        return std::nullopt;
    }
    std::optional<Zinc::IpGenAddr> address = parseIp(text.substr(0, slash));
    AddressConfiguration result;
    const char* end = text.data() + text.size();
    auto parsed = std::from_chars(text.data() + slash + 1, end, result.prefixLength);
    int mostBits = family == Zinc::ipv4() ? 32 : 128;
    if (!address || address->af() != family || !isOneHost(*address) || parsed.ec != std::errc() ||
        parsed.ptr != end || result.prefixLength < 1 || result.prefixLength > mostBits) {
        return std::nullopt;
    }
    result.address = *address;
    return result;
}

} // namespace

bool isFileName(std::string_view name) {
    return name.find('/') == name.npos && name != "." && name != "..";
}

FilePlace ConfigurationSection::place(std::string_view key) const {
    const ConfigurationEntry* entry = table_.find(key);
    return entry ? entry->value.place : place_;
}

std::optional<bool> ConfigurationSection::boolean(std::string_view key) {
    const bool* value = get<bool>(key, "true or false");
    return value ? std::optional(*value) : std::nullopt;
}

std::optional<int64_t> ConfigurationSection::number(std::string_view key, int64_t least,
                                                    int64_t most, Need need) {
    std::string expected = "an integer, " + std::to_string(least) + " to " + std::to_string(most);
    const int64_t* value = get<int64_t>(key, expected, need);
    if (value && (*value < least || *value > most)) {
        wrongValue(key, place(key), std::to_string(*value), expected);
        return std::nullopt;
    }
    return value ? std::optional(*value) : std::nullopt;
}

std::optional<std::string> ConfigurationSection::text(std::string_view key, size_t least,
                                                      size_t most, Need need) {
    std::string expected = lengthText(least, most);
    const std::string* value = get<std::string>(key, expected, need);
    if (value && (value->size() < least || value->size() > most ||
                  std::any_of(value->begin(), value->end(), isControl))) {
        wrongValue(key, place(key), quoted(*value), expected);
        return std::nullopt;
    }
    return value ? std::optional(*value) : std::nullopt;
}

std::optional<std::string> ConfigurationSection::path(std::string_view key, size_t most) {
    std::optional<std::string> value = text(key, 1, most);
    if (value && value->front() != '/') {
        wrongValue(key, place(key), quoted(*value), "a path that begins with \"/\"");
        return std::nullopt;
    }
    return value;
}

std::optional<std::string> ConfigurationSection::fileName(std::string_view key, size_t most,
                                                          Need need) {
    std::optional<std::string> value = text(key, 1, most, need);
    if (value && !isFileName(*value)) {
        wrongValue(key, place(key), quoted(*value), "a name without \"/\"");
        return std::nullopt;
    }
    return value;
}

std::optional<std::string> ConfigurationSection::interfaceName(std::string_view key, Need need) {
    return text(key, 1, 63, need);
}

std::optional<Bridging::VlanId> ConfigurationSection::vlan(std::string_view key, Need need) {
    constexpr std::string_view expected = "a VLAN, 1 to 4094";
    const int64_t* value = get<int64_t>(key, expected, need);
    if (!value) {
        return std::nullopt;
    }
    try {
        return Bridging::VlanId(static_cast<uint64_t>(*value));
    } catch (const Vela::RangeError&) {
        wrongValue(key, place(key), std::to_string(*value), expected);
        return std::nullopt;
    }
}

std::optional<Zinc::EthAddr> ConfigurationSection::mac(std::string_view key, Need need) {
    constexpr std::string_view form = "a MAC address such as \"02:00:00:00:00:0a\"";
    const std::string* value = get<std::string>(key, form, need);
    if (!value) {
        return std::nullopt;
    }
    std::string_view expected = form;
    try {
        Zinc::EthAddr address(*value);
        if (!address.isZero() && !address.isMulticast()) {
            return address;
        }
        expected = "the MAC address of one station, neither zero nor a group's";
    } catch (const Vela::ParseError&) {
    }
    wrongValue(key, place(key), quoted(*value), expected);
    return std::nullopt;
}

std::optional<Zinc::IpGenAddr> ConfigurationSection::ip(std::string_view key, Need need) {
    constexpr std::string_view form = "an IP address such as \"10.0.0.1\" or \"2001:db8::1\"";
    const std::string* value = get<std::string>(key, form, need);
    if (!value) {
        return std::nullopt;
    }
    std::optional<Zinc::IpGenAddr> address = parseIp(*value);
    bool isAddress = address && !address->isUnset();
    if (!isAddress || !isOneHost(*address)) {
        wrongValue(key, place(key), quoted(*value),
                   isAddress ? "the address of one host, neither unspecified nor a group's" : form);
        return std::nullopt;
    }
    return address;
}

std::vector<AddressConfiguration> ConfigurationSection::addresses(std::string_view key,
                                                                  Zinc::AddressFamily family) {
    std::string one = family == Zinc::ipv4()
                          ? "an address of this host with its prefix length, \"10.0.0.1/24\""
                          : "an address of this host with its prefix length, \"2001:db8::1/64\"";
    std::vector<AddressConfiguration> result;
    const ConfigurationList* list = get<ConfigurationList>(key, "a list of addresses, [\"...\"]");
    if (!list) {
        return result;
    }
    FirstPlaces<Zinc::IpGenAddr> places(mistakes_);
    for (const ConfigurationValue& value : *list) {
        const std::string* text = std::get_if<std::string>(&value.content);
        std::optional<AddressConfiguration> address =
            text ? parseAddress(*text, family) : std::nullopt;
        if (!address) {
            wrongValue(key, value.place, valueText(value), one);
            continue;
        }
        places.add(address->address, value.place, "address " + address->address.toStrep());
        result.push_back(*address);
    }
    return result;
}

void ConfigurationSection::table(std::string_view key, const Reader& read) {
    const ConfigurationEntry* found = entry(key);
    if (!found) {
        return;
    }
    std::string title = "[" + titleOf(key) + "]";
    readTable(key, title, found->value, read);
}

void ConfigurationSection::tables(std::string_view key, const Reader& read) {
    const ConfigurationEntry* found = entry(key);
    if (!found) {
        return;
    }
    std::string title = "[[" + titleOf(key) + "]]";
    const auto* list = std::get_if<ConfigurationList>(&found->value.content);
    if (!list) {
        wrongValue(key, found->value.place, valueText(found->value), title);
        return;
    }
    for (const ConfigurationValue& value : *list) {
        readTable(key, title, value, read);
    }
}

void ConfigurationSection::end() {
    for (const ConfigurationEntry& entry : table_.entries) {
        if (std::find(known_.begin(), known_.end(), entry.name) != known_.end()) {
            continue;
        }
        std::string text = "unknown key " + quoted(entry.name);
        if (std::string_view nearest = nearestName(entry.name, known_); !nearest.empty()) {
            mistakes_.add(entry.place, text + "; did you mean " + quoted(nearest) + "?");
            continue;
        }
        std::string names;
        for (std::string_view name : known_) {
            names += (names.empty() ? "" : ", ") + std::string(name);
        }
        mistakes_.add(entry.place, text, "one of " + names);
    }
}

template <class T>
const T* ConfigurationSection::get(std::string_view key, std::string_view expected, Need need) {
    const ConfigurationEntry* found = entry(key);
    if (!found) {
        if (need == Need::required) {
            mistakes_.add(place_, title_ + " has no key " + quoted(key), expected);
        }
        return nullptr;
    }
    const T* value = std::get_if<T>(&found->value.content);
    if (!value) {
        wrongValue(key, found->value.place, valueText(found->value), expected);
    }
    return value;
}

const ConfigurationEntry* ConfigurationSection::entry(std::string_view key) {
    known_.push_back(key);
    return table_.find(key);
}

std::optional<size_t>
ConfigurationSection::choiceIndex(std::string_view key,
                                  const std::vector<std::string_view>& names) {
    std::string expected;
    for (std::string_view name : names) {
        expected += (expected.empty() ? "" : name == names.back() ? " or " : ", ") + quoted(name);
    }
    const std::string* value = get<std::string>(key, expected);
    if (!value) {
        return std::nullopt;
    }
    auto name = std::find(names.begin(), names.end(), *value);
    if (name == names.end()) {
        wrongValue(key, place(key), quoted(*value), expected);
        return std::nullopt;
    }
    return static_cast<size_t>(name - names.begin());
}

void ConfigurationSection::readTable(std::string_view key, std::string title,
                                     const ConfigurationValue& value, const Reader& read) {
    const auto* inner = std::get_if<ConfigurationTable>(&value.content);
    if (!inner) {
        wrongValue(key, value.place, valueText(value), title);
        return;
    }
    ConfigurationSection section(*inner, std::move(title), value.place, mistakes_);
    read(section);
    section.end();
}

/// "evpn.segment" for the key "segment" of [evpn].
std::string ConfigurationSection::titleOf(std::string_view key) const {
    std::string outer = title_;
    std::erase_if(outer, [](char c) { return c == '[' || c == ']'; });
    return outer + (outer.empty() ? "" : ".") + std::string(key);
}

void ConfigurationSection::wrongValue(std::string_view key, FilePlace place, std::string_view found,
                                      std::string_view expected) {
    mistakes_.add(place, quoted(key) + " is " + std::string(found), expected);
}

} // namespace Host
