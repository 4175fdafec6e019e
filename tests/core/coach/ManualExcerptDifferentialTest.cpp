// The guide excerpts of the prepared, indexed guide against the excerpts as they were first
// written (kept below as the reference: every term looked for in every section on each
// question), on the worked cases and on thousands of random guides and questions.
#include <sagely/CoachPromptBudget.h>

#include <sagely/Text.h>

#include "support/TextViews.h"

#include <gtest/gtest.h>

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <cstring>

#include <algorithm>
#include <array>
#include <chrono>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace reference {

using namespace sagely;

// The byte search and ASCII helpers the first implementation used, as they were.
namespace detail {
using namespace sagely::detail;

std::size_t findBytes(std::string_view haystack, std::string_view needle) {
    const std::size_t m = needle.size();
    const std::size_t n = haystack.size();
    if (m < 2 || m > n) return haystack.find(needle);  // memchr is the fastest for one byte
    using Block = unsigned char __attribute__((vector_size(16)));
    const Block first = Block{} + static_cast<unsigned char>(needle.front());
    const Block last = Block{} + static_cast<unsigned char>(needle.back());
    const char* text = haystack.data();
    std::size_t i = 0;
    for (; i + (m - 1) + sizeof(Block) <= n; i += sizeof(Block)) {
        Block starts, ends;
        std::memcpy(&starts, text + i, sizeof(Block));
        std::memcpy(&ends, text + i + m - 1, sizeof(Block));
        auto candidates = (starts == first) & (ends == last);
        std::uint64_t halves[2];
        std::memcpy(halves, &candidates, sizeof(halves));
        if ((halves[0] | halves[1]) == 0) continue;
        for (std::size_t j = 0; j < sizeof(Block); ++j)
            if (candidates[j] && std::memcmp(text + i + j + 1, needle.data() + 1, m - 2) == 0)
                return i + j;
    }
    std::size_t rest = haystack.substr(i).find(needle);
    return rest == std::string_view::npos ? rest : i + rest;
}

// Both loops are branch-free, so the compiler vectorises them.
bool isAscii(std::string_view s) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(s.data());
    unsigned char seen = 0;
    for (std::size_t i = 0; i < s.size(); ++i) seen |= bytes[i];
    return (seen & 0x80) == 0;
}

void lowercaseAsciiInto(std::string_view s, std::string& out) {
    out.resize(s.size());
    const auto* in = reinterpret_cast<const unsigned char*>(s.data());
    auto* lowered = reinterpret_cast<unsigned char*>(out.data());
    for (std::size_t i = 0; i < s.size(); ++i) {
        unsigned char c = in[i];
        lowered[i] =
            static_cast<unsigned char>(c + (static_cast<unsigned char>(c - 'A') < 26 ? 32 : 0));
    }
}

}  // namespace detail

constexpr std::string_view kEllipsis = "\u2026";
constexpr std::string_view kSetupPreface = "PREFER THESE SETUP GUIDE SECTIONS WHEN ANSWERING:\n\n";

constexpr std::array<std::string_view, 27> kStopWords = {
    "a",   "an",  "the",    "is",  "are",   "what", "does", "do", "how",
    "can", "you", "tell",   "me",  "about", "in",   "for",  "to", "of",
    "and", "or",  "tessel", "pro", "this",  "that", "it",   "i",  "app"};

// --- Guide sections ------------------------------------------------------------------------
// Sections are found as views into the guide: a body is the run of lines under its heading,
// which is a stretch of the guide itself, so nothing is copied until a section is chosen.

struct SectionView {
    std::string_view title;
    std::string_view body;
    int order = 0;
};

bool isHeading(std::string_view line) {
    return line.starts_with("## ") || line.starts_with("### ") || line.starts_with("#### ");
}

std::string_view headingTitle(std::string_view line) {
    auto isMark = [](char c) { return c == '#' || c == ' '; };
    while (!line.empty() && isMark(line.front())) line.remove_prefix(1);
    while (!line.empty() && isMark(line.back())) line.remove_suffix(1);
    return detail::trimmedSpacesAndTabsView(line);
}

class SectionCollector {
public:
    explicit SectionCollector(std::string_view guide) : m_guide(guide) {}

