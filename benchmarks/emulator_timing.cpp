// How true the emulated hardware is to time, as a program on the board sees it: how long a transfer on the I2C bus
// takes, beside the least that an answer from another process can cost; and how far behind its due time each frame of a
// camera arrives, while it streams full HD.
//
// This program runs itself on a board, in the daemon's place, and reads there what it printed.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "board_run.h"
#include "figures.h"

using Milliseconds = std::chrono::duration<double, std::milli>;

static constexpr int kTransfers = 10000, kFrames = 900;
static constexpr double kFramePeriod = 1000.0 / 30;  // ms

static double Now() { return Milliseconds(std::chrono::steady_clock::now().time_since_epoch()).count(); }

// ---- On the board: each prints milliseconds, a line each

[[noreturn]] static void GiveUp(const char* what) {
    perror(what);
    _exit(1);
}

static void PrintTimes(void (*once)()) {
    for (int i = 0; i < kTransfers; ++i) {
        const double begin = Now();
        once();
        printf("%.6f\n", Now() - begin);
    }
}

static std::array<int, 2> there, back;

// A child that answers each byte with itself.
static void TimePipes() {
    if (pipe(there.data()) != 0 || pipe(back.data()) != 0) GiveUp("pipe");
    if (fork() == 0) {
        close(there[1]);
        for (char byte; read(there[0], &byte, 1) == 1;)
            if (write(back[1], &byte, 1) != 1) break;
        _exit(0);
    }
    PrintTimes([] {
        char byte = 0;
        if (write(there[1], &byte, 1) != 1 || read(back[0], &byte, 1) != 1) GiveUp("pipe");
    });
}

static int bus;

// The monitor's EDID, one byte of it.
static void TimeTransfers() {
    bus = open("/dev/i2c-1", O_RDWR | O_CLOEXEC);
    PrintTimes([] {
        uint8_t reg = 0, value;
        std::array messages{i2c_msg{.addr = 0x50, .flags = 0, .len = 1, .buf = &reg},
                            i2c_msg{.addr = 0x50, .flags = I2C_M_RD, .len = 1, .buf = &value}};
        i2c_rdwr_ioctl_data request{messages.data(), uint32_t(messages.size())};
        if (ioctl(bus, I2C_RDWR, &request) < 0) GiveUp("transfer");
    });
}

static int OpenCamera() {
    for (int number = 0; number < 10; ++number) {
        const int camera = open(("/dev/video" + std::to_string(number)).c_str(), O_RDWR | O_CLOEXEC);
        v4l2_capability capability{};
        if (camera >= 0 && ioctl(camera, VIDIOC_QUERYCAP, &capability) == 0 &&
            strstr(reinterpret_cast<const char*>(capability.bus_info), "usb-"))
            return camera;
        close(camera);
    }
    GiveUp("camera");
}

static v4l2_buffer BufferOf(uint32_t index) {
    v4l2_buffer buffer{};
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.index = index;
    return buffer;
}

static void StartCamera(int camera) {
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = 1920;
    format.fmt.pix.height = 1080;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_MJPEG;
    v4l2_requestbuffers request{};
    request.count = 4;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (ioctl(camera, VIDIOC_S_FMT, &format) < 0 || ioctl(camera, VIDIOC_REQBUFS, &request) < 0) GiveUp("format");
    for (uint32_t i = 0; i < request.count; ++i) {
        v4l2_buffer buffer = BufferOf(i);
        if (ioctl(camera, VIDIOC_QBUF, &buffer) < 0) GiveUp("queue");
    }
    if (ioctl(camera, VIDIOC_STREAMON, &type) < 0) GiveUp("start");
}

// Where each frame lies on a clock that ticks with its number: later is later than due.
static void TimeFrames() {
    const int camera = OpenCamera();
    StartCamera(camera);
    for (int i = 0; i < kFrames; ++i) {
        v4l2_buffer buffer = BufferOf(0);
        if (ioctl(camera, VIDIOC_DQBUF, &buffer) < 0) GiveUp("frame");
        printf("%.6f\n", Now() - buffer.sequence * kFramePeriod);
        if (ioctl(camera, VIDIOC_QBUF, &buffer) < 0) GiveUp("queue");
    }
}

// ---- On this machine

struct Question {
    const char* name;
    void (*onBoard)();
    bool fromEarliest;  // times are told from the earliest of them
    const char *median, *p99, *most;
    double unit;  // of the columns, in ms
};
static constexpr Question kQuestions[] = {
    {.name = "a byte to a process and back, over pipes",
     .onBoard = TimePipes,
     .fromEarliest = false,
     .median = "median µs",
     .p99 = "p99 µs",
     .most = "max µs",
     .unit = 1e-3},
    {.name = "I2C: a register is read",
     .onBoard = TimeTransfers,
     .fromEarliest = false,
     .median = "median µs",
     .p99 = "p99 µs",
     .most = "max µs",
     .unit = 1e-3},
    {.name = "camera: a frame behind its due time",
     .onBoard = TimeFrames,
     .fromEarliest = true,
     .median = "median ms",
     .p99 = "p99 ms",
     .most = "max ms",
     .unit = 1},
};
static constexpr const char* kBegin = "begin\n";
static constexpr const char* kEnd = "end\n";

[[noreturn]] static void RunOnBoard(const Question& question) {
    setvbuf(stdout, nullptr, _IOFBF, 1 << 20);  // the emulator shall not be busy with this text meanwhile
    printf("%s", kBegin);
    question.onBoard();
    printf("%s", kEnd);
    fflush(stdout);
    _exit(0);
}

static bool Ask(const Question& question, const std::string& self) {
    const Board board =
        StartNewBoard({"--camera1", "fullhd-mjpeg", "--daemon", self, "--no-restart", "--", question.name});
    const bool complete = WaitForOutput(board, kEnd, 60);
    const std::string output = Output(board);
    if (!complete) return fprintf(stderr, "%s", output.c_str()), false;
    std::istringstream lines(output.substr(output.find(kBegin) + strlen(kBegin)));
    std::vector<double> times;
    for (double time; lines >> time;) times.push_back(time / question.unit);
    const double start = question.fromEarliest ? Quantile(times, 0) : 0;
    ReportRow("emulator", question.name,
              {{"times", double(times.size())},
               {question.median, Median(times) - start},
               {question.p99, Quantile(times, 0.99) - start},
               {question.most, Quantile(times, 1) - start}});
    return true;
}

int main(int count, char** arguments) {
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    for (const Question& question : kQuestions) {
        if (count > 1 && strcmp(arguments[1], question.name) == 0) RunOnBoard(question);
        if (count == 1 && !Ask(question, self)) return fprintf(stderr, "%s: no answer\n", question.name), 1;
    }
}
