#include "settings/device_settings.h"

#include <fcntl.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstdio>

static_assert(std::endian::native == std::endian::little, "the record is its own little-endian file image");

static constexpr std::array<uint8_t, 2> kSignature = {0xAB, 0x01};

DeviceSettings Settings;

template <size_t N>
static constexpr void Put(std::array<SharedByte, N>& field, const std::array<uint8_t, N>& bytes) {
    for (size_t i = 0; i < N; ++i) field[i].raw = bytes[i];
}

static constexpr DeviceSettings MakeDefaults() {
    DeviceSettings defaults{};
    Put(defaults.Signature, kSignature);
    defaults.Input.raw = 1;
    Put(defaults.IpAddress, {192, 168, 0, 81});
    defaults.Dhcp.raw = 1;
    defaults.PtzCamera.raw = 1;
    Put(defaults.Netmask, {255, 255, 255, 0});
    Put(defaults.Gateway, {192, 168, 0, 1});
    return defaults;
}
constinit DeviceSettings DefaultSettings = MakeDefaults();

uint8_t ComputeChecksum(const DeviceSettings& record) {
    static constexpr size_t kCovered[] = {1, 2, 3, 6, 7, 36, 37, 38, 39, 40, 45};
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    unsigned sum = 0;
    for (size_t offset : kCovered) sum += __atomic_load_n(bytes + offset, __ATOMIC_RELAXED);
    return static_cast<uint8_t>(sum);
}

void CopySettings(DeviceSettings& to, const DeviceSettings& from) { CopySharedBytes(&to, &from, sizeof to); }

int LoadSettings(DeviceSettings& record, const char* path) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        fputs("File config error\n", stderr);
        return 1;
    }
    DeviceSettings image;
    const ssize_t count = read(file, &image, sizeof image);
    close(file);
    if (count != sizeof image) {
        fputs("Reading config error\n", stderr);
        return 1;
    }
    CopySettings(record, image);
    return 0;
}

// A write may be cut short: without the rest the file would hold the begin of one record and the end of another.
static bool WriteWhole(int file, const DeviceSettings& image) {
    const auto* next = reinterpret_cast<const char*>(&image);
    for (size_t left = sizeof image; left > 0;) {
        const ssize_t count = write(file, next, left);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        next += count;
        left -= static_cast<size_t>(count);
    }
    return true;
}

// The old image is overwritten in place rather than truncated first: on a full disk its blocks are already there, and a
// power cut in between leaves a whole record.
static bool ReplaceFile(const char* path, const DeviceSettings& image) {
    const int file = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (file < 0) return false;
    const bool written = WriteWhole(file, image) && ftruncate(file, sizeof image) == 0;
    const bool synced = fsync(file) == 0;
    return close(file) == 0 && written && synced;
}

int SaveSettings(DeviceSettings& record, const char* path) {
    DeviceSettings image;
    CopySettings(image, record);
    Put(image.Signature, kSignature);
    image.Reserved3 = 0;
    image.Checksum = ComputeChecksum(image);
    // Checksum, Signature and Reserved3: the live record carries the stamp of its last save.
    CopySharedBytes(&record, &image, offsetof(DeviceSettings, reserved4));
    if (!ReplaceFile(path, image)) perror(path);
    return 0;
}

void StoreViewAndSwap(DeviceSettings& record, uint8_t view, uint8_t swap) {
    static_assert(offsetof(DeviceSettings, Swap) == offsetof(DeviceSettings, View) + 1);
    static_assert(offsetof(DeviceSettings, View) % 2 == 0 && alignof(DeviceSettings) % 2 == 0);
    using Pair [[gnu::may_alias]] = uint16_t;
    const auto pair = static_cast<uint16_t>(view | swap << 8);
    void* const both = &record.View;  // aligned for a pair, which its own type does not say
    __atomic_store_n(static_cast<Pair*>(both), pair, __ATOMIC_RELAXED);
}
