// The HDMI receiver: seven register maps on I2C bus 1, two input ports and what is plugged into them. Its video leaves
// through the capture node of the camera interface, which asks here for the signal. Supervisor's thread only; nothing
// blocks.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "bench/control.h"

struct HdmiSignal {
    bool present = false;
    unsigned width = 0, height = 0,
             rate = 0;  // pixels, lines of a whole frame, frames a second (fields when interlaced)
    bool interlaced = false;
    bool operator==(const HdmiSignal&) const = default;
};

// What is plugged into a port (0 or 1), whether or not the receiver looks at it.
HdmiSignal HdmiSourceAt(int port);

// The port that the daemon chose: bit 0 of HDMI-map register 0x00.
int SelectedHdmiPort();

// The signal that the receiver delivers: that of the selected port, not present while unlocked or held in reset.
HdmiSignal LockedHdmiSignal();

// Has `changed` called after each change of LockedHdmiSignal(). Kept for the life of the emulator; asking again with
// the same function changes nothing.
void OnHdmiSignalChange(void (*changed)());

// "1920x1080p60", "1920x1080i60", "off". Nothing when it is none of that or beyond what the receiver measures.
std::optional<HdmiSignal> ParseHdmiSignal(std::string_view text);
std::string HdmiSignalText(const HdmiSignal& signal);  // that it reads back

// Pixel clock of a signal in MHz, as the link carries it: from the standard timings, else with usual blanking.
unsigned TmdsMegahertz(const HdmiSignal& signal);

// Clears the registers and plugs the board's initial source into port 0. After PowerOnI2c and PowerOnGpio.
void PowerOnHdmiReceiver();

VerbAnswer HdmiInVerb(const VerbWords& words);  // hdmi-in PORT WxH[p|i]R | off
