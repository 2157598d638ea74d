// Clients that nobody would wish for, on every channel; meanwhile and afterwards the other channels answer.
#include <chrono>
#include <set>

#include "campaign.h"
#include "command_rows.h"
#include "tcp_client.h"

static constexpr const char* kAck = "ACK\r\n";

static std::string Noise(Bench& bench, size_t size) {
    std::string noise(size, ' ');
    for (char& byte : noise) byte = char(Below(bench, 256));
    return noise;
}

// ---- Local lines

// Of any bytes and length; what is left of a line without an end goes with the next.
static std::string NoiseOnConsole(Bench& bench) {
    bench.tries = 20;
    for (unsigned i = 0; i < bench.tries; ++i)
        Type(bench.board, Noise(bench, Below(bench, i % 4 ? 100 : 5'000)) + "\n");
    Answer(bench, "telnet http serial");
    return "noise on the console: and overlong lines";
}

// Breaks arrive as zero bytes. Noise may hold the line's output (XOFF) and quote what follows; the end sets it free.
static std::string NoiseOnSerial(Bench& bench) {
    static constexpr const char* kDigits = "0123456789abcdef";
    bench.tries = 2;
    for (const size_t size : {300, 60}) {
        std::string words;
        for (const char byte : Noise(bench, 1 + Below(bench, size)))
            words += std::string("\\x") + kDigits[uint8_t(byte) / 16] + kDigits[uint8_t(byte) % 16];
        Do(bench, {"serial", words + "\\0\\0\\0\\n\\n\\x11>\\n"});
    }
    return "noise on the serial line: with breaks";
}

// The line obeys XOFF, and answers find no room in it: they are lost until XON, and nothing else is.
static std::string HoldSerial(Bench& bench) {
    Do(bench, {"serial", "\\x13"});
    Expect(bench, Do(bench, {"serial", "<POLL>"}).empty(), "no answer on a line that is held");
    Answer(bench, "console telnet http");
    Do(bench, {"serial", "\\x11"});
    return "serial line held: by XOFF";
}

// ---- Text clients

// Two rounds through the server: whatever was sent before has been read.
static void WaitUntilRead(Bench& bench, const TcpClient& other) {
    for (int round = 0; round < 2; ++round) {
        Send(other, "$POLL$");
        Expect(bench, Receive(other, kAck, Stretched(5)).ends_with(kAck), "the other client is answered");
    }
}

// Every command of the network, split at every point: in two reads it is none, and nothing of it is done.
static std::string SplitCommands(Bench& bench) {
    const int port = TelnetPort(bench.board);
    const TcpClient client(port), other(port);
    std::set<std::string> texts;
    for (const CommandRow& row : CommandRows) {
        std::string text = "$" + row.word + (row.arguments.empty() ? "" : "_" + row.arguments) + "$";
        std::ranges::replace(text, ' ', '_');
        if (row.channels & kTelnet) texts.insert(text);
    }
    bench.tries = 0;
    for (const std::string& text : texts)
        for (size_t at = 1; at < text.size() && bench.complaint.empty(); ++at) {
            if (text.substr(at) == "GETLOG$") continue;  // is one without its first delimiter, too
            ++bench.tries;
            for (const std::string& piece : {text.substr(0, at), text.substr(at)}) {
                Send(client, piece);
                WaitUntilRead(bench, other);
            }
            const std::string answer = Receive(client, kAck, 0.01);
            Expect(bench, answer.empty(),
                   "no answer to " + text + " split at " + std::to_string(at) + ", but " + answer);
        }
    return "commands in two reads: " + std::to_string(texts.size()) + " commands";
}

static std::string Flood(Bench& bench) {
    const TcpClient client(TelnetPort(bench.board));
    std::string text;
    while (text.size() < 20'000) text += "$S1$ ";
    for (bench.tries = 0; bench.tries < 20; ++bench.tries) Send(client, text);
    Answer(bench, "console telnet http serial");
    return "text client floods: 400 kB";
}

// The 31st replaces all the others.
static std::string FullHouse(Bench& bench) {
    const int port = TelnetPort(bench.board);
    std::vector<TcpClient> clients;
    for (bench.tries = 0; bench.tries < 31; ++bench.tries) {
        clients.emplace_back(port);
        Send(clients.back(), "$POLL$");
        Expect(bench, Receive(clients.back(), kAck, Stretched(5)).ends_with(kAck), "an answer for each");
    }
    // The one before the last stays when somebody else, who sends commands meanwhile, was the first of thirty.
    for (size_t i = 0; i < 29; ++i) Expect(bench, IsClosed(clients[i], Stretched(5)), "the others closed");
    Answer(bench, "console http serial");
    return "text clients beyond the room: 31";
}

static std::string HalfOpen(Bench& bench) {
    std::vector<TcpClient> clients;
    for (bench.tries = 0; bench.tries < 20; ++bench.tries) {
        clients.emplace_back(TelnetPort(bench.board));
        if (Below(bench, 2)) Send(clients.back(), Noise(bench, Below(bench, 3'000)));
        if (Below(bench, 3) == 0) CloseSending(clients.back());
        PauseUpTo(bench, 0.02);
    }
    Answer(bench, "console http serial telnet");
    for (TcpClient& client : clients)
        if (Below(bench, 2)) Reset(client);
    return "text clients half open: 20";
}

static std::string NeverRead(Bench& bench) {
    TcpClient client(TelnetPort(bench.board));
    for (int i = 0; i < 300; ++i) Send(client, "$WEB$");
    Answer(bench, "console http serial telnet");
    if (Below(bench, 2)) Reset(client);
    return "text client never reads: 5.6 MB";
}

// ---- Browsers

// A silent one holds the others up for 5 s, but not the other channels.
static std::string SlowBrowser(Bench& bench) {
    const TcpClient silent(HttpPort(bench.board)), slow(HttpPort(bench.board));
    Answer(bench, "console telnet serial");
    for (const char byte : std::string_view("GET /$POLL$ HTTP/1.1\r\n\r\n")) {
        if (!Send(slow, {&byte, 1})) break;
        PauseUpTo(bench, 0.1);
    }
    bench.tries = 2;
    Expect(bench, IsClosed(silent, Stretched(6)) && IsClosed(slow, Stretched(6)), "both closed");
    return "slow browsers: a silent and a slow one";
}

static std::string HugeRequest(Bench& bench) {
    const TcpClient client(HttpPort(bench.board));
    const std::string piece = Noise(bench, 64 << 10);
    Send(client, "GET / HTTP/1.1\r\n");
    for (int i = 0; i < 32; ++i)
        if (!Send(client, piece)) break;
    Expect(bench, IsClosed(client, Stretched(6)), "an end");
    return "huge requests: 2 MB";
}

static std::string ResetBrowsers(Bench& bench) {
    const int port = HttpPort(bench.board);
    for (bench.tries = 0; bench.tries < 60; ++bench.tries) {
        TcpClient client(port);
        Send(client, Noise(bench, Below(bench, 3'000)));
        if (Below(bench, 2)) PauseUpTo(bench, 0.02);
        Reset(client);
    }
    Answer(bench, "console telnet serial");
    return "browsers reset: 60";
}

static std::string Step(Bench& bench) {
    static constexpr std::string (*kFaults[])(Bench&) = {NoiseOnConsole, NoiseOnSerial, HoldSerial,   SplitCommands,
                                                         Flood,          FullHouse,     HalfOpen,     NeverRead,
                                                         SlowBrowser,    HugeRequest,   ResetBrowsers};
    return kFaults[bench.step % std::size(kFaults)](bench);
}

const Family Clients = {
    .name = "clients", .steps = {11, 110, 8800}, .options = {"--camera1", kCamerasAtRest[0]}, .step = Step};
