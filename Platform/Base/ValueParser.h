#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Vela {

/// Reads value forms (Strep.h) back, piece by piece. Types use it in
/// `static T fromValue(ValueParser&)`; whole texts are read with parseValue.
///
/// It accepts exactly what the text forms write, so that a text that was read prints as it stood.
/// Whatever else stands there, an extra blank included, throws a ParseError that names what was
/// expected, the offset, and what was found (an excerpt, escaped). After that the parser is spent.
class ValueParser {
  public:
    /// `text` must outlive the parser.
    explicit ValueParser(std::string_view text) : text_(text) {}

    void expect(std::string_view literal);
    /// Reads `literal` if it stands here; for what has more than one form.
    bool accept(std::string_view literal);
    std::string quotedString();
    /// An unsigned decimal number of at most `max`, without leading zeros.
    uint64_t number(uint64_t max);
    bool boolean();

    /// The head of a value up to its opening brace. The fields follow, then closeValue(). A field
    /// may hold a value itself.
    void openValue(std::string_view type);
    /// The name of the next field, with the comma that parts it from the one before.
    void field(std::string_view name);
    void closeValue();

    /// Nothing may follow.
    void end() const;

    /// Bytes read so far.
    size_t offset() const { return offset_; }

    /// Reports that something other than `expected` stands at `offset`: for types that allow less
    /// than a piece does.
    [[noreturn]] void fail(std::string_view expected, size_t offset) const;

  private:
    char quotedByte();
    std::string_view rest() const { return text_.substr(offset_); }

    std::string_view text_;
    size_t offset_ = 0;
    // One flag serves nested values: the value around one that was closed has had a field.
    bool atFirstField_ = true;
};

/// Reads a text that is one value form and nothing else.
template <class T>
T parseValue(std::string_view text) {
    ValueParser parser(text);
    T value = T::fromValue(parser);
    parser.end();
    return value;
}

} // namespace Vela
