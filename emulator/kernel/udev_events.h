// Hot-plug news for the board: devices in its /sys and the udev messages that announce them.
//
// A device appears as a folder under /sys/devices with `uevent` and `dev`, linked from /sys/class and /sys/dev/char;
// then every udev monitor inside the board's network namespace hears of it, exactly as from the udev daemon. The
// messages leave through a netlink socket that was opened inside that namespace. Supervisor's thread; nothing blocks; a
// message that no monitor waits for is lost, as on hardware.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "bench/control.h"

struct UdevDevice {
    std::string sysfsPath;   // "/devices/platform/ci_hdrc.0/usb1/1-1/1-1:1.0/video4linux/video0"
    std::string subsystem;   // "video4linux", "sound"
    std::string deviceName;  // "/dev/video0"; empty: a device without node
    unsigned majorNumber = 0, minorNumber = 0;
    std::map<std::string, std::string> properties;  // further ones of the message and of `uevent`
    std::map<std::string, std::string> attributes;  // further files of its folder: {"name", "HD Webcam C270"}
};

// Readies the board for udev clients: /run/udev/control (without it libudev delivers nothing) and an empty /sys/class.
void PowerOnUdev();

// A NETLINK_KOBJECT_UEVENT socket of the board's network namespace; ours from now on, an earlier one is closed.
void SetUdevSocket(int descriptor);

void AddUdevDevice(const UdevDevice& device);     // folder and links, then "add"
void RemoveUdevDevice(const UdevDevice& device);  // "remove", after folder and links are gone

// NODE ACTION [TIMES]: news that is not true, or not new. Of a device that is there, or was since power-on.
VerbAnswer UdevFaultVerb(const VerbWords& words);

// One message as libudev expects it: header, then "ACTION=add\0DEVPATH=...\0...".
std::vector<uint8_t> UdevMessage(std::string_view action, const UdevDevice& device, uint64_t sequence);
