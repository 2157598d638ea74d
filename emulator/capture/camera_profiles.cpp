#include "capture/camera_profiles.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "system/places.h"

using Json = nlohmann::ordered_json;  // sizes and formats keep their order

static constexpr size_t kFileLimit = 1u << 20;
static constexpr uint32_t kRepeatsLimit = 4096;
static constexpr size_t kExtensionDataLimit = 1024;
static constexpr unsigned kLowestSoundRate = 8000, kHighestSoundRate = 96000, kSoundChannelsLimit = 8;
static constexpr int kPpmLimit = 10000;
static constexpr std::string_view kRecordingPrefix = "recording:";

[[noreturn]] static void Refuse(const std::string& what) { throw std::invalid_argument(what); }

// ---- Sizes and rates

static std::optional<uint32_t> ParseNumber(std::string_view text, int base = 10) {
    uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

struct Pair {
    uint32_t first, second;
};

static std::optional<Pair> ParsePair(std::string_view text, char separator) {
    const size_t at = text.find(separator);
    if (at == text.npos) return std::nullopt;
    const auto first = ParseNumber(text.substr(0, at)), second = ParseNumber(text.substr(at + 1));
    if (!first || !second) return std::nullopt;
    return Pair{*first, *second};
}

struct Halves {
    std::string_view before, after;
};

static std::optional<Halves> SplitAt(std::string_view text, std::string_view separator) {
    const size_t at = text.find(separator);
    if (at == text.npos) return std::nullopt;
    return Halves{text.substr(0, at), text.substr(at + separator.size())};
}

std::optional<CaptureSize> ParseCaptureSize(std::string_view text) {
    const auto stepped = SplitAt(text, " step ");
    const auto ends = SplitAt(stepped ? stepped->before : text, "..");
    if (stepped && !ends) return std::nullopt;
    const auto from = ParsePair(ends ? ends->before : text, 'x');
    const auto to = ends ? ParsePair(ends->after, 'x') : from;
    const auto step = stepped ? ParsePair(stepped->after, 'x') : Pair{1, 1};
    if (!from || !to || !step) return std::nullopt;
    const uint32_t type = stepped ? V4L2_FRMSIZE_TYPE_STEPWISE
                          : ends  ? V4L2_FRMSIZE_TYPE_CONTINUOUS
                                  : V4L2_FRMSIZE_TYPE_DISCRETE;
    return CaptureSize{.type = type,
                       .range = {.min_width = from->first,
                                 .max_width = to->first,
                                 .step_width = step->first,
                                 .min_height = from->second,
                                 .max_height = to->second,
                                 .step_height = step->second},
                       .intervals = {}};
}

std::optional<v4l2_fract> ParseRate(std::string_view rate) {
    if (const auto whole = ParseNumber(rate)) return v4l2_fract{.numerator = 1, .denominator = *whole};
    if (const auto parts = ParsePair(rate, '/'))
        return v4l2_fract{.numerator = parts->second, .denominator = parts->first};
    return std::nullopt;
}

static v4l2_fract RateOf(const Json& rate) {
    const std::string text = rate.is_string() ? rate.get<std::string>() : rate.dump();
    const auto interval = ParseRate(text);
    if (!interval) Refuse("rate " + rate.dump() + " is neither a number nor \"N/D\"");
    return *interval;
}

static void ReadRates(const Json& rates, CaptureSize& size) {
    if (rates.is_array()) {
        for (const Json& rate : rates) size.intervals.push_back(RateOf(rate));
        return;
    }
    const std::string text = rates.is_string() ? rates.get<std::string>() : std::string();
    const auto ends = SplitAt(text, "..");
    if (!ends) Refuse("rates " + rates.dump() + " are neither a list nor \"SLOWEST..FASTEST\"");
    size.intervalType = V4L2_FRMIVAL_TYPE_CONTINUOUS;
    size.intervals = {RateOf(Json(ends->after)), RateOf(Json(ends->before)), v4l2_fract{1, 1}};
}

// ---- Formats and controls

static constexpr struct {
    std::string_view fourcc, description;
} kDescriptions[] = {{"YUYV", "YUYV 4:2:2"}, {"UYVY", "UYVY 4:2:2"}, {"MJPG", "Motion-JPEG"}, {"H264", "H.264"}};

static CaptureFormat ReadFormat(const std::string& fourcc, const Json& sizes, uint32_t repeats) {
    if (fourcc.size() != 4) Refuse("format \"" + fourcc + "\" is no fourcc");
    CaptureFormat format = {.description = "unknown", .sizes = {}, .repeats = repeats};
    for (const auto& row : kDescriptions) {
        if (row.fourcc == fourcc) format.description = row.description;
    }
    const auto letter = [&](size_t at) { return static_cast<uint32_t>(static_cast<uint8_t>(fourcc[at])); };
    format.fourcc = letter(0) | letter(1) << 8 | letter(2) << 16 | letter(3) << 24;
    for (const auto& [text, rates] : sizes.items()) {
        auto size = ParseCaptureSize(text);
        if (!size) Refuse("size \"" + text + "\" is none of WxH, WxH..WxH, WxH..WxH step WxH");
        ReadRates(rates, *size);
        format.sizes.push_back(std::move(*size));
    }
    return format;
}

static constexpr struct {
    std::string_view name;
    uint32_t type;
} kControlTypes[] = {{"integer", V4L2_CTRL_TYPE_INTEGER},
                     {"boolean", V4L2_CTRL_TYPE_BOOLEAN},
                     {"menu", V4L2_CTRL_TYPE_MENU},
                     {"button", V4L2_CTRL_TYPE_BUTTON}};

static uint32_t ControlType(const std::string& name) {
    for (const auto& row : kControlTypes) {
        if (row.name == name) return row.type;
    }
    Refuse("control type \"" + name + "\" is none of integer, boolean, menu, button");
}

static int32_t DefaultMaximum(const CaptureControl& control) {
    if (control.type == V4L2_CTRL_TYPE_MENU) return static_cast<int32_t>(control.menu.size()) - 1;
    return control.type == V4L2_CTRL_TYPE_BOOLEAN ? 1 : 0;
}

static uint32_t ControlId(std::string_view text) {
    const auto id = text.starts_with("0x") ? ParseNumber(text.substr(2), 16) : std::nullopt;
    if (!id || *id > V4L2_CTRL_ID_MASK) Refuse("control id \"" + std::string(text) + "\" is none like \"0x009a0908\"");
    return *id;
}

// From rest, as near to 0 as its end stops let it be.
static std::optional<ControlMotion> ReadMotion(const Json& json) {
    if (!json.contains("moves")) return std::nullopt;
    const Json& moves = json.at("moves");
    ControlMotion motion = {.from = moves.at("from").get<double>(),
                            .to = moves.at("to").get<double>(),
                            .perSecond = moves.value("perSecond", 1.0)};
    if (motion.from > motion.to) Refuse("moves: from lies beyond to");
    motion.position = std::clamp(0.0, motion.from, motion.to);
    return motion;
}

static CaptureControl ReadControl(const Json& json) {
    CaptureControl control = {.name = json.at("name").get<std::string>(), .menu = {}};
    control.id = ControlId(json.at("id").get<std::string>());
    control.type = ControlType(json.value("type", "integer"));
    control.menu = json.value("menu", std::vector<std::string>());
    control.minimum = json.value("minimum", 0);
    control.maximum = json.value("maximum", DefaultMaximum(control));
    control.step = json.value("step", control.type == V4L2_CTRL_TYPE_BUTTON ? 0 : 1);
    control.defaultValue = json.value("default", control.minimum);
    control.value = control.defaultValue;
    control.motion = ReadMotion(json);
    if (control.type == V4L2_CTRL_TYPE_BUTTON) control.flags = V4L2_CTRL_FLAG_WRITE_ONLY;
    if (control.minimum > control.maximum || control.defaultValue < control.minimum ||
        control.defaultValue > control.maximum || control.step < 0)
        Refuse("control \"" + control.name + "\": its range and default do not fit together");
    return control;
}

static ExtensionControl ReadExtension(const Json& json) {
    ExtensionControl extension = {.unit = json.at("unit").get<uint8_t>(),
                                  .selector = json.at("selector").get<uint8_t>(),
                                  .initial = json.at("data").get<std::vector<uint8_t>>(),
                                  .current = {}};
    if (extension.initial.empty() || extension.initial.size() > kExtensionDataLimit)
        Refuse("an extension unit's data has 1 to 1024 bytes");
    extension.current = extension.initial;
    return extension;
}

SoundProfile ReadSound(const Json& json, const char* name) {
    if (!json.contains(name)) return {};
    const Json& sound = json.at(name);
    SoundProfile profile = {.present = true,
                            .channels = sound.at("channels").get<unsigned>(),
                            .rates = sound.at("rates").get<std::vector<unsigned>>(),
                            .ppm = sound.value("ppm", 0)};
    const bool fair = std::ranges::all_of(
        profile.rates, [](unsigned rate) { return rate >= kLowestSoundRate && rate <= kHighestSoundRate; });
    if (profile.channels < 1 || profile.channels > kSoundChannelsLimit || profile.rates.empty() || !fair ||
        std::abs(profile.ppm) > kPpmLimit)
        Refuse(std::string(name) + ": 1 to 8 channels, rates from 8000 to 96000, ppm up to 10000");
    std::ranges::sort(profile.rates);
    return profile;
}

// ---- A file

static void CheckRecording(const CameraProfile& profile) {
    if (profile.recording.empty()) return;
    for (const CaptureFormat& format : profile.formats) {
        if (!CanPlayRecording(format.fourcc))
            Refuse("a recording plays as MJPG, YUYV or UYVY, not as " + FourccText(format.fourcc));
    }
    if (!std::filesystem::exists(profile.recording)) Refuse("recording " + profile.recording + " does not exist");
}

// Beside the profile, or else beside the emulator, whose build makes the bundled film.
static std::string FilmPath(const std::string& film, const std::filesystem::path& file) {
    const auto beside = std::filesystem::absolute(file.parent_path() / film);
    return std::filesystem::exists(beside) ? beside : EmulatorFile(film);
}

static CameraProfile ReadProfile(const Json& json, const std::filesystem::path& file) {
    CameraProfile profile;
    profile.name = file.stem();
    profile.description = json.value("description", "");
    profile.driver = json.value("driver", profile.driver);
    profile.card = json.at("card").get<std::string>();
    profile.usbId = json.value("usbId", "1d6b:0102");
    const uint32_t repeats = json.value("repeats", 0u);
    if (repeats > kRepeatsLimit) Refuse("repeats: at most " + std::to_string(kRepeatsLimit));
    for (const auto& [fourcc, sizes] : json.at("formats").items())
        profile.formats.push_back(ReadFormat(fourcc, sizes, repeats));
    for (const Json& control : json.value("controls", Json::array())) profile.controls.push_back(ReadControl(control));
    for (const Json& extension : json.value("extensionUnits", Json::array()))
        profile.extensionControls.push_back(ReadExtension(extension));
    std::ranges::sort(profile.controls, {}, &CaptureControl::id);
    profile.microphone = ReadSound(json, "microphone");
    profile.speaker = ReadSound(json, "speaker");
    if (json.contains("recording")) profile.recording = FilmPath(json.at("recording").get<std::string>(), file);
    return profile;
}

CameraProfileResult ParseCameraProfile(std::string_view json, const std::filesystem::path& file) try {
    return {.profile = ReadProfile(Json::parse(json), file), .error = {}};
} catch (const std::exception& error) {
    return {.profile = {}, .error = file.string() + ": " + error.what()};
}

static CameraProfileResult LoadFile(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) return {.profile = {}, .error = file.string() + ": cannot be read"};
    std::string text(std::istreambuf_iterator<char>(stream), {});
    if (text.size() > kFileLimit) return {.profile = {}, .error = file.string() + ": too long for a camera profile"};
    return ParseCameraProfile(text, file);
}

