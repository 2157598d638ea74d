#include "board/hdmi_receiver.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <thread>

#include "board/gpio.h"
#include "board/i2c.h"
#include "core/log.h"
#include "settings/device_identity.h"
#include "settings/device_settings.h"

HdmiInputStatus HdmiInput;
Shared<uint8_t> LargeFormatMode;
uint8_t EdidVersion;

static constexpr int kBus = 1;

// Register maps, by their 7-bit addresses.
static constexpr uint8_t kMainMap = 0x4C;
static constexpr uint8_t kHdmiMap = kHdmiMap8 / 2;
static constexpr uint8_t kCpMap = 0x22;
static constexpr uint8_t kDpllMap = 0x26;
static constexpr uint8_t kKsvMap = 0x32;
static constexpr uint8_t kEdidMap = 0x36;
static constexpr uint8_t kMap40 = 0x40;

static constexpr const char* kEdidPath = "/home/root/EDID_HDMI_INPUT.bin";
static constexpr size_t kEdidFileLimit = 300;
static constexpr size_t kEdidSize = 256;

// Highest TMDS clock in MHz that the capture port of each kernel line follows.
static constexpr int kTmdsLimitNewKernel = 169;
static constexpr int kTmdsLimit = 129;

static constexpr uint8_t kAudioMuted = 166;  // Ain3

// ---- Register tables, written in order, one byte a transfer ----

struct RegisterWrite {
    uint8_t map, reg, value;
};
using RegisterTable = std::span<const RegisterWrite>;

template <size_t N>
static consteval std::array<RegisterWrite, N> OnMap(uint8_t map, const uint8_t (&pairs)[N][2]) {
    std::array<RegisterWrite, N> table{};
    for (size_t i = 0; i < N; ++i) table[i] = {.map = map, .reg = pairs[i][0], .value = pairs[i][1]};
    return table;
}

// clang-format off
static constexpr RegisterWrite kPreparation[] = {
    {kMainMap, 0xFD, 0x44}, {kMainMap, 0xFB, 0x68},     // 8-bit addresses of the CP and HDMI maps
    {kCpMap,   0x01, 0x00},
    {kHdmiMap, 0x6F, 0x0C}, {kHdmiMap, 0x85, 0x1F}, {kHdmiMap, 0x87, 0x70}, {kHdmiMap, 0x57, 0xDA},
    {kHdmiMap, 0x58, 0x01}, {kHdmiMap, 0x03, 0x90}, {kHdmiMap, 0x4C, 0x44},
    {kCpMap,   0x3E, 0x80},
};
static constexpr auto kMainTable = OnMap(kMainMap, {
    {0x02, 0xF5}, {0x0C, 0x42}, {0x15, 0xA0}, {0x04, 0x60}, {0x01, 0x06}, {0x00, 0x08}, {0x03, 0x20}, {0x05, 0x28},
    {0x14, 0x3F}, {0x40, 0xE2}, {0x6E, 0xA8}, {0x20, 0xFC}, {0x19, 0xC8}, {0x33, 0x40}, {0x06, 0xA0}, {0xF4, 0x80},
    {0xF5, 0x7C}, {0xF8, 0x4C}, {0xF9, 0x64}, {0xFA, 0x6C}, {0xFB, 0x68}, {0xFD, 0x44},
});
static constexpr auto kMainTableNewKernel = OnMap(kMainMap, {
    {0x04, 0x80}, {0x06, 0xA1}, {0x03, 0x80}, {0x19, 0x88},
});
static constexpr auto kMap40Table = OnMap(kMap40, {{0x2A, 0x3E}});
static constexpr auto kDpllTable = OnMap(kDpllMap, {{0xB5, 0x03}});
static constexpr auto kKsvTable = OnMap(kKsvMap, {
    {0x74, 0x00}, {0x76, 0x00}, {0x53, 0xFF}, {0x52, 0xFF}, {0x70, 0x01},
});
static constexpr auto kHdmiTable = OnMap(kHdmiMap, {
    {0xC0, 0x03}, {0x00, 0x80}, {0x01, 0x04}, {0x02, 0x03}, {0x03, 0x98}, {0x10, 0x25}, {0x1B, 0x08}, {0x45, 0x04},
    {0x97, 0xC0}, {0x3D, 0x10}, {0x3E, 0x69}, {0x3F, 0x46}, {0x4E, 0xFE}, {0x4F, 0x08}, {0x50, 0x00}, {0x57, 0xA3},
    {0x58, 0x07}, {0x6C, 0xA2}, {0x6F, 0x08}, {0x73, 0x00}, {0x83, 0xFC}, {0x84, 0x03}, {0x85, 0x1F}, {0x86, 0x9B},
    {0x89, 0x03}, {0x9B, 0x03}, {0x93, 0x03}, {0x5A, 0x80}, {0x9C, 0x80}, {0x9C, 0xC0}, {0x9C, 0x00},
});
static constexpr auto kCpTable = OnMap(kCpMap, {
    {0xC0, 0x10}, {0xC1, 0x80}, {0xC2, 0x80}, {0xBF, 0x17}, {0xBA, 0x01},
});
static_assert(kMainTable.size() == 22 && kKsvTable.size() == 5 && kHdmiTable.size() == 31 && kCpTable.size() == 5);

