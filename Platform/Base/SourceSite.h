#pragma once

#include <string_view>

namespace Vela {

/// A place in the source, taken as a default argument by what reports about its caller.
/// std::source_location is missing from clang 14, which builds the fuzz targets.
struct SourceSite {
    const char* file;     ///< below the source root: the build maps the root away
    const char* function; ///< unqualified name
    unsigned line;

    static constexpr SourceSite current(const char* file = __builtin_FILE(),
                                        const char* function = __builtin_FUNCTION(),
                                        unsigned line = __builtin_LINE()) {
        return {file, function, line};
    }

    /// The compilation unit as people name it: "ArpSuppression/LocalBinding".
    constexpr std::string_view unit() const {
        std::string_view path = file;
        size_t slash = path.rfind('/');
        size_t dot = path.rfind('.');
        bool hasEnding = dot != path.npos && (slash == path.npos || dot > slash);
        return hasEnding ? path.substr(0, dot) : path;
    }
};

} // namespace Vela
