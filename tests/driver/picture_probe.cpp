#include "picture_probe.h"

bool ShowsAll(const Picture& picture, const std::vector<Shown>& all) {
    for (const Shown& shown : all)
        if (!Shows(picture, shown)) return false;
    return true;
}

bool WaitToShow(const Board& board, const std::vector<Shown>& all, double seconds) {
    return WaitUntilPicture(board, seconds, [&](const Picture& picture) { return ShowsAll(picture, all); });
}

std::string Seen(const Board& board) { return Map(TakePicture(board).value_or(Picture{})) + Output(board); }

bool ShowsFull(const Board& board, char source, double seconds) {
    std::optional<PictureMark> before;
    return WaitUntilPicture(board, seconds, [&](const Picture& picture) {
        const Window display{0, 0, picture.width, picture.height};
        const Shown whole{source, 0, 0, unsigned(picture.width), unsigned(picture.height)};
        const auto mark = MarkIn(picture, display);
        if (!mark || !Shows(picture, whole)) return false;
        if (!before) before = mark;
        return mark->milliseconds != before->milliseconds;
    });
}