// Written before and after a pause in which the receiver settles, [0] normal and [1] large format.
static constexpr RegisterWrite kFormatBeforePause[2][2] = {
    {{kMainMap, 0x03, 0x80}, {kHdmiMap, 0x1B, 0x08}},
    {{kMainMap, 0x03, 0x54}, {kHdmiMap, 0x1B, 0x00}},
};
static constexpr RegisterWrite kNormalAfterPause[] = {
    {kDpllMap, 0xC3, 0x00}, {kDpllMap, 0xCF, 0x00}, {kMainMap, 0xDD, 0x00}, {kHdmiMap, 0x57, 0xDA},
    {kCpMap, 0xBF, 0x16},
};
static constexpr RegisterWrite kLargeAfterPause[] = {
    {kDpllMap, 0xC3, 0x80}, {kDpllMap, 0xCF, 0x03}, {kMainMap, 0xDD, 0xA0}, {kCpMap, 0xBF, 0x17},
};
// clang-format on

// Bits of the main map that select the output format, changed after a switch of the mode, [0] normal and [1] large.
struct RegisterUpdate {
    uint8_t reg, keep, set;
};
static constexpr RegisterUpdate kFormatOutput[2][3] = {
    {{.reg = 0x02, .keep = 0xFD, .set = 0x00},
     {.reg = 0x04, .keep = 0x1F, .set = 0x00},
     {.reg = 0x06, .keep = 0xF0, .set = 0x00}},
    {{.reg = 0x02, .keep = 0xFD, .set = 0x00},
     {.reg = 0x04, .keep = 0x1F, .set = 0x40},
     {.reg = 0x06, .keep = 0xF0, .set = 0x06}},
};

// ---- Access ----