    void heading(std::string_view line) {
        closeIfCollected();
        m_title = headingTitle(line);
    }
    void bodyLine(std::string_view line) {
        if (!m_collecting) m_bodyStart = offsetOf(line);
        m_bodyEnd = offsetOf(line) + line.size();
        m_collecting = true;
    }
    std::vector<SectionView> finish() {
        closeIfCollected();
        std::erase_if(m_sections, [](const SectionView& s) {
            return s.title == "Introduction" && s.body.empty();
        });
        return std::move(m_sections);
    }

private:
    std::size_t offsetOf(std::string_view part) const {
        return static_cast<std::size_t>(part.data() - m_guide.data());
    }
    void closeIfCollected() {
        if (!m_collecting) return;
        std::string_view lines = m_guide.substr(m_bodyStart, m_bodyEnd - m_bodyStart);
        int order = static_cast<int>(m_sections.size());
        m_sections.push_back({m_title, detail::trimmedView(lines), order});
        m_collecting = false;
    }

    std::string_view m_guide;
    std::vector<SectionView> m_sections;
    std::string_view m_title = "Introduction";
    std::size_t m_bodyStart = 0;
    std::size_t m_bodyEnd = 0;
    bool m_collecting = false;
};

std::vector<SectionView> sectionViews(std::string_view guide) {
    SectionCollector collector(guide);
    for (std::size_t start = 0; start <= guide.size();) {
        std::size_t end = guide.find('\n', start);
        if (end == std::string_view::npos) end = guide.size();
        std::string_view line = guide.substr(start, end - start);
        if (isHeading(line))
            collector.heading(line);
        else
            collector.bodyLine(line);
        start = end + 1;
    }
    return collector.finish();
}

// --- Query terms and scoring ---------------------------------------------------------------

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

bool isAlphanumeric(UChar32 c) {
    return (U_GET_GC_MASK(c) & (U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK)) != 0;
}

// The lower-cased query cut at every character that is not a letter, mark or number.
std::vector<std::string_view> words(std::string_view lowered) {
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    int32_t i = 0;
    const auto length = static_cast<int32_t>(lowered.size());
    while (i < length) {
        int32_t begin = i;
        UChar32 c = 0;
        U8_NEXT(reinterpret_cast<const uint8_t*>(lowered.data()), i, length, c);
        if (c >= 0 && isAlphanumeric(c)) continue;
        pieces.push_back(lowered.substr(start, static_cast<std::size_t>(begin) - start));
        start = static_cast<std::size_t>(i);
    }
    pieces.push_back(lowered.substr(start));
    return pieces;
}

bool isStopWord(std::string_view word) {
    return std::find(kStopWords.begin(), kStopWords.end(), word) != kStopWords.end();
}

std::set<std::string> termsOfLoweredQuery(std::string_view q) {
    std::set<std::string> terms;
    for (std::string_view word : words(q))
        if (text::hasMoreCharactersThan(word, 2) && !isStopWord(word)) terms.emplace(word);
    if (contains(q, "set up") || contains(q, "setup")) terms.insert({"setup", "speech"});
    if (contains(q, "configure")) terms.insert("configure");
    if (contains(q, "speech")) terms.insert("speech");
    if (contains(q, "voice")) terms.insert("voice");
    return terms;
}

bool loweredQueryHasSetupIntent(std::string_view q) {
    static constexpr std::array<std::string_view, 7> kPhrases = {
        "set up", "setup", "configure", "get started", "getting started", "how do i", "how to"};
    return std::any_of(kPhrases.begin(), kPhrases.end(),
                       [&](std::string_view p) { return contains(q, p); });
}

struct Query {
    std::string lowered;
    std::set<std::string> terms;
    bool setupIntent = false;
};

Query analysed(std::string_view query) {
    Query q{text::lowercased(query), {}, false};
    q.terms = termsOfLoweredQuery(q.lowered);
    q.setupIntent = loweredQueryHasSetupIntent(q.lowered);
    return q;
}

int setupBonus(const Query& q, std::string_view title) {
    int bonus = contains(title, "setup guide") ? 12 : 0;
    if (!title.starts_with("set up ")) return bonus;
    for (std::string_view topic : {"speech", "teach", "coach"})
        if (contains(q.lowered, topic) && contains(title, topic)) bonus += 15;
    return bonus;
}

int topicBonus(const Query& q, std::string_view title) {
    int bonus = 0;
    bool asksSpeech = contains(q.lowered, "speech") || contains(q.lowered, "voice");
    if (asksSpeech && (contains(title, "speech") || contains(title, "voice control"))) bonus += 6;
    if (contains(q.lowered, "shortcut") && contains(title, "shortcut")) bonus += 5;
    if (contains(q.lowered, "permission") && contains(title, "permission")) bonus += 5;
    return bonus;
}

