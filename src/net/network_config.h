// The appliance's side of its IPv4 configuration: eth0 is the network manager's, told by its command-line client. Calls
// run shell tools and block; ApplyNetworkMode waits up to 30 s for the wired service.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "settings/device_settings.h"

using Octets = std::array<uint8_t, 4>;  // first octet first

// mode 1: DHCP, 2: static with the stored values, any other: static with the factory values, which it stores. Sets Dhcp
// and saves the settings. 0, or 1 on failure. The mode may be Settings.Dhcp itself: it is read once.
int ApplyNetworkMode(const SharedByte& mode);

// Takes effect on the interface at once and stays with the network manager; 0.0.0.0 switches DHCP on. Saves the
// settings. 0, or 1 when the shell could not be run.
int ApplyIpAddress(const Octets& address);

// The interface alone; the network manager learns of it with the next mode. Saves the settings. 0, or 1 when the shell
// could not be run.
int ApplyNetmask(const Octets& netmask);

// The default route. Saves the settings; always 0, the field keeps its value when the shell could not be run.
int ApplyGateway(const Octets& gateway);

// Stored in the boot loader's environment, used from the next start on. Saves the settings. 0, or 1 when the shell
// could not be run.
int StoreMacAddress(const std::array<uint8_t, 6>& address);

// What the running system says, from ifconfig while static (the address only; the other two keep their values), from
// the network manager on DHCP. 0 when a line was read; non-zero when there was none or the tool could not be started.
// Without a lease all three are 0.
int ReadIpConfig(Ipv4& address, Ipv4& netmask, Ipv4& gateway);

// Six bytes of eth0's MAC address, zeros when it cannot be read; also stored in Settings. 0 on success.
int ReadMacAddress(std::array<SharedByte, 6>& destination);

// Pure: the lines that these two read. They go by the position of the words; the bytes of missing words stay as they
// are (0 in a hardware address).
std::array<uint8_t, 6> ParseHardwareAddress(std::string_view line);  // ifconfig's "... HWaddr 00:1a:..."
void ParseInterfaceAddress(std::string_view line, Ipv4& address);    // ifconfig's "inet addr:..."
void ParseServiceAddresses(std::string_view line, Ipv4& address, Ipv4& netmask,
                           Ipv4& gateway);  // connmanctl's "IPv4 = [ Method=..."; an empty or foreign one: zeros

void NetworkSetupThread();  // applies the stored mode once
