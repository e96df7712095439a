# 32-bit ARM (Debian armhf) with Debian's cross toolchain (crossbuild-essential-armhf) and the dependencies
# installed as multiarch packages (libfmt-dev:armhf ...). Programs built here run on this machine under
# qemu-user, which CTest and the tests put in front of every target program.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# The architecture of the Debian packages that cpack makes.
set(KIV_DEB_ARCHITECTURE armhf)

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# GCC notes on every std::vector of a class that its argument passing changed in GCC 7.1: that concerns
# linking with objects built before, which nothing here is.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

# The target's libraries live beside the host's under /usr/lib/arm-linux-gnueabihf; the headers of most
# are shared in /usr/include. Programs (the compilers, pkg-config) are the host's.
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# pkg-config must see only the target's .pc files, never the host's.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/arm-linux-gnueabihf/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")

# qemu-arm finds the target's dynamic loader and libraries at their multiarch places.
find_program(KIV_QEMU_ARM NAMES qemu-arm qemu-arm-static REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${KIV_QEMU_ARM})
