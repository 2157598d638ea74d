// Which cards count as speakerphones, by what the board's tools list. The tools here are scripts.
#include "audio/sound_cards.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "settings/device_identity.h"

TEST(SoundCards, SpeakerphoneIsListedAlikeByBothTools) {
    const std::string path = getenv("PATH");
    char folder[] = "/tmp/tools-XXXXXX";
    ASSERT_TRUE(mkdtemp(folder));
    setenv("PATH", (folder + (":" + path)).c_str(), 1);
    const auto detected = [&folder](const std::string& plays, const std::string& records, int card) {
        for (const auto& [tool, lines] : {std::pair{"/aplay", plays}, {"/arecord", records}}) {
            const std::string file = std::string(folder) + tool;
            std::ofstream(file) << "#!/bin/sh\n[ \"$1\" = -l ] && cat <<END\n" << lines << "END\n";
            chmod(file.c_str(), 0755);
        }
        return IsCurrentCardSpeakerphone(card);
    };
    const std::string monitor = "card 2: imxhdmisoc [imx-hdmi-soc], device 0: HDMI []\n";
    const std::string camera = "card 3: Camera [HD Camera], device 0: USB Audio [USB Audio]\n";
    const std::string second = "card 3: Camera [HD Camera], device 1: USB Audio #1 [USB Audio #1]\n";
    const std::string tenth = "card 10: Phone [Phone], device 0: USB Audio [USB Audio]\n";
    EXPECT_EQ(detected(monitor + camera, camera, 3), 1);
    EXPECT_EQ(detected(monitor, camera, 3), 0) << "records only";
    EXPECT_EQ(detected(monitor + camera, "", 3), 0) << "plays only";
    EXPECT_EQ(detected(camera, second, 3), 0) << "two devices of one card";
    EXPECT_EQ(detected(camera + second, camera, 3), 1) << "the first devices count";
    EXPECT_EQ(detected(tenth, tenth, 1), 1) << "card 1 is found in card 10's line, too";
    DeviceId = 2;
    EXPECT_EQ(detected(camera, camera, 3), 0) << "an input switcher has no loudspeakers";
    DeviceId = 0;
    setenv("PATH", path.c_str(), 1);
    std::filesystem::remove_all(folder);
}
