#include "platform/LargeMemorySeam.h"

#include <sys/mman.h>

namespace sagely::detail {

// The system picks the page size of anonymous memory itself.
char* mapLargeMemory(std::size_t bytes) {
    void* memory =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : static_cast<char*>(memory);
}

void unmapLargeMemory(char* memory, std::size_t bytes) {
    ::munmap(memory, bytes);
}

}  // namespace sagely::detail
