# tarn_add_room(<room>
#     [USES <room>...]        the rooms whose headers it may include, with those that these use
#     [HEADERS <header>...]   exported headers that belong to it; scripts/check-layering reads them
#     [SOURCES <file>...]     explicit list
#     [PRIVATE <target>...])  what only the room's own sources need
#
# Defines tarn_<room>, the objects of the sources in the caller's folder. They are compiled with the
# include folders of the rooms given here and no other, so that an include that goes against the
# plan does not compile.
function(tarn_add_room room)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "USES;HEADERS;SOURCES;PRIVATE")
    if(arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "tarn_add_room(${room}): unknown arguments ${arg_UNPARSED_ARGUMENTS}")
    endif()
    add_library(tarn_${room} OBJECT ${arg_SOURCES})
    tarn_configure_target(tarn_${room})
    tarn_compile_for_shared_library(tarn_${room})
    list(TRANSFORM arg_USES PREPEND tarn_)
    target_include_directories(tarn_${room} PUBLIC "${PROJECT_SOURCE_DIR}/src/cpp/include"
                                                   "${CMAKE_CURRENT_SOURCE_DIR}")
    target_link_libraries(tarn_${room} PUBLIC tarn_declarations ${arg_USES} PRIVATE ${arg_PRIVATE})
endfunction()
