// ReplyMarkers — the "Step N:" and "N. " markers of a reply, found by hand.
//
// Each matcher tells whether one of the repair's patterns matches at a given place, and where
// that match ends: "Step" is compared under full case folding (so "ſtep" and "ﬆep" are markers
// too), "\s" is White_Space, "\d" a decimal digit. The classes a marker is made of never share a
// character, so a marker has one reading and needs no backtracking, where a regular expression
// engine spends most of a reply full of long runs. Callers try the places where a match can
// start, in order, skipping those inside an earlier match, as successive finds do; a "Step" can
// only start at a code unit for which mayStartStepWord holds.
#pragma once

#include "support/WhiteSpace.h"

#include <unicode/umachine.h>
#include <unicode/utf16.h>

#include <cstdint>
#include <cstring>
#include <string_view>

namespace sagely::detail {

/// Whether a "Step" (under full case folding) can start with the code unit `c`: an "s" of
/// either case, or a character that folds to one or to "st" ("ſ", "ﬅ", "ﬆ"). No code point
/// beyond the basic plane folds onto ASCII letters. Without branches, so that scans of a block
/// of text with it vectorise.
constexpr bool mayStartStepWord(char16_t c) {
    return ((c | 0x20) == u's') | (c == u'\u017F') | (c == u'\uFB05') | (c == u'\uFB06');
}

/// What the code point beyond ASCII folds to where it can be part of "Step" under full case
/// folding: "s" for "ſ", "st" for "ﬅ" and "ﬆ", nothing for every other one (no other character
/// folds to a piece of the word).
std::u16string_view stepLettersFoldedFrom(UChar32 c);

/// Whether a code point beyond ASCII is a decimal digit (general category Nd).
bool isDecimalDigitBeyondAscii(UChar32 c);

/// What "\s" and "\d" match of ASCII, without a branch, so that tests of a block of text with
/// them vectorise.
constexpr bool isAsciiBlank(char16_t c) {
    return (c == u' ') | (static_cast<char16_t>(c - u'\t') < 5);
}
constexpr bool isAsciiDigit(char16_t c) {
    return static_cast<char16_t>(c - u'0') < 10;
}

/// Whether the code point is a decimal digit ("\d", general category Nd). Inline, so that the
/// scans test ASCII without a call.
inline bool isDecimalDigit(UChar32 c) {
    return c < 0x80 ? c >= '0' && c <= '9' : isDecimalDigitBeyondAscii(c);
}

// The pieces the matchers are made of; inline, as are the matchers, so that the scans of a
// reply dense in markers make no call per marker.
namespace markers {

struct Text {
    const char16_t* units;
    int32_t length;
};

inline Text textOf(std::u16string_view text) {
    return {text.data(), static_cast<int32_t>(text.size())};
}

inline UChar32 codePointAt(Text text, int32_t& next) {
    UChar32 c = 0;
    U16_NEXT(text.units, next, text.length, c);
    return c;
}

// Where "Step" ends when it starts at `at` (-1 when it does not). The text is case folded a
// code point at a time and must fold to exactly "step": a fold that runs past its end, as "ﬆ"
// would after "Ste", is no match.
inline int32_t stepWordEnd(Text text, int32_t at) {
    constexpr std::u16string_view kFolded = u"step";
    if (at + 4 <= text.length) {  // four ASCII units are compared at once
        uint64_t units = 0;
        std::memcpy(&units, text.units + at, sizeof units);
        constexpr uint64_t kStep = 0x0070'0065'0074'0073;  // "step", the first unit lowest
        if ((units | 0x0020'0020'0020'0020) == kStep) return at + 4;
        if ((units & 0xFF80'FF80'FF80'FF80) == 0) return -1;  // ASCII, and not the word
    }
    std::size_t matched = 0;
    int32_t i = at;
    while (matched < kFolded.size()) {
        if (i >= text.length) return -1;
        const char16_t c = text.units[i];
        if (c < 0x80) {  // only the letter itself and its capital fold to an ASCII letter
            if ((c | 0x20) != kFolded[matched]) return -1;
            ++matched;
            ++i;
            continue;
        }
        int32_t next = i;
        const std::u16string_view folded = stepLettersFoldedFrom(codePointAt(text, next));
        if (folded.empty() || !kFolded.substr(matched).starts_with(folded)) return -1;
        matched += folded.size();
        i = next;
    }
    return i;
}

// runEnd from a code unit beyond ASCII on: decoding, out of line.
template <typename Belongs>
[[gnu::noinline]] int32_t runEndBeyondAscii(Text text, int32_t at, Belongs belongs) {
    while (at < text.length) {
        const char16_t unit = text.units[at];
        if (unit < 0x80) {  // a code point of its own, tested without decoding
            if (!belongs(unit)) break;
            ++at;
            continue;
        }
        int32_t next = at;
        if (!belongs(codePointAt(text, next))) break;
        at = next;
    }
    return at;
}

// The end of the run of code points from `at` that `belongs` accepts. Runs of ASCII, the
// common case, are read inline, with a test of the unit that does not branch.
template <typename Belongs>
int32_t runEnd(Text text, int32_t at, Belongs belongs) {
    for (; at < text.length; ++at) {
        const char16_t unit = text.units[at];
        if (unit >= 0x80) return runEndBeyondAscii(text, at, belongs);
        if (!Belongs::isAscii(unit)) break;
    }
    return at;
}

// The classes of the runs, as types of their own so that each run's tests are inlined: what
// the class holds of ASCII, and of every code point.
struct Blank {
    static bool isAscii(char16_t c) { return isAsciiBlank(c); }
    bool operator()(UChar32 c) const { return isWhiteSpace(c); }
};
struct Digit {
    static bool isAscii(char16_t c) { return isAsciiDigit(c); }
    bool operator()(UChar32 c) const { return isDecimalDigit(c); }
};
constexpr Blank isBlank;
constexpr Digit isDigit;

// "\s+\d+" from `word`, the end of a "Step": where it ends, or -1.
inline int32_t stepNumberEnd(Text text, int32_t word) {
    if (word + 2 < text.length && isAsciiBlank(text.units[word]) &&
        isAsciiDigit(text.units[word + 1])) {  // the usual "Step 1", read without the runs
        const char16_t after = text.units[word + 2];
        return after < 0x80 && !isAsciiDigit(after) ? word + 2 : runEnd(text, word + 2, isDigit);
    }
    const int32_t blanks = runEnd(text, word, isBlank);
    if (blanks == word) return -1;
    const int32_t digits = runEnd(text, blanks, isDigit);
    return digits == blanks ? -1 : digits;
}

// "Step\s+\d+" from `at`: where it ends, or -1.
inline int32_t numberedStepEnd(Text text, int32_t at) {
    const int32_t word = stepWordEnd(text, at);
    return word < 0 ? -1 : stepNumberEnd(text, word);
}

// Whether "[:.!?]" matches the unit.
inline bool endsSentence(char16_t c) {
    return c == u':' || c == u'.' || c == u'!' || c == u'?';
}

// "Step\s+\d+\s*:" from `at`: where it ends, or -1.
inline int32_t stepMarkerEnd(Text text, int32_t at) {
    const int32_t number = numberedStepEnd(text, at);
    if (number < 0) return -1;
    if (number < text.length && text.units[number] == u':') return number + 1;
    const int32_t colon = runEnd(text, number, isBlank);
    return colon < text.length && text.units[colon] == u':' ? colon + 1 : -1;
}

// What "[A-Za-z]" matches case-insensitively: the Kelvin sign and the long s fold onto letters.
inline bool isLetterWhateverItsCase(char16_t c) {
    return static_cast<char16_t>((c | 0x20) - u'a') < 26 || c == u'\u017F' || c == u'\u212A';
}

}  // namespace markers

// Each of the following gives where a match of its pattern that starts at `at` ends, or -1
// when none starts there.

/// Whether a line feed stands right before `at`, where "(?<!\n)" fails.
inline bool followsLineFeed(std::u16string_view text, int32_t at) {
    return at > 0 && text[static_cast<std::size_t>(at) - 1] == u'\n';
}

/// "(?i)Step\s+\d+\s*:", the marker of the next two patterns, read once for both.
inline int32_t stepMarkerEnd(std::u16string_view text, int32_t at) {
    return markers::stepMarkerEnd(markers::textOf(text), at);
}

/// Whether "[A-Za-z]", case-insensitive, matches at `at` (not at the end of the text).
inline bool isLetterAt(std::u16string_view text, int32_t at) {
    return static_cast<std::size_t>(at) < text.size() &&
           markers::isLetterWhateverItsCase(text[static_cast<std::size_t>(at)]);
}

/// "(?i)(Step\s+\d+\s*:)([A-Za-z])": a marker glued to the letter after it.
inline int32_t stepMarkerBeforeLetterEnd(std::u16string_view text, int32_t at) {
    const int32_t marker = stepMarkerEnd(text, at);
    return marker >= 0 && isLetterAt(text, marker) ? marker + 1 : -1;
}

/// "(?<!\n)(Step\s+\d+\s*:)", case-insensitive: a marker not at the start of a line.
inline int32_t stepMarkerNotAtLineStartEnd(std::u16string_view text, int32_t at) {
    return followsLineFeed(text, at) ? -1 : stepMarkerEnd(text, at);
}

/// "([:.!?])(Step\s+\d+)", case-insensitive: a marker glued to the end of a sentence.
inline int32_t stepMarkerAfterSentenceEnd(std::u16string_view text, int32_t at) {
    return markers::endsSentence(text[static_cast<std::size_t>(at)])
               ? markers::numberedStepEnd(markers::textOf(text), at + 1)
               : -1;
}

/// "(?i)Step\s+(\d+)\s*:\s*": a marker with the blanks after it.
inline int32_t stepHeadingEnd(std::u16string_view text, int32_t at) {
    const markers::Text t = markers::textOf(text);
    const int32_t marker = markers::stepMarkerEnd(t, at);
    return marker < 0 ? -1 : markers::runEnd(t, marker, markers::isBlank);
}

/// "(?<!\n)(\d+\.\s)" where the run of digits from `at` is known to end at `digits`.
inline int32_t numberedItemEndFromDigits(std::u16string_view text, int32_t at, int32_t digits) {
    const markers::Text t = markers::textOf(text);
    if (followsLineFeed(text, at)) return -1;
    if (digits == at || digits >= t.length || t.units[digits] != u'.') return -1;
    int32_t next = digits + 1;
    return next < t.length && isWhiteSpace(markers::codePointAt(t, next)) ? next : -1;
}

/// "(?<!\n)(\d+\.\s)": a numbered item not at the start of a line.
inline int32_t numberedItemNotAtLineStartEnd(std::u16string_view text, int32_t at) {
    return numberedItemEndFromDigits(text, at,
                                     markers::runEnd(markers::textOf(text), at, markers::isDigit));
}

/// "([:.!?])(Step\s+\d+)", case-insensitive, in the text with the line feeds of the numbered
/// items ("(?<!\n)(\d+\.\s)", "\n\n$1") to be put in. The only ones that can make a match go
/// before a number right after "Step" (".Step12. x"), and an item that starts there is one that
/// successive finds find: the letter before it is in no earlier item.
inline int32_t stepMarkerAfterSentenceEndAmidNumberedItems(std::u16string_view text, int32_t at) {
    const markers::Text t = markers::textOf(text);
    if (!markers::endsSentence(text[static_cast<std::size_t>(at)])) return -1;
    const int32_t word = markers::stepWordEnd(t, at + 1);
    if (word < 0) return -1;
    const int32_t number = markers::stepNumberEnd(t, word);
    if (number >= 0) return number;
    const int32_t digits = markers::runEnd(t, word, markers::isDigit);  // no blank after the word
    return numberedItemEndFromDigits(text, word, digits) >= 0 ? digits : -1;
}

}  // namespace sagely::detail
