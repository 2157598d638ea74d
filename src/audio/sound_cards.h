// The sound cards: three fixed ones on the board, and the microphones and loudspeakers of cameras on the two USB ports.
// Cards are told apart by the long names that ALSA gives them.
//
// Audio thread only, but for FindOnboardAudioCards, which start-up calls before that thread exists. Enumerating takes
// less than a millisecond; DetectUsbAudio also runs shell tools for each USB card (some tens of milliseconds). A
// failing enumeration is logged and ends with what was found so far.
#pragma once

#include <cstdint>

// ALSA device names, "hw:2"; empty while the card was not found.
struct OnboardAudio {
    char AnalogCodecDevice[16];   // analog line input and output
    char FpgaAudioDevice[16];     // audio exchanged with the FPGA
    char HdmiOutAudioDevice[16];  // HDMI monitor
};
extern OnboardAudio OnboardAudioCards;

struct UsbAudioEndpoint {
    int32_t present;
    char longName[256];
    char device[32];
};
extern UsbAudioEndpoint Usb1AudioIn, Usb2AudioIn, Usb1AudioOut, Usb2AudioOut;

int FindOnboardAudioCards();  // 0 when all three were found, 1 when one is missing

// Finds what is on the USB ports now; `count` receives the number of cards taken. 1 when it differs from the last time.
int DetectUsbAudio(int& count);

int IsCurrentCardSpeakerphone(int card);  // 1 when the card both plays and records; always 0 on variants 1..3

int CountSoundCards(int& count);  // of any kind; always 0
