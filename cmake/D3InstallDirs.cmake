# Install folders. Debian keeps libraries in a per-architecture folder
# (lib/x86_64-linux-gnu) under /usr/local as well as under /usr, and its
# loader searches both; GNUInstallDirs picks that folder only for /usr, so a
# tree configured for /usr/local would package the library outside it.
if(CMAKE_LIBRARY_ARCHITECTURE AND NOT DEFINED CACHE{CMAKE_INSTALL_LIBDIR})
  set(CMAKE_INSTALL_LIBDIR "lib/${CMAKE_LIBRARY_ARCHITECTURE}" CACHE PATH "Object code libraries (LIBDIR)")
endif()
include(GNUInstallDirs)
set(D3_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/d3_sdk" CACHE PATH
  "Where find_package(d3_sdk) files go, relative to the prefix")
