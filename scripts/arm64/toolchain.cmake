# Builds for 64-bit ARM with the libraries of a root folder of Debian, which
# LINUX_CAPTURE_SYSROOT names.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
# CMake's own checks read this file again without the variables.
if(LINUX_CAPTURE_SYSROOT)
  set(ENV{LINUX_CAPTURE_SYSROOT} "${LINUX_CAPTURE_SYSROOT}")
endif()
set(CMAKE_SYSROOT "$ENV{LINUX_CAPTURE_SYSROOT}")
set(libraries "${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu")
if(NOT CMAKE_SYSROOT OR NOT IS_DIRECTORY "${libraries}")
  message(FATAL_ERROR
    "LINUX_CAPTURE_SYSROOT is no root folder of Debian for 64-bit ARM")
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
  "${libraries}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")
# Named as further ones they would come before those of the C++ library.
set(ENV{PKG_CONFIG_SYSTEM_INCLUDE_PATH}
  "${CMAKE_SYSROOT}/usr/include:${CMAKE_SYSROOT}/usr/include/aarch64-linux-gnu")
