#include <sagely/CoachMessageFormatting.h>

#include <sagely/Text.h>

#include "format/ReplyMarkers.h"
#include "format/Utf16.h"
#include "support/TextViews.h"
#include "support/WhiteSpace.h"

#include <unicode/uchar.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace sagely {
namespace {

using detail::assignUtf16;
using detail::blanksBefore;
using detail::blanksFrom;
using detail::followsLineFeed;
using detail::isAsciiBlank;
using detail::isAsciiDigit;
using detail::isDecimalDigit;
using detail::isLetterAt;
using detail::isWhiteSpace;
using detail::mayStartStepWord;
using detail::numberedItemEndFromDigits;
using detail::stepHeadingEnd;
using detail::stepMarkerAfterSentenceEndAmidNumberedItems;
using detail::stepMarkerEnd;
using detail::trimmedView;
using detail::utf8Of;

// --- The UTF-16 buffer of the repair ----------------------------------------------------------
// The repair works in one std::u16string buffer from step to step.

int32_t lengthOf(std::u16string_view u) {
    return static_cast<int32_t>(u.size());
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

bool isSpaceOrTab(char16_t c) {
    if (c < 0x80) return c == u' ' || c == u'\t';  // the only ASCII space separator is " "
    return u_charType(c) == U_SPACE_SEPARATOR;     // all space separators are BMP
}

// Trims White_Space from both ends, in place, as text::trimmed trims UTF-8.
void trimWhiteSpace(std::u16string& u) {
    const char16_t* text = u.data();
    int32_t start = 0;
    int32_t end = lengthOf(u);
    UChar32 c = 0;
    for (int32_t next = start; start < end; start = next) {
        U16_NEXT(text, next, end, c);
        if (!isWhiteSpace(c)) break;
    }
    for (int32_t previous = end; end > start; end = previous) {
        U16_PREV(text, start, previous, c);
        if (!isWhiteSpace(c)) break;
    }
    u.erase(static_cast<std::size_t>(end));
    u.erase(0, static_cast<std::size_t>(start));
}

// --- Scanning pairs of characters ----------------------------------------------------------
// The scans test each pair of neighbouring characters with comparisons only, a block at a time:
// the tests of a block vectorise, and a block without a candidate costs one branch. Random text
// would make a branch per character mispredict often. Tests for one of several characters are
// summed rather than or-ed, since the compiler makes a branch of such an or.

bool isAsciiLetter(char16_t c) {
    return static_cast<char16_t>((c | 0x20) - u'a') < 26;
}

bool isNonAscii(char16_t c) {
    return c >= 0x80;
}

// Whether the unit is `letter` (a lower-case ASCII letter) or its capital.
bool isEitherCaseOf(char16_t unit, char16_t letter) {
    return (unit | 0x20) == letter;
}

// What "[a-zA-Z0-9!)]" matches.
bool isSetFollowingCharacter(char16_t c) {
    return isAsciiLetter(c) | isAsciiDigit(c) | (c == u'!') | (c == u')');
}

constexpr std::size_t kScanBlock = 64;

// The places of the block at `text` where test(&text[j]) holds, as bits. Without a branch per
// character, for text with many: the tests of the block are made into bytes, which vectorises,
// and each eight bytes are packed into eight bits by one multiplication.
template <typename Test>
uint64_t placesWhere(const char16_t* text, Test test) {
    std::array<uint8_t, kScanBlock> isHit;
    for (std::size_t j = 0; j < kScanBlock; ++j) isHit[j] = test(text + j) != 0;
    static_assert(std::endian::native == std::endian::little, "isHit[j + k] is byte k");
    uint64_t hits = 0;
    for (std::size_t j = 0; j < kScanBlock; j += 8) {
        uint64_t eight = 0;
        std::memcpy(&eight, isHit.data() + j, sizeof eight);
        hits |= ((eight * 0x0102040810204080ULL) >> 56) << j;  // byte k of eight is bit k
    }
    return hits;
}

// Whether test(&text[j]) holds at any place of the block at `text`.
template <typename Test>
bool anyPlaceWhere(const char16_t* text, Test test) {
    unsigned any = 0;
    for (std::size_t i = 0; i < kScanBlock; ++i) any |= test(text + i);
    return any != 0;
}

// Calls onHit(i), in ascending order, for each i where hit(&text[i]) holds; `hit` reads the
// kWidth units from there (those past the end read as 0). `hit` must not branch, for the blocks
// to vectorise.
template <std::size_t kWidth, typename Hit, typename OnHit>
void forEachPlaceWhere(std::u16string_view u, Hit hit, OnHit onHit) {
    constexpr std::size_t kBlock = kScanBlock;
    // Whether any place of the block at `text` is a hit, and then which, as bits.
    auto blockHits = [&hit](const char16_t* text) -> uint64_t {
        return anyPlaceWhere(text, hit) ? placesWhere(text, hit) : 0;
    };
    auto report = [&onHit](std::size_t base, uint64_t hits, std::size_t count) {
        for (; hits != 0; hits &= hits - 1) {
            const auto j = static_cast<std::size_t>(std::countr_zero(hits));
            if (j < count) onHit(static_cast<int32_t>(base + j));
        }
    };
    std::size_t base = 0;
    for (; base + kBlock + kWidth - 1 <= u.size(); base += kBlock)  // every read is in the text
        report(base, blockHits(u.data() + base), kBlock);
    // The rest, a block at a time, followed by zeros.
    for (; base < u.size(); base += kBlock) {
        std::array<char16_t, kBlock + kWidth - 1> tail{};
        const std::size_t count = std::min(u.size() - base, tail.size());
        std::copy_n(u.begin() + static_cast<std::ptrdiff_t>(base), count, tail.begin());
        report(base, blockHits(tail.data()), std::min(count, kBlock));
    }
}

// Calls onHit(i), in ascending order, for each i where hit(text[i], text[i + 1]) holds (the
// character after the last is 0).
template <typename Hit, typename OnHit>
void forEachPairWhere(std::u16string_view u, Hit hit, OnHit onHit) {
    forEachPlaceWhere<2>(
        u, [&hit](const char16_t* at) { return hit(at[0], at[1]); }, onHit);
}

// --- Steps that drop characters or add line feeds -----------------------------------------
// Every step of the repair either only drops characters or only adds line feeds. A step that
// drops works in place, moving what it keeps down. A step that adds writes the text with its line
// feeds to a second buffer that each thread keeps (WorkingText), as it finds where they go.

// More line feeds than this at one place go in as this many: the run they are part of is then
// three or more line feeds long either way, which the repair collapses to two in the end (see
// collapseBlankRuns), and so the run is not written and read again to no effect.
constexpr int32_t kMostLineFeedsAtAPlace = 2;

// `count` line feeds to put before the character at `at` (or at the end, when `at` is the length).
struct LineBreaks {
    int32_t at;
    int32_t count;
};

// The line feeds a step puts in, in ascending order of position, kept in blocks: a small one
// first, for the few that most replies have, then blocks of a fixed size. Text dense in markers
// has some for every few characters: one array doubling to megabytes would move what it holds at
// each doubling and ask the system for fresh memory each time.
class BreakList {
public:
    /// Adds line feeds at `breaks.at`, which is at or after the last place in the list.
    void push_back(LineBreaks breaks) {
        if (m_last != nullptr && m_last->at == breaks.at) {
            m_last->count = std::min(m_last->count + breaks.count, kMostLineFeedsAtAPlace);
            return;
        }
        if (m_next == m_blockEnd) addBlock();
        *m_next = {breaks.at, std::min(breaks.count, kMostLineFeedsAtAPlace)};
        m_last = m_next++;
    }
    bool empty() const { return m_last == nullptr; }
    std::size_t blocks() const { return m_blocks.size(); }
    /// The entries of a block: none is empty.
    std::span<const LineBreaks> block(std::size_t b) const {
        const LineBreaks* entries = m_blocks[b].get();
        const LineBreaks* end = b + 1 < m_blocks.size() ? entries + sizeOf(b) : m_next;
        return {entries, static_cast<std::size_t>(end - entries)};
    }

private:
    static constexpr std::size_t kFirstBlock = 128;  // 1 KB
    static constexpr std::size_t kBlock = 4096;      // 32 KB, which the allocator keeps for reuse
    static constexpr std::size_t sizeOf(std::size_t block) {
        return block == 0 ? kFirstBlock : kBlock;
    }
    [[gnu::noinline]] void addBlock() {
        const std::size_t size = sizeOf(m_blocks.size());
        m_next = m_blocks.emplace_back(new LineBreaks[size]).get();
        m_blockEnd = m_next + size;
    }
    std::vector<std::unique_ptr<LineBreaks[]>> m_blocks;
    // Where the next entry goes, the end of its block, and the last entry (null in an empty
    // list): a list dense in entries adds one without working out its block.
    LineBreaks* m_next = nullptr;
    LineBreaks* m_blockEnd = nullptr;
    LineBreaks* m_last = nullptr;
};

// Reads a list's entries from the first on.
class BreakReader {
public:
    explicit BreakReader(const BreakList& list) : m_list(list) { enter(0); }
    bool done() const { return m_at == m_end; }
    LineBreaks current() const { return *m_at; }
    void advance() {
        if (++m_at == m_end) enter(m_block + 1);
    }

private:
    void enter(std::size_t block) {
        m_block = block;
        if (block == m_list.blocks()) return;  // m_at is m_end: done
        const std::span<const LineBreaks> entries = m_list.block(block);
        m_at = entries.data();
        m_end = entries.data() + entries.size();
    }
    const BreakList& m_list;
    std::size_t m_block = 0;
    const LineBreaks* m_at = nullptr;
    const LineBreaks* m_end = nullptr;
};

// The breaks of both lists in one, in order: one of them when the other is empty, else a merge
// of the two written to `merged`.
const BreakList& bothBreakLists(const BreakList& a, const BreakList& b, BreakList& merged) {
    if (a.empty()) return b;
    if (b.empty()) return a;
    BreakReader i(a);
    BreakReader j(b);
    for (; !i.done() && !j.done();) {
        BreakReader& first = i.current().at <= j.current().at ? i : j;
        merged.push_back(first.current());  // at the same place, the other's are added next
        first.advance();
    }
    for (BreakReader* rest : {&i, &j})
        for (; !rest->done(); rest->advance()) merged.push_back(rest->current());
    return merged;
}

// Writes the text with line feeds put in to a second buffer, as the places where they go are
// found, in ascending order: text dense in markers has some every few characters, and copying it
// forward once costs less than keeping a list of them and moving the text up afterwards. Nothing
// is written before the first place, so text without any costs nothing. The buffer is taken as
// it is, its length as room to write in: a thread keeps it from reply to reply (WorkingText).
class LineFeedWriter {
public:
    LineFeedWriter(std::u16string_view text, std::u16string& out)
        : m_text(text.data()), m_length(text.size()), m_out(out) {}
    LineFeedWriter(const LineFeedWriter&) = delete;
    LineFeedWriter& operator=(const LineFeedWriter&) = delete;

    /// Puts `count` line feeds before the character at `at`, at or after the last place. Inline
    /// in the scans, which call it for every few characters of text dense in markers.
    [[gnu::always_inline]] void put(int32_t at, int32_t count) {
        const auto place = static_cast<std::size_t>(at);
        if (place == m_from && m_to != nullptr) {  // more at the last place
            count = std::min(count, kMostLineFeedsAtAPlace - m_atLast);
            if (count <= 0) return;
        } else {
            count = std::min(count, kMostLineFeedsAtAPlace);
            m_atLast = 0;
        }
        const std::size_t piece = place - m_from;
        if (piece + kShortPiece + kMostLineFeedsAtAPlace > static_cast<std::size_t>(m_end - m_to))
            makeRoom(piece);
        char16_t* to = m_to;  // a local, which the copies below cannot be taken to change
        const char16_t* from = m_text + m_from;
        if (piece <= kShortPiece && m_from + kShortPiece <= m_length) {
            // A short piece, the usual one amid markers, moves as a copy of fixed size; what it
            // writes past the piece is written over next.
            std::memcpy(to, from, kShortPiece * sizeof(char16_t));
        } else {
            std::memcpy(to, from, piece * sizeof(char16_t));
        }
        to += piece;
        to[0] = u'\n';  // the second is written over when only one goes in
        to[1] = u'\n';
        m_to = to + count;
        m_atLast += count;
        m_from = place;
    }

    /// Writes the rest of the text. Whether any line feed went in: only then does the buffer
    /// hold the text, with them.
    bool finish() {
        if (m_to == nullptr) return false;
        const std::size_t rest = m_length - m_from;
        if (rest > static_cast<std::size_t>(m_end - m_to)) makeRoom(rest);
        std::memcpy(m_to, m_text + m_from, rest * sizeof(char16_t));
        m_out.resize(static_cast<std::size_t>(m_to - m_out.data()) + rest);
        return true;
    }

private:
    static constexpr std::size_t kShortPiece = 8;
    // The buffer is lengthened a little at a time, as the text written needs: lengthening a
    // string writes zeros over what it adds, and the buffer is kept at the length of the last
    // text it held. Room is reserved at first for the text and two thirds more, as much as the
    // repair can add ("1. " over and over), so that the buffer is not moved as it grows.
    [[gnu::noinline]] void makeRoom(std::size_t piece) {
        const std::size_t written =
            m_to == nullptr ? 0 : static_cast<std::size_t>(m_to - m_out.data());
        const std::size_t needed = written + piece + kShortPiece + kMostLineFeedsAtAPlace;
        if (m_to == nullptr) m_out.reserve(m_length + m_length * 2 / 3 + 64);
        if (m_out.size() < needed) m_out.resize(needed + m_length / 16 + 64);
        m_to = m_out.data() + written;
        m_end = m_out.data() + m_out.size();
    }
    const char16_t* m_text;
    std::size_t m_length;
    std::u16string& m_out;
    std::size_t m_from = 0;     // the text is written up to here
    char16_t* m_to = nullptr;   // where the next character goes; null until the first place
    char16_t* m_end = nullptr;  // the end of the room
    int32_t m_atLast = 0;       // the line feeds written at m_from
};

// Puts the line feeds of a list in as those of a scan are put in, each at its place in order.
class MergedLineFeeds {
public:
    MergedLineFeeds(LineFeedWriter& writer, const BreakList& breaks)
        : m_writer(writer), m_breaks(breaks) {}
    void put(int32_t at, int32_t count) {
        for (; !m_breaks.done() && m_breaks.current().at <= at; m_breaks.advance())
            m_writer.put(m_breaks.current().at, m_breaks.current().count);
        m_writer.put(at, count);
    }
    bool finish() {
        for (; !m_breaks.done(); m_breaks.advance())
            m_writer.put(m_breaks.current().at, m_breaks.current().count);
        return m_writer.finish();
    }

private:
    LineFeedWriter& m_writer;
    BreakReader m_breaks;
};

// "\r\n" becomes "\n".
void joinCarriageReturns(std::u16string& u) {
    std::size_t kept = u.find(u"\r\n");
    if (kept == std::u16string::npos) return;
    for (std::size_t i = kept; i < u.size(); ++i)
        if (u[i] != u'\r' || i + 1 == u.size() || u[i + 1] != u'\n') u[kept++] = u[i];
    u.resize(kept);
}

// Where the line that starts at `start` ends (its line feed or the end of the text) when it holds
// only heading marks, with spaces or tabs around them, else npos. Such a line starts with "#"
// once trimmed and holds no line terminator, so "^#+\s*.*$" matches it. The line is read only as
// far as the answer needs.
std::size_t emptyHeadingEnd(std::u16string_view text, std::size_t start) {
    std::size_t i = start;
    while (i < text.size() && isSpaceOrTab(text[i])) ++i;
    if (i == text.size() || text[i] != u'#') return std::u16string_view::npos;
    for (; i < text.size() && text[i] != u'\n'; ++i)
        if (text[i] != u'#' && !isSpaceOrTab(text[i])) return std::u16string_view::npos;
    return i;
}

// Whether a line that starts with `c` can be made only of heading marks (a space separator
// other than " " is not ASCII).
bool mayStartEmptyHeading(char16_t c) {
    return (c == u'#') + (c == u' ') + (c == u'\t') + isNonAscii(c);
}

// Drops the lines made only of heading marks; the others stay joined by line feeds. Only the
// lines that start like such a line are read, so most of the text is read a block at a time.
void dropEmptyHeadings(std::u16string& u) {
    // [start, end) of each line that goes
    std::vector<std::pair<std::size_t, std::size_t>> dropped;
    auto consider = [&](std::size_t start) {
        std::size_t end = emptyHeadingEnd(u, start);
        if (end != std::u16string_view::npos) dropped.emplace_back(start, end);
    };
    if (!u.empty() && mayStartEmptyHeading(u[0])) consider(0);
    forEachPairWhere(
        u, [](char16_t c, char16_t next) { return (c == u'\n') & mayStartEmptyHeading(next); },
        [&](int32_t i) { consider(static_cast<std::size_t>(i) + 1); });
    if (dropped.empty()) return;
    // The lines between two dropped ones (without the line feeds next to those) move down as one
    // block, and the blocks are joined by line feeds.
    std::size_t kept = 0;  // the length of the text kept so far
    bool keptAny = false;
    auto keep = [&](std::size_t from, std::size_t to) {
        if (keptAny) u[kept++] = u'\n';
        std::char_traits<char16_t>::move(u.data() + kept, u.data() + from, to - from);
        kept += to - from;
        keptAny = true;
    };
    std::size_t blockStart = 0;
    for (auto [start, end] : dropped) {
        if (start > blockStart) keep(blockStart, start - 1);
        blockStart = end + 1;
    }
    if (blockStart <= u.size()) keep(blockStart, u.size());
    u.resize(kept);
}

// Runs of three or more line feeds become two. The text is moved down as the runs are found: a
// run's text is only written below its third line feed, where the scan has read all it needs
// (it finds a run's end by reading on from there, and a place it reads again, a block's first,
// can only start a triple within the run).
void collapseBlankRuns(std::u16string& u) {
    char16_t* text = u.data();
    std::size_t kept = 0;    // the length of the text kept so far
    std::size_t from = 0;    // the start of the text not yet moved down
    std::size_t runEnd = 0;  // the end of the last run
    forEachPlaceWhere<3>(
        u,
        [](const char16_t* at) { return (at[0] == u'\n') & (at[1] == u'\n') & (at[2] == u'\n'); },
        [&](int32_t triple) {
            const auto start = static_cast<std::size_t>(triple);
            if (start < runEnd) return;  // within the last run
            runEnd = start + 3;
            while (runEnd < u.size() && text[runEnd] == u'\n') ++runEnd;
            const std::size_t length = start + 2 - from;  // up to the two line feeds kept
            if (length <= 16) {
                for (std::size_t i = 0; i < length; ++i) text[kept + i] = text[from + i];
            } else {
                std::char_traits<char16_t>::move(text + kept, text + from, length);
            }
            kept += length;
            from = runEnd;
        });
    if (from == 0) return;  // no run
    std::char_traits<char16_t>::move(text + kept, text + from, u.size() - from);
    u.resize(kept + u.size() - from);
}

// --- Where a pattern can match ---------------------------------------------------------------
// Each scan calls its callback, in ascending order, at every position where a match can start,
// and at a few more: the matchers decide. The scans only spare the matchers from trying the
// pattern at every position of the text, and they hand the positions on as they find them, so
// text dense in them costs no list of them.

// A case-insensitive "Step": "s", "S" or "ſ" before a "t" of either case, or "ﬅ" or "ﬆ" before
// an "e". No other character folds onto a piece of the word (ReplyMarkers' stepLettersFoldedFrom),
// so only these pairs can start one, and other text, in any script, costs no more than prose.
template <typename OnCandidate>
void forEachPossibleStepWord(std::u16string_view u, OnCandidate onCandidate) {
    forEachPairWhere(
        u,
        [](char16_t c, char16_t next) {
            const unsigned foldsToS = isEitherCaseOf(c, u's') | (c == u'\u017F');
            const unsigned foldsToSt = (c == u'\uFB05') | (c == u'\uFB06');
            return (foldsToS & isEitherCaseOf(next, u't')) |
                   (foldsToSt & isEitherCaseOf(next, u'e'));
        },
        onCandidate);
}

// Sentence punctuation right before a possible "Step" (the character after the last is 0).
template <typename OnCandidate>
void forEachPossibleSentenceEnd(std::u16string_view u, OnCandidate onCandidate) {
    forEachPairWhere(
        u,
        [](char16_t c, char16_t next) {
            unsigned punctuation = (c == u':') + (c == u'.') + (c == u'!') + (c == u'?');
            return punctuation & mayStartStepWord(next);
        },
        onCandidate);
}

// The length of the decimal digit at `i` (0 when there is none).
int32_t digitLength(const char16_t* text, int32_t i, int32_t length) {
    char16_t c = text[i];
    if (c < 0x80) return c >= u'0' && c <= u'9' ? 1 : 0;
    UChar32 codePoint = 0;
    int32_t next = i;
    U16_NEXT(text, next, length, codePoint);
    return isDecimalDigit(codePoint) ? next - i : 0;
}

// The start of the decimal digit that ends at `end` (`end` itself when there is none).
int32_t digitStartBefore(const char16_t* text, int32_t end) {
    char16_t c = text[end - 1];
    if (c < 0x80) return c >= u'0' && c <= u'9' ? end - 1 : end;
    UChar32 codePoint = 0;
    int32_t start = end;
    U16_PREV(text, 0, start, codePoint);
    return isDecimalDigit(codePoint) ? start : end;
}

// Calls onItem(start) for each numbered-list marker not at the start of a line
// ("(?<!\n)(\d+\.\s)"), in order, as successive finds of the pattern find them. A match can only
// start at the first digit of a run of digits that ends in a full stop, or at its second digit
// when a line feed precedes the first (the look-behind then fails there but not one digit later):
// a later digit cannot start a match where the first could not, as the greedy digits reach the
// same full stop either way. The runs are found from their full stops back, and only from those
// with a possible blank after them, which reads each digit once and branches little on other
// text. A run of ASCII digits with ASCII around it, the usual one, is read without decoding.
template <typename OnItem>
void forEachNumberedItem(std::u16string_view u, OnItem onItem) {
    const char16_t* text = u.data();
    const int32_t length = lengthOf(u);
    int32_t resumeAt = 0;  // the end of the last match
    auto tryAt = [&](int32_t at, int32_t stop) {
        if (at < resumeAt) return;
        const int32_t end = numberedItemEndFromDigits(u, at, stop);
        if (end < 0) return;
        onItem(at);
        resumeAt = end;
    };
    // The digit or character beyond ASCII at `i` before a full stop.
    auto tryEndingAt = [&](int32_t i) {
        const int32_t stop = i + 1;
        if (stop + 1 < length && text[stop + 1] < 0x80 && !isAsciiBlank(text[stop + 1])) return;
        int32_t runStart = stop;
        for (int32_t digit = 0;
             runStart > 0 && (digit = digitStartBefore(text, runStart)) < runStart;)
            runStart = digit;
        if (runStart == stop) return;
        tryAt(runStart, stop);
        if (runStart == 0 || text[runStart - 1] != u'\n') return;
        const int32_t second = runStart + digitLength(text, runStart, length);
        if (second < stop) tryAt(second, stop);
    };
    auto mayEndNumberBefore = [](char16_t c, char16_t next) {
        return (next == u'.') & (isAsciiDigit(c) | isNonAscii(c));
    };
    auto mayEndNumber = [&](const char16_t* at) { return mayEndNumberBefore(at[0], at[1]); };
    // A block of ASCII is read as bits: where a digit stands before a full stop and a blank, and
    // where no digit stands, so that each run's start is the place after the last non-digit
    // before its end. A block with a character beyond ASCII, or a run that starts before the
    // block, is read a candidate at a time.
    std::size_t base = 0;
    for (; base + kScanBlock + 2 <= u.size(); base += kScanBlock) {
        const char16_t* block = text + base;
        if (!anyPlaceWhere(block, mayEndNumber)) continue;
        const auto at = [base](uint64_t j) { return static_cast<int32_t>(base + j); };
        if (anyPlaceWhere(block, [](const char16_t* c) { return (c[0] | c[1] | c[2]) >= 0x80; })) {
            for (uint64_t hits = placesWhere(block, mayEndNumber); hits != 0; hits &= hits - 1)
                tryEndingAt(at(std::countr_zero(hits)));
            continue;
        }
        const uint64_t ends = placesWhere(block, [](const char16_t* c) {
            return isAsciiDigit(c[0]) & (c[1] == u'.') & isAsciiBlank(c[2]);
        });
        if (ends == 0) continue;
        const uint64_t nonDigits =
            placesWhere(block, [](const char16_t* c) { return !isAsciiDigit(c[0]); });
        for (uint64_t hits = ends; hits != 0; hits &= hits - 1) {
            const auto end = static_cast<uint64_t>(std::countr_zero(hits));
            const uint64_t before = nonDigits & ((uint64_t{1} << end) - 1);
            if (before == 0) {  // the run starts before the block
                tryEndingAt(at(end));
                continue;
            }
            int32_t start = at(kScanBlock - std::countl_zero(before));
            if (text[start - 1] == u'\n' && ++start > at(end)) continue;  // then from the second
            if (start < resumeAt) continue;
            onItem(start);
            resumeAt = at(end) + 3;
        }
    }
    forEachPairWhere(u.substr(base), mayEndNumberBefore,
                     [&](int32_t i) { tryEndingAt(static_cast<int32_t>(base) + i); });
}

// Tries `matchEnd` at each candidate position, in ascending order, as successive finds of one
// pattern do: a match is looked for only where no earlier match reaches; onMatch(start, end).
template <auto matchEnd, typename OnMatch>
auto successiveFinds(std::u16string_view u, OnMatch onMatch) {
    return [u, onMatch, resumeAt = int32_t{0}](int32_t at) mutable {
        if (at < resumeAt) return;
        const int32_t end = matchEnd(u, at);
        if (end < 0) return;
        onMatch(at, end);
        resumeAt = end;
    };
}

// --- Sentence starts -------------------------------------------------------------------------
// Step 7 applies "([a-zA-Z0-9!)])(<phrase>)" with "$1\n$2" for each phrase in turn. Every
// phrase starts with the only capital letter it holds, so no phrase starts inside another, and
// a line break put before one phrase can only stop another from matching at that same place (it
// puts a line feed after the letter); it never makes a match. So the passes are worked out on
// the text as it is, in one pass over the places where a capital follows such a character: at
// each, the first phrase in table order that matches there takes it, unless its previous match
// took the character before (successive finds of a pattern do not overlap).

constexpr std::array<std::u16string_view, 22> kSentenceStarts = {
    u"Click",    u"Select",    u"Open",   u"In the", u"Name your", u"Add a",  u"Add an", u"Press",
    u"Type",     u"Toggle",    u"Ensure", u"Verify", u"Switch",    u"Return", u"Grant",  u"Test",
    u"Optional", u"Would you", u"After ", u"Now ",   u"Try ",      u"Restart"};

// The phrases that start with each capital letter, as bits of their places in kSentenceStarts.
constexpr std::array<uint32_t, 26> kSentenceStartsByCapital = [] {
    std::array<uint32_t, 26> phrases{};
    for (std::size_t k = 0; k < kSentenceStarts.size(); ++k)
        phrases[kSentenceStarts[k][0] - u'A'] |= 1U << k;
    return phrases;
}();

// The first four characters of each phrase (none is shorter) as one number, the first lowest, so
// that a place where a phrase does not start is turned away by one comparison: text dense in
// capitals has a candidate every few characters.
constexpr std::size_t kHeadLength = 4;
constexpr std::array<uint64_t, kSentenceStarts.size()> kSentenceStartHeads = [] {
    std::array<uint64_t, kSentenceStarts.size()> heads{};
    for (std::size_t k = 0; k < kSentenceStarts.size(); ++k) {
        if (kSentenceStarts[k].size() < kHeadLength) throw "a phrase shorter than its head";
        for (std::size_t i = 0; i < kHeadLength; ++i)
            heads[k] |= uint64_t{kSentenceStarts[k][i]} << (16 * i);
    }
    return heads;
}();

// A line feed before each sentence start that follows a letter, digit, "!" or ")".
void splitSentenceStarts(std::u16string_view text, BreakList& breaks) {
    // Where each phrase's last match ended.
    std::array<std::size_t, kSentenceStarts.size()> resumeAt{};
    auto capitalAfterSetCharacter = [](char16_t c, char16_t next) {
        return isSetFollowingCharacter(c) & (static_cast<char16_t>(next - u'A') < 26);
    };
    forEachPairWhere(text, capitalAfterSetCharacter, [&](int32_t before) {
        const auto at = static_cast<std::size_t>(before) + 1;
        if (at + kHeadLength > text.size()) return;
        uint64_t head = 0;
        std::memcpy(&head, text.data() + at, sizeof head);
        static_assert(std::endian::native == std::endian::little && sizeof head == 2 * kHeadLength);
        for (uint32_t phrases = kSentenceStartsByCapital[text[at] - u'A']; phrases != 0;
             phrases &= phrases - 1) {
            auto k = static_cast<std::size_t>(std::countr_zero(phrases));
            if (head != kSentenceStartHeads[k] || at - 1 < resumeAt[k] ||
                !text.substr(at + kHeadLength).starts_with(kSentenceStarts[k].substr(kHeadLength)))
                continue;
            breaks.push_back({static_cast<int32_t>(at), 1});
            resumeAt[k] = at + kSentenceStarts[k].size();
            break;
        }
    });
}

// --- The repair ------------------------------------------------------------------------------

// Step markers, numbered items and glued sentences, each on a line of its own. Each pattern's
// template only puts line feeds around or between its groups, which together make up the whole
// match ("$1\n\n$2" with "(…)(…)", "\n\n$1\n" with "(…)"), so its replacements are line feeds put
// in at the ends of the groups.
void separateMarkers(std::u16string& u, std::u16string& spare) {
    // The first two patterns have the same marker, read once at each place for both. Their
    // line feeds only change where the second looks behind: a marker glued to the end of the
    // last one (as in "Step 1:Step 2:") has the first pattern's line feeds before it. Each keeps
    // its own successive finds.
    {
        const std::u16string_view text = u;
        LineFeedWriter out(text, spare);
        int32_t resumeGlued = 0;       // "(Step\s+\d+\s*:)([A-Za-z])", "$1\n\n$2"
        int32_t resumeNotAtStart = 0;  // "(?<!\n)(Step\s+\d+\s*:)", "\n\n$1\n"
        forEachPossibleStepWord(text, [&](int32_t at) {
            if (at < resumeGlued && at < resumeNotAtStart) return;
            const int32_t marker = stepMarkerEnd(text, at);
            if (marker < 0) return;
            const bool glued = at >= resumeGlued && isLetterAt(text, marker);
            const bool notAtStart =
                at >= resumeNotAtStart && !followsLineFeed(text, at) &&
                resumeGlued != at + 1;  // the first pattern's last match put line feeds here
            if (notAtStart) {
                out.put(at, 2);
                resumeNotAtStart = marker;
            }
            if (glued) resumeGlued = marker + 1;
            if (glued || notAtStart) out.put(marker, (glued ? 2 : 0) + (notAtStart ? 1 : 0));
        });
        if (out.finish()) u.swap(spare);
    }
    // The last three passes are worked out on the text as it is now, and their line feeds put
    // in together. None of them puts line feeds where a later one looks, but for the numbered
    // items' before a number, which "Step\s+\d+" after a sentence takes as blanks: the marker
    // pass finds those itself (stepMarkerAfterSentenceEndAmidNumberedItems). The sentence starts
    // need neither of the others': a numbered item's go before a digit, which no phrase holds,
    // and a marker's between sentence punctuation, which no phrase holds either, and a "Step",
    // which no phrase starts with. The numbered items are put in last, as they are found, with
    // the others at their places.
    BreakList sentenceEnds;
    forEachPossibleSentenceEnd(
        u, successiveFinds<stepMarkerAfterSentenceEndAmidNumberedItems>(
               u, [&](int32_t start, int32_t) {
                   sentenceEnds.push_back({start + 1, 2});  // "$1\n\n$2", after the punctuation
               }));
    BreakList sentenceStarts;
    splitSentenceStarts(u, sentenceStarts);
    BreakList merged;
    LineFeedWriter writer(u, spare);
    MergedLineFeeds out(writer, bothBreakLists(sentenceEnds, sentenceStarts, merged));
    forEachNumberedItem(u, [&](int32_t start) { out.put(start, 2); });  // "\n\n$1"
    if (out.finish()) u.swap(spare);
}

// The repair's working text, and a second buffer that steps adding line feeds write it to, kept
// on each thread from reply to reply up to kKeptUnits each: a long reply's are megabytes, and
// fresh memory for them on every reply costs more than the repair itself (and glibc hands memory
// that large back to the system when it is freed). Repairs do not nest: none of their steps
// starts another.
class WorkingText {
public:
    WorkingText() { t_text.clear(); }
    ~WorkingText() {
        for (std::u16string* buffer : {&t_text, &t_spare})
            if (buffer->capacity() > kKeptUnits) std::u16string().swap(*buffer);
    }
    WorkingText(const WorkingText&) = delete;
    WorkingText& operator=(const WorkingText&) = delete;
    std::u16string& text() { return t_text; }
    std::u16string& spare() { return t_spare; }

private:
    static constexpr std::size_t kKeptUnits = std::size_t{4} << 20;  // 8 MB
    static thread_local std::u16string t_text;
    static thread_local std::u16string t_spare;
};

thread_local std::u16string WorkingText::t_text;
thread_local std::u16string WorkingText::t_spare;

// normalize, ending in UTF-16 (in `text`) so that the step parser can use it as it is.
std::u16string& normalizedText(std::string_view input, WorkingText& working) {
    std::u16string& text = working.text();
    text.reserve(input.size() + input.size() / 8);  // room for the line feeds the steps add
    assignUtf16(text, trimmedView(input));
    joinCarriageReturns(text);
    dropEmptyHeadings(text);
    separateMarkers(text, working.spare());
    dropEmptyHeadings(text);
    collapseBlankRuns(text);
    trimWhiteSpace(text);
    return text;
}

// --- Cleaning a line ------------------------------------------------------------------------
// The four patterns of the cleaning act at the ends of the text, and each is applied here by
// reading the marks and blanks it would match: ICU tries "\s*\**$" at every position of a long
// run of blanks and reads the rest of the run each time, and converting a long line to UTF-16
// and back costs more than the cleaning itself. "\s" is White_Space, as in ICU. The text is
// valid UTF-8 by then (checked once).

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

// Whether "." (any character but a line terminator) matches every character of the text. Only
// a byte from "\n" to "\r" or the lead byte of U+0085 (C2) or U+2028/U+2029 (E2) can start one.
bool holdsNoLineTerminator(std::string_view s) {
    for (std::size_t i = 0; i < s.size(); ++i) {
        auto byte = static_cast<unsigned char>(s[i]);
        if (static_cast<unsigned char>(byte - '\n') < 4) return false;
        if ((byte == 0xC2 || byte == 0xE2) &&
            (s.substr(i).starts_with("\u0085") || s.substr(i).starts_with("\u2028") ||
             s.substr(i).starts_with("\u2029")))
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

// Whether a "**" starts at i, or a "_" stands there.
bool isEmphasisAt(std::string_view s, std::size_t i) {
    return (s[i] == '_') | ((s[i] == '*') & (i + 1 < s.size() && s[i + 1] == '*'));
}

constexpr std::size_t kMarkBlock = 32;

// The first place from i on where isEmphasisAt holds (the end when none). The next few bytes
// are tried one at a time, for marks close together, then blocks without a branch per byte,
// which vectorises; a lone "*" costs nothing more than prose.
std::size_t nextEmphasis(std::string_view s, std::size_t i) {
    for (std::size_t stop = std::min(i + 8, s.size()); i < stop; ++i)
        if (isEmphasisAt(s, i)) return i;
    for (; i + kMarkBlock < s.size(); i += kMarkBlock) {  // s[j + 1] is within the text
        unsigned any = 0;
        for (std::size_t j = i; j < i + kMarkBlock; ++j)
            any |= (s[j] == '_') | ((s[j] == '*') & (s[j + 1] == '*'));
        if (any) break;
    }
    while (i < s.size() && !isEmphasisAt(s, i)) ++i;
    return i;
}

// Whether the text holds a "**" or a "__", read a block at a time (text without either mark
// is passed over by a search for each).
bool holdsEmphasis(std::string_view s) {
    if (s.find('*') == std::string_view::npos && s.find('_') == std::string_view::npos)
        return false;
    auto pairAt = [&](std::size_t j) {
        return ((s[j] == '*') & (s[j + 1] == '*')) | ((s[j] == '_') & (s[j + 1] == '_'));
    };
    std::size_t i = 0;
    for (; i + kMarkBlock < s.size(); i += kMarkBlock) {
        unsigned any = 0;
        for (std::size_t j = i; j < i + kMarkBlock; ++j) any |= pairAt(j);
        if (any) return true;
    }
    for (; i + 1 < s.size(); ++i)
        if (pairAt(i)) return true;
    return false;
}

std::size_t runEnd(std::string_view s, std::size_t i, char mark) {
    while (i < s.size() && s[i] == mark) ++i;
    return i;
}

// Keeps text[from, to) with every "**" taken out, then every "__" of what is left (each from
// left to right, as a replace-all does), in one pass: taking out a "**" can make a "__" of the
// two "_" around it. A run of marks is taken whole: of n stars, n / 2 pairs go and an odd one
// stays last; of n underscores, with the one left open before, every pair goes. What is kept
// moves down to the start of the text: it is never written past where it is read.
void takeOutEmphasis(std::string& text, std::size_t from, std::size_t to) {
    const std::string_view s(text.data(), to);
    char* out = text.data();
    std::size_t kept = 0;
    bool openUnderscore = false;  // whether what is kept ends in a "_" that no "__" took
    for (std::size_t i = from; i < to;) {
        std::size_t mark = nextEmphasis(s, i);
        if (mark > i) {
            std::char_traits<char>::move(out + kept, s.data() + i, mark - i);
            kept += mark - i;
            openUnderscore = false;
            i = mark;
            continue;
        }
        const char c = s[i];
        const std::size_t end = runEnd(s, i, c);
        const std::size_t count = end - i;
        i = end;
        if (c == '*') {
            if (count % 2 == 1) {
                out[kept++] = '*';
                openUnderscore = false;
            }
        } else if (openUnderscore != (count % 2 == 1)) {  // one "_" left open after the run
            if (!openUnderscore) out[kept++] = '_';
            openUnderscore = true;
        } else {
            if (openUnderscore) --kept;
            openUnderscore = false;
        }
    }
    text.resize(kept);
}

// Keeps only the part of the text that `part` (a view into it) shows.
void keepOnly(std::string& text, std::string_view part) {
    const auto from = static_cast<std::size_t>(part.data() - text.data());
    text.resize(from + part.size());
    text.erase(0, from);
}

// cleanDisplayMarkdown, in the text's own buffer: every step only cuts characters out, so only
// a text with malformed bytes to replace needs another.
void cleanInPlace(std::string& text) {
    std::string_view s = trimmedView(text);
    bool marked =
        s.starts_with('*') || s.starts_with('#') || s.starts_with('-') || s.ends_with('*');
    // The steps below only cut the ends off and turn malformed bytes (never ASCII ones) into
    // U+FFFD, so they make no "**" or "__" that was not there.
    bool emphasised = holdsEmphasis(s);
    if (marked) {
        // Malformed bytes become U+FFFD, as when the patterns read the text as UTF-16.
        if (!text::isValidUtf8(s)) {
            std::u16string u;
            assignUtf16(u, s);
            text = utf8Of(u);
            s = text;
        }
        if (s.starts_with('*') || s.starts_with('#')) s = withoutLeadingHeadingMark(s);
        if (s.ends_with('*')) s = withoutTrailingStars(s);
        if (s.starts_with("**") && s.ends_with("**")) s = withoutEnclosingBold(s);
        if (s.starts_with('-') || s.starts_with('*')) s = withoutLeadingBullet(s);
    }
    if (!emphasised) {
        keepOnly(text, trimmedView(s));
        return;
    }
    const auto from = static_cast<std::size_t>(s.data() - text.data());
    takeOutEmphasis(text, from, from + s.size());
    keepOnly(text, trimmedView(text));
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
    std::u16string_view u) {
    std::vector<std::pair<int32_t, int32_t>> matches;  // [start, end) of each step heading
    forEachPossibleStepWord(u, successiveFinds<stepHeadingEnd>(u, [&](int32_t start, int32_t end) {
                                matches.emplace_back(start, end);
                            }));
    if (matches.size() < 2) return std::nullopt;
    CoachMessageFormatting::ProceduralContent content;
    if (matches.front().first >= 1)
        content.intro = text::trimmed(utf8Of(u.substr(0, matches.front().first)));
    for (std::size_t i = 0; i < matches.size(); ++i) {
        int32_t start = matches[i].second;
        int32_t end = i + 1 < matches.size() ? matches[i + 1].first : lengthOf(u);
        if (end - start <= 0) continue;
        std::string body = utf8Of(u.substr(start, end - start));
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
    WorkingText working;
    return utf8Of(normalizedText(input, working));
}

std::string CoachMessageFormatting::cleanDisplayMarkdown(std::string_view input) {
    std::string text(trimmedView(input));
    cleanInPlace(text);
    return text;
}

std::string CoachMessageFormatting::cleanDisplayMarkdown(std::string&& input) {
    std::string text = std::move(input);
    cleanInPlace(text);
    return text;
}

std::optional<CoachMessageFormatting::ProceduralContent>
CoachMessageFormatting::parseProceduralContent(std::string_view input) {
    WorkingText working;
    return proceduralContentOf(normalizedText(input, working));
}

std::vector<std::string> CoachMessageFormatting::blocks(std::string_view input) {
    return blocksOf(normalize(input));
}

CoachMessageFormatting::ReplyLayout CoachMessageFormatting::layout(std::string_view input) {
    WorkingText working;
    const std::u16string& normalized = normalizedText(input, working);
    ReplyLayout layout{proceduralContentOf(normalized), {}};
    if (!layout.procedure) layout.blocks = blocksOf(utf8Of(normalized));
    return layout;
}

}  // namespace sagely
