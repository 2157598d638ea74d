// What composing the display picture costs: the board's compositor beside GStreamer's own "compositor" in the same
// pipeline, 1920x1080 BGRx from two cameras of 1280x720 (Motion-JPEG, 4:2:2) and an HDMI source of 1920x1080 (YUY2).
//
// Each run is a process of its own that counts the processor time of all its threads over frames that leave as fast as
// they are made. Frames come from memory. Composition alone: decoded ones go in, and what the same sources cost without
// a compositor is taken off. With decoding: Motion-JPEG goes in, and nothing is taken off. The limit is the library's
// bare conversion to BGRx of planes that have their windows' size already, on one thread, and the decoding.
#include <gst/video/video.h>
#include <libyuv/convert_argb.h>
#include <sys/wait.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <functional>

#include "capture/test_picture.h"
#include "figures.h"
#include "gst/compose.h"

static constexpr int kWidth = 1920, kHeight = 1080;
static constexpr int kPairs = 5;
static constexpr unsigned kWarmUp = 20, kFrames = 100;

enum Source { kCamera1, kCamera2, kHdmi };

struct SourceRow {
    PictureSource picture;
    int width, height;
    size_t jpegBytes;
    const char* rawCaps;
    bool packed;
};

static constexpr SourceRow kSources[] = {
    {PictureSource::kCamera1, 1280, 720, 73'000, "format=Y42B,colorimetry=1:4:0:0", false},
    {PictureSource::kCamera2, 1280, 720, 175'000, "format=Y42B,colorimetry=1:4:0:0", false},
    {PictureSource::kHdmi0, 1920, 1080, 0, "format=YUY2,colorimetry=bt601", true},
};

struct WindowRow {
    Source source;
    Rectangle area;
};

// Bottom to top.
struct LayoutRow {
    const char* name;
    std::vector<WindowRow> windows;
};

static const LayoutRow kLayouts[] = {
    {"one camera enlarged", {{kCamera1, {0, 0, kWidth, kHeight}}}},
    {"side by side", {{kCamera1, {0, 270, 960, 540}}, {kCamera2, {960, 270, 960, 540}}}},
    {"HDMI, one inset", {{kHdmi, {0, 0, kWidth, kHeight}}, {kCamera1, {1279, 711, 622, 350}}}},
    {"HDMI, two insets",
     {{kHdmi, {0, 0, kWidth, kHeight}}, {kCamera1, {19, 712, 621, 349}}, {kCamera2, {1279, 711, 622, 350}}}},
};

// ---- What the sources show

struct Picture {
    std::vector<uint8_t> y, cb, cr;
    int width, height;
};

static Picture Draw(const SourceRow& source) {
    const size_t width = static_cast<size_t>(source.width), height = static_cast<size_t>(source.height);
    const size_t size = width * height;
    Picture picture{std::vector<uint8_t>(size), std::vector<uint8_t>(size / 2), std::vector<uint8_t>(size / 2),
                    source.width, source.height};
    DrawPicture(source.picture, {picture.y, picture.cb, picture.cr, width, height, width, width / 2});
    return picture;
}

static std::vector<uint8_t> RawFrame(const Picture& picture, bool packed) {
    std::vector<uint8_t> frame;
    if (!packed) {
        for (const auto* plane : {&picture.y, &picture.cb, &picture.cr})
            frame.insert(frame.end(), plane->begin(), plane->end());
        return frame;
    }
    for (size_t i = 0; i < picture.cb.size(); ++i)
        frame.insert(frame.end(), {picture.y[2 * i], picture.cb[i], picture.y[2 * i + 1], picture.cr[i]});
    return frame;
}

// At the lowest quality that makes a frame of that size.
static std::vector<uint8_t> JpegFrame(const Picture& picture, size_t bytes) {
    const tjhandle encoder = tjInitCompress();
    std::array<const unsigned char*, 3> planes = {picture.y.data(), picture.cb.data(), picture.cr.data()};
    std::vector<uint8_t> frame;
    for (int low = 1, high = 100; low < high;) {
        const int quality = (low + high) / 2;
        unsigned char* coded = nullptr;
        unsigned long size = 0;
        tjCompressFromYUVPlanes(encoder, planes.data(), picture.width, nullptr, picture.height, TJSAMP_422, &coded,
                                &size, quality, 0);
        if (size < bytes) {
            low = quality + 1;
        } else {
            high = quality;
            frame.assign(coded, coded + size);
        }
        tjFree(coded);
    }
    tjDestroy(encoder);
    return frame;
}

// ---- Pipelines

enum class Mixer { kOurs, kStock, kNone };

struct Run {
    Mixer mixer;
    const LayoutRow* layout;
    const char* decoder;  // null: decoded frames go in
    bool paced;           // at the display's 30 frames a second
};

static std::string SourceText(const Run& run, size_t pad) {
    const SourceRow& source = kSources[run.layout->windows[pad].source];
    const std::string size =
        ",width=" + std::to_string(source.width) + ",height=" + std::to_string(source.height) + ",framerate=30/1";
    const bool coded = run.decoder && source.jpegBytes;
    return " appsrc name=source" + std::to_string(pad) + " format=time max-buffers=1 caps=" +
           (coded ? "image/jpeg" + size + " ! " + run.decoder
                  : std::string("video/x-raw,") + source.rawCaps + ",pixel-aspect-ratio=1/1" + size);
}

static std::string PipelineText(const Run& run) {
    std::string text, sources;
    const std::string sink = std::string("fakesink name=out sync=") + (run.paced ? "true" : "false");
    if (run.mixer == Mixer::kNone) return SourceText(run, 0) + " ! " + sink;
    for (size_t pad = 0; pad < run.layout->windows.size(); ++pad) {
        const Rectangle& area = run.layout->windows[pad].area;
        const auto set = [&](const char* property, int value) {
            text += " sink_" + std::to_string(pad) + "::" + property + "=" + std::to_string(value);
        };
        set("xpos", area.left);
        set("ypos", area.top);
        set("width", area.width);
        set("height", area.height);
        sources += SourceText(run, pad) + " ! mix.sink_" + std::to_string(pad);
    }
    const char* const element = run.mixer == Mixer::kOurs ? "imxcompositor_g2d" : "compositor background=black";
    return std::string(element) + " name=mix" + text + " ! video/x-raw,format=BGRx,width=" + std::to_string(kWidth) +
           ",height=" + std::to_string(kHeight) + ",framerate=30/1,pixel-aspect-ratio=1/1 ! " + sink + sources;
}

static double Seconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

struct Feed {
    GstBuffer* frame;
    unsigned count;
};

static void Push(GstElement* source, guint, gpointer data) {
    Feed& feed = *static_cast<Feed*>(data);
    GstBuffer* const frame = gst_buffer_copy(feed.frame);
    GST_BUFFER_PTS(frame) = gst_util_uint64_scale_int(feed.count, GST_SECOND, 30);
    GST_BUFFER_DURATION(frame) = GST_SECOND / 30;
    ++feed.count;
    GstFlowReturn flow;
    g_signal_emit_by_name(source, "push-buffer", frame, &flow);
    gst_buffer_unref(frame);
}

struct Measured {
    double processor = 0, wall = 0;  // ms a frame
    double peak = 0;                 // MB
    double mean = 0, most = 0;       // levels between the picture and the reference
};

struct Count {
    unsigned frames = 0;
    double processor = 0, wall = 0;
    GstBuffer* last = nullptr;
    std::atomic<bool> ended = false;
};

static GstPadProbeReturn CountFrame(GstPad*, GstPadProbeInfo* info, gpointer data) {
    Count& count = *static_cast<Count*>(data);
    ++count.frames;
    if (count.frames != kWarmUp && count.frames != kWarmUp + kFrames) return GST_PAD_PROBE_OK;
    const double sign = count.frames == kWarmUp ? -1 : 1;
    count.processor += sign * Seconds(CLOCK_PROCESS_CPUTIME_ID);
    count.wall += sign * Seconds(CLOCK_MONOTONIC);
    if (sign < 0) return GST_PAD_PROBE_OK;
    count.last = gst_buffer_ref(GST_PAD_PROBE_INFO_BUFFER(info));
    count.ended = true;
    count.ended.notify_all();
    return GST_PAD_PROBE_REMOVE;
}

static double PeakMegabytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (long kilobytes; word == "VmHWM:" && status >> kilobytes) return static_cast<double>(kilobytes) / 1024;
    return 0;
}

static GstElement* StartPipeline(const Run& run, Count& count) {
    gst_init(nullptr, nullptr);
    GError* error = nullptr;
    if (!gst_plugin_load_file(TESSEL_PLUGIN_PATH, &error)) g_error("%s", error->message);
    GstElement* const pipeline = gst_parse_launch(PipelineText(run).c_str(), &error);
    if (error) g_error("%s", error->message);
    for (size_t pad = 0; pad < run.layout->windows.size(); ++pad) {
        const SourceRow& row = kSources[run.layout->windows[pad].source];
        const Picture picture = Draw(row);
        const bool coded = run.decoder && row.jpegBytes;
        const auto bytes = coded ? JpegFrame(picture, row.jpegBytes) : RawFrame(picture, row.packed);
        GstBuffer* const frame = gst_buffer_new_memdup(bytes.data(), bytes.size());
        GstElement* const source = gst_bin_get_by_name(GST_BIN(pipeline), ("source" + std::to_string(pad)).c_str());
        g_signal_connect(source, "need-data", G_CALLBACK(Push), new Feed(frame, 0));
    }
    GstElement* const out = gst_bin_get_by_name(GST_BIN(pipeline), "out");
    GstPad* const pad = gst_element_get_static_pad(out, "sink");
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, CountFrame, &count, nullptr);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    return pipeline;
}

