# What all of the project's libraries have in common.

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

# Code of a shared library. Thread-local state stands at a fixed place in each thread's block, which
# saves a call for each access; the few hundred bytes fit into what the C library reserves for
# libraries that are loaded late. Calls within the library are direct, as nobody is to replace its
# functions one by one, and calls of other libraries take no detour.
function(tarn_compile_for_shared_library target)
    target_compile_options(${target} PRIVATE -ftls-model=initial-exec -fno-semantic-interposition
                                             -fno-plt)
endfunction()

# Settings of the four shared libraries. They are never unloaded (-z nodelete), because scopes and
# thread-local state may outlive any dlclose(); and they are complete in themselves.
function(tarn_configure_shared_library target)
    tarn_compile_for_shared_library(${target})
    tarn_configure_target(${target})
    target_compile_features(${target} INTERFACE cxx_std_17)
    target_link_options(${target} PRIVATE LINKER:--no-undefined LINKER:-z,nodelete)
    set_target_properties(
        ${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                             INSTALL_RPATH "$ORIGIN")
endfunction()

# tarn_add_host_library(<name>
#     SOURCES <file>...       explicit list, relative to the caller's folder
#     [LIBRARIES <target>...] what users of the library need as well (lower host libraries)
#     [PRIVATE <target>...])  what only the library's own sources need
#
# Defines <name> (alias tarn::<name>) with the declarations and host/<name>/include as its public
# include folders.
function(tarn_add_host_library name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES;PRIVATE")
    add_library(${name} SHARED ${arg_SOURCES})
    add_library(tarn::${name} ALIAS ${name})
    tarn_configure_shared_library(${name})
    target_include_directories(
        ${name}
        PUBLIC "$<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>"
               "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>"
        PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}")
    target_link_libraries(
        ${name}
        PUBLIC tarn_declarations ${arg_LIBRARIES}
        PRIVATE ${arg_PRIVATE})
endfunction()
