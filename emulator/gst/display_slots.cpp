#include "gst/display_slots.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <mutex>

#include "devices/display.h"

static std::mutex lock;
static uint8_t* memory;
static std::array<bool, kDisplaySlots> claimed;

static DisplayHeader& Header() { return *reinterpret_cast<DisplayHeader*>(memory); }

static int Map(int descriptor) {
    struct stat status;
    if (fstat(descriptor, &status) != 0) return errno;
    if (static_cast<size_t>(status.st_size) < kDisplayFileBytes) return EINVAL;
    void* const start = mmap(nullptr, kDisplayFileBytes, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (start == MAP_FAILED) return errno;
    memory = static_cast<uint8_t*>(start);
    Header().magic = kDisplayMagic;
    return 0;
}

int OpenDisplay() {
    const std::lock_guard guard(lock);
    if (memory) return 0;
    const int descriptor = open(kDisplayPath, O_RDWR | O_CLOEXEC);
    if (descriptor < 0) return errno;
    const int error = Map(descriptor);
    close(descriptor);
    return error;
}

std::optional<uint32_t> ClaimSlot() {
    const std::lock_guard guard(lock);
    const bool anyShown = Header().frames > 0;
    for (uint32_t slot = 0; slot < kDisplaySlots; ++slot) {
        if (claimed[slot] || (anyShown && slot == Header().newest)) continue;
        claimed[slot] = true;
        return slot;
    }
    return std::nullopt;
}

void ReleaseSlot(uint32_t slot) {
    const std::lock_guard guard(lock);
    claimed[slot] = false;
}

uint8_t* SlotPixels(uint32_t slot) { return memory + kDisplayFirstSlot + slot * kDisplaySlotBytes; }

std::optional<uint32_t> SlotOf(const void* pixels) {
    for (uint32_t slot = 0; memory && slot < kDisplaySlots; ++slot)
        if (pixels == SlotPixels(slot)) return slot;
    return std::nullopt;
}

void BeginSlot(uint32_t slot) { Header().slots[slot].sequence.fetch_or(1); }

void PublishSlot(uint32_t slot, uint32_t width, uint32_t height, int64_t shownAt) {
    DisplayHeader& header = Header();
    DisplaySlot& entry = header.slots[slot];
    entry.width = width;
    entry.height = height;
    entry.shownAt = shownAt;
    entry.sequence.store((entry.sequence.load(std::memory_order_relaxed) | 1) + 1, std::memory_order_release);
    const std::lock_guard guard(lock);
    header.newest.store(slot);
    header.frames.fetch_add(1);
}
