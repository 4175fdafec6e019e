#include "support/TextViews.h"
#include "support/WhiteSpace.h"

#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <array>
#include <random>
#include <string>
#include <string_view>
#include <vector>

using sagely::detail::blanksBefore;
using sagely::detail::blanksFrom;
using sagely::detail::isWhiteSpace;
using sagely::detail::trimmedView;
using sagely::detail::whiteSpaceLengthAt;
using sagely::detail::whiteSpaceLengthBefore;

namespace {

bool icuWhiteSpace(UChar32 c) {
    return c >= 0 && u_hasBinaryProperty(c, UCHAR_WHITE_SPACE);
}

std::string utf8Of(UChar32 c) {
    std::string out(4, '\0');
    int32_t length = 0;
    U8_APPEND_UNSAFE(reinterpret_cast<uint8_t*>(out.data()), length, c);
    out.resize(static_cast<std::size_t>(length));
    return out;
}

// What decoding the code point at `i` and asking ICU gives: its length when it is White_Space.
std::size_t decodedWhiteSpaceLengthAt(std::string_view s, std::size_t i) {
    auto next = static_cast<int32_t>(i);
    UChar32 c = 0;
    U8_NEXT(reinterpret_cast<const uint8_t*>(s.data()), next, static_cast<int32_t>(s.size()), c);
    return icuWhiteSpace(c) ? static_cast<std::size_t>(next) - i : 0;
}

std::size_t decodedWhiteSpaceLengthBefore(std::string_view s, std::size_t end) {
    if (end == 0) return 0;  // U8_PREV reads the byte before `end` unchecked
    auto previous = static_cast<int32_t>(end);
    UChar32 c = 0;
    U8_PREV(reinterpret_cast<const uint8_t*>(s.data()), 0, previous, c);
    return icuWhiteSpace(c) ? end - static_cast<std::size_t>(previous) : 0;
}

// Trimming by decoding each code point and asking ICU; malformed bytes stop it.
std::string_view referenceTrimmed(std::string_view s) {
    std::size_t begin = 0;
    for (std::size_t n = 0; begin < s.size() && (n = decodedWhiteSpaceLengthAt(s, begin)) > 0;)
        begin += n;
    std::size_t end = s.size();
    for (std::size_t n = 0; end > begin && (n = decodedWhiteSpaceLengthBefore(s, end)) > 0;)
        end -= n;
    return s.substr(begin, end - begin);
}

// Text dense in blanks of every kind, in the bytes they are made of, in near misses (U+200B,
// U+3001, U+2030) and in malformed sequences, some of them blanks cut short.
std::vector<std::string> textsDenseInBlanks(std::size_t count, std::size_t maxPieces) {
    static const std::array<std::string, 30> pieces = {
        " ",      "\t",       "\n",           "\r",       "\v",           "\f",
        "\u0085", "\u00A0",   "\u1680",       "\u2000",   "\u200A",       "\u2028",
        "\u2029", "\u202F",   "\u205F",       "\u3000",   "\u200B",       "\u3001",
        "\u2030", "x",        "\xC2",         "\xE2\x80", "\xE3\x80",     "\x80",
        "\xA0",   "\xE1\x9A", "\xED\xA0\x80", "\xC0\xA0", "\xE0\x80\xA0", std::string(40, ' ')};
    std::mt19937 random(3000);
    std::uniform_int_distribution<std::size_t> piece(0, pieces.size() - 1), length(0, maxPieces);
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < count; ++i) {
        std::string text;
        for (std::size_t n = length(random); n > 0; --n) text += pieces[piece(random)];
        texts.push_back(text);
    }
    return texts;
}

}  // namespace

TEST(WhiteSpace, IsTheUnicodeWhiteSpacePropertyForEveryCodePoint) {
    for (UChar32 c = 0; c <= 0x10FFFF; ++c)
        ASSERT_EQ(isWhiteSpace(c), icuWhiteSpace(c)) << "U+" << std::hex << c;
    EXPECT_FALSE(isWhiteSpace(-1));
}

TEST(WhiteSpace, IsReadFromTheBytesOfEveryCodePoint) {
    for (UChar32 c = 0; c <= 0x10FFFF; ++c) {
        if (U_IS_SURROGATE(c)) continue;
        const std::string bytes = utf8Of(c);
        const std::size_t expected = icuWhiteSpace(c) ? bytes.size() : 0;
        ASSERT_EQ(whiteSpaceLengthAt(bytes + "x", 0), expected) << "U+" << std::hex << c;
        ASSERT_EQ(whiteSpaceLengthBefore("x" + bytes, bytes.size() + 1), expected)
            << "U+" << std::hex << c;
    }
}

TEST(WhiteSpace, IsWhatDecodingFindsAmongMalformedBytes) {
    for (const std::string& text : textsDenseInBlanks(3000, 12))
        for (std::size_t i = 0; i <= text.size(); ++i) {
            if (i < text.size()) {
                ASSERT_EQ(whiteSpaceLengthAt(text, i), decodedWhiteSpaceLengthAt(text, i))
                    << text << " at " << i;
            }
            ASSERT_EQ(whiteSpaceLengthBefore(text, i), decodedWhiteSpaceLengthBefore(text, i))
                << text << " before " << i;
        }
}

// Runs of ASCII blanks are read 32 bytes at a time, so blocks end everywhere in these.
TEST(WhiteSpace, TrimmingAndRunsAreWhatDecodingEachCodePointGives) {
    for (const std::string& text : textsDenseInBlanks(4000, 40)) {
        const std::string_view trimmed = referenceTrimmed(text);
        ASSERT_EQ(trimmedView(text), trimmed) << text;
        const std::size_t leading = static_cast<std::size_t>(trimmed.data() - text.data());
        if (!trimmed.empty()) {
            ASSERT_EQ(blanksFrom(text, 0), leading) << text;
            ASSERT_EQ(blanksBefore(text, text.size()), leading + trimmed.size()) << text;
        }
    }
}
