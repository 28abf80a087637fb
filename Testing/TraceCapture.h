#pragma once

#include "Platform/Trace/Trace.h"

#include <string>
#include <string_view>

namespace Testing {

/// Switches trace lines on for its own life and keeps them: TraceCapture lines("ArpSuppression=8").
class TraceCapture {
  public:
    explicit TraceCapture(std::string_view settings);
    ~TraceCapture();
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    const std::string& text() const { return text_; }
    bool contains(std::string_view piece) const { return count(piece) > 0; }
    /// How often the piece stands in the lines so far.
    size_t count(std::string_view piece) const;
    void clear() { text_.clear(); }

  private:
    std::string text_;
    Vela::TraceSink previous_;
};

} // namespace Testing
