SUMMARY = "Control daemon of a video-conferencing appliance"
DESCRIPTION = "Composes two USB cameras and an HDMI input into one picture, routes the sound, obeys a command language \
on a serial line, the console, telnet and HTTP, drives the front panel and keeps a hardware watchdog alive."
SECTION = "multimedia"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=77995df0287a4695a64661b17079b8c7"

# The sources beside which this layer lies; EXTERNALSRC:pn-tesselvisor names others.
inherit externalsrc cmake pkgconfig systemd features_check
EXTERNALSRC ?= "${@os.path.abspath('${THISDIR}/../../../..')}"
REQUIRED_DISTRO_FEATURES = "systemd alsa"

DEPENDS = "alsa-lib gstreamer1.0 systemd udev v4l-utils"

EXTRA_OECMAKE = "-DTESSEL_EMULATOR=OFF -DBUILD_TESTING=OFF -DTESSEL_UNIT_FOLDER=${systemd_system_unitdir}"

SYSTEMD_SERVICE:${PN} = "tesselvisor.service"
FILES:${PN} += "${systemd_system_unitdir}"

# The packages of the platform's elements imxv4l2src, imxcompositor_g2d, imxv4l2sink and vpudec: the machine's to name.
TESSELVISOR_PLATFORM_PLUGINS ?= ""

# GStreamer's elements, then the tools of the daemon's command lines. ifconfig, route, ps, dmesg, stty and find are
# busybox's, whose output the daemon reads.
RDEPENDS:${PN} += "\
    ${TESSELVISOR_PLATFORM_PLUGINS} \
    gstreamer1.0 \
    gstreamer1.0-plugins-bad-debugutilsbad \
    gstreamer1.0-plugins-bad-jpegformat \
    gstreamer1.0-plugins-base-alsa \
    gstreamer1.0-plugins-base-audioconvert \
    gstreamer1.0-plugins-base-audiomixer \
    gstreamer1.0-plugins-base-audioresample \
    gstreamer1.0-plugins-base-audiotestsrc \
    gstreamer1.0-plugins-base-videotestsrc \
    gstreamer1.0-plugins-base-volume \
    gstreamer1.0-plugins-good-jpeg \
    gstreamer1.0-plugins-good-level \
    gstreamer1.0-plugins-good-multifile \
    gstreamer1.0-plugins-good-video4linux2 \
    gstreamer1.0-plugins-good-videocrop \
    alsa-utils-amixer \
    alsa-utils-aplay \
    busybox \
    connman-client \
    ethtool \
    fbset \
    libubootenv-bin \
    usbutils \
    v4l-utils \
"
