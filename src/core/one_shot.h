// The command-line modes: i2c, version, deviceid, video. Each does one thing, prints its result through the log and
// ends.
#pragma once

// Runs the mode whose keyword contains the first argument, if any does. The caller ends the process with status 0.
void RunOneShot(int argumentCount, char** arguments);
