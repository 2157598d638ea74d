// The two pages that a browser gets, each a whole HTTP answer with its header: one button a layout (variant 0), or one
// an input (variants 1..3). Their source is pages/*.html, built in; a browser opens those files from disk as well.
#pragma once

#include <cstdint>
#include <string_view>

extern const std::string_view ViewsControlPage;   // 18,929 bytes
extern const std::string_view InputsControlPage;  // 13,584 bytes

std::string_view ControlPage();       // of this board's variant
int SendControlPage(const int32_t*);  // WEB: to the client, 0
