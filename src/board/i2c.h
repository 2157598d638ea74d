// Register access on the board's two I2C buses, each access one combined I2C_RDWR transfer. Callable from any thread:
// the kernel executes a transfer as a whole; a read followed by a write is not atomic. Nothing here retries, waits or
// logs a failed transfer. Blocks for the time on the wire (about 0.1 ms a byte).
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr size_t kI2cWriteLimit = 502;  // data bytes behind the register byte

// Opened once by start-up. 0, or 1 after logging the system's error text.
int I2cOpenBus1();
int I2cOpenBus2();

// Bus 1 is /dev/i2c-1, bus 0 does not exist, every other number is /dev/i2c-2. Addresses have 7 bits. 0, or 1 on
// failure; a failed read leaves the destination as it was, a write above the limit is refused with a message before any
// traffic.
int I2cWrite(int bus, uint8_t address, uint8_t reg, const uint8_t* data, size_t count);
int I2cRead(int bus, uint8_t address, uint8_t reg, uint8_t* destination, size_t count);

// The same on bus 1 for a device given by its 8-bit (shifted) address.
int I2cAccess8(uint8_t address8, uint8_t reg, size_t count, uint8_t* buffer, int isRead);
