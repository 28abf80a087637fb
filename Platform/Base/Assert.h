#pragma once

#include "Platform/Base/SourceSite.h"

namespace Vela {

/// Prints unit, line, function and text to stderr and aborts.
[[noreturn]] void failAssertion(const char* text, SourceSite site = SourceSite::current()) noexcept;

/// Checks for a programming error of ours; compiled into every build. Packets, peers, the kernel
/// and operators must never be able to trigger one. `text` is the expression as the system words
/// it, which is what people search for.
inline void assertThat(bool holds, const char* text, SourceSite site = SourceSite::current()) {
    if (!holds) [[unlikely]] {
        failAssertion(text, site);
    }
}

/// Ends the process with the text of an exception that nobody may swallow.
[[noreturn]] void terminateWith(const char* what, SourceSite site = SourceSite::current()) noexcept;

} // namespace Vela
