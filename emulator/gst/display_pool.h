// A buffer pool over the display memory, so that the picture is composed where it is shown. While no slot is free for
// a buffer, it is ordinary memory and the sink copies it.
#pragma once

#include <gst/gst.h>

// For frames of the size in the caps. A slot's frame counts as unfinished from the moment a buffer of it is acquired.
GstBufferPool* NewDisplayPool(GstCaps* caps, guint bytes);
