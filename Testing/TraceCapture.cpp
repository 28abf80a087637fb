#include "Testing/TraceCapture.h"

#include <gtest/gtest.h>
#include <utility>

namespace Testing {

TraceCapture::TraceCapture(std::string_view settings) {
    EXPECT_TRUE(Vela::traceLevelsIs(settings).empty()) << "malformed: " << settings;
    previous_ = Vela::traceSinkIs([this](std::string_view line) { text_ += line; });
}

TraceCapture::~TraceCapture() {
    Vela::traceSinkIs(std::move(previous_));
    Vela::traceLevelsIs("");
}

size_t TraceCapture::count(std::string_view piece) const {
    size_t found = 0;
    for (size_t at = text_.find(piece); at != text_.npos; at = text_.find(piece, at + 1)) {
        ++found;
    }
    return found;
}

} // namespace Testing
