#include <cstdlib>
#include <new>

#include "vm/cpu.h"

#if __has_include(<sys/mman.h>)
#include <sys/mman.h>
#define TVM_RAM_MMAP 1
#endif

// Mapped on its own where the system can: fresh pages are zero without being
// written, and no allocator heuristic turns a new machine into a 1 MiB clear.
uint8_t* new_guest_ram() {
#ifdef TVM_RAM_MMAP
    void* p = mmap(nullptr, kRamSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
#else
    void* p = std::calloc(kRamSize, 1);
    if (!p) throw std::bad_alloc();
#endif
    return static_cast<uint8_t*>(p);
}

void GuestRamFree::operator()(uint8_t* p) const {
    if (!p) return;
#ifdef TVM_RAM_MMAP
    munmap(p, kRamSize);
#else
    std::free(p);
#endif
}
