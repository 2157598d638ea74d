// Pipelines as tables: their elements, and the properties that are the same in every life. A row names the field of the
// pipeline's record that refers to the element; the pipeline owns it.
#pragma once

#include <gst/gst.h>

template <typename Pipeline>
struct ElementRow {
    GstElement* Pipeline::*field;
    const char* factory;
    const char* name;
    const char* assertion = nullptr;  // what the process calls it when it cannot be made; nullptr: "pipeline.NAME"
};

template <typename Pipeline>
struct PropertyRow {
    GstElement* Pipeline::*field;
    const char* property;
    const char* value;
};

// A floating element. Without its plug-in the installation is broken: the process ends by an assertion in the name of
// `function`.
GstElement* MakeElement(const char* factory, const char* name, const char* function, const char* assertion = nullptr);

// Text of any type's value, as gst-launch takes it.
void SetProperty(GstElement* element, const char* property, const char* value);

template <typename Pipeline, size_t N>
void SetProperties(const Pipeline& pipeline, const PropertyRow<Pipeline> (&rows)[N]) {
    for (const PropertyRow<Pipeline>& row : rows) SetProperty(pipeline.*row.field, row.property, row.value);
}
