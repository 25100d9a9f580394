# What is installed is compiled and linked with protection against errors in memory; what somebody else
# says of that, a distribution or a project that this one is a part of, holds.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

# CompileCommand(<build folder> <source>): the flags of a library's source into COMMAND.
function(CompileCommand folder source)
    file(READ "${folder}/compile_commands.json" commands)
    string(JSON count LENGTH "${commands}")
    math(EXPR last "${count} - 1")
    foreach(index RANGE ${last})
        string(JSON file GET "${commands}" ${index} file)
        if(file STREQUAL "${SOURCE_DIR}/${source}")
            string(JSON command GET "${commands}" ${index} command)
            set(COMMAND "${command}" PARENT_SCOPE)
            return()
        endif()
    endforeach()
    message(FATAL_ERROR "no compile command of ${source} in ${folder}")
endfunction()

# ExpectFlags(<build folder> HAS <flag>... HAS_NOT <flag>...), of the library's and the host's sources.
function(ExpectFlags folder)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "HAS;HAS_NOT")
    foreach(source IN ITEMS src/cpp/main/vocabulary/Traits.cpp host/values/errors/TError.cpp)
        CompileCommand("${folder}" "${source}")
        foreach(flag IN LISTS arg_HAS)
            string(FIND "${COMMAND}" " ${flag} " position)
            if(position EQUAL -1)
                message(FATAL_ERROR "${flag} is missing: ${COMMAND}")
            endif()
        endforeach()
        foreach(flag IN LISTS arg_HAS_NOT)
            string(FIND "${COMMAND}" "${flag}" position)
            if(NOT position EQUAL -1)
                message(FATAL_ERROR "${flag} is there: ${COMMAND}")
            endif()
        endforeach()
    endforeach()
endfunction()

# This build, as it is.
ExpectFlags("${BINARY_DIR}" HAS -fstack-protector-strong -D_FORTIFY_SOURCE=2 -fstack-clash-protection)
string(REPLACE "," ";" libraries "${HOST_LIBRARIES}")
foreach(library IN ITEMS "${TARN_LIBRARY}" LISTS libraries)
    Run("cannot read ${library}" "${READELF}" -W --dynamic --program-headers "${library}")
    if(NOT RUN_OUTPUT MATCHES "BIND_NOW" OR NOT RUN_OUTPUT MATCHES "GNU_RELRO")
        message(FATAL_ERROR "${library} can be written to where its relocations are:\n${RUN_OUTPUT}")
    endif()
    Run("cannot read ${library}" "${NM}" -D --undefined-only "${library}")
    if(NOT RUN_OUTPUT MATCHES "__stack_chk_fail")
        message(FATAL_ERROR "no function of ${library} guards its stack")
    endif()
endforeach()

# Without the optimiser the C library's checks are left out: it would warn of them.
set(folder "${SCRATCH_DIR}/build")
set(options -DTARN_BUILD_TESTS=OFF -DTARN_BUILD_EXAMPLES=OFF -DTARN_BUILD_BENCHMARKS=OFF
            -DTARN_BUILD_TOOLS=OFF)
Configure("${SOURCE_DIR}" "${folder}" ${options} -DCMAKE_BUILD_TYPE=Debug "-DCMAKE_CXX_FLAGS_DEBUG=-O0")
ExpectFlags("${folder}" HAS -fstack-protector-strong HAS_NOT _FORTIFY_SOURCE)

# A distribution's flags, stricter ones and laxer ones.
Configure("${SOURCE_DIR}" "${folder}" ${options} -DCMAKE_BUILD_TYPE=None
          "-DCMAKE_CXX_FLAGS=-O2 -D_FORTIFY_SOURCE=3 -fstack-protector-all")
ExpectFlags("${folder}" HAS -D_FORTIFY_SOURCE=3 -fstack-protector-all HAS_NOT -D_FORTIFY_SOURCE=2
                                                                              -fstack-protector-strong)
Configure("${SOURCE_DIR}" "${folder}" ${options} -DCMAKE_BUILD_TYPE=None
          "-DCMAKE_CXX_FLAGS=-O2 -D_FORTIFY_SOURCE=1 -fstack-protector")
ExpectFlags("${folder}" HAS -D_FORTIFY_SOURCE=1 -fstack-protector HAS_NOT -D_FORTIFY_SOURCE=2
                                                                          -fstack-protector-strong)

# Switched off, and as a part of another project, which has not asked for it.
Configure("${SOURCE_DIR}" "${folder}" ${options} -DTARN_HARDENING=OFF)
ExpectFlags("${folder}" HAS_NOT -fstack-protector _FORTIFY_SOURCE -fstack-clash-protection)
Configure("${CMAKE_CURRENT_LIST_DIR}/consumer" "${folder}" "-DTARN_SOURCE_DIR=${SOURCE_DIR}"
          -DCMAKE_EXPORT_COMPILE_COMMANDS=ON)
ExpectFlags("${folder}" HAS_NOT -fstack-protector _FORTIFY_SOURCE -fstack-clash-protection)
