// The display controller's frame buffers, /dev/fb0 (the picture) and /dev/fb2: their timing, as fbset sets and prints
// it, and the blank switch below /sys/class/graphics. The picture itself goes another way (display.h). Supervisor's
// thread only; nothing blocks.
#pragma once

#include <linux/fb.h>

// 1920x1080 at 60 Hz on both, or the native mode of a fixed panel that is plugged in.
void PowerOnFramebuffer();

// The timing that fb0 runs now.
const fb_var_screeninfo& DisplayTiming();

// A panel with a single mode: its driver answers every request for another with its own. Null lifts that.
void SetFixedPanel(const fb_var_screeninfo* mode);
