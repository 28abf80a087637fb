#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Vela {

/// A toggle file is malformed. The text names the file, line and column where they are known
/// (both count from 1, the column in bytes), what stands there and what was expected.
class ToggleError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// A toggle file is at most this long.
constexpr size_t toggleFileBytes = 1 << 20;

/// What the text of a toggle file says of one toggle, nothing if it does not name it. The text is
/// one JSON object of toggle names, each with true or false:
///
///     { "MplsIRBv6": false, "SomeToggleOfAnotherRelease": true }
///
/// Throws ToggleError for any other text, whichever toggle is asked for: a name given twice is
/// malformed, too. `fileName` only serves the error's text.
std::optional<bool> parseToggle(std::string_view text, std::string_view fileName,
                                std::string_view toggleName);

/// Where toggle files lie, "/etc/arpsup/toggles" unless set. Set it before toggles are read.
void toggleDirectoryIs(std::string directory);

/// The state of a toggle, or `defaultState` if there is no such file or it does not name the
/// toggle. A malformed or unreadable file gives the default as well, so that a slip of the pen
/// stops nobody, but is reported on standard error and traced (handle "Toggle", level 0).
/// Each call reads the file: whoever needs the state often keeps it.
bool getToggleState(std::string_view toggleName, std::string_view fileName, bool defaultState);

} // namespace Vela
