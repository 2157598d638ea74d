// What `lsusb -v` prints of a camera, behind the line that names it: the descriptors of a video class device with the
// formats, sizes and rates, extension units and microphone of its profile. Pure.
#pragma once

#include <string>

#include "capture/camera_profiles.h"

std::string DescribeUsbCamera(const CameraProfile& profile);
