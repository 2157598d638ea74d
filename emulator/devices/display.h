// The board's display memory: a file on tmpfs that the display sink writes and everybody else only reads (the `picture`
// verb, the bench page, tests). Three slots, so that a reader always finds a whole frame: the writer fills the slot
// after the newest one, then publishes it. A reader takes `newest`, copies the slot and keeps the copy only when the
// slot's sequence did not change meanwhile.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

inline constexpr const char* kDisplayPath = "/opt/board/display";  // inside the sandbox
inline constexpr uint32_t kDisplayMagic = 0x44564c54;              // "TLVD"
inline constexpr size_t kDisplayWidthLimit = 3840, kDisplayHeightLimit = 2160;
inline constexpr uint32_t kDisplaySlots = 3;
inline constexpr size_t kDisplaySlotBytes = kDisplayWidthLimit * kDisplayHeightLimit * 4;
inline constexpr size_t kDisplayFirstSlot = 4096;  // offset of slot 0 in the file
inline constexpr size_t kDisplayFileBytes = kDisplayFirstSlot + kDisplaySlots * kDisplaySlotBytes;

struct DisplaySlot {
    std::atomic<uint32_t> sequence;  // odd while being written
    uint32_t width, height;          // pixels; rows are width * 4 bytes: B, G, R, unused
    uint32_t reserved;
    int64_t shownAt;  // CLOCK_MONOTONIC microseconds
};

struct DisplayHeader {  // at offset 0; all zero until the first frame
    uint32_t magic;
    std::atomic<uint32_t> newest;  // slot index
    std::atomic<uint64_t> frames;  // shown since power-on; 0: nothing to read
    DisplaySlot slots[kDisplaySlots];
};
static_assert(sizeof(DisplayHeader) <= kDisplayFirstSlot);
