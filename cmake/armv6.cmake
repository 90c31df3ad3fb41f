# The board: ARMv6 with Debian's soft-float cross compiler (the armel port). Its programs are tested
# under user-mode emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_CXX_COMPILER arm-linux-gnueabi-g++)
set(CMAKE_CXX_FLAGS_INIT "-march=armv6 -marm")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static;-cpu;arm1176;-L;/usr/arm-linux-gnueabi)

# Created by scripts/armv6-sysroot. Without "..": programs look for their libraries by this path.
get_filename_component(HDTV_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/armv6-sysroot ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${HDTV_SYSROOT} /usr/arm-linux-gnueabi)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${HDTV_SYSROOT}/usr/lib/arm-linux-gnueabi/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${HDTV_SYSROOT})
