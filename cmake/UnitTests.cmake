include(GoogleTest)

# add_unit_tests(<name> <what to link>...)
#
# The current folder's `test/*.cpp` as one executable, <name>Test, whose tests run in a process
# each: a crash costs one test, and what is read once per process can differ from test to test.
# Every test is entered twice: the entry "...@yield" runs with a scheduler that yields at each
# check.
function(add_unit_tests name)
    file(GLOB sources CONFIGURE_DEPENDS test/*.cpp)
    add_test_executable(${name} "${sources}" ${ARGN})
endfunction()

function(add_test_executable name sources)
    if(NOT sources OR NOT BUILD_TESTING)
        return()
    endif()
    add_executable(${name}Test ${sources})
    target_link_libraries(${name}Test PRIVATE ${ARGN} Testing Platform GTest::gtest_main)
    # A third of the compiler's time goes into telling where which variable is.
    target_compile_options(${name}Test PRIVATE -g1)
    gtest_discover_tests(${name}Test DISCOVERY_MODE PRE_TEST
                         TEST_PREFIX ${name}. TEST_LIST ${name}Tests)
    gtest_discover_tests(${name}Test DISCOVERY_MODE PRE_TEST
                         TEST_PREFIX ${name}. TEST_SUFFIX @yield TEST_LIST ${name}YieldTests
                         PROPERTIES ENVIRONMENT VELA_ALWAYS_YIELD=1)
endfunction()
