// Everything the appliance remembers across power cycles: one record of 136 bytes that is, byte for byte, its file.
//
// There is one live record for the process (`Settings`). Start-up fills it before any other thread exists; from then on
// all threads read it and the writers of each field store whole fields, without a lock. `DefaultSettings` is the image
// that replaces a missing or damaged file; start-up puts the interface's MAC address into it, so that restoring the
// defaults keeps the real address. Bytes marked reserved keep what was read.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "settings/shared_field.h"

inline constexpr const char* kSettingsPath = "/home/root/config.bin";

using SharedByte = Shared<uint8_t>;
using Ipv4 = std::array<SharedByte, 4>;  // first octet first

// clang-format off

// `ViewId`: the layout held in View. With Swap 0 or 1 it gives SS1/SS2, TB1/TB2, BS1/BS2 and PPxx1/PPxx2.
enum ViewId : uint8_t {
    kViewS1 = 0, kViewS2 = 1, kViewSS = 2, kViewBS = 3, kViewPPTL = 4, kViewPPTR = 5, kViewPPBL = 6, kViewPPBR = 7,
    kViewTB = 21,
    kViewPP = 24,                              // only in the rows of PP, whose handler stores one of the four corners
};

// A window of the output frame in pixels; right and bottom are exclusive.
struct SharedWindow {
    Shared<uint16_t> left, top, right, bottom;
};

struct DeviceSettings {
    SharedByte Checksum;                       //   0  sum of the covered bytes, see ComputeChecksum
    std::array<SharedByte, 2> Signature;       //   1  AB 01
    SharedByte Reserved3;                      //   3  0 after a save
    std::array<SharedByte, 2> reserved4;
    SharedByte View;                           //   6  ViewId
    SharedByte Swap;                           //   7  0 or 1: which source takes the first place
    SharedByte SwHdmi;                         //   8  1: HDMI above USB 2 where they share a window
    SharedByte Reserved9;                      //   9  0 after every accepted command and key
    SharedByte Input;                          //  10  1..4, variants 1..3
    SharedByte reserved11;
    SharedWindow Pad0Rect, Pad1Rect, Pad2Rect; //  12  compositor windows, recomputed before every use
    Ipv4 IpAddress;                            //  36  static address
    SharedByte Dhcp;                           //  40  1 DHCP, 0 static
    std::array<SharedByte, 3> reserved41;
    SharedByte OutputHz;                       //  44  60 or 50: family of the applied output timing
    SharedByte OutputTiming;                   //  45  0..5, 0: the monitor decides
    std::array<SharedByte, 4> reserved46;
    SharedByte Black;                          //  50  1: the output shows black
    SharedByte reserved51;
    SharedByte S2Count;                        //  52  counts selections of S2
    SharedByte AudioJack;                      //  53  1: plug in the analog jack
    Shared<uint16_t> OutputWidth;              //  54  pixels, current output mode
    Shared<uint16_t> OutputHeight;             //  56
    Shared<uint16_t> OutputRefresh100;         //  58  Hz times 100
    SharedByte VideoRefresh;                   //  60  request to the video supervision, cleared there
    SharedByte Allow60;                        //  61  1: 60 Hz output timings allowed (strap)
    std::array<SharedByte, 4> MonitorVendor;   //  62  three letters of the EDID and a 0
    std::array<SharedByte, 6> reserved66;
    SharedByte PtzCamera;                      //  72  camera of one-argument moves, 1 or 2
    std::array<SharedByte, 3> reserved73;
    Shared<int32_t> PanCamera1, TiltCamera1, ZoomCamera1;   //  76  last values sent
    Shared<int32_t> PanCamera2, TiltCamera2, ZoomCamera2;   //  88
    SharedByte Inv1, Inv2;                     // 100  picture inversion of inputs 1 and 2
    SharedByte Ain1, Ain2, Ain3, Ain4;         // 102  input gains, dB: 0..100, or value - 256
    SharedByte Aout1;                          // 106  output gain
    SharedByte Acfg;                           // 107  audio input policy
    std::array<SharedByte, 6> MacAddress;      // 108  refreshed from the interface at every start
    SharedByte Sbtn;                           // 114  mute-button mode
    SharedByte Aout2, Aout3, Aout4;            // 115
    SharedByte Inv3, Inv4;                     // 118
    SharedByte AoutHdmi, AoutAnalog, AoutUsb1, AoutUsb2;    // 120  source of each audio output
    SharedByte UsbStream;                      // 124  255 while the USB host streams, else 0
    Ipv4 Netmask;                              // 125
    SharedByte Blank;                          // 129  last BLANK value
    Ipv4 Gateway;                              // 130
    SharedByte EnLog;                          // 134  1: standard output and error go to a network client
    SharedByte EnJpegParse;                    // 135  1: MJPEG streams pass a parser
};

