# What an installation holds, and how CMake and pkg-config are told of it. The components are the Debian packages.

include(CMakePackageConfigHelpers)

# libdb.so.0 lies in a folder of its own and without a link-time name: other packages have a library of that name.
set(private_libdir "${CMAKE_INSTALL_LIBDIR}/firaim")
# Programs that call both libraries load both by name, and have to find ours, too.
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
