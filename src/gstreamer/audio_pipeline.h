// The sound of the appliance: microphones and line input mixed for the FPGA, and four outputs, each fed from the source
// that the settings name. One call of ManageAudioGStreamer is one life of the pipeline; gains and mute act in the
// running pipeline (audio/audio_levels.h), routing, cards and faults by a new life.
//
// Audio thread only. What others want of it they say by AudioRestart, AudioTest and AudioBug (settings/process_flags.h)
// and by the settings; it looks every 100 ms.
#pragma once

// 0 after a pipeline, normal or test, has run and is destroyed. 1 when none was started: the USB cards have just
// changed, or the monitor's state could not be read.
int ManageAudioGStreamer();

[[noreturn]] void AudioSupervisionLoop();
