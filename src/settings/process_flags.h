// One-byte requests and states by which the threads speak to each other, none of them part of the settings file.
//
// Every flag is stored whole and polled; nobody waits on one. Who raises and who clears it stands beside it.
#pragma once

#include <cstdint>

#include "settings/shared_field.h"

extern Shared<uint8_t>
    PipelineRestart;  // 1: the video thread destroys and rebuilds its pipeline; cleared by that destroy
extern Shared<uint8_t>
    AudioRestart;  // 1: rebuild after waiting for USB audio, 2: rebuild at once; cleared by the audio thread
extern Shared<uint8_t> AudioTest;        // 1: test tone requested or running
extern Shared<uint8_t> AudioBug;         // 1: a pipeline warned of the audio fault; cleared by the audio thread
extern Shared<uint8_t> StatusBroadcast;  // non-zero: the status report is pushed every 5 s; 1 at start
extern Shared<uint8_t> MuteIn;           // 1: inputs muted by the front panel
extern Shared<uint8_t> VideoPoolIssue;   // 1: a buffer-pool error was seen; cleared when frames flow again
extern Shared<uint8_t> HdmiSyncLost;  // 1: the HDMI input lost sync; set by its poll, cleared by the video supervision
extern Shared<uint32_t> FrameCount;   // frames rendered by the running pipeline
