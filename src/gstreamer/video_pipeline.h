// Builds and destroys the video pipeline: three sources, their decoders, the compositor, the display sink. One pipeline
// is one life of ManageDynamicGStreamer (video_supervision.h). Video thread only.
//
// An input that is missing is a test pattern, so the compositor always has its three pads, linked in this order: USB
// input 1, USB input 2, HDMI. Both calls block while drivers open and close; building also runs shell tools for cameras
// on the still-image path.
#pragma once

#include <gst/gst.h>

#include <cstdint>
#include <string>

#include "gstreamer/hdmi_sync_poll.h"
#include "gstreamer/pipeline_choices.h"
#include "video/video_devices.h"

struct VideoPipeline {  // all elements belong to `pipeline`; bus and pads are references of ours
    GstElement *pipeline, *src1, *src2, *src3, *mix, *video_sink, *overlay_sink;
    GstElement *parse1, *parse2, *decode1, *decode2, *queue1, *queue2;
    GstElement *capsfilter1, *capsfilter2, *capsfilter3;
    GstElement *capsfilterMultifilesrc1, *capsfilterMultifilesrc2;
    GstElement *multifilesrc1, *multifilesrc2, *multifilesink1, *multifilesink2;  // null off the still-image path
    GstElement *valve, *videocrop;
    GstBus* bus;
    GstPad* pads[3];         // compositor pads: USB 1, USB 2, HDMI
    uint8_t checkFrames;     // a change waits for frames
    uint32_t framesAtCheck;  // frames rendered when it began
    bool hdmiIsTestPattern;
    HdmiCapture hdmiCapture;  // requested of the HDMI source
    HdmiSyncPoll hdmiPoll;
};

// Makes and links the elements; when `started`, plays them. An element that cannot be made ends the process with a
// message that names its field; a failed link is logged and leaves that input without picture.
void BuildVideoPipeline(VideoPipeline& pipeline, bool started);

// Stops and releases everything that the build took. Waits at most 5 s for the last state change.
void DestroyVideoPipeline(VideoPipeline& pipeline);

// Decoder of one USB input; number is 1 or 2. Never null.
GstElement* instanciateJpegDecoder(bool started, const CameraInput& camera, const char* name, int number);

// Requests another format of the HDMI source of a pipeline.
void CropHdmiInput(VideoPipeline& pipeline, const HdmiCapture& capture);
