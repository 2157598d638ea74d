#include "gst/display_pool.h"

#include "devices/display.h"
#include "gst/display_slots.h"

G_DECLARE_FINAL_TYPE(TesselDisplayPool, tessel_display_pool, TESSEL, DISPLAY_POOL, GstBufferPool)

struct _TesselDisplayPool {
    GstBufferPool parent;
    gsize bytes;  // of a frame
};

G_DEFINE_FINAL_TYPE(TesselDisplayPool, tessel_display_pool, GST_TYPE_BUFFER_POOL)

static gboolean SetConfig(GstBufferPool* pool, GstStructure* config) {
    guint bytes;
    if (!gst_buffer_pool_config_get_params(config, nullptr, &bytes, nullptr, nullptr)) return FALSE;
    TESSEL_DISPLAY_POOL(pool)->bytes = bytes;
    return GST_BUFFER_POOL_CLASS(tessel_display_pool_parent_class)->set_config(pool, config);
}

static void ReleaseMemory(gpointer pixels) { ReleaseSlot(*SlotOf(pixels)); }

static GstFlowReturn AllocBuffer(GstBufferPool* pool, GstBuffer** buffer, GstBufferPoolAcquireParams*) {
    const gsize bytes = TESSEL_DISPLAY_POOL(pool)->bytes;
    const std::optional<uint32_t> slot = bytes <= kDisplaySlotBytes ? ClaimSlot() : std::nullopt;
    if (slot) {
        uint8_t* const pixels = SlotPixels(*slot);
        *buffer =
            gst_buffer_new_wrapped_full(static_cast<GstMemoryFlags>(0), pixels, bytes, 0, bytes, pixels, ReleaseMemory);
    } else {
        *buffer = gst_buffer_new_allocate(nullptr, bytes, nullptr);
    }
    return *buffer ? GST_FLOW_OK : GST_FLOW_ERROR;
}

static GstFlowReturn AcquireBuffer(GstBufferPool* pool, GstBuffer** buffer, GstBufferPoolAcquireParams* parameters) {
    const GstFlowReturn flow =
        GST_BUFFER_POOL_CLASS(tessel_display_pool_parent_class)->acquire_buffer(pool, buffer, parameters);
    GstMapInfo map;
    if (flow != GST_FLOW_OK || !gst_buffer_map(*buffer, &map, GST_MAP_READ)) return flow;
    if (const std::optional<uint32_t> slot = SlotOf(map.data)) BeginSlot(*slot);
    gst_buffer_unmap(*buffer, &map);
    return flow;
}

static void tessel_display_pool_init(TesselDisplayPool*) {}

static void tessel_display_pool_class_init(TesselDisplayPoolClass* type) {
    GstBufferPoolClass* const pool = GST_BUFFER_POOL_CLASS(type);
    pool->set_config = SetConfig;
    pool->alloc_buffer = AllocBuffer;
    pool->acquire_buffer = AcquireBuffer;
}

GstBufferPool* NewDisplayPool(GstCaps* caps, guint bytes) {
    auto* const pool = static_cast<GstBufferPool*>(g_object_new(tessel_display_pool_get_type(), nullptr));
    gst_object_ref_sink(pool);
    GstStructure* const config = gst_buffer_pool_get_config(pool);
    gst_buffer_pool_config_set_params(config, caps, bytes, 2, 0);
    gst_buffer_pool_set_config(pool, config);
    return pool;
}
