// The operations behind the command words. A handler receives the ten arguments of its row (missing ones are
// kMissingArgument), or null when its row takes none, stores what it is told into the live settings or raises a flag,
// and returns 0 for success. It runs on the thread of the channel that received the command. Levels and switches are
// stored with their low 8 bits, unchecked.
//
// Where the local channels and the network differ, the operation has two handlers (suffix Local, Network).
#pragma once

#include <cstdint>

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

// Video and output
int SetJpegParse(const int32_t* arguments);      // ENJPEGPARSE value
int SetOutputLocal(const int32_t* arguments);    // OUTPUT index; waits 1 s for the pipeline to go
int SetOutputNetwork(const int32_t* arguments);  // the same, waits until the pipeline is gone, and saves
int ResetUsbInputsCommand(const int32_t*);       // RSTUSB

// Settings and identity
int Save(const int32_t*);                            // SAVE
int RestoreDefaults(const int32_t* = nullptr);       // RSTR; may wait up to 30 s for the network manager
int SetDeviceId(const int32_t* arguments);           // DEVICEID id; never checks it: above 3 the next start refuses
int SetStatusBroadcast(const int32_t* arguments);    // ENBCAST value
int SetNetworkLogCommand(const int32_t* arguments);  // ENLOG value
int KeepFirmware(const int32_t*);                    // FIRMWARE: nothing to do here

// Process control
int QuitLocal(const int32_t*);  // QUIT; do not return
int QuitNetwork(const int32_t*);
int RestartLocal(const int32_t*);  // RESTART; do not return
int RestartNetwork(const int32_t*);
int ResetLocal(const int32_t*);  // RST: the USB bridge, then the board
int ResetNetwork(const int32_t*);
int RebootCommand(const int32_t*);  // RBT
