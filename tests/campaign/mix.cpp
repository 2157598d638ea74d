// Everything at once: a fault of any family, while operators on all channels go on asking.
#include <atomic>
#include <thread>

#include "campaign.h"
#include "tcp_client.h"

static constexpr const Family* kMixed[] = {&Cameras, &Signals, &Clients, &Sound};

// Commands that leave picture and sound as they are. Bare: each channel has marks of its own.
static constexpr const char* kCommands[] = {"POLL", "GET", "SAVE", "AIN3 7", "AIN4 9", "PAN 0", "ZOOM 0", "SBTN 0"};

static std::string Marked(std::string command, char open, char close, char between) {
    std::ranges::replace(command, ' ', between);
    return open + command + close;
}

static void Ask(const Board& board, int telnet, int http, unsigned channel, const char* command) {
    if (channel == 0) Type(board, Marked(command, '<', '>', ' ') + "\n");
    if (channel == 1) Ctl(board, {"serial", Marked(command, '<', '>', ' ')});
    if (channel < 2) return;
    const TcpClient client(channel == 2 ? telnet : http);
    Send(client, Marked(command, '$', '$', '_'));
    Receive(client, "ACK\r\n", 2);
}

// Until nobody wants to hear more of them. Draws of its own: the step's must not depend on how fast the board is.
static void KeepAsking(Bench& bench, unsigned seed, const std::atomic<bool>& enough) {
    std::mt19937 random(seed);
    const int telnet = TelnetPort(bench.board), http = HttpPort(bench.board);
    while (!enough) {
        Ask(bench.board, telnet, http, random() % 4, kCommands[random() % std::size(kCommands)]);
        Pause(0.1);
    }
}

static std::string Step(Bench& bench) {
    const Family& family = *Any(bench, kMixed);
    std::atomic<bool> enough = false;
    std::string done;
    {
        const std::jthread operators([&, seed = unsigned(bench.random())] { KeepAsking(bench, seed, enough); });
        done = family.step(bench);
        enough = true;
    }
    return std::string(family.name) + " with commands: " + done;
}

const Family Mix = {
    .name = "mix",
    .steps = {3, 16, 1440},
    .options = {"--camera1", kCamerasAtRest[0], "--camera2", kCamerasAtRest[1], "--hdmi-in", "1280x720p30"},
    .step = Step};
