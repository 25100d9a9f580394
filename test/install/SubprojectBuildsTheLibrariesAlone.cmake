# As a part of another project, the libraries come without tests, examples, benchmarks and install
# rules, and the other project's program links tarn::tarn.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

ConfigureTwin("${CMAKE_CURRENT_LIST_DIR}/consumer" "-DTARN_SOURCE_DIR=${SOURCE_DIR}")
Build("${TWIN_DIR}" all)
Run("the consumer failed" "${TWIN_DIR}/consumer")
if(NOT RUN_OUTPUT MATCHES "traced 1 scope")
    message(FATAL_ERROR "the consumer says: ${RUN_OUTPUT}")
endif()

file(READ "${TWIN_DIR}/CMakeCache.txt" cache)
foreach(option IN ITEMS BUILD_TESTS BUILD_EXAMPLES BUILD_BENCHMARKS BUILD_TOOLS INSTALL)
    if(NOT cache MATCHES "TARN_${option}:BOOL=OFF")
        message(FATAL_ERROR "TARN_${option} is not off in a subproject")
    endif()
endforeach()
