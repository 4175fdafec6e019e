#include "format/Utf16.h"

#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>

namespace sagely::detail {
namespace {

// ASCII is copied a block at a time: the test of a block has no branch per unit, so it
// vectorises, and prose costs a copy.
constexpr std::size_t kBlock = 16;

template <typename Unit>
bool isAsciiBlock(const Unit* units) {
    Unit any = 0;
    for (std::size_t j = 0; j < kBlock; ++j) any |= units[j];
    return any < 0x80;
}

// Units counted at a time, in 16 bits (at most three bytes each), so that the count vectorises.
constexpr std::size_t kSizeBlock = 256;

// Writes the code point at text[i] (a surrogate pair, or a lone surrogate as U+FFFD) and moves
// past it.
void writeSurrogate(const char16_t* text, std::size_t& i, std::size_t length, uint8_t*& to) {
    UChar32 c = text[i++];
    if (U16_IS_SURROGATE_LEAD(c) && i < length && U16_IS_TRAIL(text[i]))
        c = U16_GET_SUPPLEMENTARY(c, text[i++]);
    else
        c = 0xFFFD;
    int32_t written = 0;
    U8_APPEND_UNSAFE(to, written, c);
    to += written;
}

}  // namespace

void assignUtf16(std::u16string& out, std::string_view utf8) {
    out.resize(utf8.size());  // never more UTF-16 units than UTF-8 bytes
    const auto* bytes = reinterpret_cast<const uint8_t*>(utf8.data());
    const std::size_t length = utf8.size();
    char16_t* to = out.data();
    std::size_t i = 0;
    while (i < length) {
        if (length - i >= kBlock && isAsciiBlock(bytes + i)) {
            for (std::size_t j = 0; j < kBlock; ++j) to[j] = bytes[i + j];
            to += kBlock;
            i += kBlock;
            continue;
        }
        for (const std::size_t blockEnd = std::min(i + kBlock, length); i < blockEnd;) {
            UChar32 c = 0;
            U8_NEXT_OR_FFFD(bytes, i, length, c);
            if (c <= 0xFFFF) {
                *to++ = static_cast<char16_t>(c);
            } else {
                *to++ = static_cast<char16_t>(U16_LEAD(c));
                *to++ = static_cast<char16_t>(U16_TRAIL(c));
            }
        }
    }
    out.resize(static_cast<std::size_t>(to - out.data()));
}

std::string utf8Of(std::u16string_view utf16) {
    const char16_t* text = utf16.data();
    const std::size_t length = utf16.size();
    // A surrogate pair makes 4 bytes, not the 6 its units count alone.
    std::size_t size = 0;
    bool surrogates = false;
    for (std::size_t base = 0; base < length; base += kSizeBlock) {
        const std::size_t end = std::min(base + kSizeBlock, length);
        // Bit tests rather than comparisons, which the compiler makes into branches here.
        uint16_t bytes = 0;
        uint16_t surrogate = 0;
        for (std::size_t i = base; i < end; ++i) {
            const char16_t c = text[i];
            bytes += 1 + ((c & 0xFF80) != 0) + ((c & 0xF800) != 0);
            surrogate |= (c & 0xF800) == 0xD800;
        }
        size += bytes;
        surrogates |= surrogate != 0;
    }
    // A trail surrogate never leads a pair, so pairs never overlap and each lead followed by a
    // trail is one.
    if (surrogates)
        for (std::size_t base = 0; base + 1 < length; base += kSizeBlock) {
            const std::size_t end = std::min(base + kSizeBlock, length - 1);
            uint16_t pairs = 0;
            for (std::size_t i = base; i < end; ++i)
                pairs += ((text[i] & 0xFC00) == 0xD800) & ((text[i + 1] & 0xFC00) == 0xDC00);
            size -= 2 * std::size_t{pairs};
        }
    std::string out(size, '\0');
    auto* to = reinterpret_cast<uint8_t*>(out.data());
    std::size_t i = 0;
    while (i < length) {
        if (length - i >= kBlock && isAsciiBlock(text + i)) {
            for (std::size_t j = 0; j < kBlock; ++j) to[j] = static_cast<uint8_t>(text[i + j]);
            to += kBlock;
            i += kBlock;
            continue;
        }
        for (const std::size_t blockEnd = std::min(i + kBlock, length); i < blockEnd;) {
            const uint32_t c = text[i];
            if (c < 0x80) {
                *to++ = static_cast<uint8_t>(c);
            } else if (c < 0x800) {
                to[0] = static_cast<uint8_t>(0xC0 | (c >> 6));
                to[1] = static_cast<uint8_t>(0x80 | (c & 0x3F));
                to += 2;
            } else if (!surrogates || !U16_IS_SURROGATE(c)) {
                to[0] = static_cast<uint8_t>(0xE0 | (c >> 12));
                to[1] = static_cast<uint8_t>(0x80 | ((c >> 6) & 0x3F));
                to[2] = static_cast<uint8_t>(0x80 | (c & 0x3F));
                to += 3;
            } else {
                writeSurrogate(text, i, length, to);
                continue;
            }
            ++i;
        }
    }
    return out;
}

}  // namespace sagely::detail
