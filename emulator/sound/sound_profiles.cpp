#include "sound/sound_profiles.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "system/places.h"

using Json = nlohmann::ordered_json;

static constexpr int kHubPortLimit = 7;

static SoundDeviceProfile ReadProfile(const Json& json, const std::filesystem::path& file) {
    SoundDeviceProfile profile = {.name = file.stem(),
                                  .description = json.value("description", ""),
                                  .card = json.at("card").get<std::string>(),
                                  .hubPort = json.value("hubPort", 0),
                                  .microphone = ReadSound(json, "microphone"),
                                  .speaker = ReadSound(json, "speaker")};
    if (profile.hubPort < 0 || profile.hubPort > kHubPortLimit) throw std::invalid_argument("a hub has ports 1 to 7");
    if (!profile.microphone.present && !profile.speaker.present)
        throw std::invalid_argument("neither microphone nor speaker");
    return profile;
}

static SoundDeviceResult LoadFile(const std::filesystem::path& file) try {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) return {.profile = {}, .error = file.string() + ": cannot be read"};
    return {.profile = ReadProfile(Json::parse(stream), file), .error = {}};
} catch (const std::exception& error) {
    return {.profile = {}, .error = file.string() + ": " + error.what()};
}

SoundDeviceResult LoadSoundProfile(const std::string& name) {
    if (name.find('/') != name.npos) return LoadFile(name);
    const auto file = EmulatorFile("sounds") / (name + ".json");
    if (std::filesystem::exists(file)) return LoadFile(file);
    return {.profile = {}, .error = "no sound profile \"" + name + "\" (tessel-emulator profiles lists them)"};
}

std::vector<SoundDeviceProfile> ListSoundProfiles() {
    std::vector<SoundDeviceProfile> profiles;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(EmulatorFile("sounds"), error)) {
        if (entry.path().extension() != ".json") continue;
        SoundDeviceResult result = LoadFile(entry.path());
        if (result.error.empty()) profiles.push_back(std::move(result.profile));
    }
    std::ranges::sort(profiles, {}, &SoundDeviceProfile::name);
    return profiles;
}
