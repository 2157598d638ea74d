// Tesselvisor, the control daemon of the appliance.

#include <unistd.h>

#include "core/log.h"
#include "core/startup.h"

int main(int argumentCount, char** arguments) {
    InitLog();
    _exit(RunTesselvisor(argumentCount, arguments));  // threads may be running: no destructor may run beneath them
}