// Everything a section earns from its (lower-cased) title.
int titleScore(const Query& q, std::string_view title) {
    int total = 0;
    for (const std::string& term : q.terms)
        if (contains(title, term)) total += 4;
    if (q.setupIntent) total += setupBonus(q, title);
    return total + topicBonus(q, title);
}

int bodyScore(const Query& q, std::string_view body) {
    int total = 0;
    for (const std::string& term : q.terms)
        if (detail::findBytes(body, term) != std::string_view::npos) total += 1;
    return total;
}

std::size_t offsetIn(std::string_view text, std::string_view part) {
    return static_cast<std::size_t>(part.data() - text.data());
}

// Adds 1 for the term to every section of the run whose body contains it, with one scan of
// the run's lower-cased text: a hit inside a body settles that body, so the scan resumes after.
void addBodyHits(std::string_view lowered, std::size_t runStart,
                 const std::vector<SectionView>& sections, std::size_t first, std::size_t last,
                 std::string_view guide, std::string_view term, std::vector<int>& scores) {
    std::size_t k = first;
    for (std::size_t position = 0; position < lowered.size();) {
        std::size_t hit = detail::findBytes(lowered.substr(position), term);
        if (hit == std::string_view::npos) return;
        std::size_t offset = runStart + position + hit;
        while (k < last && offsetIn(guide, sections[k].body) + sections[k].body.size() <= offset)
            ++k;
        if (k == last) return;
        std::size_t bodyStart = offsetIn(guide, sections[k].body);
        std::size_t bodyEnd = bodyStart + sections[k].body.size();
        if (offset < bodyStart) {  // in a heading line, or in blank lines around a body
            position = offset + 1 - runStart;
            continue;
        }
        if (offset + term.size() <= bodyEnd) scores[k] += 1;
        position = bodyEnd - runStart;  // any later hit in this body would run past its end too
    }
}

// The sections [first, last) whose bodies span about 64 KB of the guide (at least one).
std::size_t endOfRun(std::string_view guide, const std::vector<SectionView>& sections,
                     std::size_t first) {
    constexpr std::size_t kRunBytes = 64 * 1024;
    std::size_t runStart = offsetIn(guide, sections[first].body);
    std::size_t last = first + 1;
    while (last < sections.size() &&
           offsetIn(guide, sections[last - 1].body) + sections[last - 1].body.size() - runStart <
               kRunBytes)
        ++last;
    return last;
}

// Scores the sections of an ASCII guide run by run: each run of whole sections is lower-cased
// into one reused buffer (a part of an ASCII text lower-cases to the same stretch of the copy)
// and every term is looked for while the run is in the cache.
std::vector<int> asciiScores(const Query& q, std::string_view guide,
                             const std::vector<SectionView>& sections) {
    std::vector<int> scores(sections.size(), 0);
    std::string lowered;
    for (std::size_t first = 0, last = 0; first < sections.size(); first = last) {
        last = endOfRun(guide, sections, first);
        std::size_t runStart = offsetIn(guide, sections[first].body);
        std::size_t runEnd =
            offsetIn(guide, sections[last - 1].body) + sections[last - 1].body.size();
        detail::lowercaseAsciiInto(guide.substr(runStart, runEnd - runStart), lowered);
        for (const std::string& term : q.terms)
            addBodyHits(lowered, runStart, sections, first, last, guide, term, scores);
    }
    for (std::size_t k = 0; k < sections.size(); ++k)
        scores[k] += titleScore(q, text::lowercased(sections[k].title));
    return scores;
}

// Scores of the sections of any other guide, each title and body lower-cased on its own (full
// Unicode lower-casing depends on the surrounding text, so a part is not a slice of the whole).
std::vector<int> unicodeScores(const Query& q, const std::vector<SectionView>& sections) {
    std::vector<int> scores;
    scores.reserve(sections.size());
    for (const SectionView& section : sections)
        scores.push_back(titleScore(q, text::lowercased(section.title)) +
                         bodyScore(q, text::lowercased(section.body)));
    return scores;
}

struct RankedView {
    const SectionView* section;
    int score;
};

