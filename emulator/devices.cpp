#include "devices.h"

#include <array>

#include "camera.h"
#include "expander.h"
#include "framebuffer.h"
#include "gpio.h"
#include "hdmi_capture.h"
#include "hdmi_receiver.h"
#include "i2c_bus.h"
#include "journal.h"
#include "keypad.h"
#include "monitor.h"
#include "serial_line.h"
#include "sound_card.h"
#include "system_files.h"
#include "udev_events.h"
#include "watchdog.h"

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