// clang-format on

static_assert(sizeof(DeviceSettings) == 136 && std::is_trivially_copyable_v<DeviceSettings>);
static_assert(offsetof(DeviceSettings, View) == 6 && offsetof(DeviceSettings, Input) == 10);
static_assert(offsetof(DeviceSettings, Pad0Rect) == 12 && offsetof(DeviceSettings, Pad2Rect) == 28);
static_assert(offsetof(DeviceSettings, IpAddress) == 36 && offsetof(DeviceSettings, Dhcp) == 40);
static_assert(offsetof(DeviceSettings, OutputHz) == 44 && offsetof(DeviceSettings, OutputTiming) == 45);
static_assert(offsetof(DeviceSettings, Black) == 50 && offsetof(DeviceSettings, AudioJack) == 53);
static_assert(offsetof(DeviceSettings, OutputWidth) == 54 && offsetof(DeviceSettings, OutputRefresh100) == 58);
static_assert(offsetof(DeviceSettings, VideoRefresh) == 60 && offsetof(DeviceSettings, MonitorVendor) == 62);
static_assert(offsetof(DeviceSettings, PtzCamera) == 72 && offsetof(DeviceSettings, PanCamera1) == 76);
static_assert(offsetof(DeviceSettings, ZoomCamera2) == 96 && offsetof(DeviceSettings, Inv1) == 100);
static_assert(offsetof(DeviceSettings, Aout1) == 106 && offsetof(DeviceSettings, MacAddress) == 108);
static_assert(offsetof(DeviceSettings, Sbtn) == 114 && offsetof(DeviceSettings, Inv4) == 119);
static_assert(offsetof(DeviceSettings, AoutHdmi) == 120 && offsetof(DeviceSettings, UsbStream) == 124);
static_assert(offsetof(DeviceSettings, Netmask) == 125 && offsetof(DeviceSettings, Gateway) == 130);
static_assert(offsetof(DeviceSettings, EnLog) == 134 && offsetof(DeviceSettings, EnJpegParse) == 135);

extern DeviceSettings Settings;
extern DeviceSettings DefaultSettings;

// The checksum that the record should carry: the 8-bit sum of bytes 1..3, 6, 7, 36..40 and 45. No other byte is
// covered.
uint8_t ComputeChecksum(const DeviceSettings& record);

// Reads the settings file into the record. 0, or 1 after a message on standard error when the file is missing or holds
// fewer bytes than a record; the record is then unchanged. What follows the record in a longer file is ignored.
int LoadSettings(DeviceSettings& record, const char* path = kSettingsPath);

// Stamps the record (signature, checksum) and writes it to flash, synced. Always 0: a file that cannot be written is
// reported on standard error and the record lives on in memory. Blocks until the disk has it.
int SaveSettings(DeviceSettings& record, const char* path = kSettingsPath);

// A whole-record copy of a live record.
void CopySettings(DeviceSettings& to, const DeviceSettings& from);

// Sets View and Swap with one store, so that no reader sees one without the other.
void StoreViewAndSwap(DeviceSettings& record, uint8_t view, uint8_t swap);
