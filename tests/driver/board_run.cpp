#include "board_run.h"

#include <fcntl.h>
#include <png.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct BoardRun {
    fs::path folder;
    pid_t process = -1;
    int exitStatus = -1;
    int input = -1;
    std::thread reader;
    std::mutex outputLock;
    std::string output;
    ~BoardRun();
};

static constexpr const char* kEmulator = TESSEL_EMULATOR_PATH;

double Patience() { return TESSEL_PATIENCE; }

static int StatusOf(int waitStatus) {
    return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : 128 + WTERMSIG(waitStatus);
}

static std::vector<char*> Arguments(Words& words) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    return arguments;
}

// The child ends with this process, so that an aborted test leaves no board behind.
static pid_t Spawn(Words words, int input, int output, int errors) {
    std::vector<char*> arguments = Arguments(words);
    const pid_t child = fork();
    if (child != 0) return child;
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(input, 0);
    dup2(output, 1);
    dup2(errors, 2);
    execv(arguments[0], arguments.data());
    _exit(127);
}

static std::array<int, 2> MakePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    return ends;
}

static void ReadAll(int descriptor, const std::function<void(std::string_view)>& take) {
    std::array<char, 4096> buffer;
    for (ssize_t count; (count = read(descriptor, buffer.data(), buffer.size())) > 0;)
        take(std::string_view(buffer.data(), size_t(count)));
    close(descriptor);
}

