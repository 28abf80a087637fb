#include "Platform/Value/IpGenAddr.h"

#include "Platform/Base/Strep.h"
#include "Platform/Base/ValueParser.h"

#include <arpa/inet.h>
#include <bit>
#include <optional>
#include <type_traits>

namespace Zinc {

static_assert(sizeof(IpGenAddr) == 17 && alignof(IpGenAddr) == 1);
static_assert(std::is_trivially_copyable_v<IpGenAddr>);

namespace {

std::optional<IpGenAddr> parseIpGenAddr(std::string_view text) {
    if (text.empty()) {
        return IpGenAddr();
    }
    // inet_pton reads up to a zero byte, which must be ours.
    char terminated[INET6_ADDRSTRLEN] = {};
    if (text.size() >= sizeof terminated || text.find('\0') != text.npos) {
        return std::nullopt;
    }
    text.copy(terminated, text.size());
    in_addr v4;
    if (inet_pton(AF_INET, terminated, &v4) == 1) {
        return IpGenAddr(ntohl(v4.s_addr));
    }
    IpGenAddr::Bytes v6;
    if (inet_pton(AF_INET6, terminated, v6.data()) == 1) {
        return IpGenAddr(v6);
    }
    return std::nullopt;
}

} // namespace

const char* toStrep(AddressFamily af) {
    switch (af) {
    case AddressFamily::ipv4:
        return "ipv4";
    case AddressFamily::ipv6:
        return "ipv6";
    case AddressFamily::ipunknown:
        break;
    }
    return "ipunknown";
}

IpGenAddr::IpGenAddr(std::string_view text) {
    std::optional<IpGenAddr> parsed = parseIpGenAddr(text);
    if (!parsed) {
        Vela::ValueParser(text).fail("an IP address", 0);
    }
    *this = *parsed;
}

IpGenAddr IpGenAddr::fromValue(Vela::ValueParser& parser) {
    size_t start = parser.offset();
    std::string text = parser.quotedString();
    std::optional<IpGenAddr> parsed = parseIpGenAddr(text);
    if (!parsed || parsed->toStrep() != text) {
        parser.fail("an IP address in its shortest notation", start);
    }
    return *parsed;
}

std::string IpGenAddr::toStrep() const {
    if (isUnset()) {
        return {};
    }
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(af_ == ipv4() ? AF_INET : AF_INET6, bytes_.data(), text, sizeof text);
}

std::string IpGenAddr::valueToStrep() const {
    return Vela::quotedForm(toStrep());
}

} // namespace Zinc
