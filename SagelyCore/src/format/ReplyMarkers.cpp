#include "format/ReplyMarkers.h"

#include "support/WhiteSpace.h"

#include <unicode/uchar.h>
#include <unicode/utf16.h>

#include <bitset>

namespace sagely::detail {
namespace {

struct Text {
    const char16_t* units;
    int32_t length;
};

Text textOf(std::u16string_view text) {
    return {text.data(), static_cast<int32_t>(text.size())};
}

UChar32 codePointAt(Text text, int32_t& next) {
    UChar32 c = 0;
    U16_NEXT(text.units, next, text.length, c);
    return c;
}

// Where "Step" ends when it starts at `at` (-1 when it does not). The text is case folded a
// code point at a time and must fold to exactly "step": a fold that runs past its end, as "ﬆ"
// would after "Ste", is no match.
int32_t stepWordEnd(Text text, int32_t at) {
    constexpr std::u16string_view kFolded = u"step";
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

// The end of the run of code points from `at` that `belongs` accepts.
template <typename Belongs>
int32_t runEnd(Text text, int32_t at, Belongs belongs) {
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

// The classes of the runs, as objects of their own types so that each run's test is inlined.
constexpr auto isBlank = [](UChar32 c) { return isWhiteSpace(c); };
constexpr auto isDigit = [](UChar32 c) { return isDecimalDigit(c); };

// "Step\s+\d+" from `at`: where it ends, or -1.
int32_t numberedStepEnd(Text text, int32_t at) {
    const int32_t word = stepWordEnd(text, at);
    if (word < 0) return -1;
    const int32_t blanks = runEnd(text, word, isBlank);
    if (blanks == word) return -1;
    const int32_t digits = runEnd(text, blanks, isDigit);
    return digits == blanks ? -1 : digits;
}

// "Step\s+\d+\s*:" from `at`: where it ends, or -1.
int32_t stepMarkerEnd(Text text, int32_t at) {
    const int32_t number = numberedStepEnd(text, at);
    if (number < 0) return -1;
    const int32_t colon = runEnd(text, number, isBlank);
    return colon < text.length && text.units[colon] == u':' ? colon + 1 : -1;
}

// What "[A-Za-z]" matches case-insensitively: the Kelvin sign and the long s fold onto letters.
bool isLetterWhateverItsCase(char16_t c) {
    return static_cast<char16_t>((c | 0x20) - u'a') < 26 || c == u'\u017F' || c == u'\u212A';
}

}  // namespace

std::u16string_view stepLettersFoldedFrom(UChar32 c) {
    if (c == 0x017F) return u"s";                  // ſ
    if (c == 0xFB05 || c == 0xFB06) return u"st";  // ﬅ, ﬆ
    return {};
}

bool isDecimalDigitBeyondAscii(UChar32 c) {
    if (c > 0xFFFF) return u_isdigit(c);
    // Looked up once per process, when a text first holds a character beyond ASCII where a
    // digit may stand: a lookup in ICU per character costs more than the scans themselves.
    static const std::bitset<0x10000> kDigits = [] {
        std::bitset<0x10000> digits;
        for (UChar32 d = 0x80; d <= 0xFFFF; ++d) digits[static_cast<std::size_t>(d)] = u_isdigit(d);
        return digits;
    }();
    return kDigits[static_cast<std::size_t>(c)];
}

int32_t stepMarkerBeforeLetterEnd(std::u16string_view text, int32_t at) {
    const Text t = textOf(text);
    const int32_t marker = stepMarkerEnd(t, at);
    return marker >= 0 && marker < t.length && isLetterWhateverItsCase(t.units[marker]) ? marker + 1
                                                                                        : -1;
}

int32_t stepMarkerNotAtLineStartEnd(std::u16string_view text, int32_t at) {
    return at > 0 && text[static_cast<std::size_t>(at) - 1] == u'\n'
               ? -1
               : stepMarkerEnd(textOf(text), at);
}

int32_t stepMarkerAfterSentenceEnd(std::u16string_view text, int32_t at) {
    const char16_t c = text[static_cast<std::size_t>(at)];
    const bool endsSentence = c == u':' || c == u'.' || c == u'!' || c == u'?';
    return endsSentence ? numberedStepEnd(textOf(text), at + 1) : -1;
}

int32_t stepHeadingEnd(std::u16string_view text, int32_t at) {
    const Text t = textOf(text);
    const int32_t marker = stepMarkerEnd(t, at);
    return marker < 0 ? -1 : runEnd(t, marker, isBlank);
}

int32_t numberedItemNotAtLineStartEnd(std::u16string_view text, int32_t at) {
    const Text t = textOf(text);
    if (at > 0 && t.units[at - 1] == u'\n') return -1;
    const int32_t digits = runEnd(t, at, isDigit);
    if (digits == at || digits >= t.length || t.units[digits] != u'.') return -1;
    int32_t next = digits + 1;
    return next < t.length && isWhiteSpace(codePointAt(t, next)) ? next : -1;
}

}  // namespace sagely::detail
