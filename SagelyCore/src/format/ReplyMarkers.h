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

#include <unicode/umachine.h>

#include <cstdint>
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

/// Whether the code point is a decimal digit ("\d", general category Nd). Inline, so that the
/// scans test ASCII without a call.
inline bool isDecimalDigit(UChar32 c) {
    return c < 0x80 ? c >= '0' && c <= '9' : isDecimalDigitBeyondAscii(c);
}

// Each of the following gives where a match of its pattern that starts at `at` ends, or -1
// when none starts there.

/// "(?i)(Step\s+\d+\s*:)([A-Za-z])": a marker glued to the letter after it.
int32_t stepMarkerBeforeLetterEnd(std::u16string_view text, int32_t at);

/// "(?<!\n)(Step\s+\d+\s*:)", case-insensitive: a marker not at the start of a line.
int32_t stepMarkerNotAtLineStartEnd(std::u16string_view text, int32_t at);

/// "([:.!?])(Step\s+\d+)", case-insensitive: a marker glued to the end of a sentence.
int32_t stepMarkerAfterSentenceEnd(std::u16string_view text, int32_t at);

/// "(?i)Step\s+(\d+)\s*:\s*": a marker with the blanks after it.
int32_t stepHeadingEnd(std::u16string_view text, int32_t at);

/// "(?<!\n)(\d+\.\s)": a numbered item not at the start of a line.
int32_t numberedItemNotAtLineStartEnd(std::u16string_view text, int32_t at);

}  // namespace sagely::detail
