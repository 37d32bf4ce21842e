# Toolchain for another architecture of Debian's on a Debian machine: the cross compiler and qemu-user come through
# script/bootstrap ci, what is linked against through script/checks/sysroot ARCHITECTURE. Included by a file that says
# which: armhf.cmake, arm64.cmake.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${debian_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${debian_triplet}-g++)

get_filename_component(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-${debian_architecture} ABSOLUTE)
set(CMAKE_CROSSCOMPILING_EMULATOR ${debian_emulator} -L ${CMAKE_SYSROOT})

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${debian_triplet}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
