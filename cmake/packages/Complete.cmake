# Run by CPack before it packs: adds to each package what Debian's rules ask of a package and an
# installation by `cmake --install` has no use for: a copyright file, a changelog, the reasons for what
# lintian is told to pass over, compressed manual pages; takes the search path out of the libraries, which
# the system finds by itself; and finds out what the programs and libraries depend on. CPack could do the
# last, but then it also writes scripts that run ldconfig, in the place of the trigger that Debian asks for.
cmake_minimum_required(VERSION 3.25)

set(sources "${CPACK_TARN_SOURCES}")
find_program(gzip gzip REQUIRED)
find_program(shlibdeps dpkg-shlibdeps REQUIRED)

file(READ "${sources}/cmake/packages/copyright" copyright)
file(READ "${sources}/THIRD-PARTY-NOTICES.md" notices)
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER "${component}" upper)
    set(package "${CPACK_DEBIAN_${upper}_PACKAGE_NAME}")
    set(staged "${CPACK_TEMPORARY_DIRECTORY}/${component}${CPACK_PACKAGING_INSTALL_PREFIX}")
    set(folder "${staged}/share/doc/${package}")

    file(WRITE "${folder}/copyright" "${copyright}${notices}")
    file(WRITE "${folder}/changelog.Debian"
         "tarn (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * Version ${CPACK_PACKAGE_VERSION}; CHANGELOG.md in the package tarn-doc says what is new.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
    set(overrides "${sources}/cmake/packages/${package}.overrides")
    if(EXISTS "${overrides}")
        configure_file("${overrides}" "${staged}/share/lintian/overrides/${package}" COPYONLY)
    endif()

    file(GLOB_RECURSE compressed "${folder}/changelog.Debian" "${staged}/share/man/*.[1-8]")
    foreach(file IN LISTS compressed)
        execute_process(COMMAND "${gzip}" -9nf "${file}" COMMAND_ERROR_IS_FATAL ANY)
    endforeach()

    file(GLOB_RECURSE binaries "${staged}/*.so.*" "${staged}/bin/*")
    foreach(binary IN LISTS binaries)
        if(IS_SYMLINK "${binary}")
            list(REMOVE_ITEM binaries "${binary}")
        else()
            file(RPATH_REMOVE FILE "${binary}")
        endif()
    endforeach()
    if(binaries)
        # It expects to be in an unpacked source package.
        set(work "${CPACK_TEMPORARY_DIRECTORY}/shlibdeps")
        file(WRITE "${work}/debian/control" "Source: tarn\n\nPackage: ${package}\nArchitecture: any\n")
        list(GET CPACK_COMPONENTS_ALL 0 runtime)
        list(TRANSFORM binaries PREPEND "-e" OUTPUT_VARIABLE arguments)
        execute_process(
            COMMAND "${shlibdeps}" -O "-x${package}" "-l${CPACK_TEMPORARY_DIRECTORY}/${runtime}/usr/lib"
                    "-L${CPACK_TARN_SHLIBS}" ${arguments}
            WORKING_DIRECTORY "${work}"
            OUTPUT_VARIABLE dependencies
            COMMAND_ERROR_IS_FATAL ANY)
        string(REGEX REPLACE "^shlibs:Depends=|\n" "" dependencies "${dependencies}")
        set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${dependencies}")
    endif()
endforeach()

# Until 1.0.0 headers and libraries go together.
set(same_version "(= ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} ${same_version}")
if(otlp IN_LIST CPACK_COMPONENTS_ALL)
    string(APPEND CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
           ", ${CPACK_DEBIAN_OTLP_PACKAGE_NAME} ${same_version}")
endif()
