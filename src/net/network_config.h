// The appliance's side of its IPv4 configuration: eth0 is the network manager's, told by its command-line client. Calls
// run shell tools and block; ApplyNetworkMode waits up to 30 s for the wired service.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "settings/device_settings.h"

// mode 1: DHCP, 2: static with the stored values, any other: static with the factory values, which it stores. Sets Dhcp
// and saves the settings. 0, or 1 on failure. The mode may be Settings.Dhcp itself: it is read once.
int ApplyNetworkMode(const SharedByte& mode);

// Six bytes of eth0's MAC address, zeros when it cannot be read; also stored in Settings. 0 on success.
int ReadMacAddress(std::array<SharedByte, 6>& destination);

// The six bytes behind "HWaddr" in ifconfig's line; a missing one is 0. Pure.
std::array<uint8_t, 6> ParseHardwareAddress(std::string line);

void NetworkSetupThread();  // applies the stored mode once
