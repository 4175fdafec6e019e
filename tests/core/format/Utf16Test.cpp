#include "format/Utf16.h"

#include <gtest/gtest.h>
#include <unicode/ustring.h>

#include <array>
#include <random>
#include <string>
#include <string_view>

using sagely::detail::assignUtf16;
using sagely::detail::utf8Of;

namespace {

std::u16string icuUtf16(std::string_view utf8) {
    std::u16string out(utf8.size(), u'\0');
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8WithSub(out.data(), static_cast<int32_t>(out.size()), &length, utf8.data(),
                         static_cast<int32_t>(utf8.size()), 0xFFFD, nullptr, &status);
    EXPECT_TRUE(U_SUCCESS(status));
    out.resize(static_cast<std::size_t>(length));
    return out;
}

std::string icuUtf8(std::u16string_view utf16) {
    std::string out(utf16.size() * 3, '\0');
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strToUTF8WithSub(out.data(), static_cast<int32_t>(out.size()), &length, utf16.data(),
                       static_cast<int32_t>(utf16.size()), 0xFFFD, nullptr, &status);
    EXPECT_TRUE(U_SUCCESS(status));
    out.resize(static_cast<std::size_t>(length));
    return out;
}

std::u16string converted(std::string_view utf8) {
    std::u16string out = u"left over";
    assignUtf16(out, utf8);
    return out;
}

std::string hex(std::string_view bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char b : bytes) out += {kDigits[b >> 4], kDigits[b & 15], ' '};
    return out;
}

}  // namespace

// Every sequence of up to three bytes that starts beyond ASCII (of four for the lead bytes of
// two-byte sequences), with ASCII after it.
TEST(Utf16, ReplacesMalformedUtf8AsIcuDoes) {
    std::string text;
    for (unsigned lead = 0x80; lead <= 0xFF; ++lead)
        for (unsigned second = 0; second <= 0xFF; ++second)
            for (unsigned third = 0; third <= 0xFF; third += (lead >= 0xE0 ? 1 : 0x40)) {
                text = {static_cast<char>(lead), static_cast<char>(second),
                        static_cast<char>(third), 'x'};
                ASSERT_EQ(converted(text), icuUtf16(text)) << hex(text);
            }
}

TEST(Utf16, ConvertsTextDenseInMalformedBytesAsIcuDoes) {
    static const std::array<std::string, 24> pieces = {"\x80",
                                                       "\xBF",
                                                       "\xC2",
                                                       "\xC0\xAF",
                                                       "\xE3\x80",
                                                       "\xE0\x80\xAF",
                                                       "\xED\xA0\x80",
                                                       "\xF0\x9F\x98",
                                                       "\xF4\x90\x80\x80",
                                                       "\xF8\x88\x80\x80\x80",
                                                       "\xFF",
                                                       "\xFE",
                                                       "\u3000",
                                                       "\u00A0",
                                                       "\U0001F44D",
                                                       "\u6253",
                                                       "Step",
                                                       " ",
                                                       "x",
                                                       "\n",
                                                       std::string(20, 'a'),
                                                       "\xF0\x9F",
                                                       "\xEF\xBF\xBD",
                                                       "\xC3\xA9"};
    std::mt19937 random(1616);
    std::uniform_int_distribution<std::size_t> piece(0, pieces.size() - 1), length(0, 60);
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        for (std::size_t n = length(random); n > 0; --n) text += pieces[piece(random)];
        const std::u16string utf16 = converted(text);
        ASSERT_EQ(utf16, icuUtf16(text)) << hex(text);
        ASSERT_EQ(utf8Of(utf16), icuUtf8(utf16)) << hex(text);
    }
}

// Lone surrogates of either kind, pairs and their halves swapped, among ASCII and other text.
TEST(Utf16, WritesLoneSurrogatesAsReplacementCharacters) {
    static const std::array<std::u16string, 9> pieces = {
        u"\xD83D", u"\xDC4D", u"\xD83D\xDC4D",          u"\xDC4D\xD83D", u"a",
        u"\u00E9", u"\u3000", std::u16string(20, u'b'), u"\xFFFD"};
    std::mt19937 random(1717);
    std::uniform_int_distribution<std::size_t> piece(0, pieces.size() - 1), length(0, 40);
    for (int i = 0; i < 20000; ++i) {
        std::u16string text;
        for (std::size_t n = length(random); n > 0; --n) text += pieces[piece(random)];
        ASSERT_EQ(utf8Of(text), icuUtf8(text));
    }
}

// The output is sized a block of units at a time, counting a pair as four bytes: pairs, lone
// halves and characters of every length at every offset across the ends of those blocks.
TEST(Utf16, SizesTheOutputWhereverAPairOrALoneHalfFalls) {
    const std::u16string pair = u"\xD83D\xDC4D";
    for (std::u16string_view odd :
         {std::u16string_view(pair), std::u16string_view(u"\xD83D"), std::u16string_view(u"\xDC4D"),
          std::u16string_view(u"\xDC4D\xD83D"), std::u16string_view(u"\u00E9"),
          std::u16string_view(u"\uFFFD")})
        for (std::size_t offset = 0; offset < 530; ++offset) {
            for (std::u16string_view filler : {u"a", u"\u3000"}) {
                std::u16string text;
                for (std::size_t k = 0; k < offset; ++k) text += filler;
                text += odd;
                const std::u16string withMore = text + pair + u"b";
                ASSERT_EQ(utf8Of(text), icuUtf8(text)) << offset;
                ASSERT_EQ(utf8Of(withMore), icuUtf8(withMore)) << offset;
            }
        }
}
