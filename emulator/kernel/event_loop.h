// Running the supervisor's loop. What others use of it (timers, watched descriptors) is declared in supervisor.h.
#pragma once

#include <functional>

// Serves events until EndEvents(); returns its status. One event at a time, on the calling thread.
int RunEvents();
void EndEvents(int status);  // the event in hand is finished first

// Called after each event, before the next wait: for work that an event must not do in the middle of itself.
void AfterEachEvent(std::function<void()> work);
