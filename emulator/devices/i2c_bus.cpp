#include "devices/i2c_bus.h"

#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "bench/trace.h"
#include "kernel/supervisor.h"
#include "system/board.h"
#include "text.h"

static constexpr unsigned kMajor = 89;
static constexpr int kBuses[] = {1, 2};
static constexpr size_t kMessageBytes = 8192;  // of one message, as in the kernel

enum class Fault { kNak, kNakOnce, kNakEach, kHang };

struct Site {
    unsigned start;  // register
    bool isRead;
    auto operator<=>(const Site&) const = default;
};

struct AddressFault {
    Fault kind;
    unsigned countdown = 0;       // kNakOnce: transfers until the one that fails, that one included
    std::set<Site> refused = {};  // kNakEach
};

static std::vector<I2cDevice*> devices;
static std::map<uint8_t, AddressFault> faults;  // by address, on either bus

// Chips of which the board's software only reads who they are.
static I2cDevice extensionBoard{.name = "extension board", .bus = 1, .address = 0x53, .registers = {1}};
static I2cDevice chip48{.name = "identification 48", .bus = 2, .address = 0x48, .registers = {16}};
static I2cDevice chip60{.name = "identification 60", .bus = 2, .address = 0x60, .registers = {192}};

void AddI2cDevice(I2cDevice& device) { devices.push_back(&device); }

static I2cDevice* FindDevice(int bus, unsigned address) {
    const auto found = std::ranges::find_if(
        devices, [=](const I2cDevice* device) { return device->bus == bus && device->address == address; });
    return found == devices.end() || ((*found)->answers != nullptr && !(*found)->answers(**found)) ? nullptr : *found;
}

struct Message {
    I2cDevice* device = nullptr;
    uint8_t address = 0;
    bool isRead = false;
    uint64_t buffer = 0;         // in the caller
    std::vector<uint8_t> bytes;  // written ones, or as many as are to be read
    unsigned start = 0;          // register of the first data byte
};

static std::string Hex(unsigned byte) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    return {kDigits[byte >> 4 & 0xF], kDigits[byte & 0xF]};
}

static Json HexList(std::span<const uint8_t> bytes) {
    Json list = Json::array();
    for (const uint8_t byte : bytes) list.push_back(Hex(byte));
    return list;
}

static int FetchMessages(const IoctlCall& call, std::vector<Message>& messages) {
    i2c_rdwr_ioctl_data request{};
    if (!call.memory.Read(call.argument, request)) return -EFAULT;
    if (request.nmsgs == 0 || request.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) return -EINVAL;
    std::array<i2c_msg, I2C_RDWR_IOCTL_MAX_MSGS> raws;
    const auto wanted = std::span(raws).first(request.nmsgs);
    if (!call.memory.Read(reinterpret_cast<uint64_t>(request.msgs), wanted.data(), wanted.size_bytes())) return -EFAULT;
    for (const i2c_msg& raw : wanted) {
        if (raw.len > kMessageBytes) return -EINVAL;
        Message message{.address = static_cast<uint8_t>(raw.addr),
                        .isRead = (raw.flags & I2C_M_RD) != 0,
                        .buffer = reinterpret_cast<uint64_t>(raw.buf),
                        .bytes = std::vector<uint8_t>(raw.len)};
        if (!message.isRead && !call.memory.Read(message.buffer, message.bytes.data(), raw.len)) return -EFAULT;
        messages.push_back(std::move(message));
    }
    return 0;
}

static Site SiteOf(std::span<const Message> messages) {
    const Message& first = messages.front();
    return {.start = first.isRead || first.bytes.empty() ? first.start : first.bytes.front(),
            .isRead = std::ranges::any_of(messages, &Message::isRead)};
}

// Counts one transfer to the address, and tells whether a fault swallows it.
static bool FaultStrikes(uint8_t address, const Site& site) {
    const auto fault = faults.find(address);
    if (fault == faults.end()) return false;
    if (fault->second.kind == Fault::kNak) return true;
    if (fault->second.kind == Fault::kNakEach) return fault->second.refused.insert(site).second;
    if (--fault->second.countdown > 0) return false;
    faults.erase(fault);
    return true;
}

static bool Hangs(const Message& message) {
    const auto fault = faults.find(message.address);
    return fault != faults.end() && fault->second.kind == Fault::kHang;
}

// Whether every address of the transfer acknowledges. Decided before the first byte moves: a transfer happens as a
// whole or not at all.
static bool Acknowledged(int bus, std::span<Message> messages) {
    int counted = -1;
    const Site site = SiteOf(messages);
    for (Message& message : messages) {
        if (message.address != counted && FaultStrikes(message.address, site)) return false;
        counted = message.address;
        message.device = FindDevice(bus, message.address);
        if (message.device == nullptr) return false;
    }
    return true;
}

static void WriteMessage(Message& message) {
    I2cDevice& device = *message.device;
    if (message.bytes.empty()) return;
    device.pointer = message.start = message.bytes.front();
    for (const uint8_t value : std::span(message.bytes).subspan(1)) {
        if (device.write != nullptr) {
            device.write(device, device.pointer, value);
        } else {
            device.registers[device.pointer & 0xFF] = value;
        }
        ++device.pointer;
    }
    if (message.bytes.size() > 1 && device.written != nullptr) device.written(device);
}

static void ReadMessage(Message& message) {
    I2cDevice& device = *message.device;
    message.start = device.pointer;
    for (uint8_t& value : message.bytes) {
        value = device.read != nullptr ? device.read(device, device.pointer) : device.registers[device.pointer & 0xFF];
        ++device.pointer;
    }
}

