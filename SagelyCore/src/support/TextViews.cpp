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

}  // namespace sagely::detail
