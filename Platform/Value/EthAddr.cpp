#include "Platform/Value/EthAddr.h"

#include "Platform/Base/Hash.h"
#include "Platform/Base/Strep.h"
#include "Platform/Base/ValueParser.h"

#include <charconv>
#include <cstdio>
#include <optional>
#include <type_traits>

namespace Zinc {

static_assert(sizeof(EthAddr) == 6 && alignof(EthAddr) == 1);
static_assert(std::is_trivially_copyable_v<EthAddr>);

namespace {

constexpr size_t textLength = 17;

std::optional<EthAddr> parseEthAddr(std::string_view text) {
    if (text.size() != textLength) {
        return std::nullopt;
    }
    EthAddr::Bytes bytes;
    for (size_t i = 0; i < bytes.size(); ++i) {
        const char* pair = text.data() + 3 * i;
        // from_chars takes no sign and no blank for an unsigned number, so it takes digits alone.
        auto result = std::from_chars(pair, pair + 2, bytes[i], 16);
        bool last = i + 1 == bytes.size();
        if (result.ec != std::errc() || result.ptr != pair + 2 || (!last && pair[2] != ':')) {
            return std::nullopt;
        }
    }
    return EthAddr(bytes);
}

} // namespace

EthAddr::EthAddr(std::string_view text) {
    std::optional<EthAddr> parsed = parseEthAddr(text);
    if (!parsed) {
        Vela::ValueParser(text).fail("a MAC address", 0);
    }
    *this = *parsed;
}

EthAddr EthAddr::fromValue(Vela::ValueParser& parser) {
    size_t start = parser.offset();
    std::string text = parser.quotedString();
    std::optional<EthAddr> parsed = parseEthAddr(text);
    if (!parsed || parsed->toStrep() != text) {
        parser.fail("a MAC address in lower case", start);
    }
    return *parsed;
}

uint64_t EthAddr::hash(uint64_t seed) const {
    uint64_t word = 0;
    for (uint8_t byte : bytes_) {
        word = word << 8 | byte;
    }
    Vela::IncrementalHash hash(seed);
    hash.mix(word);
    return hash.result();
}

std::string EthAddr::toStrep() const {
    char text[textLength + 1];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", bytes_[0], bytes_[1],
                  bytes_[2], bytes_[3], bytes_[4], bytes_[5]);
    return text;
}

std::string EthAddr::valueToStrep() const {
    return Vela::quotedForm(toStrep());
}

} // namespace Zinc
