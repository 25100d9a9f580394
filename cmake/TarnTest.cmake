# tarn_add_test(<name>
#     SOURCES <file>...       explicit list
#     LIBRARIES <target>...   the library under test: tarn::tarn, or tarn_objects where a test needs
#                             private headers; never both, for there must be one copy of the state
#     [INCLUDES <folder>...]
#     [LABEL <label>]
#     [TIMEOUT <seconds>])
#
# One GoogleTest program, each of whose tests is a test of ctest; with TARN_TEST_BY_PROGRAM the whole
# program is one, which spares a thousand starts of a process that a sanitizer makes slow. Test
# support and the embedded host are linked to it.
find_package(GTest REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(Threads REQUIRED)
include(GoogleTest)

function(tarn_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "LABEL;TIMEOUT" "SOURCES;LIBRARIES;INCLUDES")
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
    add_executable(${name} ${arg_SOURCES})
    tarn_configure_target(${name})
    target_include_directories(${name} PRIVATE ${arg_INCLUDES})
    target_link_libraries(
        ${name}
        PRIVATE tarn_test_support
                ${arg_LIBRARIES}
                tarn::cvlmetrics
                tarn::cvlcoreplatform
                tarn::cvlsys
                GTest::gmock
                GTest::gtest_main
                Threads::Threads)
    if(TARN_TEST_BY_PROGRAM)
        add_test(NAME ${arg_LABEL}.${name} COMMAND ${name} --gtest_brief=1)
        set_tests_properties(${arg_LABEL}.${name} PROPERTIES LABELS ${arg_LABEL} TIMEOUT 1200)
    else()
        gtest_discover_tests(
            ${name}
            DISCOVERY_MODE PRE_TEST
            TEST_PREFIX "${arg_LABEL}."
            PROPERTIES LABELS ${arg_LABEL} TIMEOUT ${arg_TIMEOUT})
    endif()
    set_property(GLOBAL APPEND PROPERTY TARN_TEST_PROGRAMS ${name})
endfunction()
