#include "Platform/Model/Bridging/Fid.h"

#include "Platform/Base/Hash.h"
#include "Platform/Base/ValueParser.h"

#include <type_traits>

namespace Bridging {

static_assert(sizeof(Fid) == 2 && std::is_trivially_copyable_v<Fid>);

Fid Fid::fromValue(Vela::ValueParser& parser) {
    return Fid(parser.number(65535));
}

uint64_t Fid::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mix(value_);
    return hash.result();
}

std::string Fid::toStrep() const {
    return std::to_string(value_);
}

} // namespace Bridging
