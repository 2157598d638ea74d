// Everything that hangs on the board, in the order in which power reaches it.
#pragma once

#include <span>

struct Device {
    const char* name;
    void (*powerOn)();
    void (*powerOff)() = nullptr;  // for what power-on does not put right by itself; in reverse order
};

std::span<const Device> Devices();
