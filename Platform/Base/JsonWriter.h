#pragma once

#include <charconv>
#include <cmath>
#include <concepts>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace Vela {

/// Writes JSON piece by piece, for what is too much to be held as a tree:
///
///     json.beginRows();
///     json.beginObject().field("vlan", 10).field("active", true).endObject();
///     json.endArray();
///
/// Each document ends with a line feed; another one may follow. What is no UTF-8 in a text is
/// written as U+FFFD, so the output always is. The caller sees to the order: a key before each
/// value of an object, and an end for each beginning.
class JsonWriter {
  public:
    JsonWriter& beginObject() { return begin('{', false); }
    JsonWriter& endObject() { return end('}'); }
    JsonWriter& beginArray() { return begin('[', false); }
    /// An array with each element in a line of its own.
    JsonWriter& beginRows() { return begin('[', true); }
    JsonWriter& endArray() { return end(']'); }

    JsonWriter& key(std::string_view name);
    /// A number, a truth value, or else a text. A number that JSON does not have is null.
    template <class T>
    JsonWriter& value(const T& value) {
        if constexpr (std::same_as<T, bool>) {
            return literal(value ? "true" : "false");
        } else if constexpr (std::is_floating_point_v<T>) {
            return std::isfinite(value) ? number(value) : null();
        } else if constexpr (std::is_integral_v<T>) {
            return number(value);
        } else {
            return beginText().addText(value).endText();
        }
    }
    JsonWriter& null() { return literal("null"); }
    template <class T>
    JsonWriter& field(std::string_view name, const T& value) {
        return key(name).value(value);
    }

    /// A text in pieces, none of which ends within a character.
    JsonWriter& beginText();
    JsonWriter& addText(std::string_view piece);
    JsonWriter& endText();

    /// What has been written since the last call; the rest may follow.
    std::string take() { return std::exchange(text_, {}); }
    /// How much that is.
    size_t pending() const { return text_.size(); }

  private:
    struct Level {
        bool rows;
        bool any;
    };

    template <class T>
    JsonWriter& number(T value) {
        char digits[32];
        auto last = std::to_chars(digits, digits + sizeof digits, value).ptr;
        return literal({digits, static_cast<size_t>(last - digits)});
    }
    JsonWriter& begin(char bracket, bool rows);
    JsonWriter& end(char bracket);
    JsonWriter& literal(std::string_view text);
    void separate();
    void finishDocument();

    std::string text_;
    std::vector<Level> levels_;
    bool afterKey_ = false;
};

} // namespace Vela