// ---- The reference: bilinear in real numbers, straight from the definition

using RealPlane = std::vector<double>;

struct RealPicture {
    std::array<RealPlane, 3> planes;
    std::array<int, 3> widths;
    int height;
};

// Samples along one axis: averaged by powers of two as long as bilinear interpolation would skip some, then between the
// two nearest. `twice`: chroma at half the window's size across, each sample shown twice.
static RealPlane ScaleLine(const RealPlane& from, int size, bool twice) {
    RealPlane line = from, scaled(static_cast<size_t>(size));
    while (static_cast<int>(line.size()) > 2 * size) {
        for (size_t i = 0; i < line.size() / 2; ++i) line[i] = (line[2 * i] + line[2 * i + 1]) / 2;
        line.resize(line.size() / 2);
    }
    const double last = static_cast<double>(line.size() - 1);
    for (size_t i = 0; i < scaled.size(); ++i) {
        const double centre = (static_cast<double>(i) + .5) * static_cast<double>(line.size()) / size - .5;
        const double at = std::clamp(twice ? static_cast<double>(i / 2) : centre, 0., last);
        const size_t left = static_cast<size_t>(at), right = std::min(left + 1, line.size() - 1);
        scaled[i] = line[left] + (line[right] - line[left]) * (at - static_cast<double>(left));
    }
    return scaled;
}

