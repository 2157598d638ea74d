// Tesselvisor, the control daemon of the appliance.

#include <malloc.h>
#include <unistd.h>

#include "core/log.h"
#include "core/startup.h"

// Every life of a pipeline brings new threads. With a heap for each, the memory of past lives' frames stays in heaps
// that nobody uses: two hundred megabytes more after twenty-five lives.
static constexpr int kHeaps = 2;

int main(int argumentCount, char** arguments) {
    mallopt(M_ARENA_MAX, kHeaps);
    InitLog();
    _exit(RunTesselvisor(argumentCount, arguments));  // threads may be running: no destructor may run beneath them
}
