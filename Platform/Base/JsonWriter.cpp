#include "Platform/Base/JsonWriter.h"

#include <cstdint>
#include <cstdio>

namespace Vela {

namespace {

uint8_t byteAt(std::string_view text, size_t i) {
    return i < text.size() ? static_cast<uint8_t>(text[i]) : 0;
}

/// The length of the UTF-8 character that begins there, or 0 if none does: no overlong form, no
/// surrogate, nothing beyond U+10FFFF.
size_t characterAt(std::string_view text, size_t i) {
    auto continues = [&](size_t k) { return (byteAt(text, i + k) & 0xc0) == 0x80; };
    uint8_t first = byteAt(text, i);
    uint8_t second = byteAt(text, i + 1);
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xc2 && first < 0xe0) {
        return continues(1) ? 2 : 0;
    }
    if ((first & 0xf0) == 0xe0) {
        bool fits = (first != 0xe0 || second >= 0xa0) && (first != 0xed || second < 0xa0);
        return fits && continues(1) && continues(2) ? 3 : 0;
    }
    if (first >= 0xf0 && first < 0xf5) {
        bool fits = (first != 0xf0 || second >= 0x90) && (first != 0xf4 || second < 0x90);
        return fits && continues(1) && continues(2) && continues(3) ? 4 : 0;
    }
    return 0;
}

} // namespace

JsonWriter& JsonWriter::begin(char bracket, bool rows) {
    separate();
    text_ += bracket;
    levels_.push_back({rows, false});
    return *this;
}

JsonWriter& JsonWriter::end(char bracket) {
    if (levels_.back().rows && levels_.back().any) {
        text_ += '\n';
    }
    levels_.pop_back();
    text_ += bracket;
    finishDocument();
    return *this;
}

JsonWriter& JsonWriter::key(std::string_view name) {
    beginText().addText(name);
    text_ += "\":";
    afterKey_ = true;
    return *this;
}

JsonWriter& JsonWriter::literal(std::string_view text) {
    separate();
    text_ += text;
    finishDocument();
    return *this;
}

JsonWriter& JsonWriter::beginText() {
    separate();
    text_ += '"';
    return *this;
}

JsonWriter& JsonWriter::addText(std::string_view piece) {
    for (size_t i = 0; i < piece.size();) {
        size_t length = characterAt(piece, i);
        char c = piece[i];
        if (length == 0) {
            text_ += "\\ufffd";
            length = 1;
        } else if (c == '"' || c == '\\') {
            text_ += {'\\', c};
        } else if (c == '\n') {
            text_ += "\\n";
        } else if (length == 1 && (byteAt(piece, i) < 0x20 || c == 0x7f)) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", byteAt(piece, i));
            text_ += escaped;
        } else {
            text_ += piece.substr(i, length);
        }
        i += length;
    }
    return *this;
}

JsonWriter& JsonWriter::endText() {
    text_ += '"';
    finishDocument();
    return *this;
}

/// What goes in front of a value or, in an object, in front of a key.
void JsonWriter::separate() {
    if (std::exchange(afterKey_, false) || levels_.empty()) {
        return;
    }
    if (std::exchange(levels_.back().any, true)) {
        text_ += ',';
    }
    if (levels_.back().rows) {
        text_ += '\n';
    }
}

void JsonWriter::finishDocument() {
    if (levels_.empty()) {
        text_ += '\n';
    }
}

} // namespace Vela
