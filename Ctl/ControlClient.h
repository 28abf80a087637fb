#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Ctl {

/// How long arpsupd may take until it begins to answer; what follows may take longer.
inline constexpr std::chrono::milliseconds controlPatience = std::chrono::seconds(15);

/// Asks the arpsupd of that runtime directory and copies its answer to the descriptor as it comes.
/// Returns the exit status: 0, or 1 after a line on `errors` that says why there is no answer.
int askDaemon(const std::string& runtimeDirectory, const std::string& command, int output,
              std::ostream& errors, std::chrono::milliseconds patience = controlPatience);

/// The same; hands the answer on piece by piece until `take` returns false, which is a failure that
/// `take` has reported.
using TakeAnswer = std::function<bool(std::string_view piece)>;
int askDaemon(const std::string& runtimeDirectory, const std::string& command,
              const TakeAnswer& take, std::ostream& errors,
              std::chrono::milliseconds patience = controlPatience);

} // namespace Ctl
