// Every command on every channel, on a board of each kind of variant: answer, changed fields, shell lines, saves. The
// boards have no source to show, so that the video thread neither changes nor saves settings by itself.
#include "command_rows.h"

#include <fnmatch.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "tcp_client.h"

using Bytes = std::vector<uint8_t>;

static constexpr size_t kRecordSize = 136;
static const Bytes kLease = {192, 168, 0, 57};

// The bench of one test: the board, and the channel that the rows are sent over. Everything else goes over a channel
// of the other kind.
struct Bench {
    Board board;
    Channels channel;
    Variants variant;
    std::unique_ptr<TcpClient> telnet = {};  // stays connected
    size_t outputStart = 0;                  // console output of the row begins here
    std::string received = {};               // from the network since then
};

static void Connect(Bench& bench) { bench.telnet = std::make_unique<TcpClient>(TelnetPort(bench.board)); }

static Bench StartBench(Channels channel, Variants variant) {
    Bench bench{StartNewBoard({"--device-id", variant == kLayouts ? "0" : "1"}), channel, variant};
    EXPECT_TRUE(WaitForOutput(bench.board, "Manage dynamic pipeline", 30)) << Output(bench.board);
    EXPECT_TRUE(WaitUntil(10, [&] {
        return std::ranges::any_of(ShellLines(bench.board),
                                   [](const std::string& line) { return line.starts_with("connmanctl config"); });
    }));
    // From here on the record holds the lease, and reports follow selections only.
    Type(bench.board, "<ENBCAST 0>\n<GET>\n");
    EXPECT_TRUE(WaitForOutput(bench.board, "IMX->FX3 DONE\nACK\r\n", 10)) << Output(bench.board);
    Connect(bench);
    return bench;
}

// ---- Sending

static std::string Frame(Channels channel, std::string text) {
    const bool local = (channel & kLocal) != 0;
    if (!local) std::ranges::replace(text, ' ', '_');
    return local ? "<" + text + ">" : "$" + text + "$";
}

static void SendOver(Bench& bench, const std::string& command) {
    switch (bench.channel) {
        case kSerial:
            EXPECT_EQ(Ctl(bench.board, {"serial", command, "0"}).status, 0);
            break;
        case kConsole:
            Type(bench.board, command + "\n");
            break;
        case kTelnet:
            Send(*bench.telnet, command + "\r\n");
            break;
        default:
            bench.received = Http(bench.board, "/" + command);
    }
}

// Words without arguments, on a channel of the other kind.
static void SendBeside(Bench& bench, const std::string& words) {
    const Channels channel = (bench.channel & kLocal) != 0 ? kTelnet : kConsole;
    std::istringstream list(words);
    std::string text, answers;
    for (std::string word; list >> word; answers += "ACK\r\n") text += Frame(channel, word);
    if (channel == kConsole)
        Type(bench.board, text + "\n");
    else if (Send(*bench.telnet, text))
        Receive(*bench.telnet, answers);
}

static std::string SettingsFile(const Bench& bench) { return BoardFile(bench.board, "home/root/config.bin"); }

static bool IsSaved(const Bench& bench) { return SavedSettings(bench.board).size() == kRecordSize; }

// The live record, read through the file; the file is gone afterwards, so that the next save shows.
static Bytes TakeRecord(Bench& bench, const std::string& before = {}) {
    std::filesystem::remove(SettingsFile(bench));
    SendBeside(bench, before + " SAVE");
    EXPECT_TRUE(WaitUntil(10, [&] { return IsSaved(bench); }));
    Bytes record = SavedSettings(bench.board);
    record.resize(kRecordSize);
    std::filesystem::remove(SettingsFile(bench));
    return record;
}

// ---- Answers

static bool ActsHere(const Bench& bench, const CommandRow& row) { return (row.actsOn & bench.variant) != 0; }

// '*' stands for any text.
static std::string ExpectedAnswer(const Bench& bench, const CommandRow& row) {
    const std::string answer = row.refused ? "NACK\r\n" : "ACK\r\n";
    const std::string log = row.word == "ENLOG" ? "*" : "";  // comes this way
    switch (bench.channel) {
        case kSerial:
            return row.ends == Ends::kNothing ? row.sends + answer : "";
        case kConsole:  // among the log lines of other threads
            if (!ActsHere(bench, row)) return "*NACK\r\nCommand not recognized.\n*";
            return "*" + row.prints + row.sends + (row.word == "RBT" ? "" : answer) + "*";
        case kTelnet:
            return log + (row.answersFirst ? answer : "") + row.sends + answer + (row.ends == Ends::kBoard ? "*" : log);
        default:
            return log + (row.answersFirst ? "" : row.sends) + answer + (row.ends == Ends::kBoard ? "*" : log);
    }
}

