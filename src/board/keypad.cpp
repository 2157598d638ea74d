#include "board/keypad.h"

Shared<uint8_t> KeypadVersion{0};
