#include "gst/compose.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>

#include "gst/compose_parallel.h"

namespace {

constexpr uint8_t kStale = 0x5a;

// A picture of one's own samples; its planes end where its memory ends, so that a sanitizer sees each byte read beyond.
struct OwnPicture {
    std::array<std::unique_ptr<uint8_t[]>, 3> memory;
    VideoPicture picture;
};

using Shade = std::function<double(double u, double v)>;  // position 0 to 1 in the picture, value 0 to 255

OwnPicture DrawPicture(int width, int height, std::array<Shade, 3> shades, Colours colours = Colours::kRgb,
                       int halfX = 0, int halfY = 0) {
    OwnPicture own{{}, {{}, colours}};
    for (size_t i = 0; i < 3; ++i) {
        if (!shades[i]) continue;
        const int w = i ? (width + halfX) >> halfX : width, h = i ? (height + halfY) >> halfY : height;
        own.memory[i] = std::make_unique<uint8_t[]>(static_cast<size_t>(w) * h);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                own.memory[i][y * w + x] = static_cast<uint8_t>(std::lround(shades[i]((x + .5) / w, (y + .5) / h)));
        own.picture.planes[i] = {.samples = own.memory[i].get(), .stride = w, .step = 1, .width = w, .height = h};
    }
    return own;
}

Shade Flat(double value) {
    return [=](double, double) { return value; };
}

// A different slope in each component: any turn or shift of the wrong kind shows.
OwnPicture Slopes(int width, int height) {
    return DrawPicture(width, height,
                       {[](double u, double) { return 20 + 200 * u; }, [](double, double v) { return 20 + 200 * v; },
                        [](double u, double v) { return 20 + 100 * u + 100 * v; }});
}

struct Screen {
    int width, height;
    std::vector<uint8_t> pixels = std::vector<uint8_t>(static_cast<size_t>(width) * height * 4, kStale);
    Canvas canvas() { return {pixels.data(), ptrdiff_t{width} * 4, width, height}; }
    std::array<int, 3> Rgb(int x, int y) const {
        const uint8_t* pixel = &pixels[(static_cast<size_t>(y) * width + x) * 4];
        return {pixel[2], pixel[1], pixel[0]};
    }
};

Screen Compose(std::span<const VideoWindow> windows, int width, int height) {
    Screen screen{width, height};
    PaintBand(ArrangeScene(windows, width, height), screen.canvas(), 0, height);
    return screen;
}

Screen ComposeOne(const OwnPicture& own, Rectangle area, int width, int height, Turn turn = Turn::kNone) {
    const VideoWindow window{own.picture, area, turn, kOpaque};
    return Compose({&window, 1}, width, height);
}

// Where in an upright picture a point of the turned one comes from: offset and what u and v count for.
struct Origin {
    double u, uByU, uByV, v, vByU, vByV;
};
constexpr Origin kOrigins[] = {{0, 1, 0, 0, 0, 1},  {0, 0, 1, 1, -1, 0}, {1, -1, 0, 1, 0, -1},
                               {1, 0, -1, 0, 1, 0}, {1, -1, 0, 0, 0, 1}, {0, 1, 0, 1, 0, -1}};  // numbered as turns

void ExpectNear(std::array<int, 3> got, std::array<double, 3> wanted, double tolerance, int x, int y) {
    for (size_t i = 0; i < 3; ++i)
        ASSERT_NEAR(got[i], wanted[i], tolerance) << "component " << i << " at " << x << "," << y;
}

}  // namespace

TEST(PaintBand, ScalesAndTurnsAnyGeometryExactly) {
    struct Case {
        int width, height;
        Rectangle area;
    };
    constexpr Case kCases[] = {
        {160, 120, {0, 0, 400, 300}},    {160, 120, {0, 0, 160, 120}},   {300, 200, {10, 20, 140, 90}},
        {301, 203, {33, 7, 61, 300}},    {640, 360, {0, 0, 31, 17}},     {1000, 40, {5, 5, 20, 250}},
        {17, 15, {-100, -50, 333, 222}}, {9, 5, {200, 100, 400, 300}},   {64, 64, {399, 0, 700, 300}},
        {64, 64, {-690, 0, 700, 300}},   {2000, 30, {50, 100, 300, 30}},
    };
    for (const auto& [width, height, area] : kCases) {
        const OwnPicture own = Slopes(width, height);
        // At an edge, where half a sample repeats, a slope may differ by half a sample's or half a pixel's step.
        const double tolerance = 2.5 + 100. / std::min({width, height, area.width, area.height});
        for (size_t turn = 0; turn < std::size(kOrigins); ++turn) {
            SCOPED_TRACE(testing::Message() << width << "x" << height << " turn " << turn);
            const Screen screen = ComposeOne(own, area, 400, 300, static_cast<Turn>(turn));
            const Origin& origin = kOrigins[turn];
            for (int y = std::max(area.top, 0); y < std::min(area.top + area.height, 300); y += 3)
                for (int x = std::max(area.left, 0); x < std::min(area.left + area.width, 400); ++x) {
                    const double atU = (x - area.left + .5) / area.width, atV = (y - area.top + .5) / area.height;
                    const double u = origin.u + origin.uByU * atU + origin.uByV * atV;
                    const double v = origin.v + origin.vByU * atU + origin.vByV * atV;
                    ExpectNear(screen.Rgb(x, y), {20 + 200 * u, 20 + 200 * v, 20 + 100 * (u + v)}, tolerance, x, y);
                    if (HasFatalFailure()) return;
                }
        }
    }
}

