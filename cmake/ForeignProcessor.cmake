# SPDX-License-Identifier: Apache-2.0

# Toolchain for another processor: Debian's cross compiler, a directory with that processor's libraries, and an emulator
# that runs what was built. scripts/test sets all three up.
#
#   WLHID_TRIPLET   the compiler's prefix: s390x-linux-gnu
#   WLHID_EMULATOR  qemu-s390x
#   WLHID_SYSROOT   the libraries' directory
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES WLHID_TRIPLET WLHID_EMULATOR WLHID_SYSROOT)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR "${WLHID_TRIPLET}")
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSROOT "${WLHID_SYSROOT}")
set(CMAKE_CXX_COMPILER "${WLHID_TRIPLET}-g++")
set(CMAKE_C_COMPILER "${WLHID_TRIPLET}-gcc")
# The programs name their libraries by their places. An emulator that is told of the directory looks there first for
# every file that a program opens, also for /tmp and /.
set(CMAKE_CROSSCOMPILING_EMULATOR "${WLHID_EMULATOR};-L;/")
file(GLOB loader "${WLHID_SYSROOT}/lib/ld*.so.?")
string(JOIN "," link_options "-Wl,--dynamic-linker=${loader}" "--disable-new-dtags"
       "-rpath=${WLHID_SYSROOT}/lib/${WLHID_TRIPLET}:${WLHID_SYSROOT}/usr/lib/${WLHID_TRIPLET}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${link_options}")
set(CMAKE_LIBRARY_ARCHITECTURE "${WLHID_TRIPLET}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${WLHID_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR} "${WLHID_SYSROOT}/usr/lib/${WLHID_TRIPLET}/pkgconfig:${WLHID_SYSROOT}/usr/share/pkgconfig")
