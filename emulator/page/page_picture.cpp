#include "page/page_picture.h"

#include <fcntl.h>
#include <libyuv/scale_argb.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "devices/display.h"
#include "system/board.h"

static constexpr int kQuality = 80;
static constexpr uint32_t kNarrowest = 64;

// The board's display memory; a power cycle puts a new file in its place.
static const uint8_t* memory = nullptr;
static ino_t mappedFile = 0;

static const DisplayHeader* Display() {
    const std::filesystem::path path = Board.folder / "volatile/display";
    struct stat status {};
    if (stat(path.c_str(), &status) < 0) return nullptr;
    if (memory != nullptr && status.st_ino == mappedFile) return reinterpret_cast<const DisplayHeader*>(memory);
    if (memory != nullptr) munmap(const_cast<uint8_t*>(memory), kDisplayFileBytes);
    memory = nullptr;
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    void* mapped = file < 0 ? MAP_FAILED : mmap(nullptr, kDisplayFileBytes, PROT_READ, MAP_SHARED, file, 0);
    if (file >= 0) close(file);
    if (mapped == MAP_FAILED) return nullptr;
    memory = static_cast<const uint8_t*>(mapped);
    mappedFile = status.st_ino;
    return reinterpret_cast<const DisplayHeader*>(memory);
}

uint64_t ShownFrames() {
    const DisplayHeader* display = Display();
    return display ? display->frames.load() : 0;
}

struct Scaled {
    uint32_t width = 0, height = 0;            // on the display
    uint32_t smallWidth = 0, smallHeight = 0;  // here
    std::vector<uint8_t> pixels;               // B, G, R, unused
};

// Straight out of the slot. False when the writer came back to it meanwhile.
static bool ScaleSlot(const DisplayHeader& display, uint32_t widest, Scaled& scaled) {
    const uint32_t index = display.newest.load(std::memory_order_acquire) % kDisplaySlots;
    const DisplaySlot& slot = display.slots[index];
    const uint32_t before = slot.sequence.load(std::memory_order_acquire);
    scaled.width = slot.width;
    scaled.height = slot.height;
    if (before % 2 != 0 || scaled.width == 0 || scaled.width > kDisplayWidthLimit || scaled.height == 0 ||
        scaled.height > kDisplayHeightLimit)
        return false;
    scaled.smallWidth = std::clamp(widest, kNarrowest, std::max(kNarrowest, scaled.width));
    scaled.smallHeight = std::max(1U, (scaled.height * scaled.smallWidth + scaled.width / 2) / scaled.width);
    scaled.pixels.resize(size_t{scaled.smallWidth} * scaled.smallHeight * 4);
    const uint8_t* pixels = memory + kDisplayFirstSlot + index * kDisplaySlotBytes;
    libyuv::ARGBScale(pixels, int(scaled.width * 4), int(scaled.width), int(scaled.height), scaled.pixels.data(),
                      int(scaled.smallWidth * 4), int(scaled.smallWidth), int(scaled.smallHeight), libyuv::kFilterBox);
    std::atomic_thread_fence(std::memory_order_acquire);
    return slot.sequence.load(std::memory_order_relaxed) == before;
}

static std::span<const uint8_t> Compress(const Scaled& scaled) {
    static tjhandle compressor = tjInitCompress();
    static std::vector<unsigned char> jpeg;
    jpeg.resize(tjBufSize(int(scaled.smallWidth), int(scaled.smallHeight), TJSAMP_420));
    unsigned char* to = jpeg.data();
    unsigned long size = jpeg.size();
    const int result = tjCompress2(compressor, scaled.pixels.data(), int(scaled.smallWidth), 0, int(scaled.smallHeight),
                                   TJPF_BGRX, &to, &size, TJSAMP_420, kQuality, TJFLAG_FASTDCT | TJFLAG_NOREALLOC);
    return result == 0 ? std::span<const uint8_t>(to, size) : std::span<const uint8_t>();
}

PagePicture NewestPagePicture(uint32_t width) {
    static Scaled scaled;
    constexpr int kAttempts = 10;  // a writer would have to overtake the reader each time
    const DisplayHeader* display = Display();
    for (int attempt = 0; display && display->frames.load() != 0 && attempt < kAttempts; ++attempt) {
        const uint64_t frame = display->frames.load();
        if (ScaleSlot(*display, width, scaled))
            return {.frame = frame, .width = scaled.width, .height = scaled.height, .jpeg = Compress(scaled)};
    }
    return {};
}
