// The board's sound cards. Three are on it: the codec with its line input and output, the FPGA's, and that of the HDMI
// output; their numbers are 0 to 2. Those of USB devices follow with the lowest free number: a camera's microphone and
// speaker come and go with it, and sound devices of their own (sound_profiles.h) can be plugged into the camera ports.
//
// A program that still holds a node of a card that went gets ENODEV from then on; its number is free at once, as in the
// kernel. Every source has a tone of its own and every output keeps what it was given lately (see the table of places
// in sound_device.h), so that a test can tell by ear what is connected to what.
//
// Supervisor's thread; nothing blocks.
#pragma once

#include <string>

#include "bench/control.h"
#include "bench/trace.h"

void PowerOnSound();                        // before the cameras
void SoundHostBound(int host, bool bound);  // a USB host controller takes its devices with it and brings them back

std::string PluggedSound(int port);  // the sound device on camera port 1 or 2, empty: none

// What can be drawn several times a second: per output that has a card, its level and the sources heard.
Json SoundLevels();

VerbAnswer AudioVerb(const VerbWords& words);       // audio: what every output plays and every input has given
VerbAnswer ToneVerb(const VerbWords& words);        // tone SOURCE on|off
VerbAnswer SoundVerb(const VerbWords& words);       // sound PORT plug PROFILE | unplug
VerbAnswer SoundFaultVerb(const VerbWords& words);  // fault sound PLACE busy|xrun|gone|off