std::vector<RankedView> ranked(const Query& q, std::string_view guide,
                               const std::vector<SectionView>& sections) {
    std::vector<int> scores =
        detail::isAscii(guide) ? asciiScores(q, guide, sections) : unicodeScores(q, sections);
    std::vector<RankedView> result;
    result.reserve(sections.size());
    for (std::size_t k = 0; k < sections.size(); ++k) result.push_back({&sections[k], scores[k]});
    std::stable_sort(result.begin(), result.end(),
                     [](const RankedView& a, const RankedView& b) { return a.score > b.score; });
    return result;
}

CoachPromptBudget::ManualSection owned(const SectionView& view) {
    return {std::string(view.title), std::string(view.body), view.order};
}

// --- Excerpt -------------------------------------------------------------------------------

std::string startOfGuide(std::string_view guide, std::size_t maxChars) {
    return detail::leadingCharacters(guide, maxChars > 0 ? maxChars - 1 : 0) +
           std::string(kEllipsis);
}

struct Excerpt {
    std::string text;
    std::size_t characters = 0;
};

// The ranked sections joined while they fit. The result never ends in a carriage return and
// each join starts with a line feed, so the character count of a join is the sum of its parts.
Excerpt joinedSections(const std::vector<RankedView>& ranking, std::size_t maxChars) {
    Excerpt result;
    const std::size_t twoThirds = 2 * maxChars / 3;
    for (const RankedView& entry : ranking) {
        // The ranking is sorted, so once one unscored section is skipped all the rest would be.
        if (entry.score < 1 && !result.text.empty()) break;
        std::string block =
            "### " + std::string(entry.section->title) + "\n\n" + std::string(entry.section->body);
        std::size_t separator = result.text.empty() ? 0 : 2;
        std::size_t used = result.characters + separator;
        if (used > maxChars || detail::hasMoreCharacters(block, maxChars - used)) break;
        result.characters = used + text::characterCount(block);
        if (separator) result.text.append("\n\n");
        result.text.append(block);
        if (result.characters >= twoThirds && entry.score >= 1) break;
    }
    return result;
}

std::vector<CoachPromptBudget::RankedSection> rankSections(std::string_view manual,
                                                           std::string_view query) {
    std::string_view guide = detail::trimmedView(manual);
    std::vector<SectionView> sections = sectionViews(guide);
    std::vector<CoachPromptBudget::RankedSection> result;
    for (const RankedView& entry : ranked(analysed(query), guide, sections))
        result.push_back({owned(*entry.section), entry.score});
    return result;
}

std::string relevantManualExcerpt(std::string_view manual, std::string_view query,
                                  std::size_t maxChars) {
    std::string_view guide = detail::trimmedView(manual);
    if (guide.empty()) return {};
    if (!detail::hasMoreCharacters(guide, maxChars)) return std::string(guide);
    Query q = analysed(query);
    std::vector<SectionView> sections = sectionViews(guide);
    if (sections.empty()) return startOfGuide(guide, maxChars);
    Excerpt excerpt = joinedSections(ranked(q, guide, sections), maxChars);
    std::string result =
        excerpt.characters < maxChars / 4 ? startOfGuide(guide, maxChars) : std::move(excerpt.text);
    bool prefersSetup =
        (q.setupIntent && contains(result, "Setup Guides")) || contains(result, "Set Up Speech");
    return prefersSetup ? std::string(kSetupPreface) + result : result;
}

}  // namespace reference

#include "support/SampleGuides.h"

#include <sagely/SagelyKnowledge.h>

using sagely::CoachPromptBudget;

