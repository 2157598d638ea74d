// The dispatcher's neighbours: the handlers, the log and the channels' ends write down what they were told, in order,
// and touch nothing.
#pragma once

#include <string>

extern std::string Calls;  // a line a handler, with its numbers
extern std::string Told;   // answers and log
