// The operations behind the command words. A handler receives the ten arguments of its row (missing ones are
// kMissingArgument), or null when its row takes none, stores what it is told into the live settings or raises a flag,
// and returns 0 for success. It runs on the thread of the channel that received the command. Levels and switches are
// stored with their low 8 bits, unchecked.
//
// Where the local channels and the network differ, the operation has two handlers (suffix Local, Network).
#pragma once

#include <cstdint>

#include "settings/device_settings.h"

// Rows that do nothing but store their argument. The threads that own the devices notice it on their next pass.
template <SharedByte DeviceSettings::*field>
int Store(const int32_t* arguments) {
    Settings.*field = static_cast<uint8_t>(arguments[0]);
    return 0;
}

// Layout and source
int CycleCorner(const int32_t*);              // PP
int SwapCommand(const int32_t*);              // SW
int ShowHdmiAbove(const int32_t*);            // SWHDMI
int ShowUsbAbove(const int32_t*);             // SWUSB
int PressFrontKey(const int32_t* arguments);  // KEY key
int PressInputKey(const int32_t* arguments);  // SKEY key
int ShowBlack(const int32_t*);                // BLK
int ShowPicture(const int32_t*);              // SHW
int BlankOutput(const int32_t* arguments);    // BLANK value; takes 500 ms when not 0
int InvertInput(const int32_t* arguments);    // INV input value; saves
int NoteUsbStreaming(const int32_t*);         // USBSTREAM
int NoteUsbIdle(const int32_t*);              // USBNSTREAM

// Audio; the local channels also print what was stored
int StoreHdmiAudioLocal(const int32_t* arguments);    // AOUTHDMI source
int StoreAnalogAudioLocal(const int32_t* arguments);  // AOUTANALOG source
int StoreUsb1AudioLocal(const int32_t* arguments);    // AOUTUSB1 source
int StoreUsb2AudioLocal(const int32_t* arguments);    // AOUTUSB2 source
int StoreMuteButtonMode(const int32_t* arguments);    // SBTN mode
int StartAudioTest(const int32_t*);                   // STARTAUDIOTEST
int StopAudioTest(const int32_t*);                    // STOPAUDIOTEST

// Video and output
int SetJpegParse(const int32_t* arguments);      // ENJPEGPARSE value
int SetOutputLocal(const int32_t* arguments);    // OUTPUT index; waits 1 s for the pipeline to go
int SetOutputNetwork(const int32_t* arguments);  // the same, waits until the pipeline is gone, and saves
int ResetUsbInputsCommand(const int32_t*);       // RSTUSB

// Cameras. A move goes on behind its answer.
int Pan(const int32_t* arguments);                 // PAN [camera] speed
int Tilt(const int32_t* arguments);                // TILT [camera] speed
int Zoom(const int32_t* arguments);                // ZOOM [camera] value
int RecallCameraPreset(const int32_t* arguments);  // PRESET camera preset
int StoreCameraPreset(const int32_t* arguments);   // SAVEPRESET camera preset

// Settings and identity
int Save(const int32_t*);                            // SAVE
int RestoreDefaults(const int32_t* = nullptr);       // RSTR; may wait up to 30 s for the network manager
int SetDeviceId(const int32_t* arguments);           // DEVICEID id; never checks it: above 3 the next start refuses
int SetStatusBroadcast(const int32_t* arguments);    // ENBCAST value
int SetNetworkLogCommand(const int32_t* arguments);  // ENLOG value
int KeepFirmware(const int32_t*);                    // FIRMWARE: nothing to do here

// Network. A client on the network gets its answer before the change, which may cut it off; over HTTP that is all it
// gets, over telnet a second answer follows.
int SetIpAddressLocal(const int32_t* arguments);  // IP a b c d
int SetIpAddressNetwork(const int32_t* arguments);
int SetNetmaskLocal(const int32_t* arguments);  // NETMASK a b c d
int SetNetmaskNetwork(const int32_t* arguments);
int SetDhcpLocal(const int32_t* arguments);  // DHCP mode; waits up to 30 s for the network manager
int SetDhcpNetwork(const int32_t* arguments);
int SetGateway(const int32_t* arguments);     // GATEWAY a b c d
int SetMacAddress(const int32_t* arguments);  // MACADDR (local), MAC (network): six bytes, for the next start

// Process control
int QuitLocal(const int32_t*);  // QUIT; do not return
int QuitNetwork(const int32_t*);
int RestartLocal(const int32_t*);  // RESTART; do not return
int RestartNetwork(const int32_t*);
int ResetLocal(const int32_t*);  // RST: the USB bridge, then the board
int ResetNetwork(const int32_t*);
int RebootCommand(const int32_t*);  // RBT