namespace {

struct Case {
    std::string guide;
    std::string query;
    std::size_t maxChars;
};

::testing::AssertionResult sameAsReference(const Case& c) {
    std::string expected = reference::relevantManualExcerpt(c.guide, c.query, c.maxChars);
    std::string actual = CoachPromptBudget::relevantManualExcerpt(c.guide, c.query, c.maxChars);
    if (actual != expected)
        return ::testing::AssertionFailure()
               << "excerpt differs\nguide: " << ::testing::PrintToString(c.guide)
               << "\nquery: " << ::testing::PrintToString(c.query) << "\nmaxChars: " << c.maxChars
               << "\nexpected: " << ::testing::PrintToString(expected)
               << "\nactual: " << ::testing::PrintToString(actual);
    auto expectedRanking = reference::rankSections(c.guide, c.query);
    auto actualRanking = CoachPromptBudget::rankSections(c.guide, c.query);
    bool same = expectedRanking.size() == actualRanking.size();
    for (std::size_t i = 0; same && i < actualRanking.size(); ++i) {
        const auto& a = actualRanking[i];
        const auto& e = expectedRanking[i];
        same = a.score == e.score && a.section.title == e.section.title &&
               a.section.body == e.section.body && a.section.order == e.section.order;
    }
    if (!same)
        return ::testing::AssertionFailure()
               << "ranking differs\nguide: " << ::testing::PrintToString(c.guide)
               << "\nquery: " << ::testing::PrintToString(c.query);
    return ::testing::AssertionSuccess();
}

// Pieces that exercise every rule: headings of each level (and the level-one heading that is
// not one), the words the bonuses look for, stop words, line breaks of each kind, blanks that
// trimming removes, and text whose lower-casing or grapheme clusters are not one byte per byte
// (a combining mark right after a heading's blank, an emoji with a modifier, "İ", "ẞ", "ſt").
const std::array<std::string, 44> kGuidePieces = {"\n## ",
                                                  "\n### ",
                                                  "\n#### ",
                                                  "\n# ",
                                                  "\n##",
                                                  "\n",
                                                  "\n\n",
                                                  "\r\n",
                                                  " ",
                                                  "\t",
                                                  "\u00A0",
                                                  "Setup Guides",
                                                  "Set Up ",
                                                  "set up ",
                                                  "speech",
                                                  "Speech",
                                                  "voice control",
                                                  "Voice",
                                                  "shortcut",
                                                  "Permission",
                                                  "teach",
                                                  "coach",
                                                  "configure",
                                                  "widget",
                                                  "Widgets",
                                                  "the",
                                                  "how",
                                                  "app",
                                                  "TESSEL",
                                                  "error42",
                                                  "\u0301",
                                                  "e\u0301",
                                                  "\U0001F44D\U0001F3FD",
                                                  "\u0130nfo",
                                                  "\u1E9E",
                                                  "stra\u00DFe",
                                                  "\uFB05ep",
                                                  "caf\u00C9",
                                                  "\u2026",
                                                  ".",
                                                  ",",
                                                  "-",
                                                  "#",
                                                  "setupguide"};

const std::array<std::string, 34> kQueryPieces = {
    "how do i",   "set up",  "setup",       "configure",  "get started", "getting started",
    "how to",     "speech",  "voice",       "shortcut",   "permission",  "teach",
    "coach",      "widget",  "widgets",     "the",        "what",        "is",
    "tessel",     "pro",     "app",         "error42",    "caf\u00E9",   "\u0130nfo",
    "i\u0307nfo", "strasse", "stra\u00DFe", "\U0001F44D", "e\u0301",     "ab",
    "up",         "?",       " ",           "-"};

std::string randomText(std::mt19937& random, const auto& pieces, std::size_t count) {
    std::uniform_int_distribution<std::size_t> piece(0, pieces.size() - 1);
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += pieces[piece(random)];
    return text;
}

std::vector<Case> randomCases(std::size_t count, unsigned seed) {
    static constexpr std::array<std::size_t, 9> kLimits = {0, 1, 3, 10, 40, 100, 250, 1500, 24000};
    std::mt19937 random(seed);
    std::uniform_int_distribution<std::size_t> guideLength(0, 160), queryLength(0, 8),
        limit(0, kLimits.size() - 1);
    std::vector<Case> cases;
    for (std::size_t i = 0; i < count; ++i) {
        std::string guide = randomText(random, kGuidePieces, guideLength(random));
        std::string query = randomText(random, kQueryPieces, queryLength(random));
        cases.push_back({guide, query, kLimits[limit(random)]});
    }
    return cases;
}

// Pieces of the words and phrases the scoring looks for, and the separators that may split or
// join them, so that random questions hold them whole, broken and run together.
const std::array<std::string, 40> kPhrasePieces = {
    "set",   "up",   "get",    "getting", "started", "how",       "do",       "i",
    "to",    "re",   "x",      " ",       " ",       " ",         "  ",       "\t",
    "\n",    "-",    "\u00A0", "\u00E9",  "SET",     "Up",        "speech",   "spee",
    "ch",    "voi",  "ce",     "teach",   "coa",     "configure", "conf",     "igure",
    "setup", "perm", "ission", "short",   "cut",     "\u0130",    "how do i", "set up"};

const std::array<std::string, 8> kWorkedQueries = {"How do I set up speech?",
                                                   "What about shortcuts and permissions?",
                                                   "voice",
                                                   "",
                                                   "tell me about the app",
                                                   "configure the coach",
                                                   "teach",
                                                   "widgets widget"};

}  // namespace