static RealPlane ScalePlane(const std::vector<uint8_t>& samples, int width, const Rectangle& area) {
    const size_t columns = static_cast<size_t>(width), rows = samples.size() / columns;
    const size_t wide = static_cast<size_t>(area.width), high = static_cast<size_t>(area.height);
    RealPlane across(wide * rows), scaled(wide * high), column(rows);
    for (size_t y = 0; y < rows; ++y) {
        const uint8_t* const row = &samples[y * columns];
        const RealPlane line = ScaleLine({row, row + columns}, area.width, 2 * width == area.width);
        std::ranges::copy(line, across.begin() + static_cast<ptrdiff_t>(y * wide));
    }
    for (size_t x = 0; x < wide; ++x) {
        for (size_t y = 0; y < rows; ++y) column[y] = across[y * wide + x];
        const RealPlane line = ScaleLine(column, area.height, false);
        for (size_t y = 0; y < high; ++y) scaled[y * wide + x] = line[y];
    }
    return scaled;
}

static void PaintReference(const WindowRow& window, std::vector<double>& canvas) {
    const SourceRow& source = kSources[window.source];
    const Picture picture = Draw(source);
    const RealPlane y = ScalePlane(picture.y, picture.width, window.area);
    const RealPlane cb = ScalePlane(picture.cb, picture.width / 2, window.area);
    const RealPlane cr = ScalePlane(picture.cr, picture.width / 2, window.area);
    const double black = source.packed ? 16 : 0, gain = source.packed ? 255. / 219 : 1;
    const double chroma = source.packed ? 255. / 224 : 1;
    for (int row = 0, i = 0; row < window.area.height; ++row)
        for (int column = 0; column < window.area.width; ++column, ++i) {
            const size_t at = static_cast<size_t>(i);
            const double luma = (y[at] - black) * gain, u = (cb[at] - 128) * chroma, v = (cr[at] - 128) * chroma;
            double* const pixel = &canvas[(static_cast<size_t>(window.area.top + row) * kWidth +
                                           static_cast<size_t>(window.area.left + column)) *
                                          3];
            pixel[0] = std::clamp(luma + 1.772 * u, 0., 255.);
            pixel[1] = std::clamp(luma - 0.344136 * u - 0.714136 * v, 0., 255.);
            pixel[2] = std::clamp(luma + 1.402 * v, 0., 255.);
        }
}

