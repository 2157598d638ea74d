// How long an operator waits for a layout: from a command on telnet (its port on this machine, so that the forwarding
// into the board's network counts) to the first frame of the new layout in the display's memory, and to the refresh
// that would bring it to a screen; and what is seen in between.
//
// Every frame of the display is read from its memory while it stands there, at kColumns x kLines places: which source
// is seen at each of them must be what the old layout shows there, at all places, or what the new one does. Black,
// windows of two layouts and tears between layouts are seen so; a tear between two frames of the same source is not.
//
//     layout_switch [SWITCHES]        at each rate; a thousand without an argument, some twenty minutes
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "board_run.h"
#include "devices/display.h"
#include "figures.h"
#include "tcp_client.h"

static constexpr int kUsual = 1000;
static constexpr size_t kColumns = 128, kLines = 72;
static constexpr auto kGiveUp = std::chrono::seconds(10);
static constexpr unsigned kRestFrames = 12;  // the supervision looks at nothing else until ten frames are shown

struct Layout {
    const char* command;
    std::vector<Shown> shown;
    std::string sources = {};  // at each place; '?' where that is not settled
};

// Both cameras are 16:9. Each is as different from the next one as layouts get: all windows move.
static std::array kLayouts{
    Layout{.command = "$SS1$", .shown = {{'1', 0, 270, 960, 810}, {'2', 960, 270, 1920, 810}}},
    Layout{.command = "$PPBR2$", .shown = {{'2', 0, 0, 1920, 1080}, {'1', 1279, 711, 1901, 1061}}},
    Layout{.command = "$BS1$", .shown = {{'1', 0, 162, 1344, 918}, {'2', 1344, 378, 1920, 702}}},
    Layout{.command = "$S2$", .shown = {{'2', 0, 0, 1920, 1080}}},
    Layout{.command = "$TB1$", .shown = {{'1', 480, 0, 1440, 540}, {'2', 480, 540, 1440, 1080}}},
    Layout{.command = "$S1$", .shown = {{'1', 0, 0, 1920, 1080}}},
    Layout{.command = "$BS2$", .shown = {{'2', 0, 162, 1344, 918}, {'1', 1344, 378, 1920, 702}}},
    Layout{.command = "$PPTR1$", .shown = {{'2', 1279, 19, 1901, 369}}},
};

// The fastest source decides how often the display gets a frame; HDMI waits in second place behind camera 2.
struct Rate {
    const char* name;
    Words options;
};
static const Rate kRates[] = {
    {.name = "display at 60 frames/s",
     .options = {"--camera1", "fullhd-mjpeg", "--camera2", "hd-mjpeg", "--hdmi-in", "1280x720p60"}},
    {.name = "display at 30 frames/s", .options = {"--camera1", "fullhd-mjpeg", "--camera2", "hd-mjpeg"}},
};

