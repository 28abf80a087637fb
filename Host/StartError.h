#pragma once

#include <stdexcept>

namespace Host {

/// Why the daemon cannot start, in words for the operator.
class StartError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace Host
