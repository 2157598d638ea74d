// Registers of the SoC, written through /dev/mem.
#pragma once

#include <cstdint>

// Writes a 32-bit value to a physical address (rounded down to 4). 0, or 1 when /dev/mem cannot be opened (logged) or
// mapped.
int PokePhysical(uint32_t address, uint32_t value);