static std::string SerialText(const Board& board) {
    std::string text;
    for (const Json& entry : TraceLines(board, "serial"))
        if (entry["node"] == "/dev/ttymxc2" && entry.contains("received")) text += entry["received"].get<std::string>();
    return text;
}

static std::string AnswerSoFar(Bench& bench) {
    switch (bench.channel) {
        case kSerial:
            return SerialText(bench.board);
        case kConsole:
            return Output(bench.board).substr(bench.outputStart);
        case kTelnet:
            bench.received += Receive(*bench.telnet, "ACK\r\n", 0.02);
            return bench.received;
        default:
            return bench.received;
    }
}

static size_t Answers(const std::string& text) {
    size_t count = 0;
    for (size_t at = 0; (at = text.find("ACK\r\n", at)) != std::string::npos; ++at) ++count;
    return count;
}

static void ExpectNoOtherAnswer(Bench& bench, const std::string& expected) {
    EXPECT_TRUE(bench.channel != kConsole || Answers(AnswerSoFar(bench)) == Answers(expected)) << AnswerSoFar(bench);
    if (bench.channel != kTelnet) return;
    const std::string behind = Receive(*bench.telnet, "\1", 0.05);  // of the log, when that comes this way
    EXPECT_TRUE(behind.empty() || expected.starts_with('*') || expected.ends_with('*')) << behind;
}

static void ExpectAnswer(Bench& bench, const CommandRow& row) {
    const std::string expected = ExpectedAnswer(bench, row);
    const auto fits = [&] { return fnmatch(expected.c_str(), AnswerSoFar(bench).c_str(), 0) == 0; };
    EXPECT_TRUE(WaitUntil(row.word == "GETLOG" ? 30 : 15, fits))
        << "expected " << testing::PrintToString(expected) << ", not " << testing::PrintToString(AnswerSoFar(bench));
    ExpectNoOtherAnswer(bench, expected);
    const bool printsAck = bench.channel == kSerial && row.ends != Ends::kNothing && row.word != "RBT";
    const std::string printed = (bench.channel & kLocal) != 0 ? row.prints + (printsAck ? "ACK\r\n" : "") : "";
    EXPECT_TRUE(WaitForOutput(bench.board, printed, 5, bench.outputStart)) << printed << Output(bench.board);
}

// ---- Effects

// The report of a new selection and the search for cameras run beside every row.
static bool IsOfOthers(const std::string& line) {
    static const std::vector<std::string> kOthers = {"fbset | grep mode", "ifconfig eth0 | grep ",
                                                     "connmanctl services ethernet_", "lsusb | grep "};
    return std::ranges::any_of(kOthers, [&](const std::string& other) { return line.starts_with(other); });
}

static std::vector<std::string> LinesRun(const Bench& bench) {
    std::vector<std::string> lines = ShellLines(bench.board);
    std::erase_if(lines, IsOfOthers);
    return lines;
}

// What the board tells rather than an operator: checksum, windows, jack, output mode, refresh request, strap.
static bool IsLive(size_t offset) {
    return offset == 0 || (offset >= 12 && offset < 36) || (offset >= 53 && offset < 62);
}

static Bytes ExpectedRecord(const Bench& bench, const CommandRow& row, Bytes record) {
    record[9] = 0;
    if (!ActsHere(bench, row)) return record;
    for (const Change& change : row.changes) std::ranges::copy(change.bytes, record.begin() + change.field);
    record[S2Count] = uint8_t(record[S2Count] + row.s2Counts);
    return record;
}

// What the record has that it should not, one line a byte.
static std::string Differences(const CommandRow& row, const Bytes& expected, Bytes after) {
    const auto address = after.begin() + IpAddress;
    if (row.leaseFollows && std::equal(kLease.begin(), kLease.end(), address))
        std::copy_n(expected.begin() + IpAddress, kLease.size(), address);
    std::string text;
    for (size_t i = 0; i < kRecordSize; ++i)
        if (!IsLive(i) && after[i] != expected[i])
            text += "byte " + std::to_string(i) + " is " + std::to_string(after[i]) + ", not " +
                    std::to_string(expected[i]) + "\n";
    return text;
}

