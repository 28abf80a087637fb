# Writes ${output}: a number made from the contents of all public headers of the platform.
# Run with -Droot=<source root> -Doutput=<header>.
file(GLOB_RECURSE headers ${root}/Platform/*.h)
list(FILTER headers EXCLUDE REGEX "/test/")
list(SORT headers)
set(all "")
foreach(header ${headers})
    file(SHA256 ${header} hash)
    string(APPEND all ${hash})
endforeach()
string(SHA256 hash "${all}")
string(SUBSTRING ${hash} 0 16 number)
set(text "#pragma once

#include <cstdint>

namespace Vela {

constexpr uint64_t builtPlatformAbi = 0x${number};

} // namespace Vela
")
file(CONFIGURE OUTPUT ${output} CONTENT "${text}" @ONLY)