Board MakeBoard() {
    auto board = std::make_shared<BoardRun>();
    std::string name = (fs::temp_directory_path() / "tessel-test-XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("mkdtemp");
    board->folder = name;
    return board;
}

std::string BoardFile(const Board& board, const std::string& path) {
    const fs::path file = board->folder / fs::path(path).relative_path();
    fs::create_directories(file.parent_path());
    return file.string();
}

static bool Ended(BoardRun& run) {
    if (run.process < 0) return true;
    int waitStatus = 0;
    if (waitpid(run.process, &waitStatus, WNOHANG) != run.process) return false;
    run.exitStatus = StatusOf(waitStatus);
    run.process = -1;
    return true;
}

void StartBoard(const Board& board, const Words& words) {
    const auto input = MakePipe(), output = MakePipe();
    Words line{kEmulator, "run", "--board", board->folder.string()};
    line.insert(line.end(), words.begin(), words.end());
    board->process = Spawn(line, input[0], output[1], output[1]);
    close(input[0]);
    close(output[1]);
    board->input = input[1];
    if (board->reader.joinable()) board->reader.join();
    board->exitStatus = -1;
    board->reader = std::thread([run = board.get(), from = output[0]] {
        ReadAll(from, [run](std::string_view text) {
            const std::lock_guard lock(run->outputLock);
            run->output += text;
        });
    });
    WaitUntil(10, [&] { return Ended(*board) || Ctl(board, {"status"}).status == 0; });
}

Board StartNewBoard(const Words& words) {
    Board board = MakeBoard();
    StartBoard(board, words);
    return board;
}

Board StartUntil(std::string_view text, const Words& words) {
    Board board = StartNewBoard(words);
    if (!WaitForOutput(board, text, 40)) throw std::runtime_error("waits for " + std::string(text) + Output(board));
    return board;
}

Board StartShowing(const Words& words) {
    Board board = StartNewBoard(words);
    if (!WaitForPicture(board)) throw std::runtime_error("no picture: " + Output(board));
    return board;
}

Board RunScript(const std::string& script, Words options) {
    options.insert(options.end(), {"--daemon", "/bin/sh", "--no-restart", "--", "-c",
                                   "cd /home/root; " + script + "\necho script ended; sleep 1000"});
    return StartNewBoard(options);
}

static void CloseInput(BoardRun& run) {
    if (run.input >= 0) close(run.input);
    run.input = -1;
}

static int Stop(BoardRun& run) {
    if (!Ended(run)) {
        kill(run.process, SIGTERM);
        if (!WaitUntil(10, [&run] { return Ended(run); })) {
            kill(run.process, SIGKILL);
            WaitUntil(10, [&run] { return Ended(run); });
        }
    }
    CloseInput(run);
    if (run.reader.joinable()) run.reader.join();
    return run.exitStatus;
}

// No test may overlook what a sanitizer says in the daemon or in the emulator, and none has to look for it.
BoardRun::~BoardRun() {
    Stop(*this);
    if (output.find("Sanitizer: ") != std::string::npos) {
        fputs(output.c_str(), stderr);
        abort();
    }
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}

int StopBoard(const Board& board) { return Stop(*board); }

int WaitForEnd(const Board& board, double seconds) {
    if (!WaitUntil(seconds, [&board] { return Ended(*board); })) return -1;
    if (board->reader.joinable()) board->reader.join();  // its last words
    return board->exitStatus;
}

void Type(const Board& board, const std::string& text) {
    if (write(board->input, text.data(), text.size()) != ssize_t(text.size())) throw std::runtime_error("console");
}

void CloseConsole(const Board& board) { CloseInput(*board); }

std::string Output(const Board& board) {
    const std::lock_guard lock(board->outputLock);
    return board->output;
}

size_t OutputSize(const Board& board) {
    const std::lock_guard lock(board->outputLock);
    return board->output.size();
}

bool WaitForOutput(const Board& board, std::string_view text, double seconds, size_t from) {
    return WaitUntil(seconds, [&] {
        const std::lock_guard lock(board->outputLock);
        return board->output.find(text, from) != std::string::npos;
    });
}

bool TypeAndWait(const Board& board, const std::string& text, std::string_view until, double seconds) {
    const size_t from = OutputSize(board);
    Type(board, text);
    return WaitForOutput(board, until, seconds, from);
}

std::string Command(const Board& board, const std::string& command) {
    const size_t from = OutputSize(board);
    TypeAndWait(board, command + "\n", "ACK\r\n");
    return Output(board).substr(from);
}

std::string TypeAndRead(const Board& board, const std::string& line, double seconds) {
    const size_t from = OutputSize(board);
    Type(board, line);
    Pause(seconds * Patience());
    return Output(board).substr(from);
}

static CtlAnswer RunEmulator(const Words& line) {
    const auto output = MakePipe(), errors = MakePipe();
    const pid_t child = Spawn(line, open("/dev/null", O_RDONLY | O_CLOEXEC), output[1], errors[1]);
    close(output[1]);
    close(errors[1]);
    CtlAnswer answer{};
    std::thread errorReader([&] { ReadAll(errors[0], [&](std::string_view text) { answer.err += text; }); });
    ReadAll(output[0], [&](std::string_view text) { answer.out += text; });
    errorReader.join();
    int waitStatus = 0;
    waitpid(child, &waitStatus, 0);
    answer.status = StatusOf(waitStatus);
    return answer;
}

CtlAnswer Ctl(const Board& board, const Words& words) {
    Words line{kEmulator, "ctl", "--board", board->folder.string()};
    line.insert(line.end(), words.begin(), words.end());
    return RunEmulator(line);
}

CtlAnswer Play(const Board& board, const std::string& scenario) {
    return RunEmulator({kEmulator, "play", scenario, "--patience", "4", "--board", board->folder.string()});
}

CtlAnswer Play(const std::string& scenario) { return RunEmulator({kEmulator, "play", scenario, "--patience", "4"}); }

std::vector<Json> TraceLines(const Board& board, std::string_view what) {
    std::vector<Json> lines;
    std::istringstream text(Ctl(board, {"trace"}).out);
    for (std::string line; std::getline(text, line);) {
        Json entry = Json::parse(line);
        if (what.empty() || entry["what"] == what) lines.push_back(std::move(entry));
    }
    return lines;
}

std::vector<std::string> ShellLines(const Board& board) {
    std::vector<std::string> lines;
    for (const Json& entry : TraceLines(board, "exec")) {
        const Json& arguments = entry["arguments"];
        if (arguments.size() == 3 && arguments[0] == "sh" && arguments[1] == "-c") lines.push_back(arguments[2]);
    }
    return lines;
}

std::string SerialText(const Board& board) {
    std::string text;
    for (const Json& entry : TraceLines(board, "serial"))
        if (entry["node"] == "/dev/ttymxc2") text += entry.value("received", "");
    return text;
}

Json AskJson(const Board& board, const Words& words) { return Json::parse(Ctl(board, words).out); }
Json Status(const Board& board) { return AskJson(board, {"status"}); }

// Straight from the display memory: a PNG of 1080p takes longer than many a deadline of these tests.
std::optional<Picture> TakePicture(const Board& board) { return ReadDisplay(board->folder / "volatile/display"); }

std::optional<Picture> SavePicture(const Board& board) {
    const std::string file = (board->folder / "picture.png").string();
    if (Ctl(board, {"picture", file}).status != 0) return {};
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, file.c_str())) return {};
    image.format = PNG_FORMAT_BGRA;
    Picture picture{image.width, image.height, std::vector<uint8_t>(PNG_IMAGE_SIZE(image))};
    if (!png_image_finish_read(&image, nullptr, picture.bgrx.data(), 0, nullptr)) return {};
    return picture;
}

void Pause(double seconds) { std::this_thread::sleep_for(Seconds(seconds)); }

bool WaitUntil(double seconds, const std::function<bool()>& holds) {
    const auto deadline = Clock::now() + Seconds(seconds * Patience() + kBusyMachineSeconds);
    while (!holds()) {
        if (Clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));  // most looks start a program
    }
    return true;
}

bool WaitUntilPicture(const Board& board, double seconds, const std::function<bool(const Picture&)>& holds) {
    return WaitUntil(seconds, [&] {
        const auto picture = TakePicture(board);
        return picture && holds(*picture);
    });
}

bool WaitForPicture(const Board& board, double seconds) {
    return WaitUntilPicture(board, seconds, [](const Picture&) { return true; });
}

bool WaitForSound(const Board& board) {
    const bool plays = WaitForOutput(board, "Playing audio pipeline...\n", 40);
    Pause(2);
    return plays;
}

std::string FileText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<uint8_t> SavedSettings(const Board& board) {
    const std::string bytes = FileText(BoardFile(board, "home/root/config.bin"));
    return {bytes.begin(), bytes.end()};
}
