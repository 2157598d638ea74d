// What the system's tools print. Any line is taken without harm; a line that the tool would print, made from the
// input's first bytes, gives these very bytes back, whatever follows it.
#include <cstring>
#include <string>

#include "fuzz.h"
#include "net/network_config.h"
#include "video/hdmi_output.h"

template <typename... Values>
static std::string Format(const char* format, Values... values) {
    char text[200];
    snprintf(text, sizeof text, format, values...);
    return text;
}

static bool Is(const Ipv4& address, const uint8_t* bytes) { return memcmp(&address, bytes, sizeof address) == 0; }

static void TakeAnyLine(const std::string& line) {
    Ipv4 address{}, netmask{}, gateway{};
    ParseHardwareAddress(line);
    ParseInterfaceAddress(line, address);
    ParseServiceAddresses(line, address, netmask, gateway);
    const auto mode = ParseModeLine(line.c_str());
    Require(!mode || (mode->width <= 999'999 && mode->height <= 999'999 && mode->refresh <= 999'999), "mode");
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(data, data + size);
    TakeAnyLine(text);
    if (size < 12) return 0;
    const uint8_t* b = data;
    const std::string rest = text.substr(12);
    Ipv4 address{}, netmask{}, gateway{};

    const auto mac = ParseHardwareAddress(Format("eth0      Link encap:Ethernet  HWaddr %02x:%02X:%02x:%02x:%02x:%02x ",
                                                 b[0], b[1], b[2], b[3], b[4], b[5]) +
                                          rest);
    Require(memcmp(mac.data(), b, mac.size()) == 0, "hardware address");
    ParseInterfaceAddress(Format("          inet addr:%d.%d.%d.%d ", b[0], b[1], b[2], b[3]) + rest, address);
    Require(Is(address, b), "interface address");
    ParseServiceAddresses(
        Format("  IPv4 = [ Method=dhcp, Address=%d.%d.%d.%d, Netmask=%d.%d.%d.%d, Gateway=%d.%d.%d.%d ", b[0], b[1],
               b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11]) +
            rest,
        address, netmask, gateway);
    Require(Is(address, b) && Is(netmask, b + 4) && Is(gateway, b + 8), "service addresses");
    const OutputMode mode = {.width = b[0] * 256u + b[1], .height = b[2] * 256u + b[3], .refresh = b[4]};
    Require(ParseModeLine((Format("mode \"%ux%u-%u\"", mode.width, mode.height, mode.refresh) + rest).c_str()) == mode,
            "mode line");
    return 0;
}
