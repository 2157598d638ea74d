// Makes the frames of an emulated capture device in the format that the board asked for: raw, Motion-JPEG, H.264, or
// those of a recording.
//
// The picture of a source stands still but for its mark, so that a frame costs little: raw frames get new mark lines in
// the buffer that already holds the rest; JPEG frames are spliced from rows encoded once and two fresh ones. The first
// drawing, H.264 and recordings run on a thread of their own; Fill never waits for it.
//
// Everything is called from the supervisor's thread.
#pragma once

#include <linux/videodev2.h>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "capture/test_picture.h"

inline constexpr size_t kFrameBytesLimit = 64u << 20;

// A frame as it lies in a buffer, and what fills it.
struct FrameOrder {
    PictureSource source{};
    uint32_t fourcc = 0;
    size_t width = 0, height = 0;  // of the frame
    size_t pictureWidth = 0,
           pictureHeight = 0;    // of the picture: cropped or padded with black, from the top left (raw)
    v4l2_fract interval{1, 30};  // seconds from frame to frame; neither number 0
    std::string recording;       // path of a film to play in place of the picture
    bool operator==(const FrameOrder& other) const;
};

struct FrameStamp {
    uint16_t counter = 0;
    int64_t microseconds = 0;  // CLOCK_MONOTONIC
};

// Bytes of a row (0: compressed) and of a buffer that takes any frame of the format.
size_t FrameRowBytes(uint32_t fourcc, size_t width);
size_t FrameBufferBytes(uint32_t fourcc, size_t width, size_t height);

std::string FourccText(uint32_t fourcc);

// True when frames of the format can play a recording: Motion-JPEG and raw 4:2:2.
bool CanPlayRecording(uint32_t fourcc);

struct FrameMaker;

// Begins to make frames. An unknown format yields noise, as a broken camera would. Dropping the last reference ends it.
std::shared_ptr<FrameMaker> StartFrames(const FrameOrder& order);

// A buffer and which maker's still picture it holds (0: none).
struct FrameBuffer {
    std::span<uint8_t> bytes;
    uint64_t picture = 0;
};

// Writes the frame of `now` and returns its size; 0 when there is none yet. `next` is the stamp of the frame after it.
size_t FillFrame(FrameMaker& maker, FrameBuffer& buffer, const FrameStamp& now, const FrameStamp& next);

// A broken frame instead: noise, or a Motion-JPEG frame without its second half.
size_t FillGarbage(FrameMaker& maker, FrameBuffer& buffer, const FrameStamp& now, const FrameStamp& next);
