// The per-OS half of FileBytes (support/AtomicFile.h): memory for a whole file, straight from the
// system. Filling tens of megabytes of fresh memory one small page at a time costs more than
// reading the file into it; where the system has large pages, this memory asks for them. Each
// platform folder defines these functions once.
#pragma once

#include <cstddef>

namespace sagely::detail {

/// `bytes` (more than zero) of writable memory, or null when the system gives none.
char* mapLargeMemory(std::size_t bytes);
/// Gives back what mapLargeMemory gave, with the same size.
void unmapLargeMemory(char* memory, std::size_t bytes);

}  // namespace sagely::detail
