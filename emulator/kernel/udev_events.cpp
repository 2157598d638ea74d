#include "kernel/udev_events.h"

#include <endian.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "bench/trace.h"
#include "system/board.h"
#include "text.h"

namespace fs = std::filesystem;

static constexpr uint32_t kUdevGroup = 2;  // netlink multicast group of the udev daemon's own messages
static constexpr uint32_t kMagic = 0xfeedcafe;

static constexpr unsigned kMostRepeats = 10'000;  // many more than a monitor's buffer holds

static int Socket = -1;
static uint64_t LastSequence = 0;
static std::map<std::string, UdevDevice> announced;  // since power-on, by node

// ---- Messages

// MurmurHash2, by which a monitor's socket filter knows a subsystem.
static uint32_t SubsystemHash(std::string_view text) {
    static constexpr uint32_t kFactor = 0x5bd1e995;
    uint32_t hash = static_cast<uint32_t>(text.size());
    while (text.size() >= 4) {
        uint32_t word;
        memcpy(&word, text.data(), sizeof word);
        word *= kFactor;
        word ^= word >> 24;
        hash = hash * kFactor ^ word * kFactor;
        text.remove_prefix(4);
    }
    for (size_t at = text.size(); at > 0; --at)
        hash ^= static_cast<uint32_t>(static_cast<uint8_t>(text[at - 1])) << (8 * (at - 1));
    if (!text.empty()) hash *= kFactor;
    hash ^= hash >> 13;
    hash *= kFactor;
    return hash ^ hash >> 15;
}

struct MessageHeader {  // the socket filter reads the fields in network order
    std::array<char, 8> prefix;
    uint32_t magic;
    uint32_t headerBytes, propertiesOffset, propertiesBytes;  // host order
    uint32_t subsystemHash, deviceTypeHash;
    uint32_t tagBloomHigh, tagBloomLow;
};
static_assert(sizeof(MessageHeader) == 40);

static void AddProperty(std::string& properties, std::string_view name, const std::string& value) {
    properties.append(name).append("=").append(value).push_back('\0');
}

std::vector<uint8_t> UdevMessage(std::string_view action, const UdevDevice& device, uint64_t sequence) {
    std::string properties;
    AddProperty(properties, "ACTION", std::string(action));
    AddProperty(properties, "DEVPATH", device.sysfsPath);
    AddProperty(properties, "SUBSYSTEM", device.subsystem);
    if (!device.deviceName.empty()) {
        AddProperty(properties, "DEVNAME", device.deviceName);
        AddProperty(properties, "MAJOR", std::to_string(device.majorNumber));
        AddProperty(properties, "MINOR", std::to_string(device.minorNumber));
    }
    for (const auto& [name, value] : device.properties) AddProperty(properties, name, value);
    AddProperty(properties, "SEQNUM", std::to_string(sequence));
    const MessageHeader header = {.prefix = {'l', 'i', 'b', 'u', 'd', 'e', 'v', '\0'},
                                  .magic = htobe32(kMagic),
                                  .headerBytes = sizeof(MessageHeader),
                                  .propertiesOffset = sizeof(MessageHeader),
                                  .propertiesBytes = static_cast<uint32_t>(properties.size()),
                                  .subsystemHash = htobe32(SubsystemHash(device.subsystem)),
                                  .deviceTypeHash = 0,
                                  .tagBloomHigh = 0,
                                  .tagBloomLow = 0};
    std::vector<uint8_t> message(sizeof header + properties.size());
    memcpy(message.data(), &header, sizeof header);
    memcpy(message.data() + sizeof header, properties.data(), properties.size());
    return message;
}

// With nobody listening the kernel says ECONNREFUSED; that is no fault.
static void Send(std::string_view action, const UdevDevice& device) {
    if (Socket < 0) return;
    const std::vector<uint8_t> message = UdevMessage(action, device, ++LastSequence);
    const sockaddr_nl group = {.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = 0, .nl_groups = kUdevGroup};
    const ssize_t sent = sendto(Socket, message.data(), message.size(), MSG_DONTWAIT,
                                reinterpret_cast<const sockaddr*>(&group), sizeof group);
    if (sent < 0 && errno != ECONNREFUSED) fprintf(stderr, "udev message: %s\n", strerror(errno));
}

