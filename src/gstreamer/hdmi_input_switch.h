// Variants 1..3: one receiver, two HDMI ports. The picture is frozen by the valve while the receiver changes ports,
// because the capture shows garbage until it has locked again. Video thread only.
#pragma once

#include "gstreamer/video_pipeline.h"

// Selects the receiver's port for Input 3 or 4 and lets it settle; other inputs leave it alone. Blocks 100 ms.
void SelectPortOfInput(uint8_t input);

void SetValve(const VideoPipeline& pipeline, bool open);  // closed: the display keeps its last picture

// Sends the capture through a stop, so that it starts anew with the source's present format. Blocks while drivers
// close.
void RestartHdmiSource(const VideoPipeline& pipeline);

// Changes the port while the capture stands still, and fits its caps to the new source. Blocks about 100 ms.
void SwitchHdmiFormat(VideoPipeline& pipeline, uint8_t input);
