// Paints a scene with the help of other threads. The caller paints too and never waits for a helper that has not begun,
// so that on a busy machine helpers cost nothing.
#pragma once

#include "gst/compose.h"

struct Painters;

// Threads for the other processors, at most three.
Painters* StartPainters();
void StopPainters(Painters* painters);

// Returns when the canvas is complete. One caller at a time.
void PaintScene(Painters& painters, Scene scene, const Canvas& canvas);