TEST(ManualExcerptDifferential, WorkedGuidesGiveTheSameExcerpts) {
    const std::string shipped = sagely::SagelyKnowledge::bundledGuideText();
    for (const std::string& guide : {sagely::testing::kSampleSetupGuide, shipped})
        for (const std::string& query : kWorkedQueries)
            for (std::size_t limit : {std::size_t{40}, std::size_t{200}, std::size_t{1500},
                                      std::size_t{4000}, std::size_t{24000}})
                ASSERT_TRUE(sameAsReference({guide, query, limit}));
}

TEST(ManualExcerptDifferential, RandomGuidesAndQuestionsGiveTheSameExcerpts) {
    for (const Case& c : randomCases(4000, 1515)) ASSERT_TRUE(sameAsReference(c));
}

// Few guides, many questions each, as a coach asks them: the prepared guide is reused.
TEST(ManualExcerptDifferential, ManyQuestionsOnOneGuideGiveTheSameExcerpts) {
    std::mt19937 random(4242);
    for (int g = 0; g < 20; ++g) {
        std::string guide = randomText(random, kGuidePieces, 2000);
        for (int q = 0; q < 50; ++q) {
            std::string query = randomText(random, kQueryPieces, 1 + q % 12);
            ASSERT_TRUE(sameAsReference({guide, query, q % 2 ? 1500u : 400u}));
        }
    }
}

// A question pasted from a log has hundreds of terms, many inside longer words of the guide.
TEST(ManualExcerptDifferential, LongQuestionsGiveTheSameExcerpts) {
    std::mt19937 random(99);
    std::string guide = randomText(random, kGuidePieces, 4000);
    std::string query;
    for (int i = 0; i < 600; ++i)
        query += randomText(random, kQueryPieces, 1) + " err" + std::to_string(i % 97) + "_x" +
                 randomText(random, kGuidePieces, 2) + " ";
    for (std::size_t limit : {std::size_t{300}, std::size_t{1500}, std::size_t{24000}})
        ASSERT_TRUE(sameAsReference({guide, query, limit}));
}

// The guide is prepared once per text: a guide edited in place is prepared anew.
TEST(ManualExcerptDifferential, AGuideChangedInPlaceGivesTheExcerptOfItsNewText) {
    std::string guide =
        "## Alpha\n" + std::string(300, 'a') + " widget\n## Beta\n" + std::string(300, 'b') + "\n";
    std::string before = CoachPromptBudget::relevantManualExcerpt(guide, "widget", 400);
    EXPECT_NE(before.find("Alpha"), std::string::npos);
    guide.replace(guide.find("widget"), 6, "gadget");
    guide.replace(guide.find("## Beta\n") + 8, 6, "widget");
    EXPECT_TRUE(sameAsReference({guide, "widget", 400}));
    std::string after = CoachPromptBudget::relevantManualExcerpt(guide, "widget", 400);
    EXPECT_EQ(after.rfind("### Beta", 0), 0u) << after;
}

TEST(ManualExcerptDifferential, ManyThreadsAtOnceGiveTheSameExcerpts) {
    std::vector<Case> cases = randomCases(300, 77);
    std::vector<std::string> expected;
    for (const Case& c : cases)
        expected.push_back(reference::relevantManualExcerpt(c.guide, c.query, c.maxChars));
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int round = 0; round < 3; ++round)
                for (std::size_t i = 0; i < cases.size(); ++i)
                    if (CoachPromptBudget::relevantManualExcerpt(cases[i].guide, cases[i].query,
                                                                 cases[i].maxChars) != expected[i])
                        ++mismatches[static_cast<std::size_t>(t)];
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(mismatches, (std::vector<int>{0, 0, 0, 0}));
}

TEST(ManualExcerptDifferential, QuestionTermsAndSetupIntentMatchAPlainSearchOfTheQuestion) {
    std::mt19937 random(2311);
    std::uniform_int_distribution<std::size_t> length(0, 12);
    for (int i = 0; i < 20000; ++i) {
        const std::string question = randomText(random, kPhrasePieces, length(random));
        const std::string lowered = sagely::text::lowercased(question);
        ASSERT_EQ(CoachPromptBudget::hasSetupIntent(question),
                  reference::loweredQueryHasSetupIntent(lowered))
            << question;
        ASSERT_EQ(CoachPromptBudget::queryTerms(question), reference::termsOfLoweredQuery(lowered))
            << question;
    }
}