// Fine stripes become their mean: nothing is skipped when a picture shrinks.
TEST(PaintBand, AveragesWhenShrinking) {
    const Shade stripes = [](double u, double) { return static_cast<int>(u * 1280) % 4 < 2 ? 0. : 200.; };
    const OwnPicture own = DrawPicture(1280, 720, {stripes, stripes, stripes});
    for (const Rectangle area : {Rectangle{0, 0, 320, 180}, Rectangle{0, 0, 160, 90}, Rectangle{0, 0, 80, 300}}) {
        const Screen screen = ComposeOne(own, area, 320, 300);
        for (int x = 0; x < area.width; ++x) ExpectNear(screen.Rgb(x, 40), {100, 100, 100}, 2, x, 40);
    }
}

TEST(PaintBand, KnowsTheColourEncodings) {
    struct Case {
        Colours colours;
        std::array<double, 3> yuv, rgb;
    };
    constexpr Case kCases[] = {
        {Colours::kBt601, {81, 90, 240}, {255, 0, 0}},     {Colours::kBt601, {235, 128, 128}, {255, 255, 255}},
        {Colours::kBt601Full, {76, 85, 255}, {254, 0, 0}}, {Colours::kBt709, {63, 102, 240}, {255, 0, 0}},
        {Colours::kBt709, {66, 160, 123}, {49, 53, 126}},  {Colours::kRgb, {10, 20, 30}, {10, 20, 30}},
    };
    for (const auto& [colours, yuv, rgb] : kCases) {
        const OwnPicture own = DrawPicture(64, 48, {Flat(yuv[0]), Flat(yuv[1]), Flat(yuv[2])}, colours, 1, 1);
        for (const Rectangle area : {Rectangle{0, 0, 64, 48}, Rectangle{0, 0, 100, 70}, Rectangle{-3, 0, 64, 48}})
            ExpectNear(ComposeOne(own, area, 100, 70).Rgb(30, 30), rgb, 4, 30, 30);
    }
    const OwnPicture grey = DrawPicture(64, 48, {Flat(126), nullptr, nullptr}, Colours::kBt601Full);
    const Screen screen = ComposeOne(grey, {0, 0, 90, 60}, 100, 70, Turn::kMirror);
    ExpectNear(screen.Rgb(30, 30), {126, 126, 126}, 1, 30, 30);
}

TEST(PaintBand, LeavesNothingOfTheFormerPictureAndMixesByAlpha) {
    const OwnPicture red = DrawPicture(20, 20, {Flat(200), Flat(0), Flat(0)});
    const OwnPicture green = DrawPicture(20, 20, {Flat(0), Flat(200), Flat(0)});
    const VideoWindow windows[] = {{red.picture, {10, 10, 40, 30}, Turn::kNone, kOpaque},
                                   {green.picture, {40, 0, 30, 60}, Turn::kNone, kOpaque / 2}};
    const Screen screen = Compose(windows, 80, 60);
    const auto expected = [](int x, int y) -> std::array<double, 3> {
        const bool inRed = x >= 10 && x < 50 && y >= 10 && y < 40, inGreen = x >= 40 && x < 70;
        return {inRed ? (inGreen ? 100. : 200.) : 0., inGreen ? 100. : 0., 0.};
    };
    for (int y = 0; y < 60; ++y)
        for (int x = 0; x < 80; ++x) ExpectNear(screen.Rgb(x, y), expected(x, y), 0, x, y);
}

// What lies under opaque windows is not painted at all: beside them nothing may change, wherever they begin and end.
TEST(PaintBand, PaintsAroundCoveredParts) {
    const Shade slope = [](double u, double v) { return 20 + 100 * u + 100 * v; };
    const OwnPicture below = DrawPicture(96, 50, {slope, slope, slope}, Colours::kBt709, 1, 0);
    const OwnPicture above = DrawPicture(20, 20, {Flat(9), Flat(8), Flat(7)});
    const VideoWindow windows[] = {{below.picture, {3, 0, 96, 50}, Turn::kNone, kOpaque},
                                   {above.picture, {0, 5, 18, 20}, Turn::kNone, kOpaque},
                                   {above.picture, {31, 15, 21, 20}, Turn::kNone, kOpaque},
                                   {above.picture, {40, 20, 30, 10}, Turn::kNone, kOpaque}};
    const Screen screen = Compose(windows, 100, 50), alone = Compose({windows, 1}, 100, 50);
    const auto inside = [](const Rectangle& area, int x, int y) {
        return x >= area.left && x < area.left + area.width && y >= area.top && y < area.top + area.height;
    };
    for (int y = 0; y < 50; ++y)
        for (int x = 0; x < 100; ++x) {
            const bool covered =
                std::any_of(windows + 1, std::end(windows), [&](const auto& each) { return inside(each.area, x, y); });
            ASSERT_EQ(screen.Rgb(x, y), covered ? (std::array{9, 8, 7}) : alone.Rgb(x, y)) << x << "," << y;
        }
}

// Frame after frame, so that helpers come late, early and in the middle of the next one.
TEST(PaintScene, ThreadsMakeTheSamePicture) {
    const OwnPicture large = Slopes(320, 180), small = Slopes(50, 40);
    Painters* const painters = StartPainters();
    for (int frame = 0; frame < 100; ++frame) {
        const VideoWindow windows[] = {{large.picture, {frame, 0, 180, 500}, Turn::kFlip, kOpaque},
                                       {small.picture, {20, frame - 9, 70, 300}, Turn::kQuarter, 100}};
        Screen screen{200, 480};
        PaintScene(*painters, ArrangeScene(windows, 200, 480), screen.canvas());
        ASSERT_EQ(screen.pixels, Compose(windows, 200, 480).pixels) << frame;
    }
    StopPainters(painters);
}
