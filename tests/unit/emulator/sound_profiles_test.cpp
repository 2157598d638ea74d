// USB sound devices as data files.
#include "sound/sound_profiles.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "system/places.h"

using testing::HasSubstr;

TEST(SoundProfiles, EveryFileOfTheFolderIsGood) {
    for (const auto& entry : std::filesystem::directory_iterator(EmulatorFile("sounds")))
        EXPECT_EQ(LoadSoundProfile(entry.path()).error, "");
    EXPECT_GE(ListSoundProfiles().size(), 7u);
}

TEST(SoundProfiles, ABrokenOneIsRefusedWithTheReason) {
    const std::string path = testing::TempDir() + "sound-profile-" + std::to_string(getpid()) + ".json";
    std::ofstream(path) << R"({"card": "Mute"})";
    EXPECT_THAT(LoadSoundProfile(path).error, HasSubstr("neither microphone nor speaker"));
    std::ofstream(path) << R"({"card": "C", "hubPort": 9, "speaker": {"channels": 2, "rates": [48000]}})";
    EXPECT_THAT(LoadSoundProfile(path).error, HasSubstr("ports 1 to 7"));
    std::filesystem::remove(path);
    EXPECT_THAT(LoadSoundProfile(path).error, HasSubstr("cannot be read"));
}
