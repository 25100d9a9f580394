# tarn_add_test(<name>
#     SOURCES <file>...       explicit list
#     LIBRARIES <target>...   the library under test: tarn::tarn, or tarn_objects where a test needs
#                             private headers; never both, for there must be one copy of the state
#     [INCLUDES <folder>...]
#     [LABEL <label>]
#     [TIMEOUT <seconds>]
#     [PREFIX <prefix>]       of the tests' names, after the label
#     [OPTIMISED]             its own work takes longer than compiling it: without TARN_TEST_FLAGS
#     [WITHOUT_HOST])         it brings a custom host, and uses no test support
#
# One GoogleTest program, whose tests ctest runs as tarn_discover_tests() says. Test support and the
# embedded host are linked to it unless it says otherwise.
find_package(GTest REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(Threads REQUIRED)
include(GoogleTest)

set(TARN_TEST_FLAGS "" CACHE STRING "Compiler flags of the test programs, after all others")
separate_arguments(tarn_test_flags UNIX_COMMAND "${TARN_TEST_FLAGS}")

option(TARN_TEST_BY_PROGRAM "Make each test program one test of ctest" OFF)
option(TARN_TEST_THREADS_ONLY "Leave out what runs on one thread: for thread sanitizer" OFF)

# The headers of GoogleTest are most of what a compiler reads for a test. They are compiled once, for
# all test programs; scripts/common.sh and the presets tell ccache that it may keep what is compiled
# with them.
file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/test_headers.cpp" CONTENT "int main() {}\n" @ONLY)
add_executable(tarn_test_headers EXCLUDE_FROM_ALL "${PROJECT_BINARY_DIR}/test_headers.cpp")
tarn_configure_target(tarn_test_headers)
target_compile_options(tarn_test_headers PRIVATE ${tarn_test_flags})
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # ccache compares contents.
    target_compile_options(tarn_test_headers PRIVATE "SHELL:-Xclang -fno-pch-timestamp")
endif()
target_link_libraries(tarn_test_headers PRIVATE GTest::gmock GTest::gtest_main)
target_precompile_headers(tarn_test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h>)

# Flags and precompiled headers of a test program.
function(tarn_configure_test name)
    tarn_configure_target(${name})
    target_compile_options(${name} PRIVATE ${tarn_test_flags})
    target_precompile_headers(${name} REUSE_FROM tarn_test_headers)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # ccache asks for it.
        target_compile_options(${name} PRIVATE -fpch-preprocess)
    endif()
endfunction()

# Into `result`: the sources without those whose tests start no thread and no process. A source without
# tests is kept, as others need it.
function(tarn_sources_with_threads result)
    set(kept)
    foreach(source IN LISTS ARGN)
        cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}" OUTPUT_VARIABLE file)
        file(STRINGS "${file}" tests REGEX "^TEST(_F|_P)?[(]" LIMIT_COUNT 1)
        file(STRINGS "${file}" threads LIMIT_COUNT 1
             REGEX "std::(jthread|thread|async)|<thread>|pthread_|Threads[.]h|fork|[Aa]synchronous|ProcessTest[.]h|Workload")
        if(threads OR NOT tests)
            list(APPEND kept "${source}")
        endif()
    endforeach()
    set(${result} ${kept} PARENT_SCOPE)
endfunction()

# tarn_discover_tests(<name> PREFIX <prefix> LABEL <label> TIMEOUT <seconds>)
#
# Each test of the GoogleTest program <name> becomes a test of ctest, "<prefix>.<suite>.<test>". With
# TARN_TEST_BY_PROGRAM the whole program is one, "<prefix>.<name>", which spares a thousand starts of a
# process that a sanitizer makes slow, and lets the tests meet what others leave behind. These programs
# take longest, so they begin first.
function(tarn_discover_tests name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "PREFIX;LABEL;TIMEOUT" "")
    if(TARN_TEST_BY_PROGRAM)
        add_test(NAME ${arg_PREFIX}.${name} COMMAND ${name})
        set_tests_properties(
            ${arg_PREFIX}.${name} PROPERTIES LABELS ${arg_LABEL} TIMEOUT 900 COST 100)
    else()
        gtest_discover_tests(
            ${name}
            DISCOVERY_MODE PRE_TEST
            TEST_PREFIX "${arg_PREFIX}."
            PROPERTIES LABELS ${arg_LABEL} TIMEOUT ${arg_TIMEOUT})
    endif()
endfunction()

function(tarn_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "OPTIMISED;WITHOUT_HOST" "LABEL;PREFIX;TIMEOUT"
                          "SOURCES;LIBRARIES;INCLUDES")
    if(arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "tarn_add_test(${name}): unknown arguments ${arg_UNPARSED_ARGUMENTS}")
    endif()
    if("tarn_objects" IN_LIST arg_LIBRARIES AND "tarn::tarn" IN_LIST arg_LIBRARIES)
        message(FATAL_ERROR "tarn_add_test(${name}): tarn_objects and tarn::tarn are two copies.")
    endif()
    if(NOT arg_LABEL)
        set(arg_LABEL unit)
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()
    if(TARN_TEST_THREADS_ONLY)
        tarn_sources_with_threads(arg_SOURCES ${arg_SOURCES})
    endif()
    add_executable(${name} ${arg_SOURCES})
    if(arg_OPTIMISED AND tarn_test_flags)
        tarn_configure_target(${name})
    else()
        tarn_configure_test(${name})
    endif()
    target_include_directories(${name} PRIVATE ${arg_INCLUDES})
    if(arg_WITHOUT_HOST)
        set(support)
        set(host)
    else()
        set(support tarn_test_support)
        set(host tarn::cvlmetrics tarn::cvlcoreplatform tarn::cvlsys)
    endif()
    target_link_libraries(
        ${name}
        PRIVATE ${support}
                ${arg_LIBRARIES}
                ${host}
                GTest::gmock
                GTest::gtest_main
                Threads::Threads)
    string(JOIN "." prefix ${arg_LABEL} ${arg_PREFIX})
    tarn_discover_tests(${name} PREFIX ${prefix} LABEL ${arg_LABEL} TIMEOUT ${arg_TIMEOUT})
endfunction()
