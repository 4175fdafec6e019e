#include "support/TextViews.h"

#include <sagely/Text.h>

#include "support/WhiteSpace.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace sagely::detail {
namespace {

bool isSpaceOrTab(UChar32 c) {
    return c == '\t' || u_charType(c) == U_SPACE_SEPARATOR;
}

// Runs of blanks are read a block of bytes at a time where the block is all ASCII blanks: the
// test has no branch per byte, so it vectorises. Other blocks are read a character at a time.
constexpr std::size_t kBlankBlock = 32;

bool isAsciiBlankBlock(const char* at) {
    unsigned all = 1;
    for (std::size_t j = 0; j < kBlankBlock; ++j) {
        auto byte = static_cast<unsigned char>(at[j]);
        all &= (byte == ' ') | (static_cast<unsigned char>(byte - '\t') < 5);
    }
    return all != 0;
}

// Malformed bytes stop the trimming: they are not blanks, and nothing after them is looked at.
template <typename Predicate>
std::string_view trimmedBy(std::string_view s, Predicate shouldTrim) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(s.data());
    int32_t start = 0;
    int32_t end = static_cast<int32_t>(s.size());
    while (start < end) {
        int32_t next = start;
        UChar32 c = 0;
        U8_NEXT(bytes, next, end, c);
        if (c < 0 || !shouldTrim(c)) break;
        start = next;
    }
    while (end > start) {
        int32_t previous = end;
        UChar32 c = 0;
        U8_PREV(bytes, start, previous, c);
        if (c < 0 || !shouldTrim(c)) break;
        end = previous;
    }
    return s.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start));
}

// The longest prefix of at most `limit` bytes that does not cut a UTF-8 sequence.
std::string_view prefixAtCodePoint(std::string_view s, std::size_t limit) {
    if (limit >= s.size()) return s;
    while (limit > 0 && (static_cast<unsigned char>(s[limit]) & 0xC0) == 0x80) --limit;
    return s.substr(0, limit);
}

// Grapheme boundaries inside a prefix cut between code points are boundaries of the whole
// text too, so a prefix that holds more than `count` characters answers for the whole text.
// The window grows until it does, or until it is the whole text.
template <typename Answer>
auto answeredByPrefix(std::string_view s, std::size_t count, Answer answer) {
    for (std::size_t window = count + 1;; window *= 2) {
        std::string_view prefix = prefixAtCodePoint(s, window);
        if (prefix.size() == s.size() || text::hasMoreCharactersThan(prefix, count))
            return answer(prefix);
    }
}

}  // namespace

std::string_view trimmedView(std::string_view s) {
    const std::size_t begin = blanksFrom(s, 0);
    const std::string_view rest = s.substr(begin);
    return rest.substr(0, blanksBefore(rest, rest.size()));
}

std::size_t blanksFrom(std::string_view s, std::size_t i) {
    while (i < s.size()) {
        if (i + kBlankBlock <= s.size() && isAsciiBlankBlock(s.data() + i)) {
            i += kBlankBlock;
            continue;
        }
        for (const std::size_t blockEnd = std::min(i + kBlankBlock, s.size()); i < blockEnd;) {
            const std::size_t length = whiteSpaceLengthAt(s, i);
            if (length == 0) return i;
            i += length;
        }
    }
    return i;
}

std::size_t blanksBefore(std::string_view s, std::size_t end) {
    while (end > 0) {
        if (end >= kBlankBlock && isAsciiBlankBlock(s.data() + end - kBlankBlock)) {
            end -= kBlankBlock;
            continue;
        }
        for (const std::size_t blockStart = end > kBlankBlock ? end - kBlankBlock : 0;
             end > blockStart;) {
            const std::size_t length = whiteSpaceLengthBefore(s, end);
            if (length == 0) return end;
            end -= length;
        }
    }
    return end;
}

std::string_view trimmedSpacesAndTabsView(std::string_view s) {
    return trimmedBy(s, isSpaceOrTab);
}

bool hasMoreCharacters(std::string_view s, std::size_t count) {
    if (s.size() <= count) return false;  // every character takes at least one byte
    return answeredByPrefix(s, count, [&](std::string_view prefix) {
        return text::hasMoreCharactersThan(prefix, count);
    });
}

std::string leadingCharacters(std::string_view s, std::size_t count) {
    if (count == 0) return {};
    return answeredByPrefix(
        s, count, [&](std::string_view prefix) { return text::prefixCharacters(prefix, count); });
}

}  // namespace sagely::detail
