# 32-bit ARM (Debian's armhf).
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(debian_architecture armhf)
set(debian_triplet arm-linux-gnueabihf)
set(debian_emulator qemu-arm)
# Silences notes about calls into code of compilers before GCC 7, of which there is none.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
