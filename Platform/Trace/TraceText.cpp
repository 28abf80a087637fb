#include "Platform/Trace/TraceText.h"

#include <chrono>
#include <cstdio>
#include <ostream>

namespace Vela {

namespace {

constexpr char hexDigits[] = "0123456789abcdef";

int64_t floorDivide(int64_t a, int64_t b) {
    return a / b - (a % b < 0 ? 1 : 0);
}

} // namespace

std::string utcText(int64_t nanoseconds) {
    int64_t microseconds = floorDivide(nanoseconds, 1000);
    int64_t seconds = floorDivide(microseconds, 1'000'000);
    int64_t days = floorDivide(seconds, 86400);
    std::chrono::year_month_day date{std::chrono::sys_days{std::chrono::days{days}}};
    unsigned ofDay = static_cast<unsigned>(seconds - days * 86400);

    char text[64];
    int length = std::snprintf(
        text, sizeof text, "%04d-%02u-%02u %02u:%02u:%02u.%06u", static_cast<int>(date.year()),
        static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), ofDay / 3600,
        ofDay / 60 % 60, ofDay % 60, static_cast<unsigned>(microseconds - seconds * 1'000'000));
    return std::string(text, static_cast<size_t>(length));
}

std::string oneLine(std::string_view text) {
    std::string line;
    line.reserve(text.size());
    for (char c : text) {
        unsigned char byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f) {
            line += c;
        } else if (c == '\n') {
            line += "\\n";
        } else if (c == '\t') {
            line += "\\t";
        } else {
            line += "\\x";
            line += hexDigits[byte >> 4];
            line += hexDigits[byte & 15];
        }
    }
    return line;
}

std::ostream& operator<<(std::ostream& out, HexBytes hex) {
    std::string digits;
    digits.reserve(hex.bytes.size() * 2);
    for (uint8_t byte : hex.bytes) {
        digits += hexDigits[byte >> 4];
        digits += hexDigits[byte & 15];
    }
    return out << digits;
}

} // namespace Vela
