// Checks that keep the appliance alive, and the orderly ways for the process to end.
#pragma once

#include <cstdint>

inline constexpr const char* kHdmiCableStatePath = "/sys/devices/platform/soc/20e0000.hdmi_video/cable_state";

// Disarms the watchdog, stops the first process of this name in the process list, exits with status 0. Any thread.
[[noreturn]] void Terminate();

int Reboot();  // runs "reboot -f"; 0

// 1 when the kernel log shows the display-flip time-out, else 0.
int KernelIssueCheck();

// Cleans GStreamer's plug-in cache when plug-ins were blacklisted. 0, or 1 when the tool could not be started.
int PluginBlacklistCheck();

// 0 and plugged 1 or 0; 1 after a message when the state file cannot be opened (plugged unchanged).
int ReadHdmiCableState(uint8_t& plugged);
