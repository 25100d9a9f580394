# A build that asks for static libraries is told that there are none, and what to do, instead of getting
# shared ones without a word: at the top level, and as a part of another project.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

function(ExpectRefusal source)
    execute_process(
        COMMAND
            ${CMAKE_COMMAND} --fresh -S "${source}" -B "${SCRATCH_DIR}/build" -G "${GENERATOR}"
            "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}" ${ARGN}
        RESULT_VARIABLE result
        OUTPUT_VARIABLE output
        ERROR_VARIABLE errors)
    if(result EQUAL 0)
        message(FATAL_ERROR "static libraries of ${source} are configured:\n${output}")
    endif()
    string(REGEX REPLACE "[ \n]+" " " errors "${errors}")
    if(NOT errors MATCHES "shared libraries only: their state is that of the process")
        message(FATAL_ERROR "the refusal does not say why:\n${errors}")
    endif()
endfunction()

ExpectRefusal("${SOURCE_DIR}" -DBUILD_SHARED_LIBS=OFF)
set(consumer "${CMAKE_CURRENT_LIST_DIR}/consumer")
ExpectRefusal("${consumer}" "-DTARN_SOURCE_DIR=${SOURCE_DIR}" -DBUILD_SHARED_LIBS=OFF)

# Shared ones may be asked for.
Configure("${consumer}" "${SCRATCH_DIR}/build" "-DTARN_SOURCE_DIR=${SOURCE_DIR}" -DBUILD_SHARED_LIBS=ON)
