// The whole bench at a glance, as one JSON object: what is plugged and what is wrong with it, identity, power, LEDs,
// levels, settings. Everything in it is at hand: it may be asked for ten times a second. Supervisor's thread.
#pragma once

#include "control.h"
#include "trace.h"

Json HdmiSignalText(int port);  // "1920x1080p30", null when nothing is plugged
Json LedsNow();                 // every LED by name

VerbAnswer BenchVerb(const VerbWords& words);
