// What a process of this computer costs, from /proc. Zeros when it is gone.
#pragma once

#include "board_run.h"

struct ProcessFigures {
    double cpuSeconds;  // user and system, all threads, since its start
    double wallSeconds;
    long residentKilobytes;
    long ownKilobytes;  // of these, what no other process shares: frames lie in memory of the emulated devices
    long threads, descriptors;
};

ProcessFigures FiguresOf(int pid);
ProcessFigures DaemonFigures(const Board& board);

// Share of one processor used between two moments, in percent.
double CpuPercent(const ProcessFigures& before, const ProcessFigures& after);
