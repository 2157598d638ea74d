#include "net/tcp_socket.h"

#include <netinet/tcp.h>
#include <sys/socket.h>

int OpenTcpSocket() { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }

int BindToPort(int socket, uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(port);
    return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

int AcceptClient(int listener, sockaddr_in& peer) {
    socklen_t size = sizeof peer;
    const int client = accept4(listener, reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC);
    const int on = 1;
    // A handler's text and the "ACK" behind it are two writes: the second would wait for the client's delayed ACK.
    if (client >= 0) setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return client;
}
