#include <sagely/CoachMessageFormatting.h>

#include <sagely/Text.h>

#include "format/IcuRegex.h"
#include "support/TextViews.h"

#include <unicode/uchar.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <array>
#include <string_view>

namespace sagely {
namespace {

using detail::IcuRegex;
using detail::trimmedView;
using icu::UnicodeString;

// Patterns are compiled once, into function-local statics, and matched with per-thread
// matchers (see IcuRegex), so all of this is thread-safe.

UnicodeString fromUtf8(std::string_view s) {
    return UnicodeString::fromUTF8(icu::StringPiece(s.data(), static_cast<int32_t>(s.size())));
}

std::string toUtf8(const UnicodeString& u) {
    std::string out;
    u.toUTF8String(out);
    return out;
}

std::string replacingAll(std::string_view text, std::string_view from, std::string_view to) {
    std::string out;
    out.reserve(text.size());
    std::size_t start = 0;
    for (std::size_t hit = text.find(from); hit != std::string_view::npos;
         hit = text.find(from, start)) {
        out.append(text.substr(start, hit - start)).append(to);
        start = hit + from.size();
    }
    out.append(text.substr(start));
    return out;
}

std::vector<std::string_view> splitOn(std::string_view text, std::string_view separator) {
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    for (std::size_t hit = text.find(separator); hit != std::string_view::npos;
         hit = text.find(separator, start)) {
        pieces.push_back(text.substr(start, hit - start));
        start = hit + separator.size();
    }
    pieces.push_back(text.substr(start));
    return pieces;
}

// --- Trimming UTF-16 text --------------------------------------------------------------------

bool isWhiteSpace(UChar32 c) {
    return u_hasBinaryProperty(c, UCHAR_WHITE_SPACE);
}

bool isSpaceOrTab(char16_t c) {
    return c == u'\t' || u_charType(c) == U_SPACE_SEPARATOR;  // all space separators are BMP
}

// The text without White_Space at either end, as text::trimmed trims UTF-8.
UnicodeString trimmedWhiteSpace(const UnicodeString& u) {
    int32_t start = 0;
    int32_t end = u.length();
    while (start < end && isWhiteSpace(u.char32At(start))) start += U16_LENGTH(u.char32At(start));
    while (end > start && isWhiteSpace(u.char32At(end - 1))) end -= U16_LENGTH(u.char32At(end - 1));
    return start == 0 && end == u.length() ? u : UnicodeString(u, start, end - start);
}

// --- Dropping lines made only of heading marks ---------------------------------------------

bool isEmptyHeading(const UnicodeString& u, int32_t start, int32_t end) {
    static const IcuRegex headingLine(u"^#+\\s*.*$");
    const char16_t* text = u.getBuffer();
    while (start < end && isSpaceOrTab(text[start])) ++start;
    while (end > start && isSpaceOrTab(text[end - 1])) --end;
    if (start == end || text[start] != u'#') return false;
    // Without its "#" marks and the spaces around them, nothing may remain.
    for (int32_t i = start; i < end; ++i)
        if (text[i] != u'#' && !isSpaceOrTab(text[i])) return false;
    return headingLine.find(UnicodeString(u, start, end - start));
}

// The text itself when no line goes, so that most replies are not copied.
UnicodeString droppingEmptyHeadings(const UnicodeString& u) {
    std::vector<std::pair<int32_t, int32_t>> keptLines;
    bool dropped = false;
    for (int32_t start = 0;;) {
        int32_t end = u.indexOf(u'\n', start);
        if (end < 0) end = u.length();
        if (isEmptyHeading(u, start, end))
            dropped = true;
        else
            keptLines.emplace_back(start, end);
        if (end == u.length()) break;
        start = end + 1;
    }
    if (!dropped) return u;
    UnicodeString out(u.length(), 0, 0);  // room for the whole text, empty
    for (std::size_t i = 0; i < keptLines.size(); ++i) {
        if (i > 0) out.append(u'\n');
        out.append(u, keptLines[i].first, keptLines[i].second - keptLines[i].first);
    }
    return out;
}

// --- Where a pattern can match ---------------------------------------------------------------
// Each list holds every position where a match can start, and a few more: the patterns decide.
// The lists only spare ICU from trying the pattern at every position of the text.

bool mayFoldToS(char16_t c) {
    return c == u'S' || c == u's' || c >= 0x80;
}

bool mayFoldToT(char16_t c) {
    return c == u'T' || c == u't' || c >= 0x80;
}

// A case-insensitive "Step": an "s" before a "t", or anything non-ASCII (case folding maps some
// such characters, like the "st" ligature, onto those letters).
std::vector<int32_t> possibleStepWords(const UnicodeString& u) {
    std::vector<int32_t> positions;
    const char16_t* text = u.getBuffer();
    const int32_t length = u.length();
    for (int32_t i = 0; i < length; ++i) {
        char16_t c = text[i];
        if (c >= 0x80 || ((c == u'S' || c == u's') && i + 1 < length && mayFoldToT(text[i + 1])))
            positions.push_back(i);
    }
    return positions;
}

// Sentence punctuation right before a possible "Step".
std::vector<int32_t> possibleSentenceEnds(const UnicodeString& u) {
    std::vector<int32_t> positions;
    const char16_t* text = u.getBuffer();
    const int32_t length = u.length();
    for (int32_t i = 0; i + 1 < length; ++i) {
        char16_t c = text[i];
        bool punctuation = c == u':' || c == u'.' || c == u'!' || c == u'?';
        if ((punctuation && mayFoldToS(text[i + 1])) || c >= 0x80) positions.push_back(i);
    }
    return positions;
}

// The length of the decimal digit at `i` (0 when there is none).
int32_t digitLength(const char16_t* text, int32_t i, int32_t length) {
    char16_t c = text[i];
    if (c < 0x80) return c >= u'0' && c <= u'9' ? 1 : 0;
    UChar32 codePoint = 0;
    int32_t next = i;
    U16_NEXT(text, next, length, codePoint);
    return u_isdigit(codePoint) ? next - i : 0;
}

// Where a numbered-list marker can start: the first digit of each run of digits that ends in a
// full stop, and its second digit when a line feed precedes the first (the look-behind then
// fails there but not one digit later). A later digit of the run cannot start a match where the
// first could not: the greedy digits reach the same full stop either way. One or two tries per
// run keep this step linear in the length of the run.
std::vector<int32_t> possibleNumbers(const UnicodeString& u) {
    std::vector<int32_t> positions;
    const char16_t* text = u.getBuffer();
    const int32_t length = u.length();
    for (int32_t i = 0; i < length;) {
        int32_t runStart = i;
        for (int32_t step = 0; i < length && (step = digitLength(text, i, length)) > 0;) i += step;
        if (i > runStart && i < length && text[i] == u'.') {
            positions.push_back(runStart);
            int32_t second = runStart + digitLength(text, runStart, length);
            if (runStart > 0 && text[runStart - 1] == u'\n' && second < i)
                positions.push_back(second);
        }
        if (i == runStart) ++i;
    }
    return positions;
}

// The first line feed of every run of three or more.
std::vector<int32_t> possibleBlankRuns(const UnicodeString& u) {
    std::vector<int32_t> positions;
    static const UnicodeString kThree(u"\n\n\n");
    for (int32_t i = u.indexOf(kThree); i >= 0; i = u.indexOf(kThree, i + 1)) {
        positions.push_back(i);
        while (i + 3 < u.length() && u.charAt(i + 3) == u'\n') ++i;  // the rest of the run
    }
    return positions;
}

bool isSetFollowingCharacter(char16_t c) {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') ||
           c == u'!' || c == u')';
}

// --- Sentence starts -------------------------------------------------------------------------
// Step 7 applies "([a-zA-Z0-9!)])(<phrase>)" with "$1\n$2" for each phrase in turn. Every
// phrase starts with the only capital letter it holds, so no phrase starts inside another, and
// a line break put before one phrase can only stop another from matching at that same place (it
// puts a line feed after the letter); it never makes a match. So the passes are worked out on
// the text as it is, keeping the places where earlier passes broke the line, and the breaks are
// put in at the end: one copy of the text instead of one per phrase that matches.

const std::array<UnicodeString, 22>& sentenceStarts() {
    static const std::array<UnicodeString, 22> phrases = {
        u"Click",  u"Select", u"Open",  u"In the", u"Name your", u"Add a",
        u"Add an", u"Press",  u"Type",  u"Toggle", u"Ensure",    u"Verify",
        u"Switch", u"Return", u"Grant", u"Test",   u"Optional",  u"Would you",
        u"After ", u"Now ",   u"Try ",  u"Restart"};
    return phrases;
}

// Which phrases follow a letter, digit, "!" or ")" somewhere in the text, in one pass.
std::array<bool, 22> phrasesAfterSetCharacters(const UnicodeString& u) {
    const auto& phrases = sentenceStarts();
    std::array<bool, 22> present{};
    const char16_t* text = u.getBuffer();
    for (int32_t i = 1; i < u.length(); ++i) {
        if (text[i] < u'A' || text[i] > u'Z' || !isSetFollowingCharacter(text[i - 1])) continue;
        for (std::size_t k = 0; k < phrases.size(); ++k)
            if (!present[k] && phrases[k].charAt(0) == text[i] &&
                u.compare(i, phrases[k].length(), phrases[k]) == 0)
                present[k] = true;
    }
    return present;
}

UnicodeString splittingSentenceStarts(const UnicodeString& u) {
    const auto& phrases = sentenceStarts();
    const std::array<bool, 22> present = phrasesAfterSetCharacters(u);
    std::vector<bool> breakBefore(static_cast<std::size_t>(u.length()), false);
    bool broken = false;
    for (std::size_t k = 0; k < phrases.size(); ++k) {
        if (!present[k]) continue;
        // A match takes the character before the phrase too, and the next match of this
        // phrase starts after it, as successive finds do.
        int32_t resumeAt = 0;
        for (int32_t i = u.indexOf(phrases[k]); i >= 0; i = u.indexOf(phrases[k], i + 1)) {
            auto at = static_cast<std::size_t>(i);
            if (i < 1 || i - 1 < resumeAt || !isSetFollowingCharacter(u.charAt(i - 1)) ||
                breakBefore[at])
                continue;
            breakBefore[at] = broken = true;
            resumeAt = i + phrases[k].length();
        }
    }
    if (!broken) return u;
    UnicodeString out(u.length() + u.length() / 8, 0, 0);  // room for the text and some breaks
    int32_t copied = 0;
    for (int32_t i = 1; i < u.length(); ++i) {
        if (!breakBefore[static_cast<std::size_t>(i)]) continue;
        out.append(u, copied, i - copied).append(u'\n');
        copied = i;
    }
    return out.append(u, copied, u.length() - copied);
}

// --- The repair ------------------------------------------------------------------------------

// Step markers, numbered items and glued sentences, each on a line of its own.
UnicodeString separatingMarkers(UnicodeString u) {
    static const IcuRegex gluedMarker(u"(?i)(Step\\s+\\d+\\s*:)([A-Za-z])");
    static const IcuRegex inlineMarker(u"(?<!\n)(Step\\s+\\d+\\s*:)", UREGEX_CASE_INSENSITIVE);
    static const IcuRegex inlineNumber(u"(?<!\n)(\\d+\\.\\s)");
    static const IcuRegex markerAfterSentence(u"([:.!?])(Step\\s+\\d+)", UREGEX_CASE_INSENSITIVE);
    u = gluedMarker.replaceAllAt(u, possibleStepWords(u), u"$1\n\n$2");
    u = inlineMarker.replaceAllAt(u, possibleStepWords(u), u"\n\n$1\n");
    u = inlineNumber.replaceAllAt(u, possibleNumbers(u), u"\n\n$1");
    u = markerAfterSentence.replaceAllAt(u, possibleSentenceEnds(u), u"$1\n\n$2");
    return splittingSentenceStarts(u);
}

UnicodeString collapsingBlankRuns(const UnicodeString& u) {
    static const IcuRegex blankRun(u"\n{3,}");
    return blankRun.replaceAllAt(u, possibleBlankRuns(u), u"\n\n");
}

// normalize, ending in UTF-16 so that the step parser can use it as it is.
UnicodeString normalizedText(std::string_view input) {
    UnicodeString u = fromUtf8(text::trimmed(replacingAll(input, "\r\n", "\n")));
    u = separatingMarkers(droppingEmptyHeadings(u));
    return trimmedWhiteSpace(collapsingBlankRuns(droppingEmptyHeadings(u)));
}

// --- Cleaning a line ------------------------------------------------------------------------
// The four patterns of the cleaning act at the ends of the text, and each is applied here by
// reading the marks and blanks it would match: ICU tries "\s*\**$" at every position of a long
// run of blanks and reads the rest of the run each time, and converting a long line to UTF-16
// and back costs more than the cleaning itself. "\s" is White_Space, as in ICU.

bool isWhiteSpaceAt(std::string_view s, std::size_t i, std::size_t& next) {
    auto byte = static_cast<unsigned char>(s[i]);
    if (byte < 0x80) {
        next = i + 1;
        return byte == ' ' || (byte >= '\t' && byte <= '\r');
    }
    const auto* bytes = reinterpret_cast<const uint8_t*>(s.data());
    auto at = static_cast<int32_t>(i);
    UChar32 c = 0;
    U8_NEXT(bytes, at, static_cast<int32_t>(s.size()), c);
    next = static_cast<std::size_t>(at);
    return c >= 0 && isWhiteSpace(c);
}

// The end of the run of blanks that starts at i.
std::size_t blanksFrom(std::string_view s, std::size_t i) {
    for (std::size_t next = i; i < s.size() && isWhiteSpaceAt(s, i, next);) i = next;
    return i;
}

// The start of the run of blanks that ends at `end`.
std::size_t blanksBefore(std::string_view s, std::size_t end) {
    while (end > 0) {
        std::size_t start = end - 1;
        while (start > 0 && (static_cast<unsigned char>(s[start]) & 0xC0) == 0x80) --start;
        std::size_t next = start;
        if (!isWhiteSpaceAt(s, start, next) || next != end) break;
        end = start;
    }
    return end;
}

std::size_t marksFrom(std::string_view s, std::size_t i, char mark) {
    while (i < s.size() && s[i] == mark) ++i;
    return i;
}

// "^\**\s*#+\s*": stars, blanks, then at least one "#" and the blanks after them. Neither stars
// nor blanks are "#", so giving some back never lets "#+" match where it did not.
std::string_view withoutLeadingHeadingMark(std::string_view s) {
    std::size_t hashes = blanksFrom(s, marksFrom(s, 0, '*'));
    if (hashes == s.size() || s[hashes] != '#') return s;
    return s.substr(blanksFrom(s, marksFrom(s, hashes, '#')));
}

// "\s*\**$": the text ends in a star here, so not in a line break, and "$" is its very end.
std::string_view withoutTrailingStars(std::string_view s) {
    std::size_t end = s.size();
    while (end > 0 && s[end - 1] == '*') --end;
    return s.substr(0, blanksBefore(s, end));
}

// Whether "." (any character but a line terminator) matches every character of the text.
bool holdsNoLineTerminator(std::string_view s) {
    for (std::size_t i = 0; i < s.size(); ++i) {
        auto byte = static_cast<unsigned char>(s[i]);
        if (byte >= '\n' && byte <= '\r') return false;
        if (s.substr(i).starts_with("\u0085") || s.substr(i).starts_with("\u2028") ||
            s.substr(i).starts_with("\u2029"))
            return false;
    }
    return true;
}

// "^\*\*(.+?)\*\*$" with "$1": the text starts and ends with "**"; "$" is its end (it ends in a
// star), so the lazy group can only be everything between the two pairs.
std::string_view withoutEnclosingBold(std::string_view s) {
    if (s.size() < 5) return s;
    std::string_view inner = s.substr(2, s.size() - 4);
    return holdsNoLineTerminator(inner) ? inner : s;
}

// "^[-*]\s+": a dash or star and at least one blank.
std::string_view withoutLeadingBullet(std::string_view s) {
    std::size_t end = blanksFrom(s, 1);
    return end > 1 ? s.substr(end) : s;
}

// --- Steps -----------------------------------------------------------------------------------

CoachMessageFormatting::ProceduralStep stepFromBody(std::string_view body) {
    CoachMessageFormatting::ProceduralStep step;
    bool first = true;
    for (std::string_view rawLine : splitOn(body, "\n")) {
        std::string_view line = trimmedView(rawLine);
        if (line.empty()) continue;
        std::string cleaned = CoachMessageFormatting::cleanDisplayMarkdown(line);
        if (first) {
            step.title = std::move(cleaned);
            first = false;
        } else if (!cleaned.empty()) {
            step.details.push_back(std::move(cleaned));
        }
    }
    return step;
}

// The procedure of a normalised text.
std::optional<CoachMessageFormatting::ProceduralContent> proceduralContentOf(
    const UnicodeString& u) {
    static const IcuRegex marker(u"(?i)Step\\s+(\\d+)\\s*:\\s*");
    if (!marker.isValid()) return std::nullopt;
    auto matches = marker.matchRangesAt(u, possibleStepWords(u));
    if (matches.size() < 2) return std::nullopt;
    CoachMessageFormatting::ProceduralContent content;
    if (matches.front().first >= 1)
        content.intro = text::trimmed(toUtf8(u.tempSubString(0, matches.front().first)));
    for (std::size_t i = 0; i < matches.size(); ++i) {
        int32_t start = matches[i].second;
        int32_t end = i + 1 < matches.size() ? matches[i + 1].first : u.length();
        if (end - start <= 0) continue;
        std::string body = toUtf8(u.tempSubString(start, end - start));
        if (!trimmedView(body).empty()) content.steps.push_back(stepFromBody(trimmedView(body)));
    }
    if (content.steps.size() < 2) return std::nullopt;
    return content;
}

// The paragraphs of a normalised text.
std::vector<std::string> blocksOf(const std::string& text) {
    std::vector<std::string> paragraphs;
    if (text.empty()) return paragraphs;
    for (std::string_view piece : splitOn(text, "\n\n")) {
        std::string paragraph = text::trimmed(piece);
        if (!paragraph.empty()) paragraphs.push_back(std::move(paragraph));
    }
    return paragraphs;
}

}  // namespace

std::string CoachMessageFormatting::normalize(std::string_view input) {
    return toUtf8(normalizedText(input));
}

std::string CoachMessageFormatting::cleanDisplayMarkdown(std::string_view input) {
    std::string_view trimmedInput = trimmedView(input);
    bool marked = trimmedInput.starts_with('*') || trimmedInput.starts_with('#') ||
                  trimmedInput.starts_with('-') || trimmedInput.ends_with('*');
    bool emphasised = text::contains(trimmedInput, "**") || text::contains(trimmedInput, "__");
    if (!marked && !emphasised) return std::string(trimmedInput);
    std::string text(trimmedInput);
    if (marked) {
        // Malformed bytes become U+FFFD, as when the patterns read the text as UTF-16.
        if (!text::isValidUtf8(text)) text = toUtf8(fromUtf8(text));
        std::string_view s = text;
        if (s.starts_with('*') || s.starts_with('#')) s = withoutLeadingHeadingMark(s);
        if (s.ends_with('*')) s = withoutTrailingStars(s);
        if (s.starts_with("**") && s.ends_with("**")) s = withoutEnclosingBold(s);
        if (s.starts_with('-') || s.starts_with('*')) s = withoutLeadingBullet(s);
        text = std::string(s);
    }
    return text::trimmed(replacingAll(replacingAll(text, "**", ""), "__", ""));
}

std::optional<CoachMessageFormatting::ProceduralContent>
CoachMessageFormatting::parseProceduralContent(std::string_view input) {
    return proceduralContentOf(normalizedText(input));
}

std::vector<std::string> CoachMessageFormatting::blocks(std::string_view input) {
    return blocksOf(normalize(input));
}

CoachMessageFormatting::ReplyLayout CoachMessageFormatting::layout(std::string_view input) {
    UnicodeString normalized = normalizedText(input);
    ReplyLayout layout{proceduralContentOf(normalized), {}};
    if (!layout.procedure) layout.blocks = blocksOf(toUtf8(normalized));
    return layout;
}

}  // namespace sagely
