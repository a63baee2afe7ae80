# The processor of the unit: Debian's cross compiler, with Debian's own libraries for it in a tree that scripts/sysroot
# lays out. Programs run on this machine under user emulation, on the libraries of that tree.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/armhf)
file(REAL_PATH ${CMAKE_SYSROOT} CMAKE_SYSROOT)
if(NOT EXISTS ${CMAKE_SYSROOT}/.packages)
  message(FATAL_ERROR "There are no libraries for this processor yet: run scripts/sysroot armhf")
endif()

set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-gcc)
set(CMAKE_CXX_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-g++)

# A clock that outlives 2038 and files past 2 GiB, which this processor's C library has only on request. The Breakpad
# client is built with the same, since its interface has such types.
set(ORB_TARGET_DEFINITIONS "-D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
set(CMAKE_C_FLAGS_INIT "${ORB_TARGET_DEFINITIONS}")
# -Wno-psabi: no notes on what compilers before GCC 7 passed differently.
set(CMAKE_CXX_FLAGS_INIT "${ORB_TARGET_DEFINITIONS} -Wno-psabi")

set(CMAKE_FIND_ROOT_PATH ${CMAKE_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${CMAKE_SYSROOT})
