#include "capture/recording.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>

static constexpr size_t kReadBytes = 256 * 1024;
static constexpr size_t kJpegLimit = 16u << 20;  // a longer "picture" is no JPEG stream

struct Recording {
    RecordingOrder order;
    int stopEvent = -1;
    int pipe = -1;
    pid_t player = 0;
    size_t framesThisRound = 0;
    std::vector<uint8_t> pending;  // read, not yet given out
};

RecordingHandle OpenRecording(const RecordingOrder& order) {
    RecordingHandle recording(new Recording{.order = order, .pending = {}});
    recording->stopEvent = eventfd(0, EFD_CLOEXEC);
    if (recording->stopEvent < 0) return nullptr;
    return recording;
}

static void EndPlayer(Recording& recording) {
    if (recording.pipe >= 0) close(recording.pipe);
    recording.pipe = -1;
    if (recording.player > 0) {
        kill(recording.player, SIGKILL);
        waitpid(recording.player, nullptr, 0);
    }
    recording.player = 0;
    recording.pending.clear();
}

void CloseRecording::operator()(Recording* recording) const {
    EndPlayer(*recording);
    if (recording->stopEvent >= 0) close(recording->stopEvent);
    delete recording;
}

void StopRecording(Recording& recording) { eventfd_write(recording.stopEvent, 1); }

static std::vector<std::string> PlayerArguments(const RecordingOrder& order) {
    const bool jpeg = order.fourcc == V4L2_PIX_FMT_MJPEG;
    const char* format = jpeg ? "I420" : order.fourcc == V4L2_PIX_FMT_UYVY ? "UYVY" : "YUY2";
    std::vector<std::string> arguments = {
        "gst-launch-1.0",
        "-q",
        "filesrc",
        "location=" + order.path,
        "!",
        "decodebin",
        "!",
        "videoconvert",
        "!",
        "videoscale",
        "!",
        "videorate",
        "!",
        std::string("video/x-raw,format=") + format + ",width=" + std::to_string(order.width) + ",height=" +
            std::to_string(order.height) + ",pixel-aspect-ratio=1/1,framerate=" + std::to_string(order.rateNumerator) +
            "/" + std::to_string(order.rateDenominator)};
    if (jpeg) arguments.insert(arguments.end(), {"!", "jpegenc"});
    arguments.insert(arguments.end(), {"!", "fdsink", "fd=1"});
    return arguments;
}

// The player dies with the thread that started it, should that be gone before it can end it.
[[noreturn]] static void BecomePlayer(char* const* arguments, int output) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nothing = open("/dev/null", O_RDWR);
    dup2(nothing, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(nothing, STDERR_FILENO);
    execvp(arguments[0], arguments);
    _exit(127);
}

static bool StartPlayer(Recording& recording) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return false;
    std::vector<std::string> texts = PlayerArguments(recording.order);
    std::vector<char*> arguments;
    for (std::string& text : texts) arguments.push_back(text.data());
    arguments.push_back(nullptr);
    recording.player = fork();
    if (recording.player == 0) BecomePlayer(arguments.data(), ends[1]);
    close(ends[1]);
    recording.pipe = ends[0];
    recording.framesThisRound = 0;
    return recording.player > 0;
}

// Up to and with the end marker, which the data itself cannot contain; 0: not complete yet.
static size_t WholeJpegBytes(std::span<const uint8_t> stream) {
    static constexpr std::array<uint8_t, 2> kEnd = {0xff, 0xd9};
    const auto end = std::search(stream.begin(), stream.end(), kEnd.begin(), kEnd.end());
    return end == stream.end() ? 0 : static_cast<size_t>(end - stream.begin()) + kEnd.size();
}

static size_t WholeFrameBytes(const Recording& recording) {
    if (recording.order.fourcc == V4L2_PIX_FMT_MJPEG) return WholeJpegBytes(recording.pending);
    const size_t bytes = recording.order.width * recording.order.height * 2;
    return recording.pending.size() >= bytes ? bytes : 0;
}

enum class PipeNews { kBytes, kEnd, kStopped };

static PipeNews ReadMore(Recording& recording) {
    std::array<pollfd, 2> sets = {pollfd{.fd = recording.pipe, .events = POLLIN, .revents = 0},
                                  pollfd{.fd = recording.stopEvent, .events = POLLIN, .revents = 0}};
    while (poll(sets.data(), sets.size(), -1) < 0) {
    }
    if (sets[1].revents != 0) return PipeNews::kStopped;
    const size_t had = recording.pending.size();
    if (had > kJpegLimit + recording.order.width * recording.order.height * 2) return PipeNews::kEnd;
    recording.pending.resize(had + kReadBytes);
    const ssize_t got = read(recording.pipe, recording.pending.data() + had, kReadBytes);
    recording.pending.resize(had + static_cast<size_t>(std::max<ssize_t>(got, 0)));
    return got > 0 ? PipeNews::kBytes : PipeNews::kEnd;
}

static std::vector<uint8_t> TakePending(Recording& recording, size_t bytes) {
    const auto end = recording.pending.begin() + static_cast<ptrdiff_t>(bytes);
    std::vector<uint8_t> frame(recording.pending.begin(), end);
    recording.pending.erase(recording.pending.begin(), end);
    ++recording.framesThisRound;
    return frame;
}

std::vector<uint8_t> ReadRecording(Recording& recording) {
    for (;;) {
        if (recording.player <= 0 && !StartPlayer(recording)) return {};
        if (const size_t bytes = WholeFrameBytes(recording); bytes > 0) return TakePending(recording, bytes);
        const PipeNews news = ReadMore(recording);
        if (news == PipeNews::kBytes) continue;
        const bool empty = recording.framesThisRound == 0;
        EndPlayer(recording);
        if (news == PipeNews::kStopped) return {};
        if (empty) {
            fprintf(stderr, "%s: no film that gst-launch-1.0 can play\n", recording.order.path.c_str());
            return {};
        }
    }
}
