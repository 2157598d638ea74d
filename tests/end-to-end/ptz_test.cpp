// Cameras that pan, tilt, zoom and keep positions: what the camera is asked for, told by the trace of its requests.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "board_run.h"

using testing::HasSubstr;
using Requests = std::vector<std::string>;

static constexpr unsigned kPan = 0x009A0908, kTilt = 0x009A0909, kZoom = 0x009A090D, kPanSpeed = 0x009A0920,
                          kTiltSpeed = 0x009A0921;
static const std::map<unsigned, std::string> kNames = {
    {kPan, "pan"}, {kTilt, "tilt"}, {kZoom, "zoom"}, {kPanSpeed, "pan speed"}, {kTiltSpeed, "tilt speed"}};

// ---- Cameras, small and slow so that their pictures cost little

static Json Control(unsigned id, int minimum, int maximum, int step, int value) {
    std::array<char, 16> text{};
    snprintf(text.data(), text.size(), "0x%08x", id);
    Json control = {{"id", text.data()},  {"name", kNames.at(id)}, {"minimum", minimum},
                    {"maximum", maximum}, {"step", step},          {"default", value}};
    if (id == kPanSpeed || id == kTiltSpeed) control["moves"] = {{"from", -1e6}, {"to", 1e6}};
    return control;
}

static Json Unit(int unit, int selector, const std::vector<int>& data) {
    return {{"unit", unit}, {"selector", selector}, {"data", data}};
}

static Json Model(const char* card, const std::vector<Json>& controls, const std::vector<Json>& units = {}) {
    return {
        {"card", card}, {"formats", {{"MJPG", {{"320x180", {5}}}}}}, {"controls", controls}, {"extensionUnits", units}};
}

static const Json kAbsolute =
    Model("Logitech PTZ Pro 2",
          {Control(kPan, -100, 100, 10, 0), Control(kTilt, 0, 1000, 1, 500), Control(kZoom, 100, 1000, 1, 100)},
          {Unit(0x0B, 0x02, {0})});
static const Json kBySpeed =
    Model("AVer CAM520 Pro2",
          {Control(kZoom, 100, 1200, 1, 100), Control(kPanSpeed, -24, 24, 1, 0), Control(kTiltSpeed, -24, 24, 1, 0)},
          {Unit(0x08, 0x05, {0}), Unit(0x05, 0x12, {1, 0, 2})});
static const Json kWide = Model("Turntable", {Control(kPan, -1000000, 1000000, 1, 0)});  // 7 seconds to either end

// The profile's file.
static std::string Profile(const Board& board, const std::string& name, const Json& model) {
    const std::string file = BoardFile(board, "cameras/" + name + ".json");
    std::ofstream(file) << model;
    return file;
}

static Json CameraNow(const Board& board, int camera) { return AskJson(board, {"camera", std::to_string(camera)}); }

// ---- The bench

static bool IsAccepted(const std::string& answer) { return answer.find("NACK\r\n") == std::string::npos; }

static Board StartCameras(const Json& first, const Json& second) {
    const Board board = MakeBoard();
    StartBoard(board, {"--camera1", Profile(board, "first", first), "--camera2", Profile(board, "second", second)});
    EXPECT_TRUE(WaitForPicture(board)) << Output(board);
    Command(board, "<ENBCAST 0>");
    return board;
}

// "1 get pan 30", "2 SET_CUR 8/5 3": every request about the controls here, camera first, answer or error last. The
// listing of all controls by a pipeline that starts is none of ours.
static Requests RequestsSince(const Board& board) {
    static const std::map<std::string, std::string> kVerbs = {
        {"VIDIOC_QUERYCTRL", "query"}, {"VIDIOC_G_CTRL", "get"}, {"VIDIOC_S_CTRL", "set"}};
    const Json first = CameraNow(board, 1);
    Requests requests;
    for (const Json& line : TraceLines(board, "ioctl")) {
        const std::string camera = !first.is_null() && line["node"] == first["node"] ? "1 " : "2 ";
        const std::string error = line.contains("error") ? " " + line["error"].get<std::string>() : "";
        const auto verb = kVerbs.find(line["request"]);
        if (line["request"] == "UVCIOC_CTRL_QUERY") {
            std::string data;
            for (const int byte : line["data"]) data += " " + std::to_string(byte);
            requests.push_back(camera + line["query"].get<std::string>() + " " + line["unit"].dump() + "/" +
                               line["selector"].dump() + data + error);
        } else if (verb != kVerbs.end() && line.contains("id") && kNames.contains(line["id"])) {
            const std::string value = line.contains("value") ? " " + line["value"].dump() : "";
            requests.push_back(camera + verb->second + " " + kNames.at(line["id"]) + value + error);
        }
    }
    return requests;
}

