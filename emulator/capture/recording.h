// A film played as if a camera filmed it: gst-launch-1.0 on the host decodes, scales and, for Motion-JPEG, encodes it
// into a pipe, from which whole frames are read; at its end it starts again. The pipe's back pressure sets the pace and
// bounds the memory.
//
// ReadRecording blocks: it is for a thread of its own, which also owns the player process. StopRecording may come from
// any thread; it makes ReadRecording return, now and later.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct RecordingOrder {
    std::string path;
    uint32_t fourcc = 0;  // MJPG, YUYV or UYVY
    size_t width = 0, height = 0;
    unsigned rateNumerator = 30, rateDenominator = 1;
};

struct Recording;
struct CloseRecording {
    void operator()(Recording* recording) const;
};
using RecordingHandle = std::unique_ptr<Recording, CloseRecording>;

RecordingHandle OpenRecording(const RecordingOrder& order);  // null: the system is out of descriptors

// The next frame. Empty: stopped, or the film yields no frame at all (said on standard error).
std::vector<uint8_t> ReadRecording(Recording& recording);
void StopRecording(Recording& recording);
