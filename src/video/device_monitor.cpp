#include "video/device_monitor.h"

#include <libudev.h>
#include <poll.h>

static bool StartReceiving(VideoDeviceMonitor& monitor) {
    monitor.context = udev_new();
    if (!monitor.context) return false;
    monitor.monitor = udev_monitor_new_from_netlink(monitor.context, "udev");
    if (!monitor.monitor) return false;
    if (udev_monitor_filter_add_match_subsystem_devtype(monitor.monitor, "video4linux", nullptr) < 0) return false;
    if (udev_monitor_enable_receiving(monitor.monitor) < 0) return false;
    monitor.descriptor = udev_monitor_get_fd(monitor.monitor);
    return monitor.descriptor >= 0;
}

VideoDeviceMonitor InitVideoDeviceMonitor() {
    VideoDeviceMonitor monitor;
    if (StartReceiving(monitor)) return monitor;
    udev_monitor_unref(monitor.monitor);  // both take null
    udev_unref(monitor.context);
    return {};
}

static bool HasEvent(int descriptor) {
    pollfd request = {.fd = descriptor, .events = POLLIN, .revents = 0};
    return poll(&request, 1, 0) > 0 && (request.revents & POLLIN);
}

int PollVideoDeviceMonitor(const VideoDeviceMonitor& monitor) {
    int result = 2;
    while (HasEvent(monitor.descriptor)) {
        udev_device* device = udev_monitor_receive_device(monitor.monitor);
        if (!device) break;  // filtered out or damaged; what is behind it comes with the next poll
        if (udev_device_get_action(device) && udev_device_get_devnode(device)) result = 0;
        udev_device_unref(device);
    }
    return result;
}
