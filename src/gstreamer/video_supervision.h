// The video thread: waits until there is something to show, builds the pipeline, follows settings, inputs and outputs,
// and tears it down when it must be rebuilt.
//
// Waiting -> building -> running -> destroying, and after a second from the start: one call of ManageDynamicGStreamer
// is one such life. Other threads speak to it through the settings and the process flags only; it answers within a
// pass, about 100 ms, unless it is waiting for frames (at most 3 s), for a device to settle (1 s steps) or for the HDMI
// source (2 s).
#pragma once

#include "video/device_monitor.h"

void VideoThreadMain();  // never returns, except when hot-plug cannot be watched

// One pipeline life. 0 after an orderly destroy, 1 when it could not start or the output could not be set. Ends the
// process when the monitor is unplugged.
int ManageDynamicGStreamer(const VideoDeviceMonitor& monitor);
