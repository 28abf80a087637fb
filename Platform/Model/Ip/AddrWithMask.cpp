#include "Platform/Model/Ip/AddrWithMask.h"

#include "Platform/Base/Errors.h"
#include "Platform/Base/Hash.h"
#include "Platform/Base/Strep.h"
#include "Platform/Base/ValueParser.h"

#include <type_traits>

namespace Ip {

static_assert(sizeof(AddrWithMask) == 18 && std::is_trivially_copyable_v<AddrWithMask>);

namespace {

uint32_t bitsOf(Zinc::AddressFamily af) {
    return af == Zinc::ipv4() ? 32 : af == Zinc::ipv6() ? 128 : 0;
}

} // namespace

AddrWithMask::AddrWithMask(const Zinc::IpGenAddr& address, uint32_t prefixLen)
    : address_(address), prefixLen_(static_cast<uint8_t>(prefixLen)) {
    uint32_t bits = bitsOf(address.af());
    if (prefixLen > bits) {
        throw Vela::RangeError("Ip::AddrWithMask::prefixLen > " + std::to_string(bits) +
                               " not allowed");
    }
}

AddrWithMask AddrWithMask::fromValue(Vela::ValueParser& parser) {
    parser.openValue("Ip::AddrWithMask");
    parser.field("address");
    auto address = Zinc::IpGenAddr::fromValue(parser);
    parser.field("prefixLen");
    auto prefixLen = static_cast<uint32_t>(parser.number(bitsOf(address.af())));
    parser.closeValue();
    return {address, prefixLen};
}

uint64_t AddrWithMask::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mix(address_.hash(seed));
    hash.mix(prefixLen_);
    return hash.result();
}

std::string AddrWithMask::toStrep() const {
    return address_.isUnset() ? "" : address_.toStrep() + "/" + std::to_string(prefixLen_);
}

std::string AddrWithMask::valueToStrep() const {
    return Vela::valueForm("Ip::AddrWithMask", {{"address", address_.valueToStrep()},
                                                {"prefixLen", std::to_string(prefixLen_)}});
}

} // namespace Ip
