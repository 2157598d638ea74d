// The supervisor's ear: takes the trapped calls of the board's programs and has them carried out or passed on.
#pragma once

// Serves the listener of a daemon's start until its last program has ended. Ours to close from now on.
void ServeListener(int listener);
