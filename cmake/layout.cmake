# Where an installation puts what. On Debian libraries stand in their architecture's folder
# below any prefix, where the loader, pkg-config and CMake look for them.
if(EXISTS /etc/debian_version AND CMAKE_LIBRARY_ARCHITECTURE AND NOT CMAKE_CROSSCOMPILING)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Folder of the libraries")
endif()
include(GNUInstallDirs)
