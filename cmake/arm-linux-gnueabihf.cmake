# ARMv7 with hardware floating point, built with Debian's cross compiler and run under QEMU's user-mode emulation.
# FIRAIM_SYSROOT, a cache entry or an environment variable, names the folder with the target's libraries.
# scripts/fetch-sysroot fills such a folder.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

set(FIRAIM_SYSROOT "$ENV{FIRAIM_SYSROOT}" CACHE PATH "Folder of the target's libraries")
if(NOT EXISTS "${FIRAIM_SYSROOT}/lib/ld-linux-armhf.so.3")
    message(FATAL_ERROR "FIRAIM_SYSROOT is \"${FIRAIM_SYSROOT}\", which holds no libraries of the target")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES FIRAIM_SYSROOT)

# Support files beyond 2 GiB and times beyond 2038; a C library without 64-bit times ignores _TIME_BITS.
# -Wno-psabi silences notes about the ABI of GCC before 7.1, which does not matter here.
set(flags "-march=armv7-a -mfpu=vfpv3-d16 -mfloat-abi=hard -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64 -Wno-psabi")
set(CMAKE_C_FLAGS_INIT "${flags}")
set(CMAKE_CXX_FLAGS_INIT "${flags}")
# Let the linker find the dependencies of the libraries that a program links to.
set(rpath_link "-Wl,-rpath-link,${FIRAIM_SYSROOT}/usr/lib/arm-linux-gnueabihf")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${rpath_link}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${rpath_link}")

# The compiler includes the C and C++ libraries. Header-only packages may come from the build machine.
list(APPEND CMAKE_FIND_ROOT_PATH "${FIRAIM_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L "${FIRAIM_SYSROOT}")
