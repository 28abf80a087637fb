#include "Platform/Base/ValueParser.h"

#include "Platform/Base/Errors.h"
#include "Platform/Base/Strep.h"

namespace Vela {

namespace {

constexpr size_t longestExcerpt = 24;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// The value of a lower-case hexadecimal digit, 16 for anything else.
unsigned hexDigit(char c) {
    return isDigit(c) ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : 16;
}

} // namespace

void ValueParser::fail(std::string_view expected, size_t offset) const {
    std::string_view found = text_.substr(offset);
    std::string text = "expected ";
    text += expected;
    text += " at offset " + std::to_string(offset) + ", found ";
    text += found.empty() ? "the end" : quotedForm(found.substr(0, longestExcerpt));
    if (found.size() > longestExcerpt) {
        text += "...";
    }
    throw ParseError(text);
}

void ValueParser::expect(std::string_view literal) {
    if (!accept(literal)) {
        fail(quotedForm(literal), offset_);
    }
}

bool ValueParser::accept(std::string_view literal) {
    bool stands = rest().starts_with(literal);
    if (stands) {
        offset_ += literal.size();
    }
    return stands;
}

std::string ValueParser::quotedString() {
    if (!accept("'")) {
        fail("a quoted string", offset_);
    }
    std::string bytes;
    while (!accept("'")) {
        bytes += quotedByte();
    }
    return bytes;
}

char ValueParser::quotedByte() {
    std::string_view text = rest();
    if (text.empty()) {
        fail("a closing quote", offset_);
    }
    if (standsForItself(text[0])) {
        ++offset_;
        return text[0];
    }
    if (text.starts_with("\\\\") || text.starts_with("\\'")) {
        offset_ += 2;
        return text[1];
    }
    if (text.starts_with("\\n")) {
        offset_ += 2;
        return '\n';
    }
    if (text.starts_with("\\x") && text.size() >= 4) {
        unsigned value = hexDigit(text[2]) << 4 | hexDigit(text[3]);
        char byte = static_cast<char>(value);
        bool isHex = hexDigit(text[2]) < 16 && hexDigit(text[3]) < 16;
        bool hasShorterForm = standsForItself(byte) || byte == '\\' || byte == '\'' || byte == '\n';
        if (isHex && !hasShorterForm) {
            offset_ += 4;
            return byte;
        }
    }
    fail("a printable character or an escape", offset_);
}

uint64_t ValueParser::number(uint64_t max) {
    std::string_view text = rest();
    uint64_t value = 0;
    size_t length = 0;
    bool fits = true;
    while (fits && length < text.size() && isDigit(text[length])) {
        uint64_t digit = text[length++] - '0';
        fits = digit <= max && value <= (max - digit) / 10;
        value = value * 10 + digit;
    }
    if (length == 0 || !fits) {
        fail("a number of at most " + std::to_string(max), offset_);
    }
    if (length > 1 && text[0] == '0') {
        fail("a number without leading zeros", offset_);
    }
    offset_ += length;
    return value;
}

bool ValueParser::boolean() {
    for (bool value : {true, false}) {
        if (accept(boolForm(value))) {
            return value;
        }
    }
    fail("True or False", offset_);
}

void ValueParser::openValue(std::string_view type) {
    expect("Value(" + quotedForm(type) + ", ** {");
    atFirstField_ = true;
}

void ValueParser::field(std::string_view name) {
    if (!atFirstField_) {
        expect(", ");
    }
    atFirstField_ = false;
    expect(quotedForm(name) + ": ");
}

void ValueParser::closeValue() {
    expect("})");
    atFirstField_ = false;
}

void ValueParser::end() const {
    if (!rest().empty()) {
        fail("the end", offset_);
    }
}

} // namespace Vela
