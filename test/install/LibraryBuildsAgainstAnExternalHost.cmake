# With TARN_HOST=external the library's objects build from the declarations alone, without a path to
# any host on the compiler's command line; with the host's libraries named, the shared library links.
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

# Not hardened, as little as where it is a subproject: ccache has these objects from that test.
set(options -DTARN_HOST=external -DTARN_HARDENING=OFF
            "-DCMAKE_INSTALL_PREFIX=${SCRATCH_DIR}/installed")
Configure("${SOURCE_DIR}" "${SCRATCH_DIR}/build" ${options})
Build("${SCRATCH_DIR}/build" all)
ExpectNoPathToTheHost("${SCRATCH_DIR}/build")

string(REPLACE "," ";" libraries "${HOST_LIBRARIES}")
file(WRITE "${SCRATCH_DIR}/host.cmake" "set(TARN_HOST_LIBRARIES \"${libraries}\" CACHE STRING \"\")\n")
Configure("${SOURCE_DIR}" "${SCRATCH_DIR}/build" -C "${SCRATCH_DIR}/host.cmake" ${options})
Build("${SCRATCH_DIR}/build" all)
file(REMOVE_RECURSE "${SCRATCH_DIR}/installed")
Run("installing failed" ${CMAKE_COMMAND} --install "${SCRATCH_DIR}/build")
foreach(file IN ITEMS include/tarn/Export.h include/cvlsys/Export.h ${LIBRARY_DIR}/libtarn.so)
    if(NOT EXISTS "${SCRATCH_DIR}/installed/${file}")
        message(FATAL_ERROR "${file} is not installed")
    endif()
endforeach()