static void Compare(GstBuffer* frame, const LayoutRow& layout, Measured& measured) {
    std::vector<double> canvas(size_t{kWidth} * kHeight * 3);
    for (const WindowRow& window : layout.windows) PaintReference(window, canvas);
    GstMapInfo map;
    if (!gst_buffer_map(frame, &map, GST_MAP_READ)) return;
    double sum = 0;
    for (size_t i = 0; i < canvas.size(); ++i) {
        const double difference = std::abs(map.data[i / 3 * 4 + i % 3] - canvas[i]);
        sum += difference;
        measured.most = std::max(measured.most, difference);
    }
    measured.mean = sum / static_cast<double>(canvas.size());
    gst_buffer_unmap(frame, &map);
}

// ---- Runs, each in a process of its own

static Measured InChild(const std::function<Measured()>& work) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) return {};
    const pid_t child = fork();
    if (child == 0) {
        const Measured measured = work();
        _exit(write(ends[1], &measured, sizeof measured) == sizeof measured ? 0 : 1);
    }
    close(ends[1]);
    Measured measured{};
    const bool good = read(ends[0], &measured, sizeof measured) == sizeof measured;
    close(ends[0]);
    waitpid(child, nullptr, 0);
    if (good) return measured;
    fprintf(stderr, "a run has failed\n");
    exit(1);
}

static Measured Perform(const Run& run, bool compare = false) {
    return InChild([&] {
        Count count;
        StartPipeline(run, count);
        count.ended.wait(false);
        Measured measured{.processor = count.processor * 1000 / kFrames, .wall = count.wall * 1000 / kFrames};
        measured.peak = PeakMegabytes();
        if (compare) Compare(count.last, *run.layout, measured);
        return measured;
    });
}

