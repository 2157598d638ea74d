// The bench page: its files, the board's picture, what happens on the board as server-sent events, and one endpoint
// that carries out verbs, over HTTP on a loopback port. A process of its own, with one thread and the emulator's event
// loop: whatever the page does, the board's own process only answers verbs, as it does for `ctl`.
//
//   GET  /            and the page's other files
//   GET  /profiles    {"camera": [{"name", "description"}], "sound": [...], "monitor": [...]}
//   GET  /picture?width=W&after=N   JPEG of the next frame that is not frame N, at most 30 a second; 204 after a second
//                     without one. Headers X-Frame: its number, X-Display: WxH
//   GET  /events      events `bench` (the parts of the verb of that name that changed), `trace`, `journal`, `console`
//   POST /verb        ["camera", "1", "unplug"] -> {"good": true, "text": "..."}
//
// Only pages that came from here are served: a request must name this loopback address as its host, and what the
// browser says of its origin must agree. Another site can neither read the bench (not even by rebinding a name) nor
// touch it.
#pragma once

#include <string_view>

// Serves on this listening socket until the board in Board.folder is gone. An exit status.
int ServePage(int listening);

// Whether a request with these headers comes from the page served at this port. Pure; an empty text: no such header.
bool IsOwnRequest(std::string_view host, std::string_view origin, std::string_view fetchSite, int port);
