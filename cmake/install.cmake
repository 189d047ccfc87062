# The content of an installation, and the files through which CMake and pkg-config find it. Each component is a Debian
# package.

include(CMakePackageConfigHelpers)

# libdb.so.0 has a private folder and no link-time name, as other packages have a library of the same name.
set(private_libdir "${CMAKE_INSTALL_LIBDIR}/firaim")
# A program that calls both libraries has a dependency on libdb.so.0 itself, and must find the one of this installation.
target_link_options(firaim_db INTERFACE
    "$<INSTALL_INTERFACE:LINKER:--disable-new-dtags,-rpath,$<INSTALL_PREFIX>/${private_libdir}>")

install(TARGETS firaim_db EXPORT firaimTargets
    LIBRARY DESTINATION ${private_libdir} COMPONENT runtime NAMELINK_SKIP)
install(TARGETS firaim EXPORT firaimTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(TARGETS firaim_history EXPORT firaimHistoryTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT history NAMELINK_COMPONENT history_development)

install(DIRECTORY db fdb DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/firaim COMPONENT development
    FILES_MATCHING PATTERN "*.h" PATTERN "internal" EXCLUDE)
install(DIRECTORY history DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/firaim COMPONENT history_development
    FILES_MATCHING PATTERN "*.h" PATTERN "internal" EXCLUDE)
install(FILES "${PROJECT_BINARY_DIR}/generated/db/FaultCodes.def"
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/firaim/db COMPONENT development)

set(cmake_dir "${CMAKE_INSTALL_LIBDIR}/cmake/firaim")
install(EXPORT firaimTargets NAMESPACE firaim:: DESTINATION ${cmake_dir} COMPONENT development)
install(EXPORT firaimHistoryTargets NAMESPACE firaim:: DESTINATION ${cmake_dir} COMPONENT history_development)
configure_package_config_file(cmake/firaimConfig.cmake.in "${PROJECT_BINARY_DIR}/firaimConfig.cmake"
    INSTALL_DESTINATION ${cmake_dir})
write_basic_package_version_file("${PROJECT_BINARY_DIR}/firaimConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/firaimConfig.cmake" "${PROJECT_BINARY_DIR}/firaimConfigVersion.cmake"
    DESTINATION ${cmake_dir} COMPONENT development)

file(RELATIVE_PATH prefix_from_pc "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
foreach(name firaim firaim-history)
    configure_file(cmake/${name}.pc.in "${PROJECT_BINARY_DIR}/${name}.pc" @ONLY)
endforeach()
install(FILES "${PROJECT_BINARY_DIR}/firaim.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(FILES "${PROJECT_BINARY_DIR}/firaim-history.pc"
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT history_development)
