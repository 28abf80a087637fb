# Writes ${output}: a header with the bytes of the file ${input} as the array ${name}.
# Run with -Dinput=<file> -Doutput=<header> -Dname=<identifier>.
file(READ ${input} bytes HEX)
string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
file(WRITE ${output} "#pragma once

alignas(8) inline constexpr unsigned char ${name}[] = {${bytes}};
")
