// A V4L2 capture device and its queue of memory-mapped buffers, as the HDMI source uses them.
//
// Frames leave without a copy: each holds its device buffer until the pipeline lets go of it, from whichever thread.
// Only when the device would run dry is a frame copied. A frame outlives the queue: EndCapture leaves it a copy. One
// thread opens, starts, reads and ends; errors are negative errno values.
#pragma once

#include <gst/video/video.h>

#include <memory>
#include <mutex>
#include <vector>

struct CaptureBuffer {
    uint8_t* start;
    size_t length;
    bool out;  // under way in the pipeline
};

struct CaptureQueue {
    int descriptor = -1;
    std::mutex lock;                     // over what follows, once frames are under way
    std::vector<CaptureBuffer> buffers;  // as the device numbers them
    bool streaming = false;
    size_t queued = 0;  // with the device
    ~CaptureQueue();
};

struct FrameFormat {
    GstVideoInfo info;
    size_t bytes, stride;  // of a frame, of its first plane's rows
};

// Opens a device that captures to memory-mapped buffers.
int OpenCapture(CaptureQueue& queue, const char* path);

// Formats and sizes of the open device; its present ones when `present`.
GstCaps* CaptureCaps(const CaptureQueue& queue, bool present);

// Sets the format and streams. The device keeps to the size exactly or -EINVAL comes back.
int StartCapture(CaptureQueue& queue, FrameFormat& format, unsigned bufferCount);

// The next frame: a buffer with its capture time (CLOCK_MONOTONIC) as PTS and its number as offset. -EAGAIN: none yet.
int TakeFrame(const std::shared_ptr<CaptureQueue>& queue, const FrameFormat& format, GstBuffer*& frame);

// Stops streaming and releases the device, however many frames are under way.
void EndCapture(CaptureQueue& queue);
