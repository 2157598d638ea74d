// The board's files that are just text: attributes of the processor and the SoC in sysfs, the files of a fresh flash,
// and what the stand-in tools print. And one tree that is more than text: bind and unbind of the USB host controllers.
// Supervisor's thread only; nothing blocks.
#pragma once

void PowerOnSystemFiles();
