#include "net/control_pages.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "settings/device_identity.h"

using testing::ElementsAre;
using testing::StartsWith;

// What stands between `before` and the next `after`, for each `before` in the text.
static std::vector<std::string> Between(std::string_view text, std::string_view before, std::string_view after) {
    std::vector<std::string> found;
    for (size_t at = text.find(before); at != std::string_view::npos; at = text.find(before, at + 1)) {
        const size_t from = at + before.size();
        found.emplace_back(text.substr(from, text.find(after, from) - from));
    }
    return found;
}

TEST(ControlPages, EachVariantGetsItsButtons) {
    for (const std::string_view page : {ViewsControlPage, InputsControlPage})
        EXPECT_THAT(page, StartsWith("HTTP/1.1 200 OK\nContent-Type: text/html\n\n<!DOCTYPE html>\n"));

    const auto commands = [] { return Between(ControlPage(), "onclick=\"select('", "', ip)\""); };
    DeviceId = 0;
    EXPECT_THAT(commands(), ElementsAre("$S1$", "$S2$", "$PP$", "$SS$", "$BS$", "$SW$"));
    EXPECT_THAT(Between(ControlPage(), " text=\"", "\""),
                ElementsAre("Source 1", "Source 2", "Picture-in-Picture", "Side-by-Side", "Big-Small", "Swap"));
    EXPECT_THAT(Between(ControlPage(), "<p>", "</p>"), ElementsAre("PIXALTO Configuration Panel"));
    for (const int variant : {1, 2, 3}) {
        DeviceId = uint8_t(variant);
        EXPECT_THAT(commands(), ElementsAre("$IN1$", "$IN2$", "$IN3$", "$IN4$"));
        EXPECT_THAT(Between(ControlPage(), " text=\"", "\""),
                    ElementsAre("Source 1", "Source 2", "Source 3", "Source 4"));
        EXPECT_THAT(Between(ControlPage(), "<p>", "</p>"), ElementsAre("ZEPHO Configuration Panel"));
    }
    DeviceId = 0;
}

// A name that two drawings give to their gradients would paint one of them with the other's.
TEST(ControlPages, NamesOfGradientsAreTheirOwn) {
    for (const std::string_view page : {ViewsControlPage, InputsControlPage}) {
        std::vector<std::string> names = Between(page, " id=\"", "\""), used = Between(page, "url(#", ")");
        std::ranges::sort(names);
        EXPECT_EQ(std::ranges::adjacent_find(names), names.end());
        for (const std::string& name : used) EXPECT_TRUE(std::ranges::binary_search(names, name)) << name;
    }
}
