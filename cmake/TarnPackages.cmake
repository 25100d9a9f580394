# Debian packages, made by CPack from the install rules' components: libtarn<version> (the libraries),
# libtarn-otlp<version> (spans for collectors, with what that needs), libtarn-dev (headers, archives, the CMake package, the pkg-config files), tarn-tools (tarnview), and
# tarn-doc (pages, examples, and the reference if it was built). scripts/package makes them.

set(TARN_PACKAGE_CONTACT "tarn developers <developers@tarn.invalid>"
    CACHE STRING "The maintainer that the packages name")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tarn)
set(CPACK_PACKAGE_VENDOR "tarn")
set(CPACK_PACKAGE_CONTACT "${TARN_PACKAGE_CONTACT}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development doc)
if(TARN_OTLP)
    list(APPEND CPACK_COMPONENTS_ALL otlp)
endif()
if(TARN_BUILD_TOOLS)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/packages/Complete.cmake")
set(CPACK_TARN_SOURCES "${PROJECT_SOURCE_DIR}")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Not "1", which would say that a distribution has it.
set(CPACK_DEBIAN_PACKAGE_RELEASE 0tarn1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(tarn_runtime_package "libtarn${tarn_abi_version}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "${tarn_runtime_package}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# Which package has a library of this name, and that the system looks for new libraries.
set(tarn_shlibs "${PROJECT_BINARY_DIR}/packages-control/shlibs")
file(REMOVE "${tarn_shlibs}")
foreach(library IN ITEMS cvlcoreplatform cvlmetrics cvlsys tarn)
    file(APPEND "${tarn_shlibs}" "lib${library} ${tarn_abi_version} ${tarn_runtime_package}\n")
endforeach()
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    "${PROJECT_SOURCE_DIR}/cmake/packages/triggers;${tarn_shlibs}")
set(CPACK_TARN_SHLIBS "${tarn_shlibs}")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "Scopes that a program puts around its work, and a structured log of when each
began and ended: its parent, user, duration, memory, processor time and result,
across threads and services.
.
This package has the libraries that traced programs are loaded with.")

set(CPACK_DEBIAN_OTLP_PACKAGE_NAME "libtarn-otlp${tarn_abi_version}")
set(CPACK_DEBIAN_OTLP_PACKAGE_SECTION libs)
set(tarn_otlp_shlibs "${PROJECT_BINARY_DIR}/packages-control/otlp/shlibs")
file(WRITE "${tarn_otlp_shlibs}"
     "libtarn_otlp ${tarn_abi_version} ${CPACK_DEBIAN_OTLP_PACKAGE_NAME}\n")
set(CPACK_DEBIAN_OTLP_PACKAGE_CONTROL_EXTRA
    "${PROJECT_SOURCE_DIR}/cmake/packages/triggers;${tarn_otlp_shlibs}")
set(CPACK_COMPONENT_OTLP_DESCRIPTION
    "Scopes that a program puts around its work, and a structured log of when each
began and ended: its parent, user, duration, memory, processor time and result,
across threads and services.
.
This package has the library that sends them as spans to a collector of
OpenTelemetry.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtarn-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "tarn-doc, tarn-tools, libspdlog-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "Scopes that a program puts around its work, and a structured log of when each
began and ended: its parent, user, duration, memory, processor time and result,
across threads and services.
.
This package has headers, the package for CMake, the files for pkg-config, and
the archives for programs that bring a custom host.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME tarn-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS tarn-doc)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "tarnview reads the logs of programs that are traced with tarn: trees of one
request across threads and processes, where the time goes, what failed and
why, what is running now, and whether the log is whole.")

set(CPACK_DEBIAN_DOC_PACKAGE_NAME tarn-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_COMPONENT_DOC_DESCRIPTION
    "Scopes that a program puts around its work, and a structured log of when each
began and ended: its parent, user, duration, memory, processor time and result,
across threads and services.
.
This package has the pages, the examples, and the reference of all classes.")

include(CPack)
