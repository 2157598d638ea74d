// The front panel's keypad.
#pragma once

#include <cstdint>

#include "settings/shared_field.h"

extern Shared<uint8_t> KeypadVersion;  // firmware: first number in the high half, second in the low; 0: none answered
