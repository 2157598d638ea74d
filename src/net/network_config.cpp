#include "net/network_config.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/log.h"
#include "core/shell.h"

static constexpr int kServiceAttempts = 30;  // one a second
static constexpr uint8_t kModeDhcp = 1, kModeStaticStored = 2;

// ---- The network manager ----

// The wired service's name in the network manager.
static std::string ServiceName() {
    const auto& mac = Settings.MacAddress;
    std::array<char, 32> name;
    snprintf(name.data(), name.size(), "ethernet_%02x%02x%02x%02x%02x%02x_cable", mac[0].Load(), mac[1].Load(),
             mac[2].Load(), mac[3].Load(), mac[4].Load(), mac[5].Load());
    return name.data();
}

static std::string Dotted(const Ipv4& address) {
    std::array<char, 16> text;
    snprintf(text.data(), text.size(), "%d.%d.%d.%d", address[0].Load(), address[1].Load(), address[2].Load(),
             address[3].Load());
    return text.data();
}

static int RunDhcpLine() {
    return RunShell("connmanctl config %s --ipv6 off --ipv4 dhcp > /dev/null", ServiceName().c_str());
}

static int RunStaticLine() {
    return RunShell("connmanctl config %s --ipv6 off --ipv4 manual %s %s %s > /dev/null", ServiceName().c_str(),
                    Dotted(Settings.IpAddress).c_str(), Dotted(Settings.Netmask).c_str(),
                    Dotted(Settings.Gateway).c_str());
}

enum class Service { kUnreadable, kAbsent, kActive };

static Service LookForService(int attempt) {
    Service service = Service::kAbsent;
    const auto look = [&](const char* line) {
        if (strstr(line, "ethernet") == nullptr || strchr(line, '*') == nullptr) return;
        LogInfo("Found active Ethernet service: %s", line);
        LogInfo("Took %d seconds.\n", attempt);
        service = Service::kActive;
    };
    if (ReadEveryLine("connmanctl services", "pclose failed", 255, look)) return service;
    LogError("popen failed");
    return Service::kUnreadable;
}

static Service WaitForService() {
    for (int attempt = 0; attempt < kServiceAttempts; ++attempt) {
        const Service service = LookForService(attempt);
        if (service != Service::kAbsent) return service;
        sleep(1);
    }
    return Service::kAbsent;
}

static void StoreFactoryAddress() {
    CopySharedBytes(&Settings.IpAddress, &DefaultSettings.IpAddress, sizeof(Ipv4));
    CopySharedBytes(&Settings.Netmask, &DefaultSettings.Netmask, sizeof(Ipv4));
    CopySharedBytes(&Settings.Gateway, &DefaultSettings.Gateway, sizeof(Ipv4));
}

int ApplyNetworkMode(const SharedByte& modeField) {
    const uint8_t mode = modeField;  // may be Dhcp, which changes below
    const Service service = WaitForService();
    if (service == Service::kUnreadable) return 1;

    Settings.Dhcp = mode == kModeDhcp ? 1 : 0;
    if (mode != kModeDhcp && mode != kModeStaticStored) StoreFactoryAddress();

    int result = mode == kModeDhcp ? 0 : 1;
    if (service == Service::kActive) {
        if (mode == kModeDhcp)
            RunDhcpLine();
        else
            result = RunStaticLine() != 0 ? 1 : 0;
    }
    SaveSettings(Settings);
    return result;
}

void NetworkSetupThread() {
    static const SharedByte stored{kModeStaticStored};
    ApplyNetworkMode(Settings.Dhcp == 0 ? stored : Settings.Dhcp);
}

// ---- The interface ----

std::array<uint8_t, 6> ParseHardwareAddress(std::string line) {
    static constexpr const char* kSeparators = " ,.-:";
    static constexpr int kWordsBefore = 4;  // Link encap:Ethernet  HWaddr
    std::array<uint8_t, 6> address{};
    char* rest = nullptr;
    strtok_r(line.data(), " ", &rest);  // the interface, whose name may hold a separator
    for (int i = 0; i < kWordsBefore; ++i) strtok_r(nullptr, kSeparators, &rest);
    for (uint8_t& byte : address) {
        const char* word = strtok_r(nullptr, kSeparators, &rest);
        if (word == nullptr) break;
        byte = static_cast<uint8_t>(strtol(word, nullptr, 16));
    }
    return address;
}

int ReadMacAddress(std::array<SharedByte, 6>& destination) {
    for (SharedByte& byte : destination) byte = 0;
    const ToolAnswer answer = ReadFirstLine("ifconfig eth0 | grep 'HWaddr'", "pclose() failed", 999);
    if (!answer.started) {
        LogError("popen() failed");
        return 1;
    }
    const std::array<uint8_t, 6> address = ParseHardwareAddress(answer.text);
    for (size_t i = 0; i < address.size(); ++i) {
        destination[i] = address[i];
        Settings.MacAddress[i] = address[i];
    }
    return answer.text.empty() ? answer.closeStatus : 0;
}
