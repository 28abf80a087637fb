#pragma once

#include <optional>
#include <string>

namespace Vela {

/// The content of a regular file of at most `maxBytes`; nothing if there is no such file. Never
/// waits for a writer, as opening a pipe would. Throws std::runtime_error for any other trouble
/// with a text that follows the file's name: "cannot be read: Permission denied".
std::optional<std::string> readFileText(const std::string& path, size_t maxBytes);

} // namespace Vela
