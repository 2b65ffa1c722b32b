# What `cmake --install` gives: headers, library, tool, CMake package, pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set_target_properties(krodll PROPERTIES EXPORT_NAME krodll)
install(TARGETS krodll EXPORT stdkro-targets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS kro RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/stdkro DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")
if(krodll_runtime_dlls)
  install(FILES ${krodll_runtime_dlls} DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

set(stdkro_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/stdkro)
install(EXPORT stdkro-targets NAMESPACE stdkro:: DESTINATION ${stdkro_cmake_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/stdkro-config.cmake.in
  ${PROJECT_BINARY_DIR}/stdkro-config.cmake INSTALL_DESTINATION ${stdkro_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/stdkro-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/stdkro-config.cmake ${PROJECT_BINARY_DIR}/stdkro-config-version.cmake
  DESTINATION ${stdkro_cmake_dir})

configure_file(${PROJECT_SOURCE_DIR}/cmake/stdkro.pc.in ${PROJECT_BINARY_DIR}/stdkro.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/stdkro.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
