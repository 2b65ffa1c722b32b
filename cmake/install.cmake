# What `cmake --install` gives, in four components:
#   runtime  the shared library, on Windows with the compiler's runtime DLLs
#   dev      headers, what programs link with, CMake package, pkg-config file
#   tools    the tool kro
#   docs     the guide and the examples
include(CMakePackageConfigHelpers)

install(TARGETS krodll EXPORT stdkro-targets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
if(krodll_runtime_dlls)
  install(FILES ${krodll_runtime_dlls} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
endif()

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/stdkro DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev
  FILES_MATCHING PATTERN "*.h")
set(stdkro_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/stdkro)
install(EXPORT stdkro-targets NAMESPACE stdkro:: DESTINATION ${stdkro_cmake_dir} COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/stdkro-config.cmake.in
  ${PROJECT_BINARY_DIR}/stdkro-config.cmake INSTALL_DESTINATION ${stdkro_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/stdkro-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/stdkro-config.cmake ${PROJECT_BINARY_DIR}/stdkro-config-version.cmake
  DESTINATION ${stdkro_cmake_dir} COMPONENT dev)

# The file says where it stands by its own place, so that a package can be put anywhere.
set(stdkro_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH stdkro_up /prefix/${stdkro_pc_dir} /prefix)
string(REGEX REPLACE "/$" "" stdkro_up ${stdkro_up})
configure_file(${PROJECT_SOURCE_DIR}/cmake/stdkro.pc.in ${PROJECT_BINARY_DIR}/stdkro.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/stdkro.pc DESTINATION ${stdkro_pc_dir} COMPONENT dev)

# gdb looks for the first by the full name of the library it loads: that of the packages.
if(NOT WIN32)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/debuggers/krodll_gdb.py
    DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load/usr/${CMAKE_INSTALL_LIBDIR}
    RENAME libkrodll.so.${PROJECT_VERSION}-gdb.py COMPONENT dev)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/tools/debuggers/krodll.natvis
  DESTINATION ${CMAKE_INSTALL_DATADIR}/stdkro COMPONENT dev)

install(TARGETS kro RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
install(FILES ${PROJECT_SOURCE_DIR}/tools/editors/xpp.tmLanguage.json
  DESTINATION ${CMAKE_INSTALL_DATADIR}/stdkro COMPONENT tools)
if(NOT WIN32)
  install(FILES ${PROJECT_SOURCE_DIR}/kro/pages/kro.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES ${PROJECT_SOURCE_DIR}/kro/pages/kro.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME kro COMPONENT tools)
endif()

install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT docs)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs ${PROJECT_SOURCE_DIR}/examples
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT docs)
