// Reads arbitrary bytes as a configuration file. It gives a configuration that keeps what its
// header promises, or mistakes that each name a place in the file in one printable line.

#include "Host/Configuration.h"
#include "Platform/Base/Assert.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

using Vela::assertThat;

constexpr std::string_view fileName = "f.toml";

size_t numberAfterColon(std::string_view& text) {
    assertThat(text.starts_with(':'), "text.starts_with(':')");
    size_t number = 0;
    auto parsed = std::from_chars(text.data() + 1, text.data() + text.size(), number);
    assertThat(parsed.ec == std::errc(), "parsed.ec == std::errc()");
    text.remove_prefix(static_cast<size_t>(parsed.ptr - text.data()));
    return number;
}

void checkMistake(std::string_view mistake, size_t lines) {
    assertThat(mistake.starts_with(fileName), "mistake.starts_with(fileName)");
    assertThat(mistake.size() < 2000, "mistake.size() < 2000");
    for (char c : mistake) {
        uint8_t byte = static_cast<uint8_t>(c);
        assertThat(byte >= ' ' && byte != 0x7f, "byte >= ' ' && byte != 0x7f");
    }
    std::string_view rest = mistake.substr(fileName.size());
    size_t line = numberAfterColon(rest);
    size_t column = numberAfterColon(rest);
    assertThat(line >= 1 && line <= lines, mistake.data());
    assertThat(column >= 1, mistake.data());
    assertThat(rest.starts_with(": "), mistake.data());
    assertThat(rest.find("; expected ") != rest.npos || rest.find("; did you mean ") != rest.npos,
               mistake.data());
}

void checkConfiguration(const Host::Configuration& configuration) {
    auto hasVrf = [&](std::string_view name) {
        return std::any_of(configuration.vrfs.begin(), configuration.vrfs.end(),
                           [&](const auto& vrf) { return vrf.name.bytes() == name; });
    };
    assertThat(hasVrf("default"), "hasVrf(\"default\")");
    for (const auto& interface : configuration.interfaces) {
        assertThat(!interface.name.empty() && interface.name.size() <= 63, "interface.name");
        assertThat(!interface.device.empty() && interface.device.size() <= 15, "interface.device");
        assertThat(hasVrf(interface.vrfName()), "hasVrf(interface.vrfName())");
    }
    for (const auto& neighbor : configuration.neighbors) {
        assertThat(hasVrf(neighbor.vrf), "hasVrf(neighbor.vrf)");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(data, data + size);
    try {
        Host::Configuration configuration = Host::parseConfiguration(text, fileName);
        checkConfiguration(configuration);
        assertThat(Host::parseConfiguration(text + "\n# more", fileName) == configuration,
                   "Host::parseConfiguration(text + \"\\n# more\", fileName) == configuration");
    } catch (const Host::ConfigurationError& error) {
        assertThat(!error.mistakes().empty() && error.mistakes().size() <= 20,
                   "!error.mistakes().empty() && error.mistakes().size() <= 20");
        size_t lines = static_cast<size_t>(1 + std::count(text.begin(), text.end(), '\n'));
        for (const std::string& mistake : error.mistakes()) {
            checkMistake(mistake, lines);
        }
    }
    return 0;
}
