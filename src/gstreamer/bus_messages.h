// What the pipelines report: errors, warnings and end of stream, turned into restart requests. Shared by the video
// thread, which pops its bus, and by the bus signals, which run on whichever thread iterates the main context: it only
// raises flags, logs and, for the buffer-pool fault, runs shell tools (some tens of milliseconds).
#pragma once

#include <gst/gst.h>

// TRUE always. May end the process with status 0: too many buffer-pool failures since the board's boot.
gboolean HandleBusMessage(GstBus* bus, GstMessage* message, gpointer unused = nullptr);

// Dispatches what the elements of a stopped pipeline have posted to the main context and still refers to them. Another
// thread may keep the context busy for its own sake, so it takes at most some seconds.
void DrainMainContext();

// Marker files of buffer-pool failures. They outlive the process, not the board's boot, and are removed once frames
// flow.
int getNumFilesVideoPoolBufferFailure();
void RemoveVideoPoolLogs();
