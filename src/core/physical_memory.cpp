#include "core/physical_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>

#include "core/log.h"

static constexpr uint32_t kPage = 4096;

int PokePhysical(uint32_t address, uint32_t value) {
    const int memory = open("/dev/mem", O_RDWR | O_SYNC | O_CLOEXEC);
    if (memory < 0) {
        LogInfo("Open /dev/mem error, maybe check permission.\n");
        return 1;
    }
    // An aligned word never crosses a page, so one page is enough.
    const uint32_t page = address & ~(kPage - 1);
    void* mapping = mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_SHARED, memory, static_cast<off_t>(page));
    if (mapping == MAP_FAILED) {
        close(memory);
        return 1;
    }
    const size_t word = (address - page) / sizeof value;
    static_cast<volatile uint32_t*>(mapping)[word] = value;
    munmap(mapping, kPage);
    close(memory);
    return 0;
}
