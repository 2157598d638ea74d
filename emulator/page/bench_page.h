// Where the bench page listens, and its process (page_server.h) for as long as the board runs.
#pragma once

#include <string>

inline constexpr int kUsualPagePort = 8090;
inline constexpr int kAutoPagePort = -1;  // the usual one, or any free one when that is taken

// Listens on 127.0.0.1, prints where, and stores the number. -1 after a complaint on standard error. Whoever comes
// before somebody serves waits.
int OpenPagePort(int& port);

void StartPage(int listening);  // the process that serves it; it ends with the board
void StopPage();                // harmless when there is none
