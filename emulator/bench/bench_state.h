// The whole bench at a glance, as one JSON object: what is plugged and what is wrong with it, identity, power, LEDs,
// levels, settings. Everything in it is at hand: it may be asked for ten times a second. Supervisor's thread.
#pragma once

#include "bench/control.h"
#include "bench/trace.h"

Json SourceAt(int port);  // what is plugged into an HDMI input, "1920x1080p30"; null: nothing
Json LedsNow();           // every LED by name

VerbAnswer BenchVerb(const VerbWords& words);