static int Workers(const Board& board) {
    const std::string tasks = "/proc/" + Status(board)["daemon"]["pid"].dump() + "/task";
    int workers = 0;
    std::error_code ended;
    for (const auto& task : std::filesystem::directory_iterator(tasks, ended)) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        workers += name == "PTZ move";
    }
    return workers;
}

static bool WaitForWorkers(const Board& board, int count) {
    return WaitUntil(10, [&] { return Workers(board) == count; });
}

struct Case {
    const char* command;
    Requests requests;              // to the cameras, until every worker has ended
    const char* refused = nullptr;  // what the log says then
};

static void Expect(const Board& board, const std::vector<Case>& cases) {
    for (const Case& row : cases) {
        SCOPED_TRACE(row.command);
        Ctl(board, {"trace", "--clear"});
        const std::string answer = Command(board, row.command);
        EXPECT_EQ(IsAccepted(answer), row.refused == nullptr) << answer;
        EXPECT_TRUE(WaitForWorkers(board, 0));
        EXPECT_THAT(answer, HasSubstr(row.refused ? row.refused : ""));
        EXPECT_EQ(RequestsSince(board), row.requests);
    }
}

TEST(Ptz, AsksEachKindOfCameraForWhatItHas) {
    const Board board = StartCameras(kAbsolute, kBySpeed);
    const Requests toEndStop = {"1 query pan",  "1 get pan 0",  //
                                "1 query pan",  "1 get pan 0",   "1 set pan 60", "1 query pan",
                                "1 get pan 60", "1 set pan 100", "1 query pan",  "1 get pan 100"};
    const Requests downToEndStop = {"1 query tilt",   "1 get tilt 500",  //
                                    "1 query tilt",   "1 get tilt 500", "1 set tilt 200", "1 query tilt",
                                    "1 get tilt 200", "1 set tilt 0",   "1 query tilt",   "1 get tilt 0"};
    Expect(board, {{"<PAN 1 6>", toEndStop},
                   {"<PAN 1 0>", {"1 query pan", "1 get pan 100"}},
                   {"<TILT 1 -30>", downToEndStop},
                   // Positions are compared across axes: 0 is where the tilt went last.
                   {"<PAN 1 -10>", {"1 query pan", "1 get pan 100", "1 query pan", "1 get pan 100"}},
                   {"<ZOOM 1 500>", {"1 query zoom", "1 get zoom 100", "1 query zoom", "1 set zoom 1000"}},
                   {"<ZOOM 1 101>", {"1 query zoom", "1 get zoom 1000", "1 query zoom", "1 set zoom 102"}},
                   {"<PAN 2 -7>", {"2 query pan speed", "2 set pan speed -7"}},
                   {"<TILT 2 4>", {"2 query tilt speed", "2 set tilt speed 4"}},
                   {"<ZOOM 2 300>", {"2 query zoom", "2 get zoom 100", "2 query zoom", "2 set zoom 650"}},
                   {"<PAN 2 0>", {"2 query pan speed", "2 set pan speed 0"}},
                   {"<TILT 0 1>", {}, ""}});
    const auto position = [&](const char* speed) { return CameraNow(board, 2)["controls"][speed]["position"]; };
    const double pan = position("pan speed");
    EXPECT_LT(pan, 0);
    EXPECT_TRUE(WaitUntil(10, [&, tilt = position("tilt speed")] { return position("tilt speed") > tilt; }));
    EXPECT_EQ(position("pan speed"), pan) << "stands, the other axis moves on";
}

TEST(Ptz, CamerasWithoutAControlAreRefused) {
    const Board board =
        StartCameras(Model("HD Zoom Webcam", {Control(kZoom, 100, 500, 100, 100)}),
                     Model("Logi Rally Camera", {Control(kPan, 0, 10, 1, 5)}, {Unit(0x0B, 0x02, {1, 2})}));
    Expect(board,
           {{"<PAN 1 3>", {"1 query pan EINVAL", "1 query pan speed EINVAL"}, "Set V4L2_CID_PAN_SPEED failed!\n"},
            {"<TILT 1 3>", {"1 query tilt EINVAL", "1 query tilt speed EINVAL"}, "Set V4L2_CID_TILT_SPEED failed!\n"},
            {"<ZOOM 1 300>", {"1 query zoom", "1 get zoom 100", "1 query zoom", "1 set zoom 300"}},
            // Moved by speed by its name, though it offers positions.
            {"<PAN 2 3>", {"2 query pan speed EINVAL"}, "Set V4L2_CID_PAN_SPEED failed!\n"},
            {"<ZOOM 2 300>", {"2 query zoom EINVAL"}, ""},
            {"<PRESET 1 1>", {}, "Camera manufacturer not found\n"},
            {"<PRESET 2 1>", {"2 GET_LEN 11/2 2 0"}, "some thing is wrong, len=2\n"}});
    ASSERT_EQ(Ctl(board, {"fault", "camera", "1", "write"}).status, 0);
    Expect(board, {{"<ZOOM 1 200>", {"1 query zoom", "1 get zoom 300", "1 query zoom", "1 set zoom 200 EIO"}},
                   {"<ZOOM 1 1>",
                    {"1 query zoom", "1 get zoom 300", "1 query zoom", "1 get zoom 300", "1 set zoom 400 EIO"}}});
    Ctl(board, {"fault", "camera", "1", "read"});
    Expect(board, {{"<ZOOM 1 200>", {"1 query zoom", "1 get zoom EIO"}, ""}});
}

