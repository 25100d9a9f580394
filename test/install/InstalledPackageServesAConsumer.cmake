# Installs the build into a scratch prefix, moves that, and builds and runs a small program against
# it: once with find_package, once with pkg-config.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

set(consumer "${CMAKE_CURRENT_LIST_DIR}/consumer")
set(prefix "${SCRATCH_DIR}/moved")
file(REMOVE_RECURSE "${SCRATCH_DIR}/installed" "${prefix}")
Run("installing failed" ${CMAKE_COMMAND} --install "${BINARY_DIR}" --prefix
    "${SCRATCH_DIR}/installed")
file(RENAME "${SCRATCH_DIR}/installed" "${prefix}")

# The pages lead nowhere that is not installed.
Run("links of the installed pages lead nowhere"
    "${SOURCE_DIR}/scripts/check-links" "${prefix}/share/doc/tarn")

# By CMake package. Nothing but the prefix may be found.
Configure("${consumer}" "${SCRATCH_DIR}/consumer" "-DCMAKE_PREFIX_PATH=${prefix}")
Build("${SCRATCH_DIR}/consumer" all)
Run("the consumer of the CMake package failed" "${SCRATCH_DIR}/consumer/consumer")
if(NOT RUN_OUTPUT MATCHES "traced 1 scope")
    message(FATAL_ERROR "the consumer of the CMake package says: ${RUN_OUTPUT}")
endif()
Run("the consumer that counts its allocations failed" "${SCRATCH_DIR}/consumer/counted_consumer")
if(NOT RUN_OUTPUT MATCHES "counted 1 allocation")
    message(FATAL_ERROR "the consumer that counts its allocations says: ${RUN_OUTPUT}")
endif()

if(OTLP)
    Run("the consumer of the component otlp failed" "${SCRATCH_DIR}/consumer/spans_consumer")
    if(NOT RUN_OUTPUT MATCHES "made 1 span, lost 1")
        message(FATAL_ERROR "the consumer of the component otlp says: ${RUN_OUTPUT}")
    endif()
endif()

# The program that README.md begins with, as it is there.
Configure("${SOURCE_DIR}/examples/order" "${SCRATCH_DIR}/order" "-DCMAKE_PREFIX_PATH=${prefix}")
Build("${SCRATCH_DIR}/order" all)
Run("the program of README.md failed" "${SCRATCH_DIR}/order/order")

# By pkg-config, which the compiler gets as it is.
set(ENV{PKG_CONFIG_PATH} "${prefix}/${LIBRARY_DIR}/pkgconfig")
Run("there is no pkg-config package" pkg-config --cflags --libs tarn)
separate_arguments(flags UNIX_COMMAND "${RUN_OUTPUT}")
Run("building with pkg-config failed"
    "${CXX_COMPILER}" -std=c++17 "${consumer}/main.cpp" -o "${SCRATCH_DIR}/consumer_pkgconfig"
    ${flags} "-Wl,-rpath,${prefix}/${LIBRARY_DIR}")
Run("the consumer of the pkg-config package failed" "${SCRATCH_DIR}/consumer_pkgconfig")
if(NOT RUN_OUTPUT MATCHES "traced 1 scope")
    message(FATAL_ERROR "the consumer of the pkg-config package says: ${RUN_OUTPUT}")
endif()

if(OTLP)
    Run("there is no pkg-config package for spans" pkg-config --cflags --libs tarn-otlp)
    separate_arguments(flags UNIX_COMMAND "${RUN_OUTPUT}")
    Run("building for spans with pkg-config failed"
        "${CXX_COMPILER}" -std=c++17 "${consumer}/spans.cpp" -o "${SCRATCH_DIR}/spans_pkgconfig"
        ${flags} "-Wl,-rpath,${prefix}/${LIBRARY_DIR}")
    Run("the consumer of the pkg-config package for spans failed" "${SCRATCH_DIR}/spans_pkgconfig")
    if(NOT RUN_OUTPUT MATCHES "made 1 span, lost 1")
        message(FATAL_ERROR "the consumer of the pkg-config package for spans says: ${RUN_OUTPUT}")
    endif()
endif()
