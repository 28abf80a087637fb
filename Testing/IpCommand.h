#pragma once

#include <string>
#include <vector>

namespace Testing {

/// Runs iproute2's `ip` and returns what it prints. Throws std::runtime_error, with what it says,
/// if it fails.
std::string ip(const std::vector<std::string>& arguments);

} // namespace Testing
