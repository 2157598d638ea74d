#include "board/i2c.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>

#include "core/log.h"

// What the limit's message names; two bytes less than what a transfer really carries.
static constexpr int kAnnouncedWriteLimit = 500;

// Opened by start-up before any other thread exists. A negative descriptor makes every transfer on its bus fail.
static int bus1 = -1;
static int bus2 = -1;

static int OpenBus(const char* path, int& descriptor) {
    descriptor = open(path, O_RDWR | O_CLOEXEC);
    if (descriptor >= 0) return 0;
    LogInfo("%s\n", strerror(errno));
    return 1;
}

int I2cOpenBus1() { return OpenBus("/dev/i2c-1", bus1); }

int I2cOpenBus2() { return OpenBus("/dev/i2c-2", bus2); }

static int DescriptorOfBus(int bus) {
    if (bus == 0) return -1;
    return bus == 1 ? bus1 : bus2;
}

static int Transfer(int bus, std::span<i2c_msg> messages) {
    i2c_rdwr_ioctl_data request = {.msgs = messages.data(), .nmsgs = static_cast<uint32_t>(messages.size())};
    return ioctl(DescriptorOfBus(bus), I2C_RDWR, &request) < 0 ? 1 : 0;
}

int I2cWrite(int bus, uint8_t address, uint8_t reg, const uint8_t* data, size_t count) {
    if (count > kI2cWriteLimit) {
        LogInfo("Can't write more than %d bytes at a time.\n", kAnnouncedWriteLimit);
        return 1;
    }
    std::array<uint8_t, 1 + kI2cWriteLimit> bytes;
    bytes[0] = reg;
    std::copy_n(data, count, bytes.begin() + 1);
    i2c_msg message = {.addr = address, .flags = 0, .len = static_cast<uint16_t>(count + 1), .buf = bytes.data()};
    return Transfer(bus, {&message, 1});
}

int I2cRead(int bus, uint8_t address, uint8_t reg, uint8_t* destination, size_t count) {
    if (count > UINT16_MAX) return 1;  // the length field would wrap and the answer look complete
    std::array<i2c_msg, 2> messages = {{
        {.addr = address, .flags = 0, .len = 1, .buf = &reg},
        {.addr = address, .flags = I2C_M_RD, .len = static_cast<uint16_t>(count), .buf = destination},
    }};
    return Transfer(bus, messages);
}

int I2cAccess8(uint8_t address8, uint8_t reg, size_t count, uint8_t* buffer, int isRead) {
    const auto address = static_cast<uint8_t>(address8 / 2);
    return isRead ? I2cRead(1, address, reg, buffer, count) : I2cWrite(1, address, reg, buffer, count);
}
