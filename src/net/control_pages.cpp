#include "net/control_pages.h"

#include <algorithm>
#include <array>

#include "commands/reply_channel.h"
#include "settings/device_identity.h"

static constexpr std::string_view kHeader = "HTTP/1.1 200 OK\nContent-Type: text/html\n\n";

template <size_t size>
static consteval auto BehindHeader(const char (&page)[size]) {
    std::array<char, kHeader.size() + size - 1> answer{};
    std::copy_n(page, size - 1, std::ranges::copy(kHeader, answer.begin()).out);
    return answer;
}

static constexpr auto kViews = BehindHeader(
#include "net/pages/views.html.literal"
);

static constexpr auto kInputs = BehindHeader(
#include "net/pages/inputs.html.literal"
);

// Clients know the pages by their sizes.
static_assert(kViews.size() == 18'929);
static_assert(kInputs.size() == 13'584);

constinit const std::string_view ViewsControlPage{kViews.data(), kViews.size()};
constinit const std::string_view InputsControlPage{kInputs.data(), kInputs.size()};

std::string_view ControlPage() { return DeviceId == 0 ? ViewsControlPage : InputsControlPage; }

int SendControlPage(const int32_t*) {
    WriteToClient(ControlPage());
    return 0;
}
