// The few lines of TCP that both command servers share. Descriptors are closed in the programs that we start. A failed
// call returns what the system's call returned, with errno.
#pragma once

#include <netinet/in.h>

#include <cstdint>

int OpenTcpSocket();
int BindToPort(int socket, uint16_t port);          // on every local address
int AcceptClient(int listener, sockaddr_in& peer);  // blocks; answers of two short texts leave without delay
