#include "Platform/Value/IntfId.h"

#include "Platform/Base/Strep.h"
#include "Platform/Base/ValueParser.h"
#include "Platform/Value/IntfNameTable.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <type_traits>

namespace Zinc {

static_assert(sizeof(IntfId) == 4 && std::is_trivially_copyable_v<IntfId>);

namespace {

constexpr std::string_view vlanPrefix = "Vlan";

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

} // namespace

IntfId::IntfId(std::string_view name) : handle_(intfNameTable().idOf(name)) {}

IntfId IntfId::fromValue(Vela::ValueParser& parser) {
    size_t start = parser.offset();
    std::string name = parser.quotedString();
    if (name.size() > IntfNameTable::longestName) {
        parser.fail("an interface name of at most 63 bytes", start);
    }
    return IntfId(name);
}

std::string_view IntfId::name() const {
    return intfNameTable().name(handle_);
}

std::string IntfId::shortName() const {
    std::string_view full = name();
    size_t letters = std::find_if_not(full.begin(), full.end(), isLetter) - full.begin();
    std::string shortened(full);
    if (letters > 3 && letters < full.size() && isDigit(full[letters])) {
        shortened.erase(2, letters - 2);
    }
    return shortened;
}

bool IntfId::isVlanIntf() const {
    std::string_view text = name();
    if (!text.starts_with(vlanPrefix)) {
        return false;
    }
    std::string_view digits = text.substr(vlanPrefix.size());
    return !digits.empty() && std::all_of(digits.begin(), digits.end(), isDigit) &&
           (digits[0] != '0' || digits.size() == 1);
}

uint32_t IntfId::vlanNumber() const {
    if (!isVlanIntf()) {
        return 0;
    }
    std::string_view digits = name().substr(vlanPrefix.size());
    uint32_t number = 0;
    auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    bool fits = result.ec == std::errc();
    return fits ? number : std::numeric_limits<uint32_t>::max();
}

std::string IntfId::valueToStrep() const {
    return Vela::quotedForm(name());
}

} // namespace Zinc
