# What all of the project's libraries have in common.
include(TarnHardening)
include(TarnRooms)

# Until 1.0.0 a new minor version may break its users. A program says by the name of the library
# which ones it can be loaded with, and find_package(tarn) follows the same rule.
if(PROJECT_VERSION_MAJOR EQUAL 0)
    set(tarn_abi_version "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}")
    set(tarn_compatibility SameMinorVersion)
else()
    set(tarn_abi_version "${PROJECT_VERSION_MAJOR}")
    set(tarn_compatibility SameMajorVersion)
endif()

if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
    message(
        FATAL_ERROR
            "BUILD_SHARED_LIBS is off, but tarn and its host are shared libraries only: their state is \
that of the process, and each program and library that links a static one would have a copy of its \
own. Leave BUILD_SHARED_LIBS out, or in a project whose own libraries are static, \
set(BUILD_SHARED_LIBS ON) before add_subdirectory() or FetchContent_MakeAvailable().")
endif()

# Settings of every target: the language level of our own sources, and nothing exported unless a
# declaration says so. The position-independent code is needed by static and object libraries that
# end up in a shared one.
function(tarn_configure_target target)
    target_compile_features(${target} PRIVATE cxx_std_20)
    set_target_properties(
        ${target}
        PROPERTIES CXX_EXTENSIONS OFF
                   CXX_VISIBILITY_PRESET hidden
                   VISIBILITY_INLINES_HIDDEN ON
                   POSITION_INDEPENDENT_CODE ON)
endfunction()

# Code of a shared library. Thread-local state is at a fixed place in each thread's block, which
# saves a call for each access; the few hundred bytes fit into what the C library reserves for
# libraries that are loaded late. Calls within the library are direct, as nobody is to replace its
# functions one by one, and calls of other libraries take no detour.
function(tarn_compile_for_shared_library target)
    target_compile_options(${target} PRIVATE -ftls-model=initial-exec -fno-semantic-interposition
                                             -fno-plt)
    tarn_harden(${target})
endfunction()

# tarn_configure_shared_library(<target> EXPORTS <name>... [EXPORTS_IN_C <pattern>...])
#
# Settings of the four shared libraries. They are never unloaded (-z nodelete), because scopes and
# thread-local state may outlive any dlclose(); and they are complete in themselves.
#
# What a library exports says so in its header, and belongs to one of the global names given here:
# namespaces with what is in them, classes with their members, functions; functions of C go by
# patterns of their own. The linker keeps everything
# else in. Without that, templates and exceptions of the standard library and of others would be seen
# outside wherever a library uses them, as their own headers say so, and mixed with those of a program
# that another version of these headers was compiled into. An atomic's wait() and notify_one() meet in
# such a template's table, hence must be called in one and the same library.
function(tarn_configure_shared_library target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "EXPORTS;EXPORTS_IN_C")
    tarn_compile_for_shared_library(${target})
    tarn_configure_target(${target})
    target_compile_features(${target} INTERFACE cxx_std_17)
    # As the compiler encodes them: functions, members, tables and type information, the ways into a
    # second base class, and what sets variables up. Written out, a foreign function would begin with
    # its result, which may be one of these names.
    set(exported)
    foreach(name IN LISTS arg_EXPORTS)
        string(LENGTH "${name}" length)
        foreach(prefix IN ITEMS _Z _ZN _ZN[KRO] _ZNK[RO] _ZT[HISTVW] _ZT[HISTVW]N _ZT[hv]*_N _ZGVN)
            string(APPEND exported "  ${prefix}${length}${name}*;\n")
        endforeach()
    endforeach()
    foreach(pattern IN LISTS arg_EXPORTS_IN_C)
        string(APPEND exported "  ${pattern};\n")
    endforeach()
    set(script "${CMAKE_CURRENT_BINARY_DIR}/${target}.exports")
    file(CONFIGURE OUTPUT "${script}"
         CONTENT "{\nglobal:\n@exported@local:\n  *;\n};\n" @ONLY)
    target_link_options(${target} PRIVATE LINKER:-z,nodelete "LINKER:--version-script,${script}")
    # The run-time library of clang's sanitizers is in the program, and not in shared libraries.
    if(NOT (CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_CXX_FLAGS_DEBUG MATCHES "-fsanitize="))
        target_link_options(${target} PRIVATE LINKER:--no-undefined)
    endif()
    set_target_properties(
        ${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${tarn_abi_version}
                             INSTALL_RPATH "$ORIGIN" LINK_DEPENDS "${script}")
endfunction()

# tarn_add_host_library(<name>
#     ROOMS <target>...       the rooms whose objects it is made of, from below to above
#     EXPORTS <name>...       the global names that are exported, see above
#     [LIBRARIES <target>...] what users of the library need as well (lower host libraries)
#     [PRIVATE <target>...])  what only the library itself is linked with
#
# Defines <name> (alias tarn::<name>) with the declarations and host/<name>/include as its public
# include folders, and <name>_rooms, for tests that include private headers. The property TARN_ROOMS
# has the list of the rooms.
function(tarn_add_host_library name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "ROOMS;EXPORTS;LIBRARIES;PRIVATE")
    list(TRANSFORM arg_ROOMS REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE objects)
    add_library(${name} SHARED ${objects})
    add_library(tarn::${name} ALIAS ${name})
    tarn_configure_shared_library(${name} EXPORTS ${arg_EXPORTS})
    set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX TARN_ROOMS "${arg_ROOMS}")
    target_include_directories(
        ${name}
        PUBLIC "$<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>"
               "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
    add_library(${name}_rooms INTERFACE)
    foreach(room IN LISTS arg_ROOMS ITEMS host_support)
        target_include_directories(
            ${name}_rooms INTERFACE "$<TARGET_PROPERTY:${room},INTERFACE_INCLUDE_DIRECTORIES>")
    endforeach()
    target_link_libraries(
        ${name}
        PUBLIC tarn_declarations ${arg_LIBRARIES}
        PRIVATE ${arg_PRIVATE})
endfunction()
