# The Debian packages, built by scripts/package: run time and development package of the facade and of the history
# library, and the command.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "firaim developers <firaim@example.org>")
set(CPACK_COMPONENTS_ALL runtime development history history_development)
if(FIRAIM_BUILD_TOOL)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(version "${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

# Named after firaim.so.0, which callers link to. libdb.so.0 has no shlibs entry, as it is private to firaim.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME firaim0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Applications record the faults of an embedded device through this library.
A fault that was acknowledged survives the power cut that follows.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libsqlite3-0 (>= ${sqlite_minimum})")
# The libraries share private interfaces, so their versions must be equal.
set(CPACK_DEBIAN_HISTORY_PACKAGE_DEPENDS "firaim0 (= ${version}), libsqlite3-0 (>= ${sqlite_minimum})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "firaim0 (= ${version}), libfiraim-history0 (= ${version})")
if(CMAKE_CROSSCOMPILING)
    # dpkg-shlibdeps knows only the build machine's packages, so name the versions that the cross compiler builds for.
    set(run_time "libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= ${CMAKE_CXX_COMPILER_VERSION})")
    string(APPEND CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS ", ${run_time}")
    string(APPEND CPACK_DEBIAN_HISTORY_PACKAGE_DEPENDS ", ${run_time}")
    # The name of the utf8proc package contains the number of its binary interface.
    file(GLOB utf8proc LIST_DIRECTORIES FALSE "${FIRAIM_SYSROOT}/usr/lib/*/libutf8proc.so.?")
    string(REGEX REPLACE ".*\\.so\\." "libutf8proc" utf8proc "${utf8proc}")
    string(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
        ", libsqlite3-0 (>= ${sqlite_minimum}), ${utf8proc}, ${run_time}")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf CACHE STRING "")
else()
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
        "${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR}" "${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR}/firaim")
endif()
function(describe_library component library package)
    set(folder "${PROJECT_BINARY_DIR}/packages/${package}")
    file(WRITE "${folder}/shlibs" "${library} 0 ${package} (>= ${PROJECT_VERSION})\n")
    file(WRITE "${folder}/triggers" "activate-noawait ldconfig\n")
    set(CPACK_DEBIAN_${component}_PACKAGE_CONTROL_EXTRA "${folder}/shlibs;${folder}/triggers" PARENT_SCOPE)
endfunction()
describe_library(RUNTIME firaim firaim0)
describe_library(HISTORY libfiraim-history libfiraim-history0)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libfiraim-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# pkg-config does not find a package whose private requirements are missing.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "firaim0 (= ${version}), libsqlite3-dev (>= ${sqlite_minimum})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "This package holds what is needed to build against the library: headers,
and what CMake and pkg-config ask for.")

set(CPACK_DEBIAN_HISTORY_PACKAGE_NAME libfiraim-history0)
set(CPACK_DEBIAN_HISTORY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_HISTORY_DESCRIPTION "Several threads and processes record into one fault
history through this library, and read and follow it without changing it.")

set(CPACK_DEBIAN_HISTORY_DEVELOPMENT_PACKAGE_NAME libfiraim-history-dev)
set(CPACK_DEBIAN_HISTORY_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_HISTORY_DEVELOPMENT_PACKAGE_DEPENDS
    "libfiraim-history0 (= ${version}), libfiraim-dev (= ${version})")
set(CPACK_COMPONENT_HISTORY_DEVELOPMENT_DESCRIPTION "This package holds the headers of the recorder and the reader, and
the files for CMake and pkg-config.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME firaim)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "This package holds the command firaim. People and test
rigs use it to record faults, and to inspect, follow and export a fault history.")

# Debian requires a changelog and a copyright file in each package; other installations do not have them.
file(READ CHANGELOG.md changelog)
string(REGEX MATCH "## \\[([0-9.]+)\\] - ([0-9-]+)" heading "${changelog}")
if(NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
    message(FATAL_ERROR "CHANGELOG.md begins with version ${CMAKE_MATCH_1}, the project has ${PROJECT_VERSION}")
endif()
execute_process(COMMAND date -R -u -d "${CMAKE_MATCH_2}" OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE)
foreach(component ${CPACK_COMPONENTS_ALL})
    string(TOUPPER "${component}" upper)
    set(package "${CPACK_DEBIAN_${upper}_PACKAGE_NAME}")
    set(changelog "${PROJECT_BINARY_DIR}/packages/${package}/changelog.Debian")
    file(WRITE "${changelog}"
        "firaim (${version}) unstable; urgency=medium\n\n  * See CHANGELOG.md.\n\n"
        " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
    execute_process(COMMAND gzip -9nf "${changelog}" COMMAND_ERROR_IS_FATAL ANY)
    install(FILES "${changelog}.gz" cmake/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
        COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

include(CPack)
