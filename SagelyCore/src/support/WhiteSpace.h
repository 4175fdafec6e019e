// WhiteSpace — the Unicode White_Space property ("\s" to ICU's regular expressions) without a
// property lookup, for the scans that read long runs of blanks a character at a time.
//
// The set has not changed since Unicode 6.3 (tests compare it with ICU's on every code point):
// U+0009–000D, U+0020, U+0085, U+00A0, U+1680, U+2000–200A, U+2028, U+2029, U+202F, U+205F and
// U+3000. Pure functions, thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace sagely::detail {

/// Whether the code point is White_Space (a negative value, a malformed sequence, is not).
constexpr bool isWhiteSpace(int32_t c) {
    if (c < 0x80) return c == ' ' || (c >= '\t' && c <= '\r');
    if (c < 0x2000) return c == 0x85 || c == 0xA0 || c == 0x1680;
    return c <= 0x200A || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

/// The length in bytes of the White_Space character that starts at `i` in UTF-8 text, 0 when
/// none does. Read from the bytes without decoding, so malformed bytes cost nothing more.
constexpr std::size_t whiteSpaceLengthAt(std::string_view s, std::size_t i) {
    auto byte = [&](std::size_t k) { return static_cast<uint8_t>(s[i + k]); };
    const uint8_t lead = byte(0);
    if (lead < 0x80) return lead == ' ' || (lead >= '\t' && lead <= '\r') ? 1 : 0;
    const std::size_t left = s.size() - i;
    if (lead == 0xC2) return left >= 2 && (byte(1) == 0x85 || byte(1) == 0xA0) ? 2 : 0;
    if (left < 3 || lead < 0xE1 || lead > 0xE3) return 0;
    const uint8_t second = byte(1);
    const uint8_t third = byte(2);
    switch (lead) {
        case 0xE1:  // U+1680
            return second == 0x9A && third == 0x80 ? 3 : 0;
        case 0xE2:  // U+2000–200A, U+2028, U+2029, U+202F; U+205F
            if (second == 0x80)
                return (third >= 0x80 && third <= 0x8A) || third == 0xA8 || third == 0xA9 ||
                               third == 0xAF
                           ? 3
                           : 0;
            return second == 0x81 && third == 0x9F ? 3 : 0;
        default:  // U+3000
            return second == 0x80 && third == 0x80 ? 3 : 0;
    }
}

/// The length in bytes of the White_Space character that ends at `end`, 0 when none does: what
/// stepping back one code point (U8_PREV) and testing it gives.
constexpr std::size_t whiteSpaceLengthBefore(std::string_view s, std::size_t end) {
    for (std::size_t length = 1; length <= 3 && length <= end; ++length)
        if (whiteSpaceLengthAt(s.substr(0, end), end - length) == length) return length;
    return 0;
}

}  // namespace sagely::detail
