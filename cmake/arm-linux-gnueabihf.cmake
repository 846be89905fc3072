# Cross build for the 32-bit ARM line card; tests run under qemu-arm with the
# Debian armhf sysroot. The tools' libraries come from Debian multiarch
# (libfmt-dev:armhf and the like, see scripts/deps.sh cross-tools) in
# /usr/lib/arm-linux-gnueabihf, so the host's root is searched too, for that
# architecture only.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(FWMCLK_SYSROOT /usr/arm-linux-gnueabihf)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH ${FWMCLK_SYSROOT} /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The sysroot's loader must get the sysroot's C library: once Debian's
# libc6:armhf is installed too, the loader would find that one first through
# the host's ld.so.cache, and a loader and C library of two builds crash the
# first thread created.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${FWMCLK_SYSROOT} -E LD_LIBRARY_PATH=${FWMCLK_SYSROOT}/lib)
