# tarn_add_room_objects(<name>
#     FOLDER <folder>         where its files are
#     [SOURCES <file>...]     explicit list, relative to the folder
#     [USES <target>...]      the rooms whose private headers it may include besides its own
#     [LIBRARIES <target>...] what else its sources need)
#
# Defines the objects of one room of a library. Its sources find the headers of the rooms that it
# uses and of no others, not even through one of these: an include that goes against the arrows
# between the rooms does not compile.
function(tarn_add_room_objects name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "FOLDER" "SOURCES;USES;LIBRARIES")
    list(TRANSFORM arg_SOURCES PREPEND "${arg_FOLDER}/")
    add_library(${name} OBJECT ${arg_SOURCES})
    tarn_configure_target(${name})
    tarn_compile_for_shared_library(${name})
    target_include_directories(${name} PUBLIC "${arg_FOLDER}")
    foreach(room IN LISTS arg_USES)
        target_include_directories(
            ${name} PRIVATE "$<TARGET_PROPERTY:${room},INTERFACE_INCLUDE_DIRECTORIES>")
    endforeach()
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
endfunction()

# tarn_add_room(<room>
#     [USES <room>...]        the rooms whose headers it may include, with those that these use
#     [HEADERS <header>...]   exported headers that belong to it; scripts/check-layering reads them
#     [SOURCES <file>...]     explicit list
#     [PRIVATE <target>...])  what only the room's own sources need
#
# Defines tarn_<room>, a room of the library, in the caller's folder.
function(tarn_add_room room)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "USES;HEADERS;SOURCES;PRIVATE")
    if(arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "tarn_add_room(${room}): unknown arguments ${arg_UNPARSED_ARGUMENTS}")
    endif()
    tarn_add_room_objects(
        tarn_${room}
        FOLDER "${CMAKE_CURRENT_SOURCE_DIR}"
        SOURCES ${arg_SOURCES}
        LIBRARIES ${arg_PRIVATE})
    list(TRANSFORM arg_USES PREPEND tarn_)
    target_include_directories(tarn_${room} PUBLIC "${PROJECT_SOURCE_DIR}/src/cpp/include")
    target_link_libraries(tarn_${room} PUBLIC tarn_declarations ${arg_USES})
endfunction()

# tarn_add_host_room(<library> <folder>
#     SOURCES <file>...       explicit list, relative to the folder
#     [USES <folder>...]      the rooms below it in the same library
#     [VALUES <folder>...]    the value types whose private headers it may include
#     [LIBRARIES <target>...] what else its sources need: lower host libraries, packages)
#
# Defines <library>_<folder>, a room of one of the host's libraries.
function(tarn_add_host_room library folder)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SOURCES;USES;VALUES;LIBRARIES")
    list(TRANSFORM arg_USES PREPEND "${library}_")
    list(TRANSFORM arg_VALUES PREPEND values_)
    tarn_add_room_objects(
        ${library}_${folder}
        FOLDER "${CMAKE_CURRENT_SOURCE_DIR}/${folder}"
        SOURCES ${arg_SOURCES}
        USES host_support ${arg_VALUES} ${arg_USES}
        LIBRARIES tarn_declarations ${arg_LIBRARIES})
    target_include_directories(${library}_${folder} PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}/include")
endfunction()

