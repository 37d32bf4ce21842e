# 64-bit ARM (Debian's arm64).
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(debian_architecture arm64)
set(debian_triplet aarch64-linux-gnu)
set(debian_emulator qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
