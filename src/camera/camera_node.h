// One USB camera's device node, opened for a command and closed with it. Any thread; opening does not block.
#pragma once

// The camera as it was found last; another one may be plugged at any moment, and the driver then refuses the requests.
struct CameraNode {
    char card[32] = {};  // the driver's name for the camera; empty: absent
    int device = -1;     // -1: absent or not to be opened

    explicit CameraNode(int camera);  // 1 or 2; any other number opens nothing
    ~CameraNode();
    CameraNode(const CameraNode&) = delete;
    CameraNode& operator=(const CameraNode&) = delete;
};