// Over HTTP the work goes on behind the answer.
static void ExpectRecord(Bench& bench, const CommandRow& row, const Bytes& expected) {
    std::string differences;
    WaitUntil(2, [&] { return (differences = Differences(row, expected, TakeRecord(bench))).empty(); });
    EXPECT_EQ(differences, "");
}

static void StartListening(Bench& bench) {
    Ctl(bench.board, {"trace", "--clear"});
    bench.outputStart = OutputSize(bench.board);
    bench.received.clear();
}

static void ExpectEffects(Bench& bench, const CommandRow& row) {
    const Bytes before = TakeRecord(bench, row.before);
    StartListening(bench);
    SendOver(bench, Frame(bench.channel, row.word + (row.arguments.empty() ? "" : " " + row.arguments)));
    ExpectAnswer(bench, row);

    WaitUntil(10, [&] { return LinesRun(bench).size() >= row.runs.size() && (!row.saves || IsSaved(bench)); });
    EXPECT_EQ(LinesRun(bench), row.runs);
    const std::string output = Output(bench.board).substr(bench.outputStart);
    const bool mayBeSaved =
        row.maySave || output.find("Saving configuration.\n") != output.npos;  // by itself, every 30 s
    EXPECT_TRUE(mayBeSaved || IsSaved(bench) == row.saves) << "is the settings file written?";
    ExpectRecord(bench, row, ExpectedRecord(bench, row, before));
}

// ---- The end

static bool HasStartedAgain(const Bench& bench) {
    const auto states = TraceLines(bench.board, "daemon");
    return !states.empty() && states.back()["state"] == "started" &&
           WaitForOutput(bench.board, "Manage dynamic pipeline", 0, bench.outputStart);
}

static void ExpectEnd(Bench& bench, const CommandRow& row) {
    StartListening(bench);
    SendOver(bench, Frame(bench.channel, row.word));
    ExpectAnswer(bench, row);
    ASSERT_TRUE(WaitUntil(30, [&] { return HasStartedAgain(bench); })) << Output(bench.board).substr(bench.outputStart);
    if (row.ends == Ends::kProcess)
        EXPECT_EQ(TraceLines(bench.board, "daemon").front()["exit"], 0);
    else
        EXPECT_EQ(TraceLines(bench.board, "reset").size(), 1u);
    EXPECT_THAT(ShellLines(bench.board), testing::IsSupersetOf(row.runs));
    Connect(bench);
}

static void RunEveryRow(Channels channel, Variants variant) {
    Bench bench = StartBench(channel, variant);
    for (const CommandRow& row : CommandRows) {
        if ((row.channels & channel) == 0 || (row.sentOn & variant) == 0) continue;
        SCOPED_TRACE(row.word + " " + row.arguments);
        if (row.ends == Ends::kNothing)
            ExpectEffects(bench, row);
        else
            ExpectEnd(bench, row);
    }
}

TEST(CommandRows, CoverEveryCommandOfTheReference) {
    static const std::regex kRow(R"(\| `([A-Z0-9]+)` \|[^|]*\| (all|local|network) \|.*)");
    static const std::map<std::string, int> kChannels = {{"all", kAll}, {"local", kLocal}, {"network", kNetwork}};
    std::map<std::string, int> reference, covered;
    std::ifstream file(COMMAND_REFERENCE_PATH);
    std::smatch cells;
    for (std::string line; std::getline(file, line);)
        if (std::regex_match(line, cells, kRow)) reference[cells[1]] = kChannels.at(cells[2]);
    for (const CommandRow& row : CommandRows) covered[row.word] |= row.channels;
    EXPECT_EQ(covered, reference);
}

// The serial line and the console share a table, telnet and HTTP another: one of each tells what differs on variants.
TEST(CommandRows, SerialLayouts) { RunEveryRow(kSerial, kLayouts); }
TEST(CommandRows, ConsoleLayouts) { RunEveryRow(kConsole, kLayouts); }
TEST(CommandRows, ConsoleInputs) { RunEveryRow(kConsole, kInputs); }
TEST(CommandRows, TelnetLayouts) { RunEveryRow(kTelnet, kLayouts); }
TEST(CommandRows, TelnetInputs) { RunEveryRow(kTelnet, kInputs); }
TEST(CommandRows, HttpLayouts) { RunEveryRow(kHttp, kLayouts); }
