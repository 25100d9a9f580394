# Included by the scripts of this folder.

# Run(<message on failure> <command>...): stops the test, with the command's output, unless it
# succeeds. Leaves the standard output in RUN_OUTPUT.
function(Run message)
    execute_process(
        COMMAND ${ARGN}
        RESULT_VARIABLE result
        OUTPUT_VARIABLE output
        ERROR_VARIABLE errors)
    if(NOT result EQUAL 0)
        list(JOIN ARGN " " command)
        message(FATAL_ERROR "${message}\n${command}\n${output}\n${errors}")
    endif()
    set(RUN_OUTPUT "${output}" PARENT_SCOPE)
endfunction()

# Configure(<source> <build folder> [option]...). What is built is looked at and run once, so the
# compiler takes as little time as it can.
function(Configure source folder)
    Run("configuring ${source} failed"
        ${CMAKE_COMMAND} --fresh -S "${source}" -B "${folder}" -G "${GENERATOR}"
        "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}" "-DCMAKE_BUILD_TYPE=${BUILD_TYPE}"
        "-DCMAKE_CXX_FLAGS_DEBUG=-O0" ${ARGN})
endfunction()

# ConfigureTwin(<source> [option]...): in TWIN_DIR, so that this build and that one have their objects in
# common, if there is a compiler cache.
function(ConfigureTwin source)
    string(TOUPPER "${BUILD_TYPE}" type)
    Configure("${source}" "${TWIN_DIR}" "-DCMAKE_CXX_COMPILER_LAUNCHER=${CXX_COMPILER_LAUNCHER}"
              "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}" "-DCMAKE_CXX_FLAGS_${type}=${CXX_FLAGS_OF_TYPE}"
              "-DTARN_HARDENING=${HARDENING}" ${ARGN})
endfunction()

# Build(<build folder> <target>...)
function(Build folder)
    Run("building ${ARGN} in ${folder} failed"
        ${CMAKE_COMMAND} --build "${folder}" --parallel 2 --target ${ARGN})
endfunction()
