# With TARN_HOST=external the library's objects build from the declarations alone, without a path to
# any host on the compiler's command line; with the host's libraries named, the shared library links:
# with the embedded host's, and with one that has what the declarations list and no more.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

# Fails if a compile command of the library in this build folder names the embedded host's folder.
function(ExpectNoPathToTheHost folder)
    file(READ "${folder}/compile_commands.json" commands)
    string(JSON count LENGTH "${commands}")
    math(EXPR last "${count} - 1")
    set(checked 0)
    foreach(index RANGE ${last})
        string(JSON command GET "${commands}" ${index} command)
        if(command MATCHES "src/cpp/main/[a-z]+/CMakeFiles/")
            math(EXPR checked "${checked} + 1")
            string(FIND "${command}" "${SOURCE_DIR}/host" position)
            if(NOT position EQUAL -1)
                message(FATAL_ERROR "the library sees the embedded host: ${command}")
            endif()
        endif()
    endforeach()
    if(checked EQUAL 0)
        message(FATAL_ERROR "no compile command of the library in ${folder}")
    endif()
endfunction()

ExpectNoPathToTheHost("${BINARY_DIR}")

set(options -DTARN_HOST=external "-DCMAKE_INSTALL_PREFIX=${SCRATCH_DIR}/installed")
ConfigureTwin("${SOURCE_DIR}" ${options})
Build("${TWIN_DIR}" all)
ExpectNoPathToTheHost("${TWIN_DIR}")

# LinkWith(<library>...): the shared library, with a host of these libraries.
function(LinkWith)
    file(WRITE "${SCRATCH_DIR}/host.cmake"
         "set(TARN_HOST_LIBRARIES \"${ARGN}\" CACHE STRING \"\")\n")
    ConfigureTwin("${SOURCE_DIR}" -C "${SCRATCH_DIR}/host.cmake" ${options})
    Build("${TWIN_DIR}" tarn)
    Run("cannot read the library" "${NM}" -C --defined-only "${TWIN_DIR}/src/cpp/libtarn.so")
    set(SYMBOLS "${RUN_OUTPUT}" PARENT_SCOPE)
endfunction()

set(objects)
file(MAKE_DIRECTORY "${SCRATCH_DIR}")
foreach(part IN ITEMS Clock Metrics Platform System)
    set(object "${SCRATCH_DIR}/Host${part}.o")
    Run("compiling a host failed" "${CXX_COMPILER}" -std=c++17 -fPIC "-I${SOURCE_DIR}/src/cpp/declarations"
        -c "${SOURCE_DIR}/examples/own_host/Host${part}.cpp" -o "${object}")
    list(APPEND objects "${object}")
endforeach()
LinkWith("${objects}")
if(NOT SYMBOLS MATCHES " [tT] Metrics::Scope::Finish[(]")
    message(FATAL_ERROR "the default of Metrics::Scope::Finish is missing")
endif()

# What the host defines is not taken from the defaults, which would be slower.
string(REPLACE "," ";" libraries "${HOST_LIBRARIES}")
LinkWith("${libraries}")
if(NOT SYMBOLS MATCHES " tarn::" OR SYMBOLS MATCHES " [tTwW] (Metrics::Scope::Finish|TLog::MakeEvent|THash32)[(]")
    message(FATAL_ERROR "the library has a default of what the host defines: ${CMAKE_MATCH_0}")
endif()
Build("${TWIN_DIR}" all)
file(REMOVE_RECURSE "${SCRATCH_DIR}/installed")
Run("installing failed" ${CMAKE_COMMAND} --install "${TWIN_DIR}")
foreach(file IN ITEMS include/tarn/Export.h include/cvlsys/Export.h ${LIBRARY_DIR}/libtarn.so)
    if(NOT EXISTS "${SCRATCH_DIR}/installed/${file}")
        message(FATAL_ERROR "${file} is not installed")
    endif()
endforeach()
