# The panel's own machine: 32-bit ARM with hardware floating point, built on a workstation. The sysroot is made by
# scripts/make_armhf_sysroot.sh; programs run under qemu.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

get_filename_component(_ozu_source "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)
set(OZU_SYSROOT "${_ozu_source}/build/sysroot-armhf" CACHE PATH "Root of the panel's headers and libraries")
if(NOT EXISTS "${OZU_SYSROOT}/usr/include")
    message(FATAL_ERROR "No sysroot in ${OZU_SYSROOT}; run scripts/make_armhf_sysroot.sh first")
endif()
# Probes of the compiler are projects of their own and read this file again.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES OZU_SYSROOT)

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_SYSROOT "${OZU_SYSROOT}")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_SYSROOT_DIR} "${OZU_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
    "${OZU_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${OZU_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

find_program(OZU_QEMU NAMES qemu-arm-static qemu-arm)
if(OZU_QEMU)
    set(CMAKE_CROSSCOMPILING_EMULATOR "${OZU_QEMU};-L;${OZU_SYSROOT}")
endif()
