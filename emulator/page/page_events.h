// Server-sent events: one stream for each page that is looked at. While none is open, nothing is asked of the board.
#pragma once

struct MHD_Connection;
struct MHD_Response;

// A stream that lives until its client leaves, as a response for this connection.
MHD_Response* OpenEvents(MHD_Connection* connection);
