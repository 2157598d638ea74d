// Which board this process runs on. Written by start-up before any other thread exists, read by everybody afterwards;
// only DeviceId can change later (its command).
#pragma once

#include <cstdint>

#include "settings/shared_field.h"

inline constexpr const char* kIdentityPath = "/home/root/Tesselvisor.conf";  // first line: DEVICEID=number

inline constexpr int kVersion[3] = {2, 0, 12};

extern Shared<uint8_t> DeviceId;  // hardware variant: 0 composes layouts, 1..3 switch between four inputs
extern uint8_t TopBoard;          // 1: the extension board answered
extern uint8_t NewKernel;         // 1: the kernel is not of the 2017 line
extern uint8_t NoWatchdog;        // 1: the marker file switched the watchdog off
extern char OsVersion[9];         // at most 8 characters, or "unknown"
