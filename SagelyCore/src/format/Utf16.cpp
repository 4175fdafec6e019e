#include "format/Utf16.h"

#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>

namespace sagely::detail {
namespace {

// ASCII is copied a block at a time: the test of a block has no branch per byte, so it
// vectorises, and prose costs a copy.
constexpr std::size_t kBlock = 16;

}  // namespace

void assignUtf16(std::u16string& out, std::string_view utf8) {
    out.resize(utf8.size());  // never more UTF-16 units than UTF-8 bytes
    const auto* bytes = reinterpret_cast<const uint8_t*>(utf8.data());
    const auto length = static_cast<int32_t>(utf8.size());
    char16_t* to = out.data();
    int32_t i = 0;
    while (i < length) {
        if (i + static_cast<int32_t>(kBlock) <= length) {
            uint8_t any = 0;
            for (std::size_t j = 0; j < kBlock; ++j) any |= bytes[i + static_cast<int32_t>(j)];
            if (any < 0x80) {
                for (std::size_t j = 0; j < kBlock; ++j) to[j] = bytes[i + static_cast<int32_t>(j)];
                to += kBlock;
                i += static_cast<int32_t>(kBlock);
                continue;
            }
        }
        for (const int32_t blockEnd = std::min(i + static_cast<int32_t>(kBlock), length);
             i < blockEnd;) {
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
    // Every unit counts its bytes as if it stood alone (a lone surrogate as U+FFFD, 3 bytes);
    // a surrogate pair makes 4 bytes, not 6.
    std::size_t size = 0;
    bool surrogates = false;
    for (char16_t c : utf16) {
        size += 1 + (c >= 0x80) + (c >= 0x800);
        surrogates |= U16_IS_SURROGATE(c);
    }
    if (surrogates)
        for (std::size_t i = 0; i + 1 < utf16.size(); ++i)
            if (U16_IS_LEAD(utf16[i]) && U16_IS_TRAIL(utf16[i + 1])) {
                size -= 2;
                ++i;
            }
    std::string out(size, '\0');
    auto* to = reinterpret_cast<uint8_t*>(out.data());
    const char16_t* text = utf16.data();
    const auto length = static_cast<int32_t>(utf16.size());
    int32_t i = 0;
    while (i < length) {
        if (i + static_cast<int32_t>(kBlock) <= length) {
            char16_t any = 0;
            for (std::size_t j = 0; j < kBlock; ++j) any |= text[i + static_cast<int32_t>(j)];
            if (any < 0x80) {
                for (std::size_t j = 0; j < kBlock; ++j)
                    to[j] = static_cast<uint8_t>(text[i + static_cast<int32_t>(j)]);
                to += kBlock;
                i += static_cast<int32_t>(kBlock);
                continue;
            }
        }
        for (const int32_t blockEnd = std::min(i + static_cast<int32_t>(kBlock), length);
             i < blockEnd;) {
            UChar32 c = text[i++];
            if (c < 0x80) {
                *to++ = static_cast<uint8_t>(c);
                continue;
            }
            if (U16_IS_SURROGATE(c)) {
                if (U16_IS_SURROGATE_LEAD(c) && i < length && U16_IS_TRAIL(text[i]))
                    c = U16_GET_SUPPLEMENTARY(c, text[i++]);
                else
                    c = 0xFFFD;
            }
            int32_t written = 0;
            U8_APPEND_UNSAFE(to, written, c);
            to += written;
        }
    }
    return out;
}

}  // namespace sagely::detail