TEST(Ptz, WorkersEndByThemselves) {
    const Board board = StartCameras(kWide, kBySpeed);
    const auto pan = [&] { return CameraNow(board, 1)["controls"]["pan"]["value"].get<int>(); };
    const auto sendOff = [&] {  // away from the nearer end
        const int before = pan(), way = before > 0 ? -1 : 1;
        Command(board, "<PAN 1 " + std::to_string(2 * way) + ">");
        return WaitUntil(10, [&] { return (pan() - before) * way > 0; });
    };
    Command(board, "<PAN 1 1>");
    EXPECT_TRUE(WaitUntil(10, [&] { return pan() > 0; }));
    EXPECT_EQ(Workers(board), 1);
    Command(board, "<PAN 1 -1>");  // both go the new way: against each other they would come nowhere
    EXPECT_TRUE(WaitUntil(10, [&] { return pan() < -100'000; }));
    EXPECT_EQ(Ctl(board, {"fault", "camera", "1", "stuck"}).status, 0);
    EXPECT_TRUE(WaitForWorkers(board, 0)) << "the camera does not follow: nothing to do";
    EXPECT_EQ(Ctl(board, {"fault", "camera", "1", "off"}).status, 0);

    for (int i = 0; i < 10; ++i) Command(board, i % 2 ? "<PAN 1 1>" : "<PAN 1 -1>");
    Command(board, "<TILT 2 0>");  // any 0 ends them all
    EXPECT_TRUE(WaitForWorkers(board, 0));

    EXPECT_TRUE(sendOff());
    Ctl(board, {"camera", "1", "unplug"});
    EXPECT_TRUE(WaitForWorkers(board, 0)) << "in mid-move";
    Ctl(board, {"camera", "1", "plug", Profile(board, "first", kWide)});
    EXPECT_TRUE(WaitUntil(20, [&] { return IsAccepted(Command(board, "<PAN 1 1>")); }));
    EXPECT_TRUE(sendOff());
    Command(board, "<PAN 1 0>");
    EXPECT_TRUE(WaitForWorkers(board, 0));
}

TEST(Presets, SpeakToTheUnitsOfBothMakers) {
    const Board board = StartCameras(kAbsolute, kBySpeed);
    static constexpr const char* kBadNumber = "Bad preset command. Try again.\n";
    Expect(board, {{"<PRESET 1 1>", {"1 GET_LEN 11/2 1 0", "1 GET_CUR 11/2 0", "1 SET_CUR 11/2 12"}},
                   {"<SAVEPRESET 1 2>", {"1 GET_LEN 11/2 1 0", "1 GET_CUR 11/2 12", "1 SET_CUR 11/2 5"}},
                   {"<PRESET 2 10>", {"2 GET_LEN 8/5 1 0", "2 GET_CUR 8/5 0", "2 SET_CUR 8/5 9"}},
                   {"<SAVEPRESET 2 10>", {"2 GET_LEN 5/18 3 0", "2 GET_CUR 5/18 1 0 2", "2 SET_CUR 5/18 1 9 2"}},
                   {"<PRESET 1 4>", {}, kBadNumber},
                   {"<PRESET 1 0>", {}, kBadNumber},
                   {"<SAVEPRESET 2 11>", {}, kBadNumber},
                   {"<PRESET 2>", {}, kBadNumber},
                   {"<PRESET 3 1>", {}, ""}});
    // Readings and settings are not checked, lengths are.
    Ctl(board, {"fault", "camera", "1", "write"});
    Ctl(board, {"fault", "camera", "2", "read"});
    Expect(board, {{"<PRESET 1 1>", {"1 GET_LEN 11/2 1 0", "1 GET_CUR 11/2 5", "1 SET_CUR 11/2 12 EIO"}},
                   {"<PRESET 2 1>", {"2 GET_LEN 8/5 EIO"}, "some thing is wrong, len=0\n"}});
}
