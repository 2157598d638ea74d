// The board's two I2C buses, /dev/i2c-1 and /dev/i2c-2, and what answers on them. A device is a row that its own file
// adds at power-on; most are a plain file of 256 registers. A transfer is one I2C_RDWR request: a written message gives
// the register first, then the data; every further byte goes to, or comes from, the next register. A device that does
// not answer makes the transfer fail with ENXIO, as the controller's driver does. Supervisor's thread only.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "bench/control.h"
#include "bench/trace.h"

struct I2cDevice {
    std::string_view name;
    int bus = 0;
    uint8_t address = 0;  // 7 bits
    std::array<uint8_t, 256> registers{};

    // All optional. `offset` is the register, not wrapped at 256, so that a device may see where its memory ends.
    bool (*answers)(const I2cDevice& device) = nullptr;                          // null: always
    uint8_t (*read)(I2cDevice& device, unsigned offset) = nullptr;               // null: registers[offset & 0xFF]
    void (*write)(I2cDevice& device, unsigned offset, uint8_t value) = nullptr;  // null: stored there
    void (*written)(I2cDevice& device) = nullptr;                                // after a message that carried data

    unsigned pointer = 0;  // register of the next byte; the bus keeps it
};

// Puts a device on its bus until the next power-on. The device belongs to the caller and must stay where it is.
void AddI2cDevice(I2cDevice& device);

// Empty buses but for the fixed register files of the board. Faults are the bench's and outlast a power cycle, so that
// a start-up with a dead chip can be watched.
void PowerOnI2c();

VerbAnswer I2cVerb(const VerbWords& words);       // i2c: every register map
Json I2cFaultSummary();                           // {"08": "nak"}
VerbAnswer I2cFaultVerb(const VerbWords& words);  // ADDRESS nak [N | each] | hang | off
