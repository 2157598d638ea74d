#include "capture/frame_makers.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>
#include <vector>

#include "capture/h264_frames.h"
#include "capture/jpeg_frames.h"
#include "capture/recording.h"

static constexpr size_t kFramesAhead = 2;  // of a recording, decoded before they are due
static constexpr size_t kLeastCompressedBytes = 64 * 1024;
static constexpr size_t kNoiseBytes = 64 * 1024;

bool FrameOrder::operator==(const FrameOrder& other) const {
    return source == other.source && fourcc == other.fourcc && width == other.width && height == other.height &&
           pictureWidth == other.pictureWidth && pictureHeight == other.pictureHeight &&
           interval.numerator == other.interval.numerator && interval.denominator == other.interval.denominator &&
           recording == other.recording;
}

// ---- Formats

// How frames of a format come about: `prepare` runs once on the maker's thread, `fill` on the supervisor's when due,
// and `work`, where there is one, runs on the maker's thread until it is stopped and leaves frames to be taken.
struct FrameKind {
    uint32_t fourcc;
    bool raw422;
    void (*prepare)(FrameMaker& maker);
    size_t (*fill)(FrameMaker& maker, FrameBuffer& buffer, const FrameStamp& now, const FrameStamp& next);
    void (*work)(FrameMaker& maker, const std::stop_token& stop);
};

struct FrameMaker {
    FrameOrder order;
    const FrameKind* kind = nullptr;
    uint64_t serial = 0;  // tells the still picture in a buffer from an older one
    std::atomic<bool> prepared{false};

    std::vector<uint8_t> picture;    // raw: the still picture
    std::optional<JpegStill> still;  // Motion-JPEG
    std::unique_ptr<H264Encoder, CloseH264> encoder;
    RecordingHandle recording;

    std::mutex mutex;  // guards what follows, shared with the maker's thread
    std::condition_variable_any changed;
    std::deque<PictureMark> wanted;         // H.264: marks to encode
    std::deque<std::vector<uint8_t>> made;  // frames to take
    std::jthread thread;                    // last: ends before what it uses
};

static PictureMark MarkOf(const FrameOrder& order, const FrameStamp& stamp) {
    return {.source = order.source,
            .counter = stamp.counter,
            .milliseconds = static_cast<uint32_t>(stamp.microseconds / 1000 % kMarkTimeModulo)};
}

// ---- Raw 4:2:2

static void SwapBytes(std::span<uint8_t> packed) {
    for (size_t at = 0; at + 1 < packed.size(); at += 2) std::swap(packed[at], packed[at + 1]);
}

static constexpr std::array<uint8_t, 2> kBlackYuyv = {16, 128};

static void PrepareRaw(FrameMaker& maker) {
    const FrameOrder& order = maker.order;
    const size_t pictureRow = order.pictureWidth * 2, row = order.width * 2;
    std::vector<uint8_t> whole(pictureRow * order.pictureHeight);
    DrawPictureYuyv(order.source, whole, order.pictureWidth, order.pictureHeight, pictureRow);
    maker.picture.resize(row * order.height);
    for (size_t at = 0; at < maker.picture.size(); ++at) maker.picture[at] = kBlackYuyv[at % 2];
    for (size_t line = 0; line < std::min(order.height, order.pictureHeight); ++line)
        memcpy(maker.picture.data() + line * row, whole.data() + line * pictureRow, std::min(row, pictureRow));
    if (order.fourcc == V4L2_PIX_FMT_UYVY) SwapBytes(maker.picture);
}

static size_t FillRaw(FrameMaker& maker, FrameBuffer& buffer, const FrameStamp& now, const FrameStamp&) {
    const FrameOrder& order = maker.order;
    if (buffer.bytes.size() < maker.picture.size()) return 0;
    if (buffer.picture != maker.serial) {
        std::ranges::copy(maker.picture, buffer.bytes.begin());
        buffer.picture = maker.serial;
    }
    if (order.pictureWidth < kMarkLeastWidth || order.pictureHeight < kMarkLeastHeight) return maker.picture.size();
    const size_t row = order.width * 2, lines = MarkRowLines(order.pictureHeight);
    std::vector<uint8_t> packed(order.pictureWidth * 2);
    for (size_t markRow = 0; markRow < kMarkRows; ++markRow) {
        DrawMarkLineYuyv(MarkOf(order, now), markRow, packed);
        if (order.fourcc == V4L2_PIX_FMT_UYVY) SwapBytes(packed);
        for (size_t line = markRow * lines; line < std::min((markRow + 1) * lines, order.height); ++line)
            memcpy(buffer.bytes.data() + line * row, packed.data(), std::min(row, packed.size()));
    }
    return maker.picture.size();
}

