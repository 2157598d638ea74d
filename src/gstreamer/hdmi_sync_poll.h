// Watches the HDMI receiver's lock while a video pipeline runs. The supervision looks only once a pass, and a pass may
// take seconds: a short loss in between would leave the capture stuck without anybody knowing.
//
// Start and Stop belong to the video thread; the poll itself is a detached thread that writes HdmiSyncLost and nothing
// else.
#pragma once

#include <pthread.h>

struct HdmiSyncPoll {
    pthread_t thread;
    bool running;  // false: the thread could not be created, there is nothing to cancel
};

void StartHdmiSyncPoll(HdmiSyncPoll& poll);
void StopHdmiSyncPoll(HdmiSyncPoll& poll);  // does not wait for the thread's end, 100 ms away

void* pollHdmiRxThread(void*);  // every 100 ms until cancelled
