// A text that grows piece by piece up to a known bound: a streamed reply, at most the reply
// size limit.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace sagely::detail {

/// Appends `piece` to `text`. The first growth past a megabyte reserves room up to `ceiling` at
/// once: until written, that room is address space rather than memory, and a long text is then
/// never copied to grow (doubling would hold it twice while copying, at tens of megabytes).
inline void appendGrowingTo(std::string& text, std::string_view piece, std::size_t ceiling) {
    constexpr std::size_t kSmall = std::size_t{1} << 20;
    const std::size_t needed = text.size() + piece.size();
    if (needed > text.capacity() && needed > kSmall && needed <= ceiling) text.reserve(ceiling);
    text.append(piece);
}

}  // namespace sagely::detail
