# The example of a custom host, outside of the source tree, on the installed package: it builds
# with what the package brings for such a host, has no part of the embedded one, and prints what is
# expected.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

set(prefix "${SCRATCH_DIR}/installed")
set(example "${SCRATCH_DIR}/own_host")
set(build "${SCRATCH_DIR}/build")
file(REMOVE_RECURSE "${prefix}" "${example}" "${build}")
Run("installing failed" ${CMAKE_COMMAND} --install "${BINARY_DIR}" --prefix "${prefix}")
file(COPY "${SOURCE_DIR}/examples/own_host" DESTINATION "${SCRATCH_DIR}")

Configure("${example}" "${build}" "-DCMAKE_PREFIX_PATH=${prefix}")
Build("${build}" all)
Run("cannot read the program" "${READELF}" -W --dynamic "${build}/own_host")
if(NOT RUN_OUTPUT MATCHES "NEEDED" OR RUN_OUTPUT MATCHES "NEEDED[^\n]*(tarn|cvl)")
    message(FATAL_ERROR "the program needs a library of the package:\n${RUN_OUTPUT}")
endif()
# What happens when the library is loaded happens in an archive, too.
Run("cannot read the program" "${NM}" "${build}/own_host")
if(NOT RUN_OUTPUT MATCHES " tarnIsLoaded\n")
    message(FATAL_ERROR "the program leaves out what happens at load")
endif()
Run("the program does not print what is expected"
    "${SOURCE_DIR}/examples/run-and-compare" "${build}/own_host" "${example}/expected.txt")

# The whole of it is small: the declarations ask for no more.
file(GLOB files "${example}/*")
set(lines 0)
foreach(file IN LISTS files)
    file(READ "${file}" text)
    string(REGEX MATCHALL "\n" ends "${text}")
    list(LENGTH ends count)
    math(EXPR lines "${lines} + ${count}")
endforeach()
if(lines GREATER 450)
    message(FATAL_ERROR "the example has ${lines} lines")
endif()
message(STATUS "${lines} lines")
