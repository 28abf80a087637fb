#pragma once

#include "Platform/Base/Errors.h"

#include <compare>
#include <ostream>
#include <string>
#include <string_view>

namespace Vela {

/// A string of at most MaxLength bytes; a longer one raises a range error and changes nothing.
template <size_t MaxLength>
class String {
  public:
    String() = default;
    String(std::string_view bytes) : bytes_(checked(bytes)) {}
    String(const std::string& bytes) : String(std::string_view(bytes)) {}
    String(const char* bytes) : String(std::string_view(bytes)) {}

    static constexpr size_t maxLength() { return MaxLength; }

    const std::string& bytes() const { return bytes_; }
    bool empty() const { return bytes_.empty(); }
    operator std::string_view() const { return bytes_; }

    friend bool operator==(const String& a, const String& b) { return a.bytes_ == b.bytes_; }
    friend std::strong_ordering operator<=>(const String& a, const String& b) {
        return a.bytes_ <=> b.bytes_;
    }
    friend std::ostream& operator<<(std::ostream& out, const String& s) { return out << s.bytes_; }

  private:
    static std::string_view checked(std::string_view bytes) {
        if (bytes.size() > MaxLength) {
            throw RangeError("Vela::String::bytes > maxLength() not allowed");
        }
        return bytes;
    }

    std::string bytes_;
};

} // namespace Vela
