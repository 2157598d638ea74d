// Pan, tilt and zoom of the USB cameras.
//
// A camera with a position control is moved by steps: a worker thread adds one every 150 ms until a command stores the
// step 0, or the camera reaches its end stop, fails or is unplugged. One with a speed control only moves by itself
// until it is given speed 0. Zoom values 100 to 500 are positions, set at once.
//
// Commands run on the thread of their channel and do not wait for a move. All workers follow the newest command,
// whatever started them: what is moving changes its axis with it, a step 0 ends it.
#pragma once

#include <cstdint>
#include <span>

#include "video/camera_quirks.h"

extern const CameraList SpeedPanModels;  // panned and tilted by speed, also where they offer positions

enum PtzAxis : uint8_t { kPan, kTilt, kZoom };

// {value}: moves the camera that SelectPtzCamera finds; {camera, value}: camera 1 or 2. 0, or 1: wrong numbers, no such
// camera, or one that cannot do it.
int MoveCamera(PtzAxis axis, std::span<const int32_t> numbers);

// ---- Decisions, on plain data

struct PtzSelection {
    uint8_t deviceId, view, swap, input;  // what is shown
    uint8_t lastCamera;                   // addressed last, 1 or 2
    bool present[2];
};

struct PtzChoice {
    int camera;  // 1 or 2; 0: none
    bool shown;  // chosen by what is shown, present or not; otherwise kept from before
};

PtzChoice ChoosePtzCamera(const PtzSelection& selection);

struct ControlRange {
    int32_t minimum, maximum, step;
};

// Zoom 100 is the minimum, 500 the maximum.
bool IsZoomPosition(uint32_t control, int32_t value);
int32_t ZoomPosition(const ControlRange& range, int32_t value);

// One step from the current position, within the range. A unit of the value is one step of a control that has at most
// 100 of them, and a hundredth of the range of a finer one.
int32_t StepPosition(const ControlRange& range, int32_t current, int32_t value);

// ---- The camera's controls; requests to the driver, which block as long as USB takes

struct CameraControl {
    ControlRange range;
    int32_t value;
};

// 0, or -1 when the camera does not have the control or does not answer.
int GetCameraControl(int device, uint32_t id, CameraControl& control);

// One step of a position, a zoom position, or a speed as it is. 0, or -1: refused, or a step that leads where the
// previous one led (the end stop).
int SetCameraControl(int device, uint32_t id, int32_t value);
