// The audio test: a 1 kHz tone on one output, the line input looped to the other, and the level of what the FPGA
// sends, printed twice a second. Audio thread only.
#pragma once

#include <gst/gst.h>

// Builds the test on an empty pipeline, plays it, and returns when AudioRestart asks for something else; AudioTest is
// cleared then. The pipeline is left playing, its bus without a watch. Iterates the default main context meanwhile:
// nobody else does, and the levels arrive there.
void RunTestTone(GstElement* pipeline, GstBus* bus);

// The bus watch that prints "AudioLevels: " and the RMS of each channel as a linear amplitude. TRUE always.
gboolean PrintAudioLevels(GstBus* bus, GstMessage* message, gpointer unused);
