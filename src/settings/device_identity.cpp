#include "settings/device_identity.h"

Shared<uint8_t> DeviceId{0};
uint8_t TopBoard;
uint8_t NewKernel;
uint8_t NoWatchdog;
char OsVersion[9];