static int64_t Now() {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// ---- The display

struct Frame {
    uint64_t number = 0;  // of all that were shown
    int64_t shownAt = 0;  // microseconds of CLOCK_MONOTONIC
    std::string sources = {};
};

static const uint8_t* MapDisplay(const Board& board) {
    const int file = open(BoardFile(board, "volatile/display").c_str(), O_RDONLY | O_CLOEXEC);
    void* const memory = mmap(nullptr, kDisplayFileBytes, PROT_READ, MAP_SHARED, file, 0);
    close(file);
    return memory == MAP_FAILED ? nullptr : static_cast<const uint8_t*>(memory);
}

// Nothing: the writer was faster.
static std::optional<Frame> ReadFrame(const uint8_t* memory) {
    const auto* header = reinterpret_cast<const DisplayHeader*>(memory);
    Frame frame{.number = header->frames.load()};
    const uint32_t index = header->newest.load() % kDisplaySlots;
    const DisplaySlot& slot = header->slots[index];
    const uint32_t before = slot.sequence.load(std::memory_order_acquire);
    const size_t width = slot.width, height = slot.height;
    frame.shownAt = slot.shownAt;
    const uint8_t* pixels = memory + kDisplayFirstSlot + index * kDisplaySlotBytes;
    Picture places{.width = kColumns, .height = kLines, .bgrx = std::vector<uint8_t>(kColumns * kLines * 4)};
    for (size_t line = 0; line < kLines; ++line)
        for (size_t column = 0; column < kColumns; ++column) {
            const size_t x = (2 * column + 1) * width / (2 * kColumns), y = (2 * line + 1) * height / (2 * kLines);
            memcpy(&places.bgrx[(line * kColumns + column) * 4], pixels + (y * width + x) * 4, 4);
        }
    std::atomic_thread_fence(std::memory_order_acquire);
    if (before % 2 != 0 || slot.sequence.load(std::memory_order_relaxed) != before) return {};
    for (size_t i = 0; i < kColumns * kLines; ++i) frame.sources += SourceAt(places, i % kColumns, i / kColumns);
    return frame;
}

// The next one behind the frame with this number, as soon as it is there; nothing for seconds: an empty one.
static Frame NextFrame(const uint8_t* memory, uint64_t after) {
    const auto* header = reinterpret_cast<const DisplayHeader*>(memory);
    const auto deadline = std::chrono::steady_clock::now() + kGiveUp;
    while (std::chrono::steady_clock::now() < deadline) {
        if (header->frames.load() != after)
            if (auto frame = ReadFrame(memory)) return *frame;
        usleep(300);
    }
    return {};
}

static bool Is(const Frame& frame, const Layout& layout) {
    for (size_t i = 0; i < layout.sources.size(); ++i)
        if (layout.sources[i] != '?' && layout.sources[i] != frame.sources[i]) return false;
    return frame.sources.size() == layout.sources.size();
}

// ---- What each layout looks like

// The few places at the edge of a source's mark change with it.
static void LearnSources(const uint8_t* memory, Layout& layout) {
    Frame frame = NextFrame(memory, 0);
    layout.sources = frame.sources;
    for (unsigned i = 0; i < kRestFrames && !frame.sources.empty(); ++i) {
        frame = NextFrame(memory, frame.number);
        for (size_t place = 0; place < frame.sources.size(); ++place)
            if (frame.sources[place] != layout.sources[place]) layout.sources[place] = '?';
    }
}

static bool Learn(const Board& board, const uint8_t* memory) {
    for (Layout& layout : kLayouts) {
        Telnet(board, layout.command);
        const bool shown = WaitUntilPicture(board, 5, [&](const Picture& picture) {
            return std::ranges::all_of(layout.shown, [&](const Shown& window) { return Shows(picture, window); });
        });
        Pause(1);
        LearnSources(memory, layout);
        if (!shown || layout.sources.empty()) return fprintf(stderr, "%s is not shown\n", layout.command), false;
    }
    return true;
}

// ---- Switching

struct Found {
    std::vector<double> milliseconds, toRefresh;
    unsigned judged = 0, wrong = 0, missed = 0;
};

static void PrintWrong(const Layout& before, const Layout& after, const Frame& frame) {
    fprintf(stderr, "from %s to %s: neither\n", before.command, after.command);
    for (size_t line = 0; line < kLines; line += 4)
        fprintf(stderr, "%.*s\n", int(kColumns), frame.sources.c_str() + line * kColumns);
}

// Judges every frame until the new layout has been there for kRestFrames. False: it never came.
static bool Switch(const uint8_t* memory, const TcpClient& telnet, const Layout& before, const Layout& after,
                   Found& found) {
    Frame frame = NextFrame(memory, 0);
    const int64_t sent = Now();
    Send(telnet, after.command);
    for (unsigned shown = 0; shown < kRestFrames;) {
        const uint64_t last = frame.number;
        frame = NextFrame(memory, last);
        if (frame.sources.empty() || Now() - sent > std::chrono::microseconds(kGiveUp).count()) return false;
        ++found.judged;
        found.missed += unsigned(frame.number - last - 1);
        if (Is(frame, after)) {
            if (shown++ > 0) continue;
            found.milliseconds.push_back(double(Now() - sent) / 1000);
            found.toRefresh.push_back(double(frame.shownAt - sent) / 1000);
        } else if (shown > 0 || !Is(frame, before)) {
            ++found.wrong;
            PrintWrong(before, after, frame);
        }
    }
    return Receive(telnet, "ACK\r\n", 5).ends_with("ACK\r\n");
}

// At a moment of no relation to the daemon's passes.
static void Rest() {
    static std::mt19937 random(1);
    usleep(std::uniform_int_distribution<useconds_t>(150'000, 250'000)(random));
}

static bool Measure(const Rate& rate, int switches) {
    const Board board = StartNewBoard(rate.options);
    const uint8_t* memory = WaitForPicture(board) && WaitForSound(board) ? MapDisplay(board) : nullptr;
    if (!memory || !Learn(board, memory)) return fprintf(stderr, "no picture\n"), false;
    const TcpClient telnet(TelnetPort(board));
    Found found;
    for (int i = 0; i < switches; ++i) {
        const auto &before = kLayouts[(size_t(i) + kLayouts.size() - 1) % kLayouts.size()],
                   &after = kLayouts[size_t(i) % kLayouts.size()];
        Rest();
        if (!Switch(memory, telnet, before, after, found))
            return fprintf(stderr, "%s did not come\n", after.command), false;
    }
    munmap(const_cast<uint8_t*>(memory), kDisplayFileBytes);
    ReportRow("layout switch", rate.name,
              {{"switches", double(found.milliseconds.size())},
               {"median ms", Median(found.milliseconds)},
               {"p99 ms", Quantile(found.milliseconds, 0.99)},
               {"max ms", Quantile(found.milliseconds, 1)},
               {"median to refresh ms", Median(found.toRefresh)},
               {"frames judged", double(found.judged)},
               {"wrong frames", double(found.wrong)},
               {"frames not read", double(found.missed)}});
    return true;
}

int main(int count, char** arguments) {
    const int switches = count > 1 ? atoi(arguments[1]) : kUsual;
    for (const Rate& rate : kRates)
        if (!Measure(rate, switches)) return 1;
}
