// ReplyMarkers — the "Step N:" and "N. " markers of a reply, found by hand.
//
// Each function gives exactly the matches of one of the repair's patterns, as successive finds
// of it report them, in one linear pass: "Step" is compared under full case folding (so "ſtep"
// and "ﬆep" are markers too), "\s" is White_Space, "\d" a decimal digit. The classes a marker is
// made of never share a character, so a marker has one reading and needs no backtracking, where
// a regular expression engine spends most of a reply full of long runs.
//
// `candidates` (ascending) must hold every position where a match can start; other positions
// are rejected. A "Step" can only start at a code unit for which mayStartStepWord holds.
#pragma once

#include "format/IcuRegex.h"

#include <string_view>
#include <vector>

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

/// Whether the code point is a decimal digit ("\d", general category Nd).
bool isDecimalDigit(UChar32 c);

/// "(?i)(Step\s+\d+\s*:)([A-Za-z])": a marker glued to the letter after it.
std::vector<TextRange> stepMarkersBeforeLetters(std::u16string_view text,
                                                const std::vector<int32_t>& candidates);

/// "(?<!\n)(Step\s+\d+\s*:)", case-insensitive: a marker not at the start of a line.
std::vector<TextRange> stepMarkersNotAtLineStarts(std::u16string_view text,
                                                  const std::vector<int32_t>& candidates);

/// "([:.!?])(Step\s+\d+)", case-insensitive: a marker glued to the end of a sentence.
std::vector<TextRange> stepMarkersAfterSentences(std::u16string_view text,
                                                 const std::vector<int32_t>& candidates);

/// "(?i)Step\s+(\d+)\s*:\s*": a marker with the blanks after it.
std::vector<TextRange> stepHeadings(std::u16string_view text,
                                    const std::vector<int32_t>& candidates);

/// "(?<!\n)(\d+\.\s)": a numbered item not at the start of a line.
std::vector<TextRange> numberedItemsNotAtLineStarts(std::u16string_view text,
                                                    const std::vector<int32_t>& candidates);

}  // namespace sagely::detail
