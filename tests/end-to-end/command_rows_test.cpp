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
#include <set>
#include <sstream>

#include "tcp_client.h"

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
    std::istringstream list(words);
    for (std::string word; list >> word;) {
        if ((bench.channel & kLocal) == 0)
            Command(bench.board, "<" + word + ">");
        else if (Send(*bench.telnet, "$" + word + "$"))
            Receive(*bench.telnet, "ACK\r\n");
    }
}

static Json LiveRecord(const Bench& bench) { return AskJson(bench.board, {"settings"})["fields"]; }

static bool IsSaved(const Bench& bench) { return SavedSettings(bench.board).size() == 136; }

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
            return "*" + row.prints + row.sends + "*" + (row.word == "RBT" ? "" : answer) + "*";
        case kTelnet:
            return log + (row.answersFirst ? answer : "") + row.sends + answer + (row.ends == Ends::kBoard ? "*" : log);
        default:
            return log + (row.answersFirst ? "" : row.sends) + answer + (row.ends == Ends::kBoard ? "*" : log);
    }
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

static Json ExpectedRecord(const Bench& bench, const CommandRow& row, Json record) {
    if (!ActsHere(bench, row)) return record;
    for (Json& value : record)
        if (row.clears) value = value.is_string() ? Json("") : Json(0);
    for (const Change& change : row.changes) record[change.field] = change.value;
    record["S2Count"] = record["S2Count"].get<int>() + row.s2Counts;
    return record;
}

// What the record has that it should not, one line a field. What the board tells rather than an operator does not
// count.
static std::string Differences(const CommandRow& row, const Json& expected, const Json& after) {
    static const std::set<std::string> kTold = {"Checksum",         "Signature",    "Pad0Rect",    "Pad1Rect",
                                                "Pad2Rect",         "AudioJack",    "OutputWidth", "OutputHeight",
                                                "OutputRefresh100", "VideoRefresh", "Allow60",     "MacAddress"};
    std::string text;
    for (const auto& [field, value] : expected.items()) {
        const bool isLease = row.leaseFollows && field == "IpAddress" && after[field] == "192.168.0.57";
        if (!kTold.contains(field) && after[field] != value && !isLease)
            text += field + " is " + after[field].dump() + ", not " + value.dump() + "\n";
    }
    return text;
}

// Over HTTP the work goes on behind the answer.
static void ExpectRecord(const Bench& bench, const CommandRow& row, const Json& expected) {
    std::string differences;
    WaitUntil(2, [&] { return (differences = Differences(row, expected, LiveRecord(bench))).empty(); });
    EXPECT_EQ(differences, "");
}

static void StartListening(Bench& bench) {
    Ctl(bench.board, {"trace", "--clear"});
    bench.outputStart = OutputSize(bench.board);
    bench.received.clear();
}

static void ExpectEffects(Bench& bench, const CommandRow& row) {
    const size_t outputBefore = bench.outputStart;  // of the last row: it may have begun to save by itself then
    SendBeside(bench, row.before);
    const Json before = LiveRecord(bench);
    std::filesystem::remove(BoardFile(bench.board, "home/root/config.bin"));
    StartListening(bench);
    SendOver(bench, Frame(bench.channel, row.word + (row.arguments.empty() ? "" : " " + row.arguments)));
    ExpectAnswer(bench, row);

    WaitUntil(10, [&] { return LinesRun(bench).size() >= row.runs.size() && (!row.saves || IsSaved(bench)); });
    EXPECT_EQ(LinesRun(bench), row.runs);
    const bool isSaved = IsSaved(bench);
    const bool byItself = Output(bench.board).find("Saving configuration.\n", outputBefore) != std::string::npos;
    EXPECT_TRUE(row.maySave || byItself || isSaved == row.saves) << "is the settings file written?";
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
