# Cross-builds for the appliance's processor: Debian's armhf (ARMv7, hard float), which a Cortex-A9 runs. Headers and
# libraries come from a folder of unpacked packages that scripts/build-armhf prepares; tests run under user emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build-armhf/sysroot)
file(REAL_PATH ${CMAKE_SYSROOT} CMAKE_SYSROOT)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

# User emulation shows programs the folder's files in front of this machine's, but not in every system call: GStreamer is
# told where its plug-ins are. No program can start another one of this processor, neither GStreamer's scanner nor itself.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -L ${CMAKE_SYSROOT}
    -E GST_PLUGIN_SYSTEM_PATH=${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/gstreamer-1.0
    -E GST_REGISTRY=${CMAKE_SYSROOT}/../gstreamer-registry.bin -E GST_REGISTRY_FORK=no
    -E GTEST_DEATH_TEST_STYLE=fast)
