#pragma once

#include "Platform/Value/IpGenAddr.h"
#include "Platform/Value/VlanId.h"

#include <optional>
#include <string>
#include <string_view>

namespace ArpSuppression {

/// What stands behind the words of a command that operators give.
struct ShowArguments {
    /// What may stand there besides "-j", each once and in any order.
    enum class Takes { nothing, vlan, addressAndVlan };

    bool json = false; ///< "-j"
    std::optional<Bridging::VlanId> vlanId = {};
    std::optional<Zinc::IpGenAddr> address = {};
    std::string error = {}; ///< what makes no sense; then nothing else counts

    /// `command` begins with `name`.
    static ShowArguments of(std::string_view name, const std::string& command, Takes takes);
};

} // namespace ArpSuppression
