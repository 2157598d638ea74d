// The console: command lines from standard input, answers on standard output.
#pragma once

void ConsoleThreadMain();  // never returns
void ConsoleStep();        // reads and runs one line; the end of input ends the process with status 0
