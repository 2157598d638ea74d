// Hardware that lies: the daemon says what is wrong where it has words for it, keeps running, and loses nothing.
#include <gmock/gmock.h>

#include "picture_probe.h"

static void ExpectAliveAndObedient(const Board& board) {
    EXPECT_THAT(TypeAndRead(board, "<FIRMWARE>\n", 1), testing::HasSubstr("ACK\r\n"));
    EXPECT_EQ(Status(board)["daemon"]["starts"], 1) << Output(board);
}

TEST(BadInput, CamerasThatLie) {
    for (const std::string profile : {"nonsense", "many-sizes", "odd-sizes"}) {
        const Board board = StartUntil("Playing video pipeline...\n", {"--camera1", profile, "--camera2", "hd-mjpeg"});
        Type(board, "<S2>\n");
        if (profile != "odd-sizes")
            EXPECT_TRUE(ShowsFull(board, '2', 12)) << profile << Seen(board);
        else  // it is asked for one that it lacks: the pipeline fails, and is built again and again
            for (int again = 0; again < 3; ++again)
                EXPECT_TRUE(WaitForOutput(board, "***** Error: ", 15, OutputSize(board))) << "after " << again;
        for (const char* layout : {"<PPTL1>\n", "<PPTL2>\n", "<TB>\n", "<BS>\n", "<SS>\n"}) TypeAndRead(board, layout);
        ExpectAliveAndObedient(board);
    }
}

TEST(BadInput, EveryCameraProfileShowsItsPicture) {
    for (const char* profile : {"yuyv-only", "h264-only", "no-fullhd", "low-rate", "timestamp", "still-image",
                                "jpegparse", "ptz-speed", "ptz-absolute"}) {
        const Board board = StartShowing({"--camera1", profile});
        EXPECT_TRUE(WaitUntilPicture(board, 15,
                                     [](const Picture& picture) {
                                         const auto mark = MarkIn(picture, {0, 0, picture.width, picture.height});
                                         return mark && mark->source == PictureSource::kCamera1;
                                     }))
            << profile << Seen(board);
    }
}

// The monitor's EDID among it: the output falls back to full HD.
TEST(BadInput, I2cThatNeverAnswers) {
    const Board board = StartNewBoard({"--camera1", "hd-mjpeg"});
    for (const char* address : {"4c", "34", "22", "50", "53", "26", "32", "36", "40"})
        ASSERT_EQ(Ctl(board, {"fault", "i2c", address, "nak"}).status, 0);
    ASSERT_TRUE(WaitForOutput(board, "In main: creating UART thread", 40)) << Output(board);
    const size_t from = OutputSize(board);
    ASSERT_TRUE(TypeAndWait(board, "<RESTART>\n", "HDMI receiver initialization failed.\n", 30)) << Output(board);
    ASSERT_TRUE(WaitForOutput(board, "Playing video pipeline...\n", 30, from)) << Output(board);
    EXPECT_TRUE(WaitToShow(board, {{'1', 0, 0, 1920, 1080}}, 12)) << Seen(board);
}

TEST(BadInput, DiskFullKeepsTheAppliance) {
    const Board board = StartShowing({"--camera1", "hd-mjpeg"});
    ASSERT_EQ(Ctl(board, {"fault", "disk", "readonly"}).status, 0);
    EXPECT_THAT(TypeAndRead(board, "<SAVE>\n", 1), testing::HasSubstr("ACK\r\n"));
    ASSERT_EQ(Ctl(board, {"fault", "disk", "off"}).status, 0);
    EXPECT_THAT(TypeAndRead(board, "<TB1>\n<SAVE>\n", 1), testing::HasSubstr("ACK\r\n"));
    ASSERT_TRUE(WaitUntil(3, [&] { return SavedSettings(board).size() == 136; }));
    EXPECT_EQ(SavedSettings(board)[6], 21);
    ExpectAliveAndObedient(board);
}
