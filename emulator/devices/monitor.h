// The monitor on the board's HDMI output: its EDID, answering at I2C bus 1, address 0x50, and the cable state that the
// display driver shows in sysfs. Monitors are data files, monitors/NAME.edid. Supervisor's thread only; nothing blocks.
#pragma once

#include <string>
#include <vector>

#include "bench/control.h"

struct MonitorSummary {
    std::string name, description;
};

// Every monitor that can be plugged, by name.
std::vector<MonitorSummary> ListMonitors();

bool MonitorPlugged();
std::string PluggedMonitor();  // its name, empty when none

// Plugs the monitor that the board was built with, if any. After PowerOnI2c and PowerOnFramebuffer.
void PowerOnMonitor();

VerbAnswer MonitorVerb(const VerbWords& words);  // monitor plug [EDID] | unplug
