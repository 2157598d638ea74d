// A repair for GStreamer's v4l2src. Releases 1.22 and 1.24 forget one reference to the buffer pool of every stream. The
// pool holds the element, its open device and its mapped buffers: each life of a pipeline would leave five descriptors
// and some megabytes behind, and a hundred replugs would end the process. A release without the fault is left alone.
#pragma once

#include <gst/gst.h>

#include <array>

struct VideoPipeline;

using CapturePools = std::array<GstBufferPool*, 2>;

CapturePools HoldCapturePools(const VideoPipeline& pipeline);  // before the pipeline is stopped
void ReleaseCapturePools(CapturePools& pools);                 // after its last reference is gone
