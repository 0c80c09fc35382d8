#include "vm/machine.h"

#include <cstdlib>
#include <new>

#if __has_include(<sys/mman.h>)
#include <sys/mman.h>
#define TVM_MACHINE_MMAP 1
#endif

Machine::Machine() = default;

// Mapped on its own where the system can: fresh pages read as zero without
// being written, and no allocator heuristic turns a new machine into a
// clearing of its 1.2 MB.
void* Machine::operator new(std::size_t size) {
#ifdef TVM_MACHINE_MMAP
    void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
#else
    void* p = std::calloc(size, 1);
    if (!p) throw std::bad_alloc();
#endif
    return p;
}

void Machine::operator delete(void* p, std::size_t size) {
#ifdef TVM_MACHINE_MMAP
    if (p) munmap(p, size);
#else
    (void)size;
    std::free(p);
#endif
}
