#include "gstreamer/elements.h"

#include <string>

GstElement* MakeElement(const char* factory, const char* name, const char* function, const char* assertion) {
    GstElement* element = gst_element_factory_make(factory, name);
    const std::string field = assertion ? assertion : std::string("pipeline.") + name;
    if (!element) g_assertion_message_expr(nullptr, "gstreamer", __LINE__, function, field.c_str());
    return element;
}

void SetProperty(GstElement* element, const char* property, const char* value) {
    gst_util_set_object_arg(G_OBJECT(element), property, value);
}
