// The board's files that are just text: attributes of the processor and the SoC in sysfs, the files of a fresh flash,
// and what the stand-in tools print, among it the network cable and the processor's temperature, which the bench
// changes. And one tree that is more than text: bind and unbind of the USB host controllers. Supervisor's thread only;
// nothing blocks.
#pragma once

#include <string>

#include "bench/control.h"

void PowerOnSystemFiles();

void WriteKernelLog(const std::string& line);  // appends it, as dmesg shows it
bool LanPlugged();
double TemperatureNow();         // degrees Celsius
void WriteDeviceId(int number);  // into the daemon's configuration, as the factory does

VerbAnswer LanVerb(const VerbWords& words);
VerbAnswer TemperatureVerb(const VerbWords& words);
