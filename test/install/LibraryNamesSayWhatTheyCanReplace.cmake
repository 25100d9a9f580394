# A program is loaded with libraries only that it can run with: before 1.0.0 those of its own minor
# version, then those of its major version. The libraries' names at run time say so, to each other too.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

string(REGEX MATCH "^([0-9]+)[.][0-9]+" suffix "${VERSION}")
if(CMAKE_MATCH_1 GREATER 0)
    set(suffix ${CMAKE_MATCH_1})
endif()

string(REPLACE "," ";" libraries "${HOST_LIBRARIES}")
foreach(library IN ITEMS "${TARN_LIBRARY}" LISTS libraries)
    cmake_path(GET library STEM stem)
    Run("cannot read ${library}" "${READELF}" -W --dynamic "${library}")
    if(NOT RUN_OUTPUT MATCHES "soname: .${stem}[.]so[.]${suffix}\\]")
        message(FATAL_ERROR "the name of ${library} does not end in ${suffix}:\n${RUN_OUTPUT}")
    endif()
    string(REGEX MATCHALL "library: .lib(tarn|cvl)[a-z]*[.]so[.0-9]*\\]" needed "${RUN_OUTPUT}")
    foreach(name IN LISTS needed)
        if(NOT name MATCHES "[.]so[.]${suffix}\\]$")
            message(FATAL_ERROR "${library} asks for another version: ${name}")
        endif()
    endforeach()
endforeach()
