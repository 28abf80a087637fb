#include "Host/Configuration.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <regex>

namespace Host {
namespace {

std::string sampleText() {
    std::ifstream file(SAMPLE_CONFIGURATION);
    EXPECT_TRUE(file) << SAMPLE_CONFIGURATION;
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

TEST(ConfigurationSample, UsesEverySection) {
    Configuration c = readConfiguration(SAMPLE_CONFIGURATION);
    EXPECT_NE(c.trace, "");
    EXPECT_EQ(c.control.group, "adm");
    EXPECT_TRUE(c.bridging.mac);
    EXPECT_EQ(c.bridging.fids.size(), 1u);
    EXPECT_TRUE(c.evpn.mpls);
    EXPECT_EQ(c.evpn.vlans.size(), 2u);
    ASSERT_EQ(c.evpn.segments.size(), 1u);
    EXPECT_EQ(c.evpn.segments[0].designatedForwarders.size(), 2u);
    EXPECT_TRUE(c.fhrp.varpMac);
    EXPECT_EQ(c.vrfs.size(), 2u);
    EXPECT_EQ(c.interfaces.size(), 5u);
    EXPECT_TRUE(std::any_of(c.interfaces.begin(), c.interfaces.end(),
                            [](const auto& interface) { return interface.subInterface; }));
    EXPECT_EQ(c.remoteBindings.size(), 4u);
    EXPECT_EQ(c.fdb.size(), 2u);
    EXPECT_EQ(c.neighbors.size(), 2u);
}

/// The line that a mistake names, 0 if it names none.
size_t lineOf(std::string_view mistake, std::string_view fileName) {
    size_t line = 0;
    if (mistake.starts_with(fileName)) {
        mistake.remove_prefix(fileName.size());
        std::from_chars(mistake.data(), mistake.data() + mistake.size(), line);
    }
    return line;
}

TEST(ConfigurationSample, EveryPrefixIsReadOrGivesMistakesWithinIt) {
    const std::string text = sampleText();
    ASSERT_GT(text.size(), 3000u);
    size_t read = 0;
    size_t refused = 0;
    for (size_t length = 0; length <= text.size(); ++length) {
        std::string_view prefix = std::string_view(text).substr(0, length);
        size_t lines = static_cast<size_t>(1 + std::count(prefix.begin(), prefix.end(), '\n'));
        try {
            parseConfiguration(prefix, "f:");
            ++read;
        } catch (const ConfigurationError& error) {
            ++refused;
            for (const std::string& mistake : error.mistakes()) {
                size_t line = lineOf(mistake, "f::");
                EXPECT_TRUE(line >= 1 && line <= lines) << length << " " << mistake;
            }
        }
    }
    EXPECT_GT(read, 500u);
    EXPECT_GT(refused, 500u);
}

TEST(ConfigurationSample, EachByteChangedIsReadOrGivesMistakesWithinIt) {
    std::string text = std::regex_replace(sampleText(), std::regex(" *#.*"), "");
    size_t lines = static_cast<size_t>(1 + std::count(text.begin(), text.end(), '\n'));
    for (char& byte : text) {
        char before = byte;
        byte = static_cast<char>(byte ^ 0x15);
        size_t linesNow = lines + (byte == '\n' ? 1 : 0);
        try {
            parseConfiguration(text, "f:");
        } catch (const ConfigurationError& error) {
            for (const std::string& mistake : error.mistakes()) {
                size_t line = lineOf(mistake, "f::");
                EXPECT_TRUE(line >= 1 && line <= linesNow) << mistake;
            }
        }
        byte = before;
    }
}

} // namespace
} // namespace Host
