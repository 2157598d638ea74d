// Faults of elements that have no hardware behind them: messages that an element did not post, streams that end or
// stop. A tracer, which GStreamer makes in every program that is started with GST_TRACERS=tesselfaults; it reads lines
// from a named pipe of the board, in a thread of its own. "NAME WHAT NUMBER": in every pipeline that has an element of
// that name, it posts an error or a warning with that code, has its stream end, or holds what flows through it until
// "off".
#pragma once

inline constexpr const char* kElementFaults = "/opt/board/state/element-faults";  // in the board

// NOLINTNEXTLINE(bugprone-reserved-identifier)
typedef struct _GstPlugin GstPlugin;
int RegisterElementFaults(GstPlugin* plugin);  // gboolean
