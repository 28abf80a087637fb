# add_folder(<target> <type>)
#
# The sources and headers of the current folder and those below it, `test/` and a program's Main.cpp
# aside, as a library of the given type, or as an interface library while there are only headers. The target
# all_verify_interface_header_sets compiles each header on its own.
function(add_folder target type)
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS *.cpp)
    file(GLOB_RECURSE headers CONFIGURE_DEPENDS *.h)
    list(FILTER sources EXCLUDE REGEX "/test/|/Main\\.cpp$")
    list(FILTER headers EXCLUDE REGEX "/test/")

    set(scope PUBLIC)
    if(NOT sources)
        set(type INTERFACE)
        set(scope INTERFACE)
    endif()
    add_library(${target} ${type} ${sources})
    target_sources(${target} ${scope} FILE_SET HEADERS BASE_DIRS ${CMAKE_SOURCE_DIR}
                                      FILES ${headers})
endfunction()