static CameraProfileResult CheckedFilm(CameraProfileResult result) {
    if (!result.error.empty()) return result;
    try {
        CheckRecording(result.profile);
    } catch (const std::exception& error) {
        result.error = "camera " + result.profile.name + ": " + error.what();
    }
    return result;
}

std::filesystem::path CameraProfileFolder() { return EmulatorFile("cameras"); }

CameraProfileResult LoadCameraProfile(const std::string& name) {
    if (name.starts_with(kRecordingPrefix)) {
        CameraProfileResult result = LoadFile(CameraProfileFolder() / "recording.json");
        result.profile.recording = std::filesystem::absolute(name.substr(kRecordingPrefix.size()));
        return CheckedFilm(std::move(result));
    }
    if (name.find('/') != name.npos) return CheckedFilm(LoadFile(name));
    const auto file = CameraProfileFolder() / (name + ".json");
    if (!std::filesystem::exists(file))
        return {.profile = {}, .error = "no camera profile \"" + name + "\" (tessel-emulator profiles lists them)"};
    return CheckedFilm(LoadFile(file));
}

std::vector<CameraProfile> ListCameraProfiles() {
    std::vector<CameraProfile> profiles;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(CameraProfileFolder(), error)) {
        if (entry.path().extension() != ".json") continue;
        CameraProfileResult result = LoadFile(entry.path());
        if (result.error.empty()) profiles.push_back(std::move(result.profile));
    }
    std::ranges::sort(profiles, {}, &CameraProfile::name);
    return profiles;
}