static void Wait(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

static int ReadRegister(uint8_t map, uint8_t reg, uint8_t& value) { return I2cRead(kBus, map, reg, &value, 1); }

static int WriteRegister(uint8_t map, uint8_t reg, uint8_t value) { return I2cWrite(kBus, map, reg, &value, 1); }

// Reads, keeps and sets bits, writes back. Nothing is written when the read fails: the bits to keep are unknown then.
static int UpdateRegister(uint8_t map, uint8_t reg, uint8_t keep, uint8_t set) {
    uint8_t value;
    if (int failed = ReadRegister(map, reg, value)) return failed;
    return WriteRegister(map, reg, static_cast<uint8_t>((value & keep) | set));
}

// Result of the first write that fails, which is the last one tried.
static int WriteTable(RegisterTable table) {
    for (const RegisterWrite& row : table)
        if (int failed = WriteRegister(row.map, row.reg, row.value)) return failed;
    return 0;
}

static void WriteTableUnchecked(RegisterTable table) {
    for (const RegisterWrite& row : table) WriteRegister(row.map, row.reg, row.value);
}

// ---- Bring-up ----

static int ResetReceiver() {
    GpioWrite(kGpioReceiverReset, 0);
    Wait(100);
    GpioWrite(kGpioReceiverReset, 1);
    const int failed = WriteRegister(kMainMap, 0xFF, 0x80);
    if (failed) LogInfo("CyFxHDMIRxMainReset Reset HDMI failed %x\n", static_cast<unsigned>(failed));
    return failed;
}

static int WriteStartTables() {
    int failed = WriteTable(kMainTable);
    if (!failed && NewKernel) WriteTableUnchecked(kMainTableNewKernel);
    for (RegisterTable table : {RegisterTable(kMap40Table), RegisterTable(kDpllTable), RegisterTable(kKsvTable),
                                RegisterTable(kHdmiTable), RegisterTable(kCpTable)})
        if (!failed) failed = WriteTable(table);
    if (failed) LogInfo("I2C failed %x\n", static_cast<unsigned>(failed));
    return failed;
}

static int EnableProcessing() {
    uint8_t control;
    int failed = ReadRegister(kCpMap, 0xBD, control);
    if (failed) {
        LogInfo("CyFxUsbI2cTransfer Send Data 2 failed %x\n", static_cast<unsigned>(failed));
        return failed;
    }
    failed = WriteRegister(kCpMap, 0xBD, control & 0xEF);
    if (failed) {
        LogInfo("CyFxUsbI2cTransfer Send Data 1 failed %x\n", static_cast<unsigned>(failed));
        return failed;
    }
    failed = WriteRegister(kCpMap, 0xC9, 0x2D);
    if (failed) LogInfo("CyFxUsbI2cTransfer Send Data 3 failed %x\n", static_cast<unsigned>(failed));
    return failed;
}

// A file that is shorter than an EDID leaves the rest of it zero; one that is longer than the buffer is not an EDID.
static int ReadEdidFile(std::array<uint8_t, kEdidFileLimit>& edid) {
    FILE* file = fopen(kEdidPath, "rbe");
    if (!file) {
        fputs("File h error\r", stderr);
        return 1;
    }
    const size_t size = fread(edid.data(), 1, edid.size(), file);
    const bool tooLong = size == edid.size() && fgetc(file) != EOF;
    const bool failed = ferror(file);
    fclose(file);
    if (failed || tooLong) {
        fputs("Reading h error\r", stderr);
        return 1;
    }
    EdidVersion = edid[12];
    return 0;
}

static int PresentEdid(const std::array<uint8_t, kEdidFileLimit>& edid) {
    if (int failed = I2cWrite(kBus, kEdidMap, 0, edid.data(), kEdidSize)) return failed;
    const int failed = WriteRegister(kKsvMap, 0x74, 0x03);
    if (failed) LogInfo("write I2C KSV reg 0x74 failed %x\n", static_cast<unsigned>(failed));
    return failed;
}

// Takes the hot-plug line of one port down and up again, so that its source reads the EDID anew.
static void PulseHotPlug(uint8_t lineDown) {
    WriteRegister(kHdmiMap, 0x6C, 0xA1);
    WriteRegister(kMainMap, 0x20, lineDown);
    Wait(200);
    WriteRegister(kMainMap, 0x20, 0xF0);
    Wait(100);
    WriteRegister(kHdmiMap, 0x6C, 0xA2);
}

int HdmiRxInit() {
    if (ResetReceiver()) return 0;
    Wait(100);
    WriteTableUnchecked(kPreparation);
    if (WriteStartTables()) return 0;
    HdmiRxAudioMute(1);
    if (EnableProcessing()) return 0;

    std::array<uint8_t, kEdidFileLimit> edid{};
    if (ReadEdidFile(edid)) return 1;  // sources see no EDID, yet the input can be used
    if (PresentEdid(edid)) return 0;
    HdmiRxAdaptOutput();
    for (int gpio : kGpioReceiverReady) GpioWrite(gpio, 1);
    Wait(100);
    PulseHotPlug(0x78);
    PulseHotPlug(0xB8);
    return 1;
}

// ---- Running ----

int HdmiRxSelectPort(uint8_t port, HdmiInputStatus& status) {
    const int failed = UpdateRegister(kHdmiMap, 0x00, 0xFE, port & 1);
    status.Port = port;
    return failed;
}

int HdmiRxSignalDetect(uint8_t port) {
    uint8_t signals = 0;
    ReadRegister(kMainMap, 0x6A, signals);
    return (signals >> (port == 1 ? 3 : 4)) & 1;
}

int HdmiRxAudioMute(int on) { return UpdateRegister(kHdmiMap, 0x1A, 0xEF, on ? 0x10 : 0x00); }

int HdmiRxSetLargeFormatMode(int on) {
    if (int failed = WriteTable(kHdmiTable)) return failed;
    WriteTableUnchecked(kFormatBeforePause[on ? 1 : 0]);
    Wait(100);
    WriteTableUnchecked(on ? RegisterTable(kLargeAfterPause) : RegisterTable(kNormalAfterPause));
    LargeFormatMode = on ? 1 : 0;
    return 0;
}

void HdmiRxAdaptOutput() {
    std::array<uint8_t, 4> from07;
    for (uint8_t reg : std::array<uint8_t, 4>{0x09, 0x0A, 0x07, 0x08})
        if (ReadRegister(kHdmiMap, reg, from07[reg - 0x07u])) return;
    const bool large = IsLargeFormat(from07);
    if (large == (LargeFormatMode != 0)) return;
    if (HdmiRxSetLargeFormatMode(large)) return;
    for (const RegisterUpdate& update : kFormatOutput[large])
        UpdateRegister(kMainMap, update.reg, update.keep, update.set);
}

static int ReportFormatReadFailure() {
    LogInfo("I2C read failed for getting input format.\r");
    return 1;
}

static int ReadLock(HdmiInputStatus& status) {
    std::array<uint8_t, 2> clock;
    if (I2cRead(kBus, kHdmiMap, 0x51, clock.data(), clock.size())) return ReportFormatReadFailure();
    status.TmdsMhz = DecodeTmdsMhz(clock[0], clock[1]);

    uint8_t lock;
    if (ReadRegister(kHdmiMap, 0x07, lock)) {
        LogInfo("I2C read failed. Map %x, Register %x\r", unsigned{kHdmiMap8}, 0x07u);
        return 1;
    }
    const bool captured = ClockCanBeCaptured(status.TmdsMhz, NewKernel);
    status.InputValid = (lock & kHdmiLockMask) && captured;
    WriteRegister(kCpMap, 0xBF, captured ? 0x16 : 0x17);
    return 0;
}

static void ReadPort(HdmiInputStatus& status) {
    uint8_t control;
    if (!ReadRegister(kHdmiMap, 0x00, control)) status.Port = control & 1;
    UpdateRegister(kHdmiMap, 0x00, 0xF7, status.Port == 0 ? 0x08 : 0x00);
    status.PortIsA = status.Port == 0;
    WriteRegister(kHdmiMap, 0x5A, 0x20);
}

static int ReadAlternateTiming(HdmiInputStatus& status) {
    uint8_t flags;
    if (ReadRegister(kMainMap, 0x8D, flags) || !(flags & 0x02)) return 0;
    std::array<uint8_t, kAlternateRegisters> fromE2;
    if (I2cRead(kBus, kHdmiMap, 0xE2, fromE2.data(), fromE2.size())) return ReportFormatReadFailure();
    DecodeAlternateTiming(fromE2, status);
    return 0;
}

int ReadHdmiInputFormat(HdmiInputStatus& status) {
    uint8_t unused;
    ReadRegister(kMainMap, 0x6F, unused);  // every pass begins with this access; its value says nothing to us
    status.SignalDetect = static_cast<uint8_t>(HdmiRxSignalDetect(status.Port));
    if (ReadLock(status)) return 1;

    std::array<uint8_t, kTimingRegisters> from07;
    if (I2cRead(kBus, kHdmiMap, 0x07, from07.data(), from07.size())) return ReportFormatReadFailure();
    DecodeTiming(from07, status);
    ReadPort(status);
    if (ReadAlternateTiming(status)) return 1;

    HdmiRxAudioMute(!status.InputValid || Settings.Ain3 == kAudioMuted);
    return UpdateRegister(kHdmiMap, 0x00, 0xFF, 0x80);
}

// ---- Register bytes to values ----

static uint16_t Join(uint8_t high, uint8_t highMask, uint8_t low) {
    return static_cast<uint16_t>((high & highMask) << 8 | low);
}

uint16_t DecodeTmdsMhz(uint8_t register51, uint8_t register52) {
    return static_cast<uint16_t>(register51 * 2 | (register52 & 0x80 ? 2 : 0));
}

bool ClockCanBeCaptured(uint16_t tmdsMhz, bool newKernel) {
    return tmdsMhz <= (newKernel ? kTmdsLimitNewKernel : kTmdsLimit);
}

void DecodeTiming(std::span<const uint8_t, kTimingRegisters> from07, HdmiInputStatus& status) {
    const uint16_t height = Join(from07[2], 0x1F, from07[3]);
    status.Height = height;
    status.HeightCopy = height;
    status.Width = Join(from07[0], 0x0F, from07[1]);
    // Sources exist that send fields without saying so: the field heights of broadcast video give them away.
    status.Interlaced = height == 240 || height == 288 || height == 540 || (from07[4] & 0x20);
}

void DecodeAlternateTiming(std::span<const uint8_t, kAlternateRegisters> fromE2, HdmiInputStatus& status) {
    const uint16_t width = Join(fromE2[0], 0x1F, fromE2[1]);
    const uint16_t height = Join(fromE2[4], 0x1F, fromE2[5]);
    status.AltWidth = width;
    status.AltHeight = height;
    status.AltValid = width && height;
    status.AltFlag = fromE2[8] & 1;
}

bool IsLargeFormat(std::span<const uint8_t, 4> from07) {
    const int width = Join(from07[0], 0x1F, from07[1]);
    const int height = from07[2] << 8 | from07[3];
    return height == 2160 || height == 1440 || width == 2560 || width == 3840 || width == 4096;
}
