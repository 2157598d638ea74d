// The settings file: saves that are killed, fail or lose their power, and files that no save has written.
#include "settings/device_settings.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#include "campaign.h"
#include "picture_probe.h"
#include "tcp_client.h"

namespace fs = std::filesystem;

static constexpr size_t kBytes = sizeof(DeviceSettings);

// ---- The calls of the daemon's load and save: the linker leads them here (--wrap)

struct Verdict {
    int error = 0;             // not 0: the call fails with it, and nothing happens
    size_t atMost = SIZE_MAX;  // bytes that it moves
};
using Hook = std::function<Verdict(std::string_view call, const void* bytes, size_t size)>;
static Hook hook;  // none: the calls go on to the system

static bool Fails(std::string_view call, const void* bytes, size_t& size) {
    if (!hook) return false;
    const Verdict verdict = hook(call, bytes, size);
    size = std::min(size, verdict.atMost);
    if (verdict.error != 0) errno = verdict.error;
    return verdict.error != 0;
}

extern "C" {
int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const int mode = flags & O_CREAT ? va_arg(rest, int) : 0;
    va_end(rest);
    size_t none = 0;
    return Fails("open", nullptr, none) ? -1 : __real_open(path, flags, mode);
}
ssize_t __real_read(int file, void* bytes, size_t size);
ssize_t __wrap_read(int file, void* bytes, size_t size) {
    return Fails("read", nullptr, size) ? -1 : __real_read(file, bytes, size);
}
ssize_t __real_write(int file, const void* bytes, size_t size);
ssize_t __wrap_write(int file, const void* bytes, size_t size) {
    return Fails("write", bytes, size) ? -1 : __real_write(file, bytes, size);
}
int __real_ftruncate(int file, off_t size);
int __wrap_ftruncate(int file, off_t size) {
    auto length = size_t(size);
    return Fails("ftruncate", nullptr, length) ? -1 : __real_ftruncate(file, size);
}
int __real_fsync(int file);
int __wrap_fsync(int file) {
    size_t none = 0;
    return Fails("fsync", nullptr, none) ? -1 : __real_fsync(file);
}
}

// ---- Records and files

using Image = std::string;  // of a file or a record; empty: the defaults will do for it

// In memory: what a sync costs is not the question here. Of the slice, whose children save to it and are killed.
static const std::string& Path() {
    static const std::string path = "/dev/shm/campaign-settings-" + std::to_string(getpid());
    return path;
}

static void Put(std::string_view bytes, const std::string& path = Path()) {
    std::ofstream(path + ".new", std::ios::binary) << bytes;
    fs::rename(path + ".new", path);  // a daemon that starts meanwhile finds one or the other
}

static Image Get(const std::string& path = Path()) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

static Image AnyBytes(Bench& bench, size_t count) {
    Image bytes(count, '\0');
    for (char& byte : bytes) byte = char(Below(bench, 256));
    return bytes;
}

static bool IsSummed(size_t byte) {
    static constexpr size_t kSummed[] = {1, 2, 3, 6, 7, 36, 37, 38, 39, 40, 45};
    return std::ranges::find(kSummed, byte) != std::end(kSummed);
}

static char SumOf(const Image& image) {
    unsigned sum = 0;
    for (size_t at = 0; at < kBytes; ++at) sum += IsSummed(at) ? uint8_t(image[at]) : 0;
    return char(sum);
}

static Image Stamped(Image image) {
    image.replace(1, 3, "\xAB\x01\0", 3);
    image[0] = SumOf(image);
    return image;
}

static void SaveImage(const Image& image) {
    DeviceSettings record;
    std::ranges::copy(image, reinterpret_cast<char*>(&record));
    SaveSettings(record, Path().c_str());
}

// What a start makes of the file. Its messages are not for the campaign's terminal.
static Image StartWith() {
    DeviceSettings record;
    if (LoadSettings(record, Path().c_str()) != 0 || ComputeChecksum(record) != record.Checksum) return {};
    return {reinterpret_cast<const char*>(&record), kBytes};
}

// ---- Saves cut short: the next start finds the record from before or the new one, whole

struct Save {
    Image before, after;
};

static Save PrepareSave(Bench& bench) {
    Save save{.before = {}, .after = Stamped(AnyBytes(bench, kBytes))};
    fs::remove(Path());
    if (Below(bench, 8) == 0) return save;  // the first of a board
    save.before = Stamped(AnyBytes(bench, kBytes));
    SaveImage(save.before);
    return save;
}

static void ExpectEither(Bench& bench, const Save& save, const std::string& when) {
    const Image found = StartWith();
    Expect(bench, found == save.before || found == save.after, "the old record or the new one " + when);
}

