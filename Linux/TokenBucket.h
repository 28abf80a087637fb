#pragma once

#include "Platform/Base/Clock.h"

#include <algorithm>

namespace Linux {

/// Lets `rate` things a second pass, and up to `burst` at once after a pause.
class TokenBucket {
  public:
    TokenBucket(double rate, double burst) : rate_(rate), burst_(burst), tokens_(burst) {}

    /// Whether one may pass now; it is counted if so.
    bool take(Vela::MonotonicTime now) {
        double passed = std::chrono::duration<double>(now - last_).count();
        tokens_ = std::min(burst_, tokens_ + passed * rate_);
        last_ = now;
        if (tokens_ < 1) {
            return false;
        }
        tokens_ -= 1;
        return true;
    }

  private:
    const double rate_;
    const double burst_;
    double tokens_;
    Vela::MonotonicTime last_{0};
};

} // namespace Linux
