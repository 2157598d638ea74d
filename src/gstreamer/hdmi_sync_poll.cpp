#include "gstreamer/hdmi_sync_poll.h"

#include <unistd.h>

#include <cstdint>

#include "board/hdmi_receiver.h"
#include "board/i2c.h"
#include "core/log.h"
#include "settings/process_flags.h"

static constexpr uint8_t kLockRegister = 0x07;
static constexpr uint8_t kLockBits = 0xA0;
static constexpr useconds_t kPollPeriodUs = 100'000;

// A failed read says nothing about the input.
static bool SyncIsLost() {
    uint8_t lock = kLockBits;
    return I2cAccess8(kHdmiMap8, kLockRegister, 1, &lock, 1) == 0 && (lock & kLockBits) == 0;
}

// Cancelled only between two polls: a transfer that is cut off would leave its descriptor or a lock of the C library
// behind.
void* pollHdmiRxThread(void*) {
    pthread_setname_np(pthread_self(), "HDMI sync");  // it would be listed under the name of the video thread
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    SyncIsLost();
    for (;;) {
        if (SyncIsLost()) HdmiSyncLost = 1;
        usleep(kPollPeriodUs);
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
        pthread_testcancel();
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    }
}

void StartHdmiSyncPoll(HdmiSyncPoll& poll) {
    pthread_attr_t attributes;
    const sched_param priority = {.sched_priority = 99};
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setschedpolicy(&attributes, SCHED_FIFO);
    pthread_attr_setschedparam(&attributes, &priority);
    const int error = pthread_create(&poll.thread, &attributes, pollHdmiRxThread, nullptr);
    pthread_attr_destroy(&attributes);
    if (error) LogInfo("ERROR; return code from pthread_create() is %d\n", error);
    poll.running = error == 0;
}

void StopHdmiSyncPoll(HdmiSyncPoll& poll) {
    if (poll.running && pthread_cancel(poll.thread) != 0) LogInfo("pollHdmiRxThread cannot be cancelled.\n");
    poll.running = false;
}
