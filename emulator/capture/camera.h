// The two USB camera ports of the board: what is plugged into them, and what its cable does.
//
// A camera is a profile (camera_profiles.h) on a port. Plugging makes its node (the lowest free number, as the kernel
// does), its /sys folder, its line of `lsusb`, and tells udev. Unplugging takes them away; programs that still hold the
// node get ENODEV from then on, and the number stays taken until they let go. Supervisor's thread; nothing blocks.
#pragma once

#include <string>

#include "bench/control.h"
#include "capture/camera_profiles.h"

void PowerOnCameras();  // plugs what BoardOptions or later verbs left on the ports

// Both answer with what was wrong, or an empty text. `camera` is 1 or 2. PROFILE is a name of ListCameraProfiles(), a
// path to a profile file, or "recording:/path/to/a/film".
std::string PlugCamera(int camera, const std::string& profile);
std::string UnplugCamera(int camera);

// Host controller 0 serves camera port 1, controller 1 port 2. Unbinding it unplugs what hangs there, binding brings it
// back.
void UsbHostBound(int host, bool bound);

// Has a follower (the sound card of a camera's microphone) called at each plug, with the profile, and unplug, with
// null. Kept for the life of the emulator; asking again with the same function changes nothing.
void OnCameraPlug(void (*changed)(int camera, const CameraProfile* profile));
const CameraProfile* ConnectedCamera(int camera);  // what the board's USB sees on this port now; null: nothing
std::string PluggedCamera(int camera);             // the profile by the name that PlugCamera was given; empty: nothing

// What hands did to the port and what the daemon does with it; null when nothing is plugged.
Json CameraSummary(int camera);

VerbAnswer CameraVerb(const VerbWords& words);       // camera N [plug PROFILE | unplug | stall | resume | garbage]
VerbAnswer CameraFaultVerb(const VerbWords& words);  // fault camera N query|read|write|stuck|off