static bool IsPolled(int bus, const Message& message, std::string_view content) {
    const auto place = static_cast<unsigned>(bus) << 16 | unsigned{message.address} << 8 | (message.start & 0xFF);
    return IsPolling(message.isRead ? "i2c read" : "i2c write", place, content);
}

static void TraceMessage(int bus, const Message& message, std::string_view kind, std::span<const uint8_t> bytes) {
    if (IsPolled(bus, message, {reinterpret_cast<const char*>(bytes.data()), bytes.size()})) return;
    Trace("i2c", {{"bus", bus},
                  {"address", Hex(message.address)},
                  {"register", Hex(message.start & 0xFF)},
                  {kind, HexList(bytes)}});
}

static void TraceFailure(int bus, std::span<Message> messages) {
    Message& first = messages.front();
    const Site site = SiteOf(messages);
    first.start = site.start;
    if (IsPolled(bus, first, "nak")) return;
    Json fields{{"bus", bus}, {"address", Hex(first.address)}};
    if (!first.isRead && !first.bytes.empty()) fields["register"] = Hex(site.start);
    fields["refused"] = site.isRead ? "read" : "write";
    fields["error"] = "nak";
    Trace("i2c", fields);
}

static int Transfer(const IoctlCall& call) {
    const int bus = call.file.unit;
    std::vector<Message> messages;
    if (const int error = FetchMessages(call, messages); error != 0) return error;
    if (std::ranges::any_of(messages, Hangs)) return kHold;
    if (!Acknowledged(bus, messages)) {
        TraceFailure(bus, messages);
        return -ENXIO;
    }
    for (size_t at = 0; at < messages.size(); ++at) {
        Message& message = messages[at];
        if (message.isRead) {
            ReadMessage(message);
            TraceMessage(bus, message, "read", message.bytes);
            if (!call.memory.Write(message.buffer, message.bytes.data(), message.bytes.size())) return -EFAULT;
            continue;
        }
        WriteMessage(message);
        const bool setsPointerForRead =
            message.bytes.size() <= 1 && at + 1 < messages.size() && messages[at + 1].isRead;
        const auto data = std::span<const uint8_t>(message.bytes).subspan(message.bytes.empty() ? 0 : 1);
        if (!setsPointerForRead) TraceMessage(bus, message, "write", data);
    }
    return static_cast<int>(messages.size());
}

static int I2cIoctl(const IoctlCall& call) {
    switch (call.request) {
        case I2C_RDWR:
            return Transfer(call);
        case I2C_FUNCS: {
            const unsigned long functions = I2C_FUNC_I2C;
            return call.memory.Write(call.argument, functions) ? 0 : -EFAULT;
        }
        case I2C_SLAVE:
        case I2C_SLAVE_FORCE:
        case I2C_TIMEOUT:
        case I2C_RETRIES:
            return 0;  // accepted for the sake of tools: every transfer names its address
        default:
            return -ENOTTY;
    }
}

static const DeviceModel kI2cModel{.name = "i2c", .ioctl = I2cIoctl};

void PowerOnI2c() {
    devices.clear();
    for (const int bus : kBuses) {
        AddNode(Text("/dev/i2c-%d", bus), kI2cModel, bus, kMajor, static_cast<unsigned>(bus));
    }
    if (Board.topBoard) AddI2cDevice(extensionBoard);
    AddI2cDevice(chip48);
    AddI2cDevice(chip60);
}

VerbAnswer I2cVerb(const VerbWords& words) {
    if (!words.empty()) return Usage("i2c");
    std::string text;
    for (const I2cDevice* device : devices) {
        text += Text("bus %d address %02X  %.*s\n", device->bus, device->address, static_cast<int>(device->name.size()),
                     device->name.data());
        for (size_t row = 0; row < device->registers.size(); row += 16) {
            text += Text("  %02zX:", row);
            for (size_t at = row; at < row + 16; ++at) text += Text(" %02X", device->registers[at]);
            text += '\n';
        }
    }
    return {.good = true, .text = text};
}

template <typename Number>
static std::optional<Number> ParseNumber(std::string_view text, int base) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

VerbAnswer I2cFaultVerb(const VerbWords& words) {
    static constexpr const char* kUsage =
        "usage: fault i2c ADDRESS nak [N|each] | hang | off (ADDRESS in hex, 00 to 7F)";
    const std::optional<uint8_t> address = words.empty() ? std::nullopt : ParseNumber<uint8_t>(words[0], 16);
    if (!address || *address > 0x7F || words.size() < 2 || words.size() > 3) return Bad(kUsage);
    const bool each = words.size() == 3 && words[2] == "each", counted = words.size() == 3 && !each;
    const unsigned count = counted ? ParseNumber<unsigned>(words[2], 10).value_or(0) : 0;
    if (words.size() == 3 && (words[1] != "nak" || (counted && count == 0))) return Bad(kUsage);

    if (words[1] == "nak") {
        faults[*address] = {each ? Fault::kNakEach : counted ? Fault::kNakOnce : Fault::kNak, count};
    } else if (words[1] == "hang") {
        faults[*address] = {Fault::kHang};
    } else if (words[1] == "off") {
        faults.erase(*address);
    } else {
        return Bad(kUsage);
    }
    Trace("fault", {{"i2c", Hex(*address)}, {"fault", words[1]}});
    for (const int bus : kBuses) WakeModel(kI2cModel, bus);
    return {};
}

Json I2cFaultSummary() {
    Json summary = Json::object();
    for (const auto& [address, fault] : faults) summary[Hex(address)] = fault.kind == Fault::kHang ? "hang" : "nak";
    return summary;
}
