// What each thread of a process of this computer has cost, from /proc. A thread that is gone is left out.
#pragma once

#include <map>
#include <string>

struct ThreadFigures {
    std::string name;
    bool own = false;    // the daemon started it itself: none of GStreamer's, ALSA's or a plug-in's
    double seconds = 0;  // on a processor, since its start
    double wakeUps = 0;  // it went to sleep that often
    double writes = 0;   // to files and sockets
};
using Threads = std::map<int, ThreadFigures>;  // by thread number

Threads ThreadsOf(int pid);

// What each thread that is there now has spent since; a new one since its start.
Threads Between(const Threads& before, const Threads& now);

double SecondsOfChildren(int pid);  // of the programs that it ran and that have ended
