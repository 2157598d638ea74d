# Debian packages: `cpack` in the build folder makes them. Their own files, such as the maintainer scripts, are here.
set(here ${CMAKE_CURRENT_LIST_DIR})

add_custom_command(OUTPUT ${made}/changelog.debian
    COMMAND ${here}/make-changelog ${TESSEL_MAINTAINER} ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${made}/changelog.debian
    DEPENDS ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${here}/make-changelog VERBATIM)
compress(${made}/changelog.debian changelog)

macro(install_package_files component package)
    set(documents ${CMAKE_INSTALL_DATADIR}/doc/${package})
    install(FILES ${here}/${package}.copyright DESTINATION ${documents} RENAME copyright COMPONENT ${component})
    install(FILES ${made}/changelog.gz DESTINATION ${documents} COMPONENT ${component})
    if(EXISTS ${here}/${package}.lintian-overrides)
        install(FILES ${here}/${package}.lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
            RENAME ${package} COMPONENT ${component})
    endif()
endmacro()
install_package_files(daemon tesselvisor)

# Debian's tools of these names print something else than the small system's.
file(MAKE_DIRECTORY ${made}/small-tools)
foreach(tool ifconfig ps route)
    file(CREATE_LINK /bin/busybox ${made}/small-tools/${tool} SYMBOLIC)
endforeach()
install(DIRECTORY ${made}/small-tools/ DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/tesselvisor COMPONENT daemon)

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL daemon)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${TESSEL_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
if(CMAKE_CROSSCOMPILING)
    # Debian's tool knows this machine's libraries only.
    string(REPLACE "armv7l" "armhf" CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${CMAKE_SYSTEM_PROCESSOR})
    set(libraries "libc6 (>= 2.36), libstdc++6 (>= 12), libasound2, libglib2.0-0, libgstreamer1.0-0 (>= 1.20), \
libsystemd0, libudev1, libv4l-0, ")
else()
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)

set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME tesselvisor)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SECTION video)
# What it runs rather than links: GStreamer's elements and tools, then the tools of its command lines.
set(CPACK_DEBIAN_DAEMON_PACKAGE_DEPENDS "${libraries}init-system-helpers (>= 1.54~), \
gstreamer1.0-plugins-base (>= 1.20), gstreamer1.0-plugins-good (>= 1.20), gstreamer1.0-plugins-bad (>= 1.20), \
gstreamer1.0-alsa (>= 1.20), gstreamer1.0-tools (>= 1.20), alsa-utils, busybox, ethtool, fbset, usbutils, v4l-utils")
# Suggested only: on a PC, where the emulator brings its own, a second network manager would do harm.
set(CPACK_DEBIAN_DAEMON_PACKAGE_SUGGESTS "connman, libubootenv-tool, tesselvisor-emulator")
set(CPACK_COMPONENT_DAEMON_DESCRIPTION "control daemon of a video-conferencing appliance
Composes two USB cameras and an HDMI input into one picture, routes the
sound, obeys a command language on a serial line, the console, telnet and
HTTP, drives the front panel, steers cameras that move, keeps a hardware
watchdog alive, and heals itself when cables or cameras misbehave.

The unit starts on the appliance only; on a PC, tesselvisor-emulator runs
the daemon on emulated hardware.")
set(CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_EXTRA ${here}/postinst ${here}/prerm ${here}/postrm)

if(TESSEL_EMULATOR)
    list(APPEND CPACK_COMPONENTS_ALL emulator)
    install_package_files(emulator tesselvisor-emulator)
    set(CPACK_DEBIAN_EMULATOR_PACKAGE_NAME tesselvisor-emulator)
    set(CPACK_DEBIAN_EMULATOR_PACKAGE_SOURCE tesselvisor)
    set(CPACK_DEBIAN_EMULATOR_PACKAGE_SECTION devel)
    # The tools that run on its board are the daemon's; connman and the like have stand-ins.
    set(CPACK_DEBIAN_EMULATOR_PACKAGE_DEPENDS "tesselvisor (= ${PROJECT_VERSION})")
    set(CPACK_DEBIAN_EMULATOR_PACKAGE_SUGGESTS "i2c-tools")
    set(CPACK_COMPONENT_EMULATOR_DESCRIPTION "runs the tesselvisor daemon on emulated hardware
Starts the unmodified daemon in namespaces of its own and answers its device
calls (I2C, V4L2, ALSA, GPIO, framebuffer, watchdog, udev, journal) at the
kernel boundary. Cameras, monitors and faults are plugged by commands or on
a page in the browser; scenarios can be played and recorded.")
endif()

include(CPack)
