#include "Platform/Base/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Vela {

namespace {

[[noreturn]] void abortAt(const char* kind, const char* text, SourceSite site) noexcept {
    std::string_view unit = site.unit();
    std::fprintf(stderr, "%.*s:%u %s: %s \"%s\"\n", static_cast<int>(unit.size()), unit.data(),
                 site.line, site.function, kind, text);
    std::fflush(stderr);
    std::abort();
}

} // namespace

void failAssertion(const char* text, SourceSite site) noexcept {
    abortAt("assertion failed", text, site);
}

void terminateWith(const char* what, SourceSite site) noexcept {
    abortAt("unhandled error", what, site);
}

} // namespace Vela
