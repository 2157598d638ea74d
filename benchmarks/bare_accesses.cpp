#include "bare_accesses.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>

#include "audio/sound_cards.h"
#include "core/health.h"

// ---- Lines

static void WriteFile(const std::string& path, std::string_view text) {
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (file < 0 || write(file, text.data(), text.size()) < 0) perror(path.c_str());
    close(file);
}

static void ReadFile(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::array<char, 256> text;
    if (file < 0 || read(file, text.data(), text.size()) < 1) perror(path.c_str());
    close(file);
}

static std::string LineFile(int line, const char* name) {
    return "/sys/class/gpio/gpio" + std::to_string(line) + "/" + name;
}

static void Drive(int line) { WriteFile(LineFile(line, "value"), "1"); }

static void Sense(int line) { ReadFile(LineFile(line, "value")); }

void ExportLines() {
    for (const int line : {7, 8, 9, 83, 105, 126, 87, 103, 106, 154, 104}) {
        WriteFile("/sys/class/gpio/export", std::to_string(line));
        WriteFile(LineFile(line, "direction"), line == 87 ? "in" : "out");
    }
}

// ---- Buses

static int buses[3];

void OpenBuses() {
    for (const int bus : {1, 2}) buses[bus] = open(("/dev/i2c-" + std::to_string(bus)).c_str(), O_RDWR | O_CLOEXEC);
}

static void Transfer(int bus, std::span<i2c_msg> messages) {
    i2c_rdwr_ioctl_data request{messages.data(), uint32_t(messages.size())};
    if (ioctl(buses[bus], I2C_RDWR, &request) < 0) perror("transfer");
}

void Put(int bus, uint8_t address, std::vector<uint8_t> bytes) {
    std::array messages{i2c_msg{.addr = address, .flags = 0, .len = uint16_t(bytes.size()), .buf = bytes.data()}};
    Transfer(bus, messages);
}

void Get(int bus, uint8_t address, uint8_t reg, uint16_t count) {
    std::array<uint8_t, 25> bytes;
    std::array messages{i2c_msg{.addr = address, .flags = 0, .len = 1, .buf = &reg},
                        i2c_msg{.addr = address, .flags = I2C_M_RD, .len = count, .buf = bytes.data()}};
    Transfer(bus, messages);
}

// ---- LEDs and panel

void IndicatorPass(int hdmi0Indicator) {
    for (const int line : {7, 8, 9, hdmi0Indicator, 126}) Drive(line);
    for (int port = 0; port < 2; ++port) Get(1, 0x4C, 0x6A, 1);
}

void KeypadPass() {
    Sense(87);
    Get(2, 0x08, 0, 25);
    Put(2, 0x08, {0, 1, 0xAB, 0xCD, 0, 0, 0, 0, 0, 0, 0});
    usleep(25'000);
}

void ExpanderPass() {
    Sense(87);
    Get(2, 0x21, 1, 1);
    Put(2, 0x21, {2, 1});
    Put(2, 0x21, {0x40, 0, 0});
    Get(2, 0x21, 6, 1);
    usleep(25'000);
}

void PlainPass() { usleep(1'000); }

void ButtonsPass() {
    for (const int line : {154, 106, 103}) {
        WriteFile(LineFile(line, "direction"), "in");
        Sense(line);
        WriteFile(LineFile(line, "direction"), "out");
    }
    for (const int line : {104, 154, 106, 103}) Drive(line);
    usleep(1'000);
}

// ---- The other threads

void SerialPass(int port) {
    char byte;
    if (read(port, &byte, 1) == 0) perror("port");
    usleep(1'000);
}

static void Wait(int port, int milliseconds) {
    pollfd request{.fd = port, .events = POLLIN, .revents = 0};
    poll(&request, 1, milliseconds);
}

void CablePass(int port) {
    constexpr uint8_t kMain = 0x4C, kHdmi = 0x34, kCp = 0x22;
    Wait(port, 100);
    ReadFile(kHdmiCableStatePath);
    Get(1, kMain, 0x6F, 1);
    Get(1, kMain, 0x6A, 1);
    Get(1, kHdmi, 0x51, 2);
    Get(1, kHdmi, 0x07, 1);
    Put(1, kCp, {0xBF, 0x16});
    Get(1, kHdmi, 0x07, 25);
    for (int time = 0; time < 2; ++time) Get(1, kHdmi, 0x00, 1);
    Put(1, kHdmi, {0x00, 0x08});
    Put(1, kHdmi, {0x5A, 0x20});
    Get(1, kMain, 0x8D, 1);
    for (const uint8_t reg : std::array<uint8_t, 2>{0x1A, 0x00}) {
        Get(1, kHdmi, reg, 1);
        Put(1, kHdmi, {reg, 0x80});
    }
    Wait(port, 0);
}

void CardsPass(int port) {
    int count = 0;
    CountSoundCards(count);
    Wait(port, 100);
}

void SyncPass() {
    Get(1, 0x34, 0x07, 1);
    usleep(100'000);
}
