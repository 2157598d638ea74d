#include "net/network_config.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/log.h"
#include "core/shell.h"

static constexpr int kServiceAttempts = 30;  // one a second
static constexpr uint8_t kModeDhcp = 1, kModeStaticStored = 2;
static constexpr int kAnswerLimit = 999;  // characters of a tool's line

// ---- The network manager ----

// The wired service's name in the network manager.
static std::string ServiceName() {
    const auto& mac = Settings.MacAddress;
    std::array<char, 32> name;
    snprintf(name.data(), name.size(), "ethernet_%02x%02x%02x%02x%02x%02x_cable", mac[0].Load(), mac[1].Load(),
             mac[2].Load(), mac[3].Load(), mac[4].Load(), mac[5].Load());
    return name.data();
}

static std::string Dotted(const Octets& address) {
    std::array<char, 16> text;
    snprintf(text.data(), text.size(), "%d.%d.%d.%d", address[0], address[1], address[2], address[3]);
    return text.data();
}

static std::string Dotted(const Ipv4& address) {
    return Dotted(Octets{address[0], address[1], address[2], address[3]});
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

// ---- Changes while running ----

// What the shell could not even try is not remembered. 0, or 1 then.
static int RememberIfRun(int shellStatus, Ipv4& field, const Octets& value) {
    if (ShellFailed(shellStatus)) return 1;
    std::copy(value.begin(), value.end(), field.begin());
    return 0;
}

static int SwitchDhcpOn() {
    Settings.Dhcp = 1;
    RunDhcpLine();
    return SaveSettings(Settings);
}

int ApplyIpAddress(const Octets& address) {
    static constexpr Octets kNoAddress{}, kClassC{255, 255, 255, 0};
    if (Settings.Dhcp == 1) {
        Settings.Dhcp = 0;
        ApplyNetworkMode(Settings.Dhcp);  // 0: whatever the lease was, netmask and gateway start from the factory's
    }
    if (address == kNoAddress) return SwitchDhcpOn();
    if (Settings.Netmask[0] == 0) std::copy(kClassC.begin(), kClassC.end(), Settings.Netmask.begin());

    const int status =
        RunShell("ifconfig eth0 %s netmask %s", Dotted(address).c_str(), Dotted(Settings.Netmask).c_str());
    const int result = RememberIfRun(status, Settings.IpAddress, address);
    RunStaticLine();
    SaveSettings(Settings);
    return result;
}

int ApplyNetmask(const Octets& netmask) {
    const int status = RunShell("ifconfig eth0 netmask %s", Dotted(netmask).c_str());
    const int result = RememberIfRun(status, Settings.Netmask, netmask);
    SaveSettings(Settings);
    return result;
}

int ApplyGateway(const Octets& gateway) {
    const int status = RunShell("route del default && route add default gw %s eth0", Dotted(gateway).c_str());
    RememberIfRun(status, Settings.Gateway, gateway);
    return SaveSettings(Settings);
}

int StoreMacAddress(const std::array<uint8_t, 6>& address) {
    const int status = RunShell("fw_setenv ethaddr %02x:%02x:%02x:%02x:%02x:%02x > /dev/null", address[0], address[1],
                                address[2], address[3], address[4], address[5]);
    SaveSettings(Settings);
    return ShellFailed(status) ? 1 : 0;
}

// ---- The tools' answers ----

static constexpr std::string_view kInterfaceSeparators = " ,.-:", kServiceSeparators = " =,.-:";

// Takes the next word off the text; empty at its end.
static std::string_view NextWord(std::string_view& text, std::string_view separators) {
    text.remove_prefix(std::min(text.find_first_not_of(separators), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(separators));
    text.remove_prefix(word.size());
    return word;
}

static void SkipWords(std::string_view& text, std::string_view separators, int count) {
    for (int i = 0; i < count; ++i) NextWord(text, separators);
}

// One byte a word; the bytes of missing words stay as they are.
template <typename Bytes>
static void TakeBytes(std::string_view& text, std::string_view separators, int base, Bytes& bytes) {
    for (auto& byte : bytes) {
        const std::string_view word = NextWord(text, separators);
        if (word.empty()) return;
        unsigned value = 0;
        std::from_chars(word.data(), word.data() + word.size(), value, base);
        byte = static_cast<uint8_t>(value);
    }
}

// The interface's name may hold a separator of what follows it.
static void SkipFirstColumn(std::string_view& line) { SkipWords(line, " ", 1); }

std::array<uint8_t, 6> ParseHardwareAddress(std::string_view line) {
    std::array<uint8_t, 6> address{};
    SkipFirstColumn(line);
    SkipWords(line, kInterfaceSeparators, 4);  // Link encap:Ethernet  HWaddr
    TakeBytes(line, kInterfaceSeparators, 16, address);
    return address;
}

void ParseInterfaceAddress(std::string_view line, Ipv4& address) {
    SkipFirstColumn(line);
    SkipWords(line, kInterfaceSeparators, 1);  // addr
    TakeBytes(line, kInterfaceSeparators, 10, address);
}

void ParseServiceAddresses(std::string_view line, Ipv4& address, Ipv4& netmask, Ipv4& gateway) {
    static constexpr size_t kEmptyList = std::string_view("  IPv4 = [  ]\n").size();
    if (line.find("IPv4 =") == std::string_view::npos || line.size() <= kEmptyList) {
        for (Ipv4* field : {&address, &netmask, &gateway}) std::fill(field->begin(), field->end(), uint8_t{0});
        return;
    }
    SkipWords(line, kServiceSeparators, 4);  // IPv4 = [ Method=dhcp
    for (Ipv4* field : {&address, &netmask, &gateway}) {
        SkipWords(line, kServiceSeparators, 1);  // Address, Netmask, Gateway
        TakeBytes(line, kServiceSeparators, 10, *field);
    }
}

int ReadMacAddress(std::array<SharedByte, 6>& destination) {
    const ToolAnswer answer = ReadFirstLine("ifconfig eth0 | grep 'HWaddr'", "pclose() failed", kAnswerLimit);
    // Stored in one go: the live record's address names the wired service, also for the threads that ask meanwhile.
    const std::array<uint8_t, 6> address = ParseHardwareAddress(answer.text);
    std::copy(address.begin(), address.end(), destination.begin());
    if (!answer.started) {
        LogError("popen() failed");
        return 1;
    }
    std::copy(address.begin(), address.end(), Settings.MacAddress.begin());
    return answer.text.empty() ? answer.closeStatus : 0;
}

int ReadIpConfig(Ipv4& address, Ipv4& netmask, Ipv4& gateway) {
    const bool dhcp = Settings.Dhcp == 1;
    const std::string command =
        dhcp ? "connmanctl services " + ServiceName() + " 2>&1 | grep IPv4 2>&1" : "ifconfig eth0 | grep 'inet addr'";
    const ToolAnswer answer = ReadFirstLine(command.c_str(), "pclose() failed", kAnswerLimit);
    if (!answer.started) {
        LogError("popen() failed");
        return 1;
    }
    if (dhcp)
        ParseServiceAddresses(answer.text, address, netmask, gateway);
    else
        ParseInterfaceAddress(answer.text, address);
    return answer.text.empty() ? answer.closeStatus : 0;
}
