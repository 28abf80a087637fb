# Only headers are used, and those lie in the compiler's own search path: what remains to be done
# is to refuse Debian's default, 1.74, which lacks what the platform needs.
find_package(Boost 1.81 QUIET)
if(NOT Boost_FOUND)
    message(FATAL_ERROR "Boost 1.81 or newer is needed: install libboost1.81-dev "
                        "(it replaces Debian's default, libboost1.74-dev).")
endif()
