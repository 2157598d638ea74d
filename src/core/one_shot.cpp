#include "core/one_shot.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "board/hdmi_receiver.h"
#include "board/i2c.h"
#include "core/log.h"
#include "settings/device_identity.h"

// Any part of a keyword stands for it, so that "ver" and "dev" do.
static bool IsPartOf(const char* keyword, const char* argument) { return strstr(keyword, argument) != nullptr; }

static uint8_t HexByte(const char* text) { return static_cast<uint8_t>(strtol(text, nullptr, 16)); }

// Arguments: i2c, read or write, bus, address, register and, to write, data.
static void RunI2c(int count, char** arguments) {
    if (count == 5 && IsPartOf("read", arguments[1])) {
        const uint8_t reg = HexByte(arguments[4]);
        uint8_t value = 0;
        I2cRead(atoi(arguments[2]), HexByte(arguments[3]), reg, &value, 1);
        LogInfo("I2C RD - reg = %X : value = %X\n", reg, value);
    } else if (count == 6 && IsPartOf("write", arguments[1])) {
        const uint8_t reg = HexByte(arguments[4]), data = HexByte(arguments[5]);
        I2cWrite(atoi(arguments[2]), HexByte(arguments[3]), reg, &data, 1);
        LogInfo("I2C WR - reg = %X : value = %X\n", reg, data);
    } else {
        LogInfo("Bad I2C command\n");
        LogInfo("./Tesselvisor i2c read i2cbus address register data\n");
        LogInfo("./Tesselvisor i2c write i2cbus address register data\n");
    }
}

static void ShowVersion(int, char**) { LogInfo("Version %d.%d.%d\n", kVersion[0], kVersion[1], kVersion[2]); }

static void ShowDeviceId(int, char**) { LogInfo("DeviceID %d\n", DeviceId.Load()); }

static void ShowVideo(int, char**) {
    ReadHdmiInputFormat(HdmiInput);
    if (HdmiInput.InputValid == 0)
        LogInfo("Video unlocked\n");
    else
        LogInfo("%dx%d\n", HdmiInput.Width.Load(), HdmiInput.Height.Load());
}

struct OneShotMode {
    const char* keyword;
    void (*run)(int count, char** arguments);  // arguments[0] is the mode
};
static constexpr OneShotMode kModes[] = {
    {.keyword = "i2c", .run = RunI2c},
    {.keyword = "version", .run = ShowVersion},
    {.keyword = "deviceid", .run = ShowDeviceId},
    {.keyword = "video", .run = ShowVideo},
};

void RunOneShot(int argumentCount, char** arguments) {
    for (const OneShotMode& mode : kModes)
        if (IsPartOf(mode.keyword, arguments[1])) return mode.run(argumentCount - 1, arguments + 1);
}
