#include "gstreamer/capture_pools.h"

#include <gst/base/gstbasesrc.h>

#include "gstreamer/video_pipeline.h"

CapturePools HoldCapturePools(const VideoPipeline& pipeline) {
    const auto poolOf = [](GstElement* source) {
        return GST_IS_BASE_SRC(source) ? gst_base_src_get_buffer_pool(GST_BASE_SRC(source)) : nullptr;
    };
    return {poolOf(pipeline.src1), poolOf(pipeline.src2)};
}

// With the pipeline gone, a reference beside ours is the forgotten one. More than one would mean that somebody else
// still uses the pool: then nothing is given back.
void ReleaseCapturePools(CapturePools& pools) {
    for (GstBufferPool*& pool : pools) {
        if (pool && GST_OBJECT_REFCOUNT_VALUE(pool) == 2) gst_object_unref(pool);
        g_clear_object(&pool);
    }
}
