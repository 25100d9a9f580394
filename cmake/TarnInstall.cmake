# Install rules: the libraries, the headers of the library, of the declarations and of the embedded
# host in one include folder, a package for find_package(tarn), a pkg-config file, pages and examples.
# The components are those of the packages (TarnPackages.cmake): runtime, development, otlp,
# tools, doc.
include(CMakePackageConfigHelpers)

set(tarn_package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/tarn")
# For a custom host, static: tarn::logic, tarn::defaults, tarn::values.
set(tarn_installed_targets tarn_declarations tarn_logic tarn_defaults tarn_values)
set(tarn_installed_headers src/cpp/include/ src/cpp/declarations/)
if(TARGET tarn)
    list(APPEND tarn_installed_targets tarn)
endif()
set(tarn_link_flags "-ltarn")
if(TARN_HOST STREQUAL "embedded")
    foreach(library IN ITEMS cvlmetrics cvlcoreplatform cvlsys)
        list(APPEND tarn_installed_targets ${library})
        list(APPEND tarn_installed_headers host/${library}/include/)
        string(APPEND tarn_link_flags " -l${library}")
    endforeach()
    list(APPEND tarn_installed_headers host/counters/include/ host/session/include/)
    # Objects, which a program links by the name tarn::counted_new.
    list(APPEND tarn_installed_targets counted_new)
endif()

install(
    TARGETS ${tarn_installed_targets}
    EXPORT tarn-targets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
            COMPONENT runtime
            NAMELINK_COMPONENT development
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development
    OBJECTS DESTINATION "${CMAKE_INSTALL_LIBDIR}/tarn" COMPONENT development)
install(
    DIRECTORY ${tarn_installed_headers}
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
    COMPONENT development
    FILES_MATCHING
    PATTERN "*.h")
install(
    EXPORT tarn-targets
    NAMESPACE tarn::
    DESTINATION "${tarn_package_folder}"
    COMPONENT development)

# The component otlp, with targets of its own.
if(TARN_OTLP)
    install(
        TARGETS tarn_otlp
        EXPORT tarn-otlp-targets
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
                COMPONENT otlp
                NAMELINK_COMPONENT development)
    install(
        DIRECTORY otlp/include/
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
        COMPONENT development)
    install(
        EXPORT tarn-otlp-targets
        NAMESPACE tarn::
        DESTINATION "${tarn_package_folder}"
        COMPONENT development)
endif()

configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/tarn-config.cmake.in" "${PROJECT_BINARY_DIR}/tarn-config.cmake"
    INSTALL_DESTINATION "${tarn_package_folder}")
write_basic_package_version_file(
    "${PROJECT_BINARY_DIR}/tarn-config-version.cmake" COMPATIBILITY ${tarn_compatibility})
install(FILES "${PROJECT_BINARY_DIR}/tarn-config.cmake"
              "${PROJECT_BINARY_DIR}/tarn-config-version.cmake"
        DESTINATION "${tarn_package_folder}"
        COMPONENT development)

if(NOT TARGET tarn)
    return()
endif()

# The file finds its prefix from its own place, so that an installed tree can be moved.
set(tarn_pkgconfig_folder "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH tarn_prefix_from_pkgconfig "/${tarn_pkgconfig_folder}" "/")
string(REGEX REPLACE "/$" "" tarn_prefix_from_pkgconfig "${tarn_prefix_from_pkgconfig}")
configure_file("${PROJECT_SOURCE_DIR}/cmake/tarn.pc.in" "${PROJECT_BINARY_DIR}/tarn.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/tarn.pc" DESTINATION "${tarn_pkgconfig_folder}"
        COMPONENT development)
if(TARN_OTLP)
    configure_file("${PROJECT_SOURCE_DIR}/cmake/tarn-otlp.pc.in" "${PROJECT_BINARY_DIR}/tarn-otlp.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/tarn-otlp.pc" DESTINATION "${tarn_pkgconfig_folder}"
            COMPONENT development)
endif()

# Pages and examples keep their places relative to each other, so that links lead where they should.
set(tarn_pages_folder "${CMAKE_INSTALL_DATADIR}/doc/tarn")
install(FILES README.md CHANGELOG.md THIRD-PARTY-NOTICES.md DESTINATION "${tarn_pages_folder}"
        COMPONENT doc)
install(
    DIRECTORY docs examples
    DESTINATION "${tarn_pages_folder}"
    COMPONENT doc
    PATTERN "test" EXCLUDE)
install(
    CODE "set(PAGES \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${tarn_pages_folder}\")
include(\"${PROJECT_SOURCE_DIR}/cmake/InstalledPages.cmake\")"
    COMPONENT doc)
# scripts/reference makes it; an installation without it lacks the folder.
install(
    DIRECTORY "${PROJECT_BINARY_DIR}/reference"
    DESTINATION "${tarn_pages_folder}"
    COMPONENT doc
    OPTIONAL)

if(PROJECT_IS_TOP_LEVEL AND TARN_HOST STREQUAL "embedded")
    include(TarnPackages)
endif()
