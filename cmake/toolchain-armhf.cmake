# The camera build: ARMv7 hard-float Linux with Debian 12's arm-linux-gnueabihf compiler, against the
# sysroot that scripts/armhf-sysroot.sh makes. Programs built here run on the build machine under
# qemu-arm with the same sysroot (tests, test discovery). scripts/test-armhf.sh uses this file.
#
#   cmake -S . -B build-armhf -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake
#
# The sysroot is ARMHF_SYSROOT (cache or environment variable), by default the one the script makes.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

if(NOT ARMHF_SYSROOT)
  if(DEFINED ENV{ARMHF_SYSROOT})
    set(ARMHF_SYSROOT "$ENV{ARMHF_SYSROOT}")
  elseif(DEFINED ENV{XDG_CACHE_HOME})
    set(ARMHF_SYSROOT "$ENV{XDG_CACHE_HOME}/kestrelvorn/armhf-sysroot")
  else()
    set(ARMHF_SYSROOT "$ENV{HOME}/.cache/kestrelvorn/armhf-sysroot")
  endif()
endif()
if(NOT EXISTS "${ARMHF_SYSROOT}/usr/include/stdio.h")
  message(FATAL_ERROR "No armhf sysroot at ${ARMHF_SYSROOT}: run scripts/armhf-sysroot.sh first")
endif()
# try_compile projects read this file again and need the same sysroot.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ARMHF_SYSROOT)
set(ARMHF_SYSROOT "${ARMHF_SYSROOT}" CACHE PATH "The armhf sysroot")

set(CMAKE_SYSROOT "${ARMHF_SYSROOT}")
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Debian's armhf baseline (ARMv7-A, VFPv3-D16, Thumb-2, hard-float). Everything is built with this
# one compiler, so GCC's notes about the parameter passing that changed in GCC 7.1 are noise.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

# Libraries, headers and CMake packages come from the sysroot only; programs (pkg-config, and the
# Qt tools that the sysroot links to the host's) from the build machine.
set(CMAKE_FIND_ROOT_PATH "${ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_SYSROOT_DIR} "${ARMHF_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
  "${ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${ARMHF_SYSROOT}/usr/lib/pkgconfig:${ARMHF_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# Runs armhf programs here: test discovery, CTest, and anything add_custom_command runs.
find_program(ARMHF_QEMU NAMES qemu-arm-static qemu-arm REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR "${ARMHF_QEMU};-L;${ARMHF_SYSROOT}")