// The conversion alone of window-sized planes.
static double BareConversion(const LayoutRow& layout) {
    return InChild([&] {
               std::vector<uint8_t> canvas(size_t{kWidth} * kHeight * 4), planes(size_t{kWidth} * kHeight * 2, 100);
               double begin = 0;
               for (unsigned frame = 0; frame < kWarmUp + kFrames; ++frame) {
                   if (frame == kWarmUp) begin = Seconds(CLOCK_PROCESS_CPUTIME_ID);
                   for (const auto& [source, area] : layout.windows) {
                       uint8_t* const pixels = &canvas[static_cast<size_t>(area.top * kWidth + area.left) * 4];
                       const uint8_t* const u = &planes[size_t{kWidth} * kHeight];
                       if (kSources[source].packed)
                           libyuv::YUY2ToARGB(planes.data(), kWidth * 2, pixels, kWidth * 4, area.width, area.height);
                       else
                           libyuv::J422ToARGB(planes.data(), area.width, u, area.width / 2, u, area.width / 2, pixels,
                                              kWidth * 4, area.width, area.height);
                   }
               }
               return Measured{.processor = (Seconds(CLOCK_PROCESS_CPUTIME_ID) - begin) * 1000 / kFrames};
           })
        .processor;
}

// What the layout's sources cost without a compositor, one after the other.
static double SourcesCost(const LayoutRow& layout, const char* decoder) {
    double sum = 0;
    for (const WindowRow& window : layout.windows) {
        const LayoutRow alone = {"", {window}};
        sum += Perform({Mixer::kNone, &alone, decoder, false}).processor;
    }
    return sum;
}

struct Costs {
    double ours, stock, times, sources;
};

static Costs CompareCosts(const LayoutRow& layout, const char* decoder) {
    std::vector<double> ours, stock, times, sources;
    for (int pair = 0; pair < kPairs; ++pair) {
        sources.push_back(SourcesCost(layout, decoder));
        const double off = decoder ? 0 : sources.back();
        ours.push_back(Perform({Mixer::kOurs, &layout, decoder, false}).processor - off);
        stock.push_back(Perform({Mixer::kStock, &layout, decoder, false}).processor - off);
        times.push_back(stock.back() / ours.back());
    }
    return {Median(ours), Median(stock), Median(times), Median(sources)};
}

static void ReportCosts(const LayoutRow& layout) {
    const double bare = BareConversion(layout);
    const auto report = [&](const char* table, const Costs& costs, double limit) {
        ReportRow(table, layout.name,
                  {{"ours ms/frame", costs.ours},
                   {"stock ms/frame", costs.stock},
                   {"times less", costs.times},
                   {"limit ms/frame", limit}});
    };
    report("composition alone", CompareCosts(layout, nullptr), bare);
    const Costs whole = CompareCosts(layout, "jpegdec");
    report("composition with decoding", whole, whole.sources + bare);
    const Measured picture = Perform({Mixer::kOurs, &layout, nullptr, false}, true);
    ReportRow("composed picture against the reference", layout.name,
              {{"mean levels", picture.mean}, {"largest levels", picture.most}});
}

// The heaviest layout, with decoding.
static void ReportWhole() {
    for (const Mixer mixer : {Mixer::kOurs, Mixer::kStock}) {
        std::vector<double> rates, peaks;
        for (int i = 0; i < kPairs; ++i) {
            const Measured fast = Perform({mixer, &kLayouts[3], "jpegdec", false});
            rates.push_back(1000 / fast.wall);
            peaks.push_back(fast.peak);
        }
        const Measured paced = Perform({mixer, &kLayouts[3], "jpegdec", true});
        ReportRow("HDMI, two insets, with decoding", mixer == Mixer::kOurs ? "ours" : "stock",
                  {{"frames/s unthrottled", Median(rates)},
                   {"% of a core at 30 frames/s", 100 * paced.processor / paced.wall},
                   {"peak MB", Median(peaks)}});
    }
}

int main() {
    for (const LayoutRow& layout : kLayouts) ReportCosts(layout);
    ReportWhole();
}
