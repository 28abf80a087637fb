#include "Platform/Value/MessageData.h"

namespace ArpSuppression {

std::ostream& operator<<(std::ostream& out, const MessageData& v) {
    static constexpr char digits[] = "0123456789abcdef";
    for (uint8_t byte : v.bytes()) {
        out << digits[byte >> 4] << digits[byte & 0xf];
    }
    return out;
}

} // namespace ArpSuppression
