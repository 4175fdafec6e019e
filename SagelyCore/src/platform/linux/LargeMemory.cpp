#include "platform/LargeMemorySeam.h"

#include <sys/mman.h>

namespace sagely::detail {

// Transparent huge pages: one fault fills 2 MB instead of 4 KB. Without them the memory still
// works, at the small pages' cost.
char* mapLargeMemory(std::size_t bytes) {
    void* memory =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return nullptr;
    ::madvise(memory, bytes, MADV_HUGEPAGE);
    return static_cast<char*>(memory);
}

void unmapLargeMemory(char* memory, std::size_t bytes) {
    ::munmap(memory, bytes);
}

}  // namespace sagely::detail
