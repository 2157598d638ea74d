#include "page/page_files.h"

#include <array>

static constexpr std::array kFiles{
    PageFile{.path = "/", .type = "text/html; charset=utf-8", .text =
#include "page/index.html.literal"
    },
    PageFile{.path = "/style.css", .type = "text/css; charset=utf-8", .text =
#include "page/style.css.literal"
    },
    PageFile{.path = "/bench.js", .type = "text/javascript; charset=utf-8", .text =
#include "page/bench.js.literal"
    },
    PageFile{.path = "/board.js", .type = "text/javascript; charset=utf-8", .text =
#include "page/board.js.literal"
    },
    PageFile{.path = "/connectors.js", .type = "text/javascript; charset=utf-8", .text =
#include "page/connectors.js.literal"
    },
    PageFile{.path = "/instruments.js", .type = "text/javascript; charset=utf-8", .text =
#include "page/instruments.js.literal"
    },
    PageFile{.path = "/menu.js", .type = "text/javascript; charset=utf-8", .text =
#include "page/menu.js.literal"
    },
    PageFile{.path = "/panel.js", .type = "text/javascript; charset=utf-8", .text =
#include "page/panel.js.literal"
    },
    PageFile{.path = "/picture.js", .type = "text/javascript; charset=utf-8", .text =
#include "page/picture.js.literal"
    },
    PageFile{.path = "/record.js", .type = "text/javascript; charset=utf-8", .text =
#include "page/record.js.literal"
    },
    PageFile{.path = "/settings.js", .type = "text/javascript; charset=utf-8", .text =
#include "page/settings.js.literal"
    },
};

std::span<const PageFile> PageFiles() { return kFiles; }
