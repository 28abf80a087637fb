// Reads arbitrary bytes as a toggle file. A malformed one gives an error that names a place in it,
// in one short and printable line; what is read does not depend on blanks around it.

#include "Platform/Agent/Toggle.h"
#include "Platform/Base/Assert.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace {

using Vela::assertThat;

void checkError(std::string_view error, std::string_view text) {
    assertThat(error.starts_with("toggles.json:"), error.data());
    assertThat(error.size() < 500, error.data());
    for (char c : error) {
        assertThat(c >= ' ' && c <= '~', "c >= ' ' && c <= '~'");
    }
    auto line = std::stoul(std::string(error.substr(error.find(':') + 1)));
    auto lines = 1 + std::count(text.begin(), text.end(), '\n');
    assertThat(line >= 1 && line <= static_cast<size_t>(lines), error.data());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(data, data + size);
    try {
        auto state = Vela::parseToggle(text, "toggles.json", "a");
        assertThat(Vela::parseToggle("\r\n " + text + "\t\n", "toggles.json", "a") == state,
                   "Vela::parseToggle(\"\\r\\n \" + text + \"\\t\\n\") == state");
    } catch (const Vela::ToggleError& error) {
        checkError(error.what(), text);
    }
    return 0;
}
