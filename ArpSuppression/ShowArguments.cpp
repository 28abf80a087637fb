#include "ArpSuppression/ShowArguments.h"

#include "Platform/Base/Errors.h"

#include <charconv>
#include <sstream>

namespace ArpSuppression {

namespace {

using Bridging::VlanId;

std::optional<VlanId> vlanOf(const std::string& word) {
    unsigned number = 0;
    auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    bool whole = error == std::errc() && end == word.data() + word.size();
    return whole && number >= 1 && number <= 4094 ? std::optional(VlanId(number)) : std::nullopt;
}

std::optional<Zinc::IpGenAddr> addressOf(const std::string& word) {
    try {
        return Zinc::IpGenAddr(word);
    } catch (const Vela::ParseError&) {
        return std::nullopt;
    }
}

const char* expectedText(ShowArguments::Takes takes) {
    switch (takes) {
    case ShowArguments::Takes::vlan:
        return " where one VLAN, 1 to 4094, or -j may stand";
    case ShowArguments::Takes::addressAndVlan:
        return " where one IP address, one VLAN, 1 to 4094, or -j may stand";
    default:
        return "; only -j may stand there";
    }
}

} // namespace

ShowArguments ShowArguments::of(std::string_view name, const std::string& command, Takes takes) {
    ShowArguments arguments;
    std::istringstream words(command.substr(name.size()));
    std::string word;
    while (words >> word) {
        std::optional<VlanId> vlanId = vlanOf(word);
        std::optional<Zinc::IpGenAddr> address = addressOf(word);
        if (word == "-j") {
            arguments.json = true;
        } else if (takes != Takes::nothing && vlanId && !arguments.vlanId) {
            arguments.vlanId = vlanId;
        } else if (takes == Takes::addressAndVlan && address && !arguments.address) {
            arguments.address = address;
        } else {
            arguments.error = '"' + word + "\" is not expected" + expectedText(takes);
            return arguments;
        }
    }
    return arguments;
}

} // namespace ArpSuppression
