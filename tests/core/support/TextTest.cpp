#include <sagely/Text.h>

#include <gtest/gtest.h>

using namespace sagely::text;

TEST(Text, TrimsTheUnicodeWhiteSpaceSetAtBothEnds) {
    EXPECT_EQ(trimmed(" \t\n\r\v\f hello world \u00A0\u3000\u2028\u2029\u0085"), "hello world");
    EXPECT_EQ(trimmed(""), "");
    EXPECT_EQ(trimmed(" \n "), "");
    EXPECT_EQ(trimmed("a"), "a");
}

TEST(Text, TrimsOnlySpacesAndTabsWhenAskedTo) {
    EXPECT_EQ(trimmedSpacesAndTabs("\t \u00A0## \n"), "## \n");
    EXPECT_EQ(trimmedSpacesAndTabs("\n  x\t"), "\n  x");
}

TEST(Text, CountsGraphemeClustersNotBytesOrCodePoints) {
    EXPECT_EQ(characterCount("abc"), 3u);
    EXPECT_EQ(characterCount("e\u0301"), 1u);               // e + combining acute
    EXPECT_EQ(characterCount("\U0001F44D\U0001F3FD"), 1u);  // thumbs up, skin tone
    EXPECT_EQ(characterCount("\U0001F468\u200D\U0001F469\u200D\U0001F467"), 1u);  // family
    EXPECT_EQ(characterCount("\r\n"), 1u);
    EXPECT_EQ(characterCount(""), 0u);
}

TEST(Text, PrefixNeverSplitsACluster) {
    EXPECT_EQ(prefixCharacters("ab\U0001F44D\U0001F3FDcd", 3), "ab\U0001F44D\U0001F3FD");
    EXPECT_EQ(prefixCharacters("abc", 10), "abc");
    EXPECT_EQ(prefixCharacters("abc", 0), "");
    EXPECT_TRUE(hasMoreCharactersThan("e\u0301e\u0301", 1));
    EXPECT_FALSE(hasMoreCharactersThan("e\u0301e\u0301", 2));
}

TEST(Text, LowerCasesFullUnicode) {
    EXPECT_EQ(lowercased("HeLLo"), "hello");
    EXPECT_EQ(lowercased("ÄÖÜ ΣΑΣ"), "äöü σας");
    EXPECT_EQ(lowercased("\u0130"), "i\u0307");
}

TEST(Text, ConvertsBetweenUtf8AndUtf16) {
    std::string s = "Step \U0001F600 é";
    std::u16string u = toUtf16(s);
    EXPECT_EQ(u.size(), 9u);  // the emoji is a surrogate pair
    EXPECT_EQ(toUtf8(u), s);
}

TEST(Text, PercentEncodesWithThePathAllowedSet) {
    EXPECT_EQ(percentEncodePath("gemini 2.0/flash:x@y~"), "gemini%202.0/flash:x@y~");
    EXPECT_EQ(percentEncodePath("é?#"), "%C3%A9%3F%23");
    EXPECT_EQ(percentDecode("a%20b%2Fc%zz%4"), "a b/c%zz%4");
}

// ASCII is passed over 32 bytes at a time: a malformed byte or a sequence cut short is found at
// every offset around a block's end, and a well-formed sequence across one is taken whole.
TEST(Text, TellsWellFormedUtf8WhereverASequenceFalls) {
    struct Piece {
        const char* bytes;
        bool valid;
    };
    for (Piece piece : {Piece{"\u00e9", true}, Piece{"\u20ac", true}, Piece{"\U0001F44D", true},
                        Piece{"\xff", false}, Piece{"\xC3", false}, Piece{"\xE2\x82", false},
                        Piece{"\xED\xA0\x80", false}, Piece{"\x80", false}})
        for (std::size_t offset = 0; offset < 70; ++offset) {
            std::string text = std::string(offset, 'a') + piece.bytes;
            EXPECT_EQ(isValidUtf8(text), piece.valid) << offset << " " << piece.bytes;
            EXPECT_EQ(isValidUtf8(text + std::string(40, 'b')), piece.valid) << offset;
        }
    EXPECT_TRUE(isValidUtf8(""));
}
