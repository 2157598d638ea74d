// Whatever arrives on port 80: the commands in it run as over telnet, a request without one gets the control page,
// and the connection is closed behind either. The first byte chooses the board's variant.
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "commands/dispatch.h"
#include "fuzz.h"
#include "net/control_pages.h"
#include "net/http_server.h"
#include "net/tcp_socket.h"
#include "settings/device_identity.h"
#include "stand_ins.h"

static int accepted = -1;

// Local sockets in place of the network's.
int OpenTcpSocket() { return socket(AF_UNIX, SOCK_STREAM, 0); }
int BindToPort(int socket, uint16_t) {
    const sockaddr chosenBySystem{.sa_family = AF_UNIX, .sa_data = {}};
    return bind(socket, &chosenBySystem, sizeof chosenBySystem.sa_family);
}
int AcceptClient(int, sockaddr_in&) { return accepted; }

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static constexpr size_t kReceived = 1999;
    static const int setUp = SetUpHttpServer();
    Require(setUp == 0, "server set up");
    if (size < 2) return 0;
    DeviceId = data[0] & 3;
    const std::string request(data + 1, data + size);

    std::string text = request.substr(0, kReceived);
    Calls.clear();
    Told = "Waiting for incoming connections...\nConnection accepted\n";
    if (!DispatchNetworkText(text.data(), 1)) Told += ControlPage();
    const std::string expected = std::exchange(Calls, {}) + std::exchange(Told, {});

    std::array<int, 2> ends;
    Require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) == 0, "socket pair");
    Require(write(ends[0], request.data(), request.size()) == static_cast<ssize_t>(request.size()), "request sent");
    shutdown(ends[0], SHUT_WR);
    accepted = ends[1];
    Require(ServeHttpConnection() == 0, "the server goes on");
    Require(Calls + Told == expected, "commands or page");
    char rest;
    Require(read(ends[0], &rest, 1) == 0, "connection closed");
    close(ends[0]);
    return 0;
}
