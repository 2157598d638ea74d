#include "camera/camera_node.h"

#include <fcntl.h>
#include <unistd.h>

#include "settings/shared_field.h"
#include "video/video_devices.h"

CameraNode::CameraNode(int camera) {
    if (camera != 1 && camera != 2) return;
    const CameraInput& input = CameraInputs[camera - 1];
    char path[sizeof input.devicePath];
    CopySharedBytes(card, input.card, sizeof card);
    CopySharedBytes(path, input.devicePath, sizeof path);
    device = open(path, O_RDWR | O_CLOEXEC);
}

CameraNode::~CameraNode() {
    if (device >= 0) close(device);
}
