#include "support/TextViews.h"

#include <sagely/Text.h>

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <cstdint>
#include <cstring>

namespace sagely::detail {
namespace {

bool isWhiteSpace(UChar32 c) {
    return u_hasBinaryProperty(c, UCHAR_WHITE_SPACE);
}

bool isSpaceOrTab(UChar32 c) {
    return c == '\t' || u_charType(c) == U_SPACE_SEPARATOR;
}

// Malformed bytes stop the trimming, as in Text.cpp.
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
    return trimmedBy(s, isWhiteSpace);
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

std::size_t findBytes(std::string_view haystack, std::string_view needle) {
    const std::size_t m = needle.size();
    const std::size_t n = haystack.size();
    if (m < 2 || m > n) return haystack.find(needle);  // memchr is the fastest for one byte
    using Block = unsigned char __attribute__((vector_size(16)));
    const Block first = Block{} + static_cast<unsigned char>(needle.front());
    const Block last = Block{} + static_cast<unsigned char>(needle.back());
    const char* text = haystack.data();
    std::size_t i = 0;
    for (; i + (m - 1) + sizeof(Block) <= n; i += sizeof(Block)) {
        Block starts, ends;
        std::memcpy(&starts, text + i, sizeof(Block));
        std::memcpy(&ends, text + i + m - 1, sizeof(Block));
        auto candidates = (starts == first) & (ends == last);
        std::uint64_t halves[2];
        std::memcpy(halves, &candidates, sizeof(halves));
        if ((halves[0] | halves[1]) == 0) continue;
        for (std::size_t j = 0; j < sizeof(Block); ++j)
            if (candidates[j] && std::memcmp(text + i + j + 1, needle.data() + 1, m - 2) == 0)
                return i + j;
    }
    std::size_t rest = haystack.substr(i).find(needle);
    return rest == std::string_view::npos ? rest : i + rest;
}

// Both loops are branch-free, so the compiler vectorises them.
bool isAscii(std::string_view s) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(s.data());
    unsigned char seen = 0;
    for (std::size_t i = 0; i < s.size(); ++i) seen |= bytes[i];
    return (seen & 0x80) == 0;
}

void lowercaseAsciiInto(std::string_view s, std::string& out) {
    out.resize(s.size());
    const auto* in = reinterpret_cast<const unsigned char*>(s.data());
    auto* lowered = reinterpret_cast<unsigned char*>(out.data());
    for (std::size_t i = 0; i < s.size(); ++i) {
        unsigned char c = in[i];
        lowered[i] =
            static_cast<unsigned char>(c + (static_cast<unsigned char>(c - 'A') < 26 ? 32 : 0));
    }
}

}  // namespace sagely::detail
