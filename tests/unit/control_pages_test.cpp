#include "net/control_pages.h"

#include <gtest/gtest.h>

#include <algorithm>

// What stands between `before` and the next `after`, for each `before` in the text.
static std::vector<std::string> Between(std::string_view text, std::string_view before, std::string_view after) {
    std::vector<std::string> found;
    for (size_t at = text.find(before); at != std::string_view::npos; at = text.find(before, at + 1)) {
        const size_t from = at + before.size();
        found.emplace_back(text.substr(from, text.find(after, from) - from));
    }
    return found;
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
