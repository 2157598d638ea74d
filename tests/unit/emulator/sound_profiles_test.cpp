// USB sound devices as data files.
#include "sound_profiles.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "board.h"

using testing::HasSubstr;

TEST(SoundProfiles, EveryFileOfTheFolderIsGood) {
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(EmulatorFile("sounds"))) {
        ++files;
        EXPECT_EQ(LoadSoundProfile(entry.path()).error, "");
    }
    EXPECT_EQ(ListSoundProfiles().size(), files);
    EXPECT_EQ(LoadSoundProfile("hub-speakerphone").profile.hubPort, 3);
}

TEST(SoundProfiles, ABrokenOneIsRefusedWithTheReason) {
    struct Case {
        const char *json, *reason;
    };
    const std::string path = testing::TempDir() + "sound-profile-" + std::to_string(getpid()) + ".json";
    for (const Case& row : {
             Case{R"({"card": "Mute"})", "neither microphone nor speaker"},
             Case{R"({"microphone": {"channels": 1, "rates": [48000]}})", "card"},
             Case{R"({"card": "C", "microphone": {"channels": 0, "rates": [48000]}})", "1 to 8 channels"},
             Case{R"({"card": "C", "speaker": {"channels": 2, "rates": []}})", "speaker: "},
             Case{R"({"card": "C", "speaker": {"channels": 2, "rates": [400000]}})", "rates from 8000"},
             Case{R"({"card": "C", "hubPort": 9, "speaker": {"channels": 2, "rates": [48000]}})", "ports 1 to 7"},
             Case{R"({"card": )", "parse error"},
         }) {
        std::ofstream(path) << row.json;
        EXPECT_THAT(LoadSoundProfile(path).error, HasSubstr(row.reason)) << row.json;
    }
    std::filesystem::remove(path);
    EXPECT_THAT(LoadSoundProfile(path).error, HasSubstr("cannot be read"));
}
