#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Host {

/// What a client of the control socket asks for: one line of printable ASCII, ended by a line feed,
/// whatever the pieces in which it arrives.
class ControlRequest {
  public:
    /// Without the line feed.
    static constexpr size_t longestLine = 4096;

    enum class State { incomplete, line, error };

    /// Takes the next bytes. Once there is a line or an error, nothing more counts.
    State feed(std::string_view bytes);
    /// No more bytes will come: what is incomplete is an error.
    State end();

    State state() const { return state_; }
    /// Without the line feed; whole in state `line` only.
    const std::string& line() const { return line_; }
    /// In state `error`; one line of printable ASCII.
    const std::string& error() const { return error_; }

  private:
    State fail(std::string error);

    State state_ = State::incomplete;
    std::string line_;
    std::string error_;
};

} // namespace Host
