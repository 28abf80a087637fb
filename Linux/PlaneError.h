#pragma once

#include <stdexcept>

namespace Linux {

/// What keeps the forwarding plane from working, in words for an operator.
class PlaneError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace Linux
