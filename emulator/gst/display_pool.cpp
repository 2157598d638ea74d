#include "gst/display_pool.h"

#include <optional>

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

// A slot's memory for a frame, or none.
static GstMemory* TakeSlot(gsize bytes) {
    const std::optional<uint32_t> slot = bytes <= kDisplaySlotBytes ? ClaimSlot() : std::nullopt;
    if (!slot) return nullptr;
    uint8_t* const pixels = SlotPixels(*slot);
    return gst_memory_new_wrapped(static_cast<GstMemoryFlags>(0), pixels, bytes, 0, bytes, pixels, ReleaseMemory);
}

static GstFlowReturn AllocBuffer(GstBufferPool* pool, GstBuffer** buffer, GstBufferPoolAcquireParams*) {
    const gsize bytes = TESSEL_DISPLAY_POOL(pool)->bytes;
    GstMemory* const slot = TakeSlot(bytes);
    *buffer = slot ? gst_buffer_new() : gst_buffer_new_allocate(nullptr, bytes, nullptr);
    if (slot) gst_buffer_append_memory(*buffer, slot);
    return *buffer ? GST_FLOW_OK : GST_FLOW_ERROR;
}

static std::optional<uint32_t> SlotIn(GstBuffer* buffer) {
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) return std::nullopt;
    const std::optional<uint32_t> slot = SlotOf(map.data);
    gst_buffer_unmap(buffer, &map);
    return slot;
}

// A pool that began while another still held the slots would copy frames for good: it takes over slots as they become
// free.
static GstFlowReturn AcquireBuffer(GstBufferPool* pool, GstBuffer** buffer, GstBufferPoolAcquireParams* parameters) {
    const GstFlowReturn flow =
        GST_BUFFER_POOL_CLASS(tessel_display_pool_parent_class)->acquire_buffer(pool, buffer, parameters);
    if (flow != GST_FLOW_OK) return flow;
    if (!SlotIn(*buffer)) {
        if (GstMemory* const slot = TakeSlot(TESSEL_DISPLAY_POOL(pool)->bytes)) {
            gst_buffer_replace_all_memory(*buffer, slot);
            GST_BUFFER_FLAG_UNSET(*buffer, GST_BUFFER_FLAG_TAG_MEMORY);  // or the pool would not take it back
        }
    }
    if (const std::optional<uint32_t> slot = SlotIn(*buffer)) BeginSlot(*slot);
    return GST_FLOW_OK;
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
