# The Debian packages of this build: lintian finds neither errors nor warnings; installed below a folder
# of their own they serve a program and a reader of its log; a newer version takes their place; and
# nothing stays of them when they are removed.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

file(REMOVE_RECURSE "${SCRATCH_DIR}")
set(root "${SCRATCH_DIR}/root")
string(REGEX MATCH "^[0-9]+[.][0-9]+" suffix "${VERSION}")
set(names "libtarn${suffix}" libtarn-dev tarn-doc tarn-tools)
if(OTLP)
    list(APPEND names "libtarn-otlp${suffix}")
endif()
list(LENGTH names number_of_packages)

# Pack(<version>): leaves the packages' files in PACKAGES.
function(Pack version)
    set(folder "${SCRATCH_DIR}/${version}")
    Run("packing failed" cpack --config "${BINARY_DIR}/CPackConfig.cmake" -B "${folder}"
        -D "CPACK_PACKAGE_VERSION=${version}")
    file(GLOB packages "${folder}/*.deb")
    list(LENGTH packages count)
    if(NOT count EQUAL number_of_packages)
        message(FATAL_ERROR "expected ${names}, not ${packages}")
    endif()
    set(PACKAGES "${packages}" PARENT_SCOPE)
endfunction()

# The packages below `root` depend on what this machine has.
file(MAKE_DIRECTORY "${root}/var/lib/dpkg/info" "${root}/var/lib/dpkg/updates"
     "${root}/var/lib/dpkg/triggers")
file(COPY_FILE /var/lib/dpkg/status "${root}/var/lib/dpkg/status")
file(COPY_FILE /var/lib/dpkg/arch "${root}/var/lib/dpkg/arch" RESULT ignored)

# Dpkg(<argument>...), below `root`.
function(Dpkg)
    Run("dpkg failed" fakeroot dpkg "--root=${root}" "--log=${SCRATCH_DIR}/dpkg.log" --force-not-root
        --force-bad-path ${ARGN})
endfunction()

function(ExpectVersion version)
    foreach(name IN LISTS names)
        Run("${name} is not installed" dpkg-query "--admindir=${root}/var/lib/dpkg" -W
            "-f=\${Version} \${db:Status-Status}" "${name}")
        if(NOT RUN_OUTPUT STREQUAL "${version}-0tarn1 installed")
            message(FATAL_ERROR "${name} is ${RUN_OUTPUT}, expected ${version}-0tarn1")
        endif()
    endforeach()
endfunction()

# ExpectUse(): the program, as it was built, runs and is traced, and tarnview reads that.
function(ExpectUse)
    execute_process(
        COMMAND ${CMAKE_COMMAND} -E env "LD_LIBRARY_PATH=${root}/usr/lib" "${SCRATCH_DIR}/program"
        OUTPUT_VARIABLE output
        ERROR_FILE "${SCRATCH_DIR}/program.log"
        COMMAND_ERROR_IS_FATAL ANY)
    if(NOT output MATCHES "traced 1 scope")
        message(FATAL_ERROR "the program says: ${output}")
    endif()
    Run("tarnview cannot read the program's log" "${root}/usr/bin/tarnview" top --csv
        "${SCRATCH_DIR}/program.log")
    if(NOT RUN_OUTPUT MATCHES "\nwork,1,")
        message(FATAL_ERROR "tarnview says: ${RUN_OUTPUT}")
    endif()
endfunction()

Pack("${VERSION}")
Run("lintian finds faults" lintian --fail-on error,warning ${PACKAGES})

# What is linked is named, with its terms.
file(READ "${SOURCE_DIR}/THIRD-PARTY-NOTICES.md" notices)
string(TOLOWER "${notices}" notices)
set(linked)
foreach(package IN LISTS PACKAGES)
    Run("cannot read ${package}" dpkg-deb -f "${package}" Depends)
    string(REGEX MATCHALL "(^| )lib[a-z]+" names_of_libraries "${RUN_OUTPUT}")
    list(APPEND linked ${names_of_libraries})
endforeach()
list(TRANSFORM linked REPLACE "^ ?lib" "")
list(REMOVE_DUPLICATES linked)
list(REMOVE_ITEM linked c gcc stdc tarn)
if(NOT linked)
    message(FATAL_ERROR "the packages depend on no library")
endif()
foreach(library IN LISTS linked)
    if(NOT notices MATCHES "\\| \\[(lib)?${library}\\]")
        message(FATAL_ERROR "THIRD-PARTY-NOTICES.md does not name ${library}")
    endif()
endforeach()

Dpkg(--install ${PACKAGES})
ExpectVersion("${VERSION}")
foreach(file IN ITEMS
        bin/tarnview
        lib/libtarn.so.${suffix}
        share/doc/tarn/README.md
        share/doc/tarn/docs/how-to.md
        share/doc/tarn/examples/quick_start/main.cpp
        share/doc/libtarn${suffix}/copyright
        share/man/man1/tarnview.1.gz)
    if(NOT EXISTS "${root}/usr/${file}")
        message(FATAL_ERROR "no package has ${file}")
    endif()
endforeach()

# Built with nothing but the packages.
set(ENV{PKG_CONFIG_PATH} "${root}/usr/lib/pkgconfig")
Run("there is no pkg-config package" pkg-config --cflags --libs tarn)
separate_arguments(flags UNIX_COMMAND "${RUN_OUTPUT}")
Run("building with the packages failed"
    "${CXX_COMPILER}" -std=c++17 "${CMAKE_CURRENT_LIST_DIR}/consumer/main.cpp" -o
    "${SCRATCH_DIR}/program" ${flags})
ExpectUse()

string(REGEX REPLACE "[0-9]+$" "99" newer "${VERSION}")
Pack("${newer}")
Dpkg(--install ${PACKAGES})
ExpectVersion("${newer}")
ExpectUse()

Dpkg(--purge ${names})
file(GLOB_RECURSE rest "${root}/usr/*")
if(rest)
    message(FATAL_ERROR "left after the removal: ${rest}")
endif()