static std::string KillSave(Bench& bench) {
    const Save save = PrepareSave(bench);
    const size_t call = Below(bench, 6);
    const pid_t child = fork();
    if (child == 0) {
        hook = [left = call](std::string_view, const void*, size_t) mutable {
            if (left-- == 0) raise(SIGKILL);
            return Verdict{};
        };
        SaveImage(save.after);
        raise(SIGKILL);
    }
    waitpid(child, nullptr, 0);
    ExpectEither(bench, save, "after SIGKILL at call " + std::to_string(call));
    return "save killed: at call " + std::to_string(call);
}

// Every state in which the disk can be left between one sync and the next: what was synced, and as many of the changes
// behind it as there was power for. A block is written whole or not at all; the record lies within the first.
static std::string CutPower(Bench& bench) {
    const Save save = PrepareSave(bench);
    if (!save.before.empty() && Below(bench, 4) == 0) Put(save.before + AnyBytes(bench, Below(bench, 400)));
    std::vector<std::pair<std::string, Image>> states{{"before", Get()}};
    hook = [&states](std::string_view call, const void* bytes, size_t size) {
        Image disk = states.back().second;
        if (call == "write") disk.replace(0, std::min(size, disk.size()), static_cast<const char*>(bytes), size);
        if (call == "ftruncate") disk.resize(size);
        states.emplace_back(call, disk);
        return Verdict{};
    };
    SaveImage(save.after);
    hook = nullptr;
    for (const auto& [call, disk] : states) {
        Put(disk);
        ExpectEither(bench, save, "without power behind " + call);
        if (call == "fsync") Expect(bench, StartWith() == save.after, "the new record once it is synced");
    }
    bench.tries = unsigned(states.size());
    return "save without power: every state of the disk";
}

struct CallFault {
    std::string_view call;
    Verdict verdict;
};
static constexpr CallFault kCallFaults[] = {
    {"open", {.error = EMFILE}},  {"open", {.error = EROFS}}, {"open", {.error = ENOSPC}},   {"open", {.error = EINTR}},
    {"write", {.error = ENOSPC}}, {"write", {.error = EIO}},  {"write", {.error = EINTR}},   {"write", {.atMost = 1}},
    {"write", {.atMost = 50}},    {"write", {.atMost = 135}}, {"ftruncate", {.error = EIO}}, {"fsync", {.error = EIO}},
    {"fsync", {.error = ENOSPC}}, {"read", {.error = EIO}},   {"read", {.error = EINTR}},    {"read", {.atMost = 135}},
};

static std::string FailSave(Bench& bench) {
    const Save save = PrepareSave(bench);
    const CallFault& fault = Any(bench, kCallFaults);
    hook = [&fault, struck = false](std::string_view call, const void*, size_t) mutable {
        return !struck && call == fault.call ? struck = true, fault.verdict : Verdict{};
    };
    SaveImage(save.after);
    if (fault.call == "read") Expect(bench, StartWith().empty() || StartWith() == save.after, "no half record read");
    hook = nullptr;
    const std::string what =
        std::string(fault.call) + " " + (fault.verdict.error ? strerrorname_np(fault.verdict.error) : "short");
    ExpectEither(bench, save, "after " + what);
    SaveImage(save.after);
    Expect(bench, StartWith() == save.after, "the new record from an undisturbed save");
    return "save or load with a failing call: " + what;
}

// ---- Files that no save has written

static std::string EveryLength(Bench& bench) {
    const Image bytes = Stamped(AnyBytes(bench, 300));
    for (size_t length = 0; length <= bytes.size(); ++length) {
        Put(bytes.substr(0, length));
        Expect(bench, StartWith() == (length < kBytes ? Image() : bytes.substr(0, kBytes)),
               std::to_string(length) + " bytes taken for what they are");
    }
    bench.tries = unsigned(bytes.size()) + 1;
    return "file of every length: 0 to 300 bytes";
}

static std::string EveryBit(Bench& bench) {
    const Image image = Stamped(AnyBytes(bench, kBytes));
    for (size_t bit = 0; bit < 8 * kBytes; ++bit) {
        Image flipped = image;
        flipped[bit / 8] = char(flipped[bit / 8] ^ 1 << bit % 8);
        Put(flipped);
        Expect(bench, StartWith() == (bit < 8 || IsSummed(bit / 8) ? Image() : flipped),
               "bit " + std::to_string(bit) + " noticed, or taken alone");
    }
    bench.tries = 8 * kBytes;
    return "file with any bit flipped: each of 1088";
}

