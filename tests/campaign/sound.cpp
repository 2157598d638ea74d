// Sound cards that come, go, are busy or die, together with the cameras that they belong to.
#include <cmath>

#include "campaign.h"

static constexpr const char* kPlaces[] = {"analog", "fpga", "hdmi", "usb1", "usb2", "sound1", "sound2"};
static constexpr double kSettled = 4 * 17;  // s: a change at the very end of the waits before a life, again and again

// What is plugged besides what is there at rest.
struct Plugged {
    bool camera[2] = {true, true}, sound[2] = {false, false};
};

static void Toggle(Bench& bench, const char* what, bool (&plugged)[2], size_t port, const char* profile) {
    plugged[port] = !plugged[port];
    Words words{what, std::to_string(port + 1), plugged[port] ? "plug" : "unplug"};
    if (plugged[port]) words.push_back(profile);
    Do(bench, words);
}

static void ToggleCamera(Bench& bench, Plugged& plugged) {
    static constexpr const char* kProfiles[] = {"speakerphone", "fullhd-mjpeg", "hd-mjpeg", "yuyv-only", "low-rate"};
    Toggle(bench, "camera", plugged.camera, Below(bench, 2), Any(bench, kProfiles));
}

// Beside a camera there is room for devices behind a hub only.
static void ToggleSound(Bench& bench, Plugged& plugged) {
    static constexpr const char* kBehindHub[] = {"hub-microphone", "hub-speakerphone", "rejected-hub"};
    static constexpr const char* kOnPort[] = {"microphone", "rejected-gadget", "speaker", "speakerphone"};
    const size_t port = Below(bench, 2);
    Toggle(bench, "sound", plugged.sound, port, plugged.camera[port] ? Any(bench, kBehindHub) : Any(bench, kOnPort));
}

// A place may be empty, a stream may not run: then there is nothing to fail. The codec does not vanish, it would come
// back without the volumes that the daemon has set up.
static void Fail(Bench& bench) {
    static constexpr const char* kFaults[] = {"gone", "busy", "xrun", "xrun"};
    const std::string place = Any(bench, kPlaces);
    const size_t fault = std::max(Below(bench, std::size(kFaults)), place == "analog" ? size_t{1} : size_t{0});
    Ctl(bench.board, {"fault", "sound", place, kFaults[fault]});
}

static void PlugAsAtRest(Bench& bench, Plugged& plugged) {
    for (size_t port = 0; port < 2; ++port) {
        if (plugged.sound[port]) Toggle(bench, "sound", plugged.sound, port, "");
        if (plugged.camera[port]) Toggle(bench, "camera", plugged.camera, port, "");
        Toggle(bench, "camera", plugged.camera, port, kCamerasAtRest[port]);
    }
}

// The mix of both microphones, alone: on the FPGA, the analog output and the loudspeaker; the FPGA's sound at HDMI.
static bool PlaysRight(const Bench& bench) {
    const Json outputs = Json::parse(Ctl(bench.board, {"audio"}).out)["outputs"];
    const std::vector<const char*> mix = {"microphone1", "microphone2"};
    const auto plays = [&](const char* output, const std::vector<const char*>& sources) {
        const Json& tones = outputs[output]["tones"];
        return tones.size() == sources.size() && std::ranges::all_of(sources, [&](const char* source) {
                   return std::abs(tones.value(source, -120.0) + 20) < 0.3;
               });
    };
    return plays("fpga", mix) && plays("analog", mix) && plays("usb1", mix) && plays("hdmi", {"fpga"});
}

static std::string Step(Bench& bench) {
    Type(bench.board, "<AOUTANALOG 255>\n<AOUTUSB1 255>\n<ACFG 2>\n");
    Plugged plugged;
    bench.tries = 10;
    for (unsigned i = 0; i < bench.tries; ++i) {
        (Below(bench, 3) == 0 ? ToggleCamera : ToggleSound)(bench, plugged);
        if (Below(bench, 4) == 0) Fail(bench);
        PauseUpTo(bench, i == 5 ? 15 : 0.2);  // wherever the daemon is by then: detecting, waiting, building, playing
    }
    for (const char* place : kPlaces) Do(bench, {"fault", "sound", place, "off"});
    PlugAsAtRest(bench, plugged);
    Expect(bench, WaitUntil(kSettled, [&] { return PlaysRight(bench); }), "the sound of both microphones");
    return "cards added, removed, busy, dying: a burst";
}

const Family Sound = {.name = "sound",
                      .steps = {2, 20, 500},
                      .options = {"--camera1", kCamerasAtRest[0], "--camera2", kCamerasAtRest[1]},
                      .step = Step};
