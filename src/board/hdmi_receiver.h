// The HDMI receiver chip on I2C bus 1: brought up once by start-up, then read by the video thread, the LED thread and
// the audio thread. Its registers are grouped in maps, each with an address of its own. No access is retried;
// read-modify-write sequences of different threads are not serialised, so a later writer can undo an earlier one's bit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "settings/shared_field.h"

// State of the input, one record for the process, 22 bytes. Written by ReadHdmiInputFormat and HdmiRxSelectPort, read
// without a lock by other threads.
struct HdmiInputStatus {
    Shared<uint8_t> SignalDetect;  //  0  signal on the current port
    Shared<uint8_t> InputValid;    //  1  locked, and its clock within what this kernel captures: the input is active
    Shared<uint16_t> Height;       //  2  lines of a field
    Shared<uint16_t> reserved4;
    Shared<uint16_t> HeightCopy;  //  6  same as Height
    Shared<uint16_t> Width;       //  8  pixels of a line
    Shared<uint8_t> Interlaced;   // 10
    Shared<uint8_t> Port;         // 11  selected port, 0 or 1
    Shared<uint8_t> PortIsA;      // 12  1 when Port is 0
    Shared<uint8_t> AltValid;     // 13  both alternate measurements are non-zero
    Shared<uint16_t> AltHeight;   // 14  measured on the other port
    Shared<uint16_t> AltWidth;    // 16
    Shared<uint8_t> AltFlag;      // 18
    Shared<uint8_t> reserved19;
    Shared<uint16_t> TmdsMhz;  // 20  TMDS clock
};
static_assert(sizeof(HdmiInputStatus) == 22 && offsetof(HdmiInputStatus, Width) == 8);
static_assert(offsetof(HdmiInputStatus, AltHeight) == 14 && offsetof(HdmiInputStatus, TmdsMhz) == 20);

extern HdmiInputStatus HdmiInput;
extern Shared<uint8_t> LargeFormatMode;  // 1: set up for 2160 and 1440 lines
extern uint8_t EdidVersion;              // byte 12 of the EDID file

inline constexpr uint8_t kHdmiMap8 = 0x68;      // 8-bit address of the HDMI map, for the sync poll
inline constexpr uint8_t kHdmiLockMask = 0xA0;  // of its register 0x07: any of these bits says that the input is locked

// 1 when the receiver is set up (also when only the EDID file is missing or unreadable), 0 when an access failed.
// Takes about 1.1 s.
int HdmiRxInit();

// 0, or non-zero when a read failed; fields that were not reached keep their values.
int ReadHdmiInputFormat(HdmiInputStatus& status);

int HdmiRxSelectPort(uint8_t port, HdmiInputStatus& status);  // result of the write
int HdmiRxSignalDetect(uint8_t port);                         // 1: signal; 0 also when the receiver does not answer
int HdmiRxAudioMute(int on);                                  // result of the write
int HdmiRxSetLargeFormatMode(int on);                         // 0, or 1 when a table write failed: mode unchanged
void HdmiRxAdaptOutput();                                     // into or out of large-format mode, as the source needs

// Register bytes to values; no access. `from07` are registers 0x07.. and `fromE2` registers 0xE2.. of the HDMI map.
inline constexpr size_t kTimingRegisters = 25;
inline constexpr size_t kAlternateRegisters = 10;

uint16_t DecodeTmdsMhz(uint8_t register51, uint8_t register52);
bool ClockCanBeCaptured(uint16_t tmdsMhz, bool newKernel);  // whether this kernel's capture keeps up with it
void DecodeTiming(std::span<const uint8_t, kTimingRegisters> from07, HdmiInputStatus& status);
void DecodeAlternateTiming(std::span<const uint8_t, kAlternateRegisters> fromE2, HdmiInputStatus& status);
bool IsLargeFormat(std::span<const uint8_t, 4> from07);