// ---- Motion-JPEG

static void PrepareJpeg(FrameMaker& maker) {
    maker.still = EncodeStill(maker.order.source, maker.order.width, maker.order.height);
}

static size_t FillJpeg(FrameMaker& maker, FrameBuffer& buffer, const FrameStamp& now, const FrameStamp&) {
    buffer.picture = 0;
    return maker.still ? SpliceJpeg(*maker.still, MarkOf(maker.order, now), buffer.bytes) : 0;
}

// ---- Frames that the maker's thread makes

static size_t TakeMade(FrameMaker& maker, FrameBuffer& buffer) {
    std::vector<uint8_t> frame;
    {
        const std::lock_guard lock(maker.mutex);
        if (maker.made.empty()) return 0;
        frame = std::move(maker.made.front());
        maker.made.pop_front();
    }
    maker.changed.notify_all();
    buffer.picture = 0;
    if (frame.size() > buffer.bytes.size()) return 0;
    std::ranges::copy(frame, buffer.bytes.begin());
    return frame.size();
}

static unsigned RateOf(const v4l2_fract& interval) {
    return std::clamp(interval.denominator / std::max(interval.numerator, 1u), 1u, 1000u);
}

static void PrepareH264(FrameMaker& maker) {
    maker.encoder = OpenH264(maker.order.source, maker.order.width, maker.order.height, RateOf(maker.order.interval));
}

// The frame was asked for when the one before it was taken, with the time when it would be due. No frame of the stream
// is left out, since each builds on the one before: a slow reader gets them late, as from a camera.
static size_t FillH264(FrameMaker& maker, FrameBuffer& buffer, const FrameStamp& now, const FrameStamp& next) {
    const size_t size = TakeMade(maker, buffer);
    {
        const std::lock_guard lock(maker.mutex);
        if (!maker.wanted.empty()) return size;
        maker.wanted.push_back(MarkOf(maker.order, size > 0 ? next : now));
    }
    maker.changed.notify_all();
    return size;
}

static void WorkH264(FrameMaker& maker, const std::stop_token& stop) {
    std::unique_lock lock(maker.mutex);
    while (maker.encoder &&
           maker.changed.wait(lock, stop, [&] { return !maker.wanted.empty() && maker.made.empty(); })) {
        const PictureMark mark = maker.wanted.front();
        lock.unlock();
        std::vector<uint8_t> frame = EncodeH264(*maker.encoder, mark);
        lock.lock();
        maker.wanted.pop_front();
        if (!frame.empty()) maker.made.push_back(std::move(frame));
    }
}

static void PrepareNothing(FrameMaker&) {}

static size_t FillRecording(FrameMaker& maker, FrameBuffer& buffer, const FrameStamp&, const FrameStamp&) {
    return TakeMade(maker, buffer);
}

static void WorkRecording(FrameMaker& maker, const std::stop_token& stop) {
    const std::stop_callback wakeReader(stop, [&] { StopRecording(*maker.recording); });
    for (;;) {
        std::vector<uint8_t> frame = ReadRecording(*maker.recording);
        if (frame.empty()) return;
        std::unique_lock lock(maker.mutex);
        if (!maker.changed.wait(lock, stop, [&] { return maker.made.size() < kFramesAhead; })) return;
        maker.made.push_back(std::move(frame));
    }
}

// ---- Noise

static void FillNoise(std::span<uint8_t> bytes) {
    static const std::vector<uint8_t> noise = [] {
        std::vector<uint8_t> made(kNoiseBytes);
        uint32_t state = 0x2545f491;
        for (uint8_t& value : made) {
            state ^= state << 13, state ^= state >> 17, state ^= state << 5;
            value = static_cast<uint8_t>(state);
        }
        return made;
    }();
    for (size_t at = 0; at < bytes.size(); at += noise.size())
        memcpy(bytes.data() + at, noise.data(), std::min(noise.size(), bytes.size() - at));
}

