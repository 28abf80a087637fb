#pragma once

#include <cstdint>
#include <ostream>
#include <span>

namespace ArpSuppression {

/// One received frame. It owns nothing: the bytes are valid for the call that passes it, and
/// whoever wants to keep them copies them.
class MessageData {
  public:
    MessageData(const uint8_t* data, uint32_t length) : data_(data), length_(length) {}

    const uint8_t* data() const { return data_; }
    uint32_t length() const { return length_; }
    std::span<const uint8_t> bytes() const { return {data_, length_}; }

    /// In hexadecimal.
    friend std::ostream& operator<<(std::ostream& out, const MessageData& v);

  private:
    const uint8_t* data_;
    uint32_t length_;
};

} // namespace ArpSuppression
