// The LED thread: status LEDs, jack detect and the front panel in whichever form this board has. Its passes are the
// clock of everything that blinks or is held: 25 ms with a panel, 1 ms without one, plus the time on the wires.
#pragma once

// Never returns. The form of the panel is found out here, once.
void LedThreadMain();