static size_t FillNoiseFrame(FrameMaker& maker, FrameBuffer& buffer, const FrameStamp&, const FrameStamp&) {
    const size_t size = FrameBufferBytes(maker.order.fourcc, maker.order.width, maker.order.height);
    buffer.picture = 0;
    FillNoise(buffer.bytes.first(std::min(size, buffer.bytes.size())));
    return std::min(size, buffer.bytes.size());
}

static constexpr std::array kKinds = {
    FrameKind{.fourcc = V4L2_PIX_FMT_YUYV, .raw422 = true, .prepare = PrepareRaw, .fill = FillRaw, .work = nullptr},
    FrameKind{.fourcc = V4L2_PIX_FMT_UYVY, .raw422 = true, .prepare = PrepareRaw, .fill = FillRaw, .work = nullptr},
    FrameKind{.fourcc = V4L2_PIX_FMT_MJPEG, .raw422 = false, .prepare = PrepareJpeg, .fill = FillJpeg, .work = nullptr},
    FrameKind{.fourcc = V4L2_PIX_FMT_H264, .raw422 = false, .prepare = PrepareH264, .fill = FillH264, .work = WorkH264},
};
static constexpr FrameKind kRecordingKind = {
    .fourcc = 0, .raw422 = false, .prepare = PrepareNothing, .fill = FillRecording, .work = WorkRecording};
static constexpr FrameKind kNoiseKind = {
    .fourcc = 0, .raw422 = false, .prepare = PrepareNothing, .fill = FillNoiseFrame, .work = nullptr};

static const FrameKind& KindOf(uint32_t fourcc) {
    const auto kind = std::ranges::find(kKinds, fourcc, &FrameKind::fourcc);
    return kind == kKinds.end() ? kNoiseKind : *kind;
}

// ---- Interface

size_t FrameRowBytes(uint32_t fourcc, size_t width) { return KindOf(fourcc).raw422 ? width * 2 : 0; }

size_t FrameBufferBytes(uint32_t fourcc, size_t width, size_t height) {
    const size_t packed = width * height * 2;
    return KindOf(fourcc).raw422 ? packed : std::max(packed, kLeastCompressedBytes);
}

std::string FourccText(uint32_t fourcc) {
    std::string text(4, '?');
    for (size_t at = 0; at < text.size(); ++at) {
        const char letter = static_cast<char>(fourcc >> (8 * at) & 0x7f);
        if (letter >= ' ' && letter != 0x7f) text[at] = letter;
    }
    return text;
}

bool CanPlayRecording(uint32_t fourcc) { return KindOf(fourcc).raw422 || fourcc == V4L2_PIX_FMT_MJPEG; }

std::shared_ptr<FrameMaker> StartFrames(const FrameOrder& order) {
    static uint64_t serials = 0;
    auto maker = std::make_shared<FrameMaker>();
    maker->order = order;
    maker->serial = ++serials;
    maker->kind = order.recording.empty() ? &KindOf(order.fourcc) : &kRecordingKind;
    if (!order.recording.empty()) {
        maker->recording = OpenRecording({.path = order.recording,
                                          .fourcc = order.fourcc,
                                          .width = order.width,
                                          .height = order.height,
                                          .rateNumerator = order.interval.denominator,
                                          .rateDenominator = order.interval.numerator});
        if (!maker->recording) maker->kind = &kNoiseKind;
    }
    maker->thread = std::jthread([maker = maker.get()](const std::stop_token& stop) {
        maker->kind->prepare(*maker);
        maker->prepared.store(true, std::memory_order_release);
        if (maker->kind->work != nullptr) maker->kind->work(*maker, stop);
    });
    return maker;
}

size_t FillFrame(FrameMaker& maker, FrameBuffer& buffer, const FrameStamp& now, const FrameStamp& next) {
    if (!maker.prepared.load(std::memory_order_acquire)) return 0;
    return maker.kind->fill(maker, buffer, now, next);
}

size_t FillGarbage(FrameMaker& maker, FrameBuffer& buffer, const FrameStamp& now, const FrameStamp& next) {
    const bool truncate = maker.order.fourcc == V4L2_PIX_FMT_MJPEG && now.counter % 2 == 0;
    return truncate ? FillFrame(maker, buffer, now, next) / 2 : FillNoiseFrame(maker, buffer, now, next);
}
