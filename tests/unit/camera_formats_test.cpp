#include "video/camera_formats.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>

namespace {

struct Size {
    uint32_t width, height;
    std::initializer_list<uint32_t> rates;
};

FormatOffer Offer(std::initializer_list<Size> sizes) {
    FormatOffer offer{};
    offer.offered = 1;
    for (const Size& size : sizes) {
        FrameSizeEntry& entry = offer.sizes[offer.count++];
        entry.width = size.width;
        entry.height = size.height;
        std::copy(size.rates.begin(), size.rates.end(), entry.rates);
    }
    return offer;
}

struct Choice {
    uint32_t width, height, fps, fourcc;
    bool operator==(const Choice&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Choice& c) {
    return out << c.width << 'x' << c.height << ' ' << c.fps << ' ' << FourccName(c.fourcc);
}

Choice Choose(const CameraOffer& offer, uint8_t& fullHdTaken, bool listed = false, uint32_t target = 30) {
    SelectedFormat selected{};
    ChooseCameraFormat(offer, listed, target, fullHdTaken, selected);
    return {selected.width, selected.height, selected.fps, selected.fourcc};
}

Choice Choose(const CameraOffer& offer, uint32_t target = 30) {
    uint8_t fullHdTaken = 0;
    return Choose(offer, fullHdTaken, false, target);
}

const CameraOffer kFullHdCamera = {.yuyv = Offer({{640, 480, {30}}}),
                                   .mjpg = Offer({{640, 480, {30}}, {1280, 720, {30, 15}}, {1920, 1080, {30, 25, 15}}}),
                                   .h264 = {}};

}  // namespace

TEST(CameraFormats, OnlyOneCameraOfAScanGetsFullHdAndNoListedOne) {
    uint8_t fullHdTaken = 0;
    EXPECT_EQ(Choose(kFullHdCamera, fullHdTaken, true), (Choice{1280, 720, 30, kMjpg}));
    EXPECT_EQ(Choose(kFullHdCamera, fullHdTaken), (Choice{1920, 1080, 30, kMjpg}));
    EXPECT_EQ(Choose(kFullHdCamera, fullHdTaken), (Choice{1280, 720, 30, kMjpg}));
}

TEST(CameraFormats, FormatIsMjpgThenH264ThenYuyv) {
    CameraOffer offer = kFullHdCamera;
    offer.h264 = Offer({{1280, 720, {25, 30}}, {1920, 1080, {30}}});
    EXPECT_EQ(Choose(offer).fourcc, kMjpg);
    offer.mjpg = {};
    EXPECT_EQ(Choose(offer), (Choice{1920, 1080, 30, kH264}));
    uint8_t fullHdTaken = 1;
    EXPECT_EQ(Choose(offer, fullHdTaken), (Choice{1280, 720, 30, kH264}));
    offer.h264 = {};
    EXPECT_EQ(Choose(offer), (Choice{640, 480, 30, kYuyv}));
}

TEST(CameraFormats, UncompressedStaysSmall) {
    CameraOffer offer{};
    offer.yuyv = Offer({{1920, 1080, {5}}, {1280, 720, {10}}, {640, 480, {30}}, {640, 360, {30}}});
    EXPECT_EQ(Choose(offer), (Choice{640, 360, 30, kYuyv}));
    offer.yuyv = Offer({{1280, 720, {10, 30}}});
    EXPECT_EQ(Choose(offer), (Choice{1920, 1080, 10, kYuyv}));
}

TEST(CameraFormats, CameraOutsideTheTableGetsFullHdAtItsFirstRate) {
    CameraOffer offer{};
    offer.mjpg = Offer({{800, 600, {20, 30}}, {1600, 1200, {15}}});
    uint8_t fullHdTaken = 0;
    EXPECT_EQ(Choose(offer, fullHdTaken, true), (Choice{1920, 1080, 20, kMjpg}));
    EXPECT_EQ(fullHdTaken, 0);
    EXPECT_EQ(Choose(CameraOffer{}), (Choice{1920, 1080, 0, kYuyv}));  // a device that enumerates nothing
}

TEST(CameraFormats, RateFollowsTheOutput) {
    EXPECT_EQ(TargetFrameRate(6000), 30u);
    EXPECT_EQ(TargetFrameRate(5000), 25u);
    EXPECT_EQ(TargetFrameRate(3099), 30u);
    EXPECT_EQ(TargetFrameRate(3100), 15u);

    const struct {
        std::initializer_list<uint32_t> rates;
        uint32_t target, fps;
    } kCases[] = {
        {{15, 30, 60}, 30, 30},
        {{60, 30, 15}, 25, 60},                            // none near: the first
        {{32, 28, 31}, 30, 31},                            // several near: the last
        {{27, 33, 10}, 30, 27},                            // just outside on both sides
        {{5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 30}, 30, 5},  // the eleventh has no say
        {{60, 30}, 0, 60},                                 // output unknown: an empty slot is no rate
        {{1000000}, 30, 1000000},
    };
    for (const auto& expected : kCases) {
        CameraOffer offer{};
        offer.mjpg = Offer({{1280, 720, expected.rates}});
        EXPECT_EQ(Choose(offer, expected.target).fps, expected.fps) << "target " << expected.target;
    }
}

TEST(CameraFormats, AFullListIsSearchedToItsEnd) {
    CameraOffer offer{};
    offer.mjpg.offered = 1;
    offer.mjpg.count = kSizeLimit;
    std::ranges::fill(offer.mjpg.sizes, FrameSizeEntry{.width = 100, .height = 100, .rates = {30}});
    offer.mjpg.sizes[kSizeLimit - 1] = {.width = 640, .height = 360, .rates = {30}};
    EXPECT_EQ(Choose(offer), (Choice{640, 360, 30, kMjpg}));
}
