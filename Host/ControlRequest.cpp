#include "Host/ControlRequest.h"

#include <array>
#include <cstdio>

namespace Host {

namespace {

bool isPrintable(char c) {
    return c >= ' ' && c <= '~';
}

} // namespace

ControlRequest::State ControlRequest::feed(std::string_view bytes) {
    if (state_ != State::incomplete) {
        return state_;
    }
    for (char c : bytes) {
        if (c == '\n') {
            return state_ = State::line;
        }
        if (!isPrintable(c)) {
            std::array<char, 8> hex{};
            std::snprintf(hex.data(), hex.size(), "0x%02x", static_cast<unsigned char>(c));
            return fail("byte " + std::to_string(line_.size() + 1) + " of the command is " +
                        hex.data() + ", not printable ASCII");
        }
        if (line_.size() == longestLine) {
            return fail("the command is longer than " + std::to_string(longestLine) + " bytes");
        }
        line_ += c;
    }
    return state_;
}

ControlRequest::State ControlRequest::end() {
    return state_ == State::incomplete ? fail("the command does not end with a line feed") : state_;
}

ControlRequest::State ControlRequest::fail(std::string error) {
    error_ = std::move(error);
    return state_ = State::error;
}

} // namespace Host
