// Which cards count as speakerphones, by what the board's tools list. The tools here are scripts.
#include "audio/sound_cards.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "settings/device_identity.h"

class SoundCards : public testing::Test {  // a folder of its own in front of PATH
protected:
    void SetUp() override {
        char name[] = "/tmp/tools-XXXXXX";
        folder = mkdtemp(name);
        setenv("PATH", (folder + ":" + path).c_str(), 1);
    }
    void TearDown() override {
        setenv("PATH", path.c_str(), 1);
        std::filesystem::remove_all(folder);
        DeviceId = 0;
    }
    void MakeTool(const std::string& name, const std::string& lines) const {
        const std::string file = folder + "/" + name;
        std::ofstream(file) << "#!/bin/sh\n[ \"$1\" = -l ] && cat <<END\n" << lines << "END\n";
        chmod(file.c_str(), 0755);
    }
    int Detected(const std::string& plays, const std::string& records, int card) const {
        MakeTool("aplay", plays);
        MakeTool("arecord", records);
        return IsCurrentCardSpeakerphone(card);
    }

    std::string folder;
    const std::string path = getenv("PATH");
};

TEST_F(SoundCards, SpeakerphoneIsListedAlikeByBothTools) {
    const std::string monitor = "card 2: imxhdmisoc [imx-hdmi-soc], device 0: HDMI []\n";
    const std::string camera = "card 3: Camera [HD Camera], device 0: USB Audio [USB Audio]\n";
    const std::string second = "card 3: Camera [HD Camera], device 1: USB Audio #1 [USB Audio #1]\n";
    const std::string tenth = "card 10: Phone [Phone], device 0: USB Audio [USB Audio]\n";
    EXPECT_EQ(Detected(monitor + camera, camera, 3), 1);
    EXPECT_EQ(Detected(monitor, camera, 3), 0) << "records only";
    EXPECT_EQ(Detected(monitor + camera, "", 3), 0) << "plays only";
    EXPECT_EQ(Detected(camera, second, 3), 0) << "two devices of one card";
    EXPECT_EQ(Detected(camera + second, camera, 3), 1) << "the first devices count";
    EXPECT_EQ(Detected(tenth, tenth, 1), 1) << "card 1 is found in card 10's line, too";
    DeviceId = 2;
    EXPECT_EQ(Detected(camera, camera, 3), 0) << "an input switcher has no loudspeakers";
}
