#include "devices/devices.h"

#include <array>

#include "capture/camera.h"
#include "capture/hdmi_capture.h"
#include "devices/expander.h"
#include "devices/framebuffer.h"
#include "devices/gpio.h"
#include "devices/hdmi_receiver.h"
#include "devices/i2c_bus.h"
#include "devices/keypad.h"
#include "devices/monitor.h"
#include "devices/serial_line.h"
#include "devices/watchdog.h"
#include "kernel/udev_events.h"
#include "sound/sound_card.h"
#include "system/journal.h"
#include "system/system_files.h"

static constexpr std::array kDevices{
    Device{.name = "system files", .powerOn = PowerOnSystemFiles},
    Device{.name = "udev", .powerOn = PowerOnUdev},
    Device{.name = "journal", .powerOn = PowerOnJournal},
    Device{.name = "gpio", .powerOn = PowerOnGpio},
    Device{.name = "watchdog", .powerOn = PowerOnWatchdog, .powerOff = PowerOffWatchdog},
    Device{.name = "serial lines", .powerOn = PowerOnSerialLines},
    Device{.name = "framebuffer", .powerOn = PowerOnFramebuffer},
    Device{.name = "i2c", .powerOn = PowerOnI2c},
    Device{.name = "hdmi receiver", .powerOn = PowerOnHdmiReceiver},
    Device{.name = "keypad", .powerOn = PowerOnKeypad},
    Device{.name = "expander", .powerOn = PowerOnExpander},
    Device{.name = "monitor", .powerOn = PowerOnMonitor},
    Device{.name = "hdmi capture", .powerOn = PowerOnHdmiCapture},  // the first video node
    Device{.name = "sound", .powerOn = PowerOnSound},               // cameras bring cards of their own
    Device{.name = "cameras", .powerOn = PowerOnCameras},
};

std::span<const Device> Devices() { return kDevices; }