static std::string Noise(Bench& bench) {
    const Image bytes = AnyBytes(bench, Below(bench, 400));
    Put(bytes);
    const bool fits = bytes.size() >= kBytes && bytes[0] == SumOf(bytes);
    Expect(bench, StartWith() == (fits ? bytes.substr(0, kBytes) : Image()), "noise taken for what it is");
    return "file of noise: " + std::to_string(bytes.size()) + " bytes";
}

static std::string FileStep(Bench& bench) {
    static constexpr std::string (*kOften[])(Bench&) = {KillSave, CutPower, FailSave, Noise};
    static constexpr std::string (*kRare[])(Bench&) = {EveryLength, EveryBit};
    const int terminal = dup(STDERR_FILENO), nowhere = open("/dev/null", O_WRONLY);  // each refusal says so
    dup2(nowhere, STDERR_FILENO);
    const std::string line = Below(bench, 50) == 0 ? Any(bench, kRare)(bench) : Any(bench, kOften)(bench);
    dup2(terminal, STDERR_FILENO);
    close(terminal), close(nowhere);
    fs::remove(Path());
    return line;
}

const Family SettingsFiles = {.name = "settings", .steps = {400, 20'000, 500'000}, .onBoard = false, .step = FileStep};

// ---- The same on a board

static std::string BoardPath(const Bench& bench) { return BoardFile(bench.board, "home/root/config.bin"); }

static void StartOn(Bench& bench, const Image& file) {
    Put(file, BoardPath(bench));
    Do(bench, {"power-cycle"});
    ++bench.lives;
    WaitUntil(10, [&] { return Status(bench.board)["daemon"]["starts"] >= bench.lives; });
}

static Image AnyRecord(Bench& bench, size_t outputTiming) {
    Image image = AnyBytes(bench, kBytes);
    image[offsetof(DeviceSettings, OutputTiming)] = char(outputTiming);
    image[offsetof(DeviceSettings, EnLog)] = 0;  // else the console falls silent, as it should
    return Stamped(image);
}

// Whatever the fields say: there is a picture, who asks is answered, and what no start touches stays as it was.
static std::string OddFields(Bench& bench) {
    const Image image = AnyRecord(bench, Below(bench, 6));
    StartOn(bench, image);
    Expect(bench, WaitForPicture(bench.board), "a picture on any record");
    Pause(3);  // a start has other things to do
    Answer(bench, "telnet http console");
    Telnet(bench.board, "$SAVE$");
    const Image saved = Get(BoardPath(bench));
    Expect(bench, saved.size() == kBytes && saved.substr(66, 42) == image.substr(66, 42), "odd fields kept");
    return "board started on odd fields: any record";
}

static std::string Damaged(Bench& bench) {
    Image image = AnyRecord(bench, 0);
    ++image[0];
    StartOn(bench, Below(bench, 2) == 0 ? image : image.substr(0, Below(bench, kBytes)));
    const auto hasDefaults = [&] {
        const Image saved = Get(BoardPath(bench));
        return saved.size() == kBytes && saved.substr(66, 42) == std::string(6, '\0') + '\1' + std::string(35, '\0');
    };
    Expect(bench, WaitUntil(5, hasDefaults), "defaults saved over a damaged file");
    return "board started on a damaged file: defaults";
}

// An output timing that does not exist ends every start with status 1, until the file is another one.
static std::string ImpossibleTiming(Bench& bench) {
    const Image atFirst = Get(BoardPath(bench));
    StartOn(bench, AnyRecord(bench, 6 + Below(bench, 250)));
    const auto endsAgain = [&] {
        const Json daemon = Status(bench.board)["daemon"];
        return daemon["starts"] > bench.lives && daemon.value("exit", -1) == 1;
    };
    Expect(bench, WaitUntil(15, endsAgain), "status 1 at every start");
    // A start saves what it has read.
    WaitUntil(5, [&] { return Status(bench.board)["daemon"]["state"] == "waiting"; });
    Put(atFirst, BoardPath(bench));
    Expect(bench, ShowsFull(bench.board, '1', 30), "a start on the first file that is sound");
    bench.lives = Status(bench.board)["daemon"]["starts"];
    return "board started on an impossible output timing: ends";
}

static std::string BoardStep(Bench& bench) {
    static constexpr std::string (*kKinds[])(Bench&) = {OddFields, OddFields, Damaged, ImpossibleTiming};
    const Image atFirst = Get(BoardPath(bench));
    const std::string line = Any(bench, kKinds)(bench);
    StartOn(bench, atFirst);
    Expect(bench, ShowsFull(bench.board, '1', 30), "a picture on the file of before");
    return line;
}

const Family SettingsBoards = {
    .name = "settings-boards", .steps = {2, 40, 500}, .options = {"--camera1", "fullhd-mjpeg"}, .step = BoardStep};
