// A client of the board's network: telnet's command port and HTTP, through the emulator's loopback ports. Waiting
// functions return what arrived when the deadline passes; they never fail a test themselves.
#pragma once

#include <string>
#include <string_view>

#include "board_run.h"

int TelnetPort(const Board& board);  // on 127.0.0.1; 0: the board forwards none
int HttpPort(const Board& board);

inline constexpr double kAnswerSeconds = 10 + kBusyMachineSeconds;  // longest wait for what is due

struct TcpClient {  // closes its connection when it goes
    int socket = -1;
    explicit TcpClient(int port);  // connected, or socket -1
    TcpClient(TcpClient&& other) noexcept;
    TcpClient(const TcpClient&) = delete;
    TcpClient& operator=(TcpClient&&) = delete;
    ~TcpClient();
};

bool Send(const TcpClient& client, std::string_view text);
std::string Receive(const TcpClient& client, std::string_view until,
                    double seconds = kAnswerSeconds);                              // text up to and with `until`
std::string ReceiveAll(const TcpClient& client, double seconds = kAnswerSeconds);  // until the server closes
bool IsClosed(const TcpClient& client, double seconds);  // the server has closed it, or does so; reads what is left
void CloseSending(const TcpClient& client);              // half-close
void Reset(TcpClient& client);                           // vanishes: the server sees a reset

// What comes back up to the answer's end. A busy board's report takes its time.
std::string Ask(const TcpClient& client, std::string_view text, std::string_view until = "ACK\r\n");
inline const std::string kPollAnswer = "S1\r\nBLACK => disabled\r\nACK\r\n";  // of the network, at first

std::string Telnet(const Board& board, std::string_view text, std::string_view until = "ACK\r\n",
                   double seconds = kAnswerSeconds);
std::string Http(const Board& board, std::string_view path,
                 double seconds = kAnswerSeconds);  // GET PATH, the raw answer
