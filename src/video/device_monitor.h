// Hot-plug of capture devices, as udev reports it. Video thread only.
#pragma once

struct udev;
struct udev_monitor;

struct VideoDeviceMonitor {
    udev* context = nullptr;
    udev_monitor* monitor = nullptr;
    int descriptor = -1;
};

// Starts listening. A null context means that it failed; what was made is freed.
VideoDeviceMonitor InitVideoDeviceMonitor();

// Takes what is pending, without blocking. 0 when at least one event had an action and a device node, else 2.
int PollVideoDeviceMonitor(const VideoDeviceMonitor& monitor);
