# ARMv7 with hardware floating point, built with Debian's cross compiler and run under QEMU's user-mode emulation.
# FIRAIM_SYSROOT, a cache entry or a variable of the environment, is the folder of the target's own libraries:
# scripts/fetch-sysroot fills one.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

set(FIRAIM_SYSROOT "$ENV{FIRAIM_SYSROOT}" CACHE PATH "Folder of the target's own libraries")
if(NOT EXISTS "${FIRAIM_SYSROOT}/lib/ld-linux-armhf.so.3")
    message(FATAL_ERROR "FIRAIM_SYSROOT is \"${FIRAIM_SYSROOT}\", which holds no libraries of the target")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES FIRAIM_SYSROOT)

# Files beyond 2 GiB and times beyond 2038; a C library that has no times of 64 bits takes no notice of the latter.
# GCC's notes on what older releases than 7.1 did are of no use to anybody.
set(flags "-march=armv7-a -mfpu=vfpv3-d16 -mfloat-abi=hard -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64 -Wno-psabi")
set(CMAKE_C_FLAGS_INIT "${flags}")
set(CMAKE_CXX_FLAGS_INIT "${flags}")
# For what the libraries that a program names need themselves.
set(rpath_link "-Wl,-rpath-link,${FIRAIM_SYSROOT}/usr/lib/arm-linux-gnueabihf")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${rpath_link}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${rpath_link}")

# The compiler brings the C and C++ libraries to build with. Packages of headers alone may be the machine's own.
list(APPEND CMAKE_FIND_ROOT_PATH "${FIRAIM_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L "${FIRAIM_SYSROOT}")