static void Broadcast(std::string_view action, const UdevDevice& device) {
    Trace("plug", {{"action", action}, {"subsystem", device.subsystem}, {"node", device.deviceName}});
    Send(action, device);
}

VerbAnswer UdevFaultVerb(const VerbWords& words) {
    if (words.size() < 2 || words.size() > 3) return Usage("fault");
    const auto device = announced.find(words[0]);
    if (device == announced.end()) return Bad("no such device was ever there");
    const std::optional<unsigned> times = words.size() == 3 ? ParseNumber(words[2], kMostRepeats) : 1;
    if (!times) return Usage("fault");
    Trace("fault", {{"udev", words[0]}, {"action", words[1]}, {"times", *times}});
    for (unsigned sent = 0; sent < *times; ++sent) Send(words[1], device->second);
    return {};
}

// ---- /sys

static fs::path SysPath(const std::string& path) { return HostPath("/sys" + path); }

static std::string NameOf(const UdevDevice& device) { return fs::path(device.sysfsPath).filename(); }

static fs::path ClassLink(const UdevDevice& device) {
    return SysPath("/class/" + device.subsystem + "/" + NameOf(device));
}

static fs::path NumberLink(const UdevDevice& device) {
    return SysPath("/dev/char/" + std::to_string(device.majorNumber) + ":" + std::to_string(device.minorNumber));
}

static void LinkTo(const fs::path& link, const fs::path& target) {
    std::error_code error;
    fs::create_directories(link.parent_path(), error);
    fs::remove(link, error);
    fs::create_symlink(fs::relative(target, link.parent_path(), error), link, error);
    if (error) fprintf(stderr, "%s: %s\n", link.c_str(), error.message().c_str());
}

static std::string UeventText(const UdevDevice& device) {
    std::string text;
    if (!device.deviceName.empty()) {
        text += "MAJOR=" + std::to_string(device.majorNumber) + "\nMINOR=" + std::to_string(device.minorNumber) + "\n";
        text += "DEVNAME=" + fs::path(device.deviceName).lexically_relative("/dev").string() + "\n";
    }
    for (const auto& [name, value] : device.properties) text += name + "=" + value + "\n";
    return text;
}

void AddUdevDevice(const UdevDevice& device) {
    const fs::path folder = SysPath(device.sysfsPath);
    std::error_code error;
    fs::create_directories(folder, error);
    fs::create_directories(SysPath("/class/" + device.subsystem), error);
    const std::string inBoard = "/sys" + device.sysfsPath;
    for (const auto& [name, text] : device.attributes) WriteBoardFile(inBoard + "/" + name, text + "\n");
    WriteBoardFile(inBoard + "/uevent", UeventText(device));
    LinkTo(folder / "subsystem", SysPath("/class/" + device.subsystem));
    LinkTo(folder / "device", folder.parent_path().parent_path());
    LinkTo(ClassLink(device), folder);
    if (!device.deviceName.empty()) {
        WriteBoardFile(inBoard + "/dev",
                       std::to_string(device.majorNumber) + ":" + std::to_string(device.minorNumber) + "\n");
        LinkTo(NumberLink(device), folder);
        announced[device.deviceName] = device;
    }
    Broadcast("add", device);
}

void RemoveUdevDevice(const UdevDevice& device) {
    std::error_code error;
    fs::remove(ClassLink(device), error);
    if (!device.deviceName.empty()) fs::remove(NumberLink(device), error);
    fs::remove_all(SysPath(device.sysfsPath), error);
    Broadcast("remove", device);
}

// ---- Power

void PowerOnUdev() {
    announced.clear();
    std::error_code error;
    fs::create_directories(HostPath("/run/udev/data"), error);
    WriteBoardFile("/run/udev/control", "");
    fs::create_directories(SysPath("/class"), error);
    fs::create_directories(SysPath("/dev/char"), error);
}

void SetUdevSocket(int descriptor) {
    if (Socket >= 0 && Socket != descriptor) close(Socket);
    Socket = descriptor;
}
