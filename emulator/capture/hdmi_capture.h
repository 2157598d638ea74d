// The camera interface behind the HDMI receiver: the board's first capture node, driver "mxc_v4l2". It delivers what
// the receiver is locked to, as YUYV, in any size it is set to: cropped or padded with black, from the top left. Of an
// interlaced source it delivers fields, one to a frame, in the upper half of a frame of doubled height. Without a
// signal no frame comes. Supervisor's thread; nothing blocks.
#pragma once

// Makes the node; frees the numbers of an earlier power cycle, so it comes before PowerOnCameras. After PowerOnUdev.
void PowerOnHdmiCapture();
