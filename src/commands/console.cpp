#include "commands/console.h"

#include <unistd.h>

#include <array>
#include <cstdio>

#include "commands/dispatch.h"
#include "core/log.h"

void ConsoleStep() {
    std::array<char, 200> line;
    if (fgets(line.data(), line.size(), stdin) == nullptr) {
        LogInfo("fgets() returns EOF, need to restart application.\n");
        _exit(0);
    }
    DispatchConsoleText(line.data());
}

void ConsoleThreadMain() {
    for (;;) {
        ConsoleStep();
        usleep(1'000);
    }
}
