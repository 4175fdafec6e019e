#include <sagely/CoachPromptBudget.h>

#include <sagely/Text.h>

#include "coach/GuideIndex.h"
#include "support/TextViews.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>

namespace sagely {
namespace {

constexpr std::string_view kTruncationMarker =
    "\n\n[Manual excerpt truncated for on-device model context.]";
constexpr std::size_t kTruncationMarkerCharacters = 57;
constexpr std::string_view kEllipsis = "\u2026";
constexpr std::string_view kSetupPreface = "PREFER THESE SETUP GUIDE SECTIONS WHEN ANSWERING:\n\n";
constexpr std::size_t kAppleManualExcerptCharLimit = 1500;

constexpr std::array<std::string_view, 27> kStopWords = {
    "a",   "an",  "the",    "is",  "are",   "what", "does", "do", "how",
    "can", "you", "tell",   "me",  "about", "in",   "for",  "to", "of",
    "and", "or",  "tessel", "pro", "this",  "that", "it",   "i",  "app"};

// --- Message budget --------------------------------------------------------------------------

void capSystemMessage(std::vector<LLMMessage>& messages) {
    auto system = std::find_if(messages.begin(), messages.end(),
                               [](const LLMMessage& m) { return m.role == "system"; });
    if (system == messages.end()) return;
    if (!text::hasMoreCharactersThan(system->content, CoachPromptBudget::appleSystemCharLimit))
        return;
    system->content =
        text::prefixCharacters(system->content, CoachPromptBudget::appleSystemCharLimit -
                                                    kTruncationMarkerCharacters) +
        std::string(kTruncationMarker);
}

std::vector<LLMMessage> systemThenRecentHistory(std::vector<LLMMessage> messages) {
    std::vector<LLMMessage> result;
    std::vector<LLMMessage> history;
    for (LLMMessage& message : messages)
        (message.role == "system" ? result : history).push_back(std::move(message));
    std::size_t keep = std::min(history.size(), CoachPromptBudget::appleHistoryMessageLimit);
    std::move(history.end() - static_cast<std::ptrdiff_t>(keep), history.end(),
              std::back_inserter(result));
    return result;
}

// Drops the oldest question (with its answer) until the total fits or nothing more can go.
void dropOldestExchanges(std::vector<LLMMessage>& messages) {
    std::vector<std::size_t> counts;
    for (const LLMMessage& message : messages)
        counts.push_back(text::characterCount(message.content));
    auto total = [&] { return std::accumulate(counts.begin(), counts.end(), std::size_t{0}); };
    while (total() > CoachPromptBudget::appleTotalCharLimit && messages.size() >= 3) {
        auto user = std::find_if(messages.begin(), messages.end(),
                                 [](const LLMMessage& m) { return m.role == "user"; });
        if (user == messages.end()) return;
        auto index = user - messages.begin();
        messages.erase(user);
        counts.erase(counts.begin() + index);
        if (static_cast<std::size_t>(index) < messages.size() &&
            messages[index].role == "assistant") {
            messages.erase(messages.begin() + index);
            counts.erase(counts.begin() + index);
        }
    }
}

// --- Query terms and scoring ---------------------------------------------------------------

using detail::PreparedGuide;

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

bool isStopWord(std::string_view word) {
    return word.size() <= 6 &&  // the longest stop word
           std::find(kStopWords.begin(), kStopWords.end(), word) != kStopWords.end();
}

// What the scoring asks of the query, worked out once and in one pass over it: a pasted log
// makes a long query, and every section is scored against it. Given the guide, only the terms
// that may occur in it are kept (most words of a pasted log are in no guide). Not copyable: the
// terms view the lower-cased text.
struct Query {
    explicit Query(std::string_view query, const PreparedGuide* guide = nullptr);
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;

    const std::string lowered;
    // Whether the lower-cased query holds each of these words ("set up" counts as "setup").
    bool speech = false, voice = false, teach = false, coach = false, shortcut = false,
         permission = false, setUp = false, configure = false;
    bool setupIntent = false;
    std::vector<std::string_view> terms;

private:
    void noteMentions(std::string_view beforePrevious, std::string_view previous,
                      std::string_view word, uint32_t bits);
    bool mentionsSetupIntent = false;  // "get started", "getting started", "how do i", "how to"
};

// The bits (see detail::forEachWord) of a word made of ASCII letters and digits.
constexpr uint32_t asciiWordBits(std::string_view word) {
    uint32_t bits = 0;
    for (char c : word) bits |= detail::kAsciiWordBits[static_cast<unsigned char>(c) & 0x7f];
    return bits;
}

// More than two characters; an ASCII word (letters and digits) has one per byte.
bool isLongEnough(std::string_view word, uint32_t bits) {
    if (word.size() <= 2) return false;
    return (bits & detail::kNonAsciiBit) == 0 || text::hasMoreCharactersThan(word, 2);
}

struct Keyword {
    std::string_view text;
    bool Query::*mentioned;
    uint32_t letters = asciiWordBits(text);
};

// Made of letters only, so each occurs in the query exactly when it occurs inside one of the
// query's words (its maximal runs of letters, marks and digits).
constexpr std::array<Keyword, 8> kKeywords = {{{"speech", &Query::speech},
                                               {"voice", &Query::voice},
                                               {"teach", &Query::teach},
                                               {"coach", &Query::coach},
                                               {"shortcut", &Query::shortcut},
                                               {"permission", &Query::permission},
                                               {"setup", &Query::setUp},
                                               {"configure", &Query::configure}}};
constexpr std::size_t kShortestKeyword = 5;
// One letter of each keyword, so that a word with none of these holds no keyword.
constexpr uint32_t kKeywordMarks = asciiWordBits("svtou");
static_assert(std::all_of(kKeywords.begin(), kKeywords.end(),
                          [](const Keyword& k) { return (k.letters & kKeywordMarks) != 0; }));

// Whether `word` follows `previous` after a single space, as in "set up".
bool followsAfterSpace(std::string_view previous, std::string_view word) {
    return !previous.empty() && previous.data() + previous.size() + 1 == word.data() &&
           previous.data()[previous.size()] == ' ';
}

Query::Query(std::string_view query, const PreparedGuide* guide)
    : lowered(text::lowercased(query)) {
    // A term may be listed more than once: the few terms that can be in the guide are told
    // apart later, so a long pasted log is not sorted or hashed as a whole.
    std::string_view beforePrevious, previous;
    detail::forEachWord(lowered, [&](std::string_view word, uint32_t bits) {
        noteMentions(beforePrevious, previous, word, bits);
        if (isLongEnough(word, bits) && !isStopWord(word) && (!guide || guide->mayOccur(word)))
            terms.push_back(word);
        beforePrevious = previous;
        previous = word;
    });
    setupIntent = setUp || configure || mentionsSetupIntent;
    if (setUp) terms.insert(terms.end(), {"setup", "speech"});
    if (configure) terms.push_back("configure");
    if (speech) terms.push_back("speech");
    if (voice) terms.push_back("voice");
}

// A phrase of two or three words occurs where its first word ends a word of the query, a single
// space follows, and the next word starts with its last (a middle word is a whole word).
void Query::noteMentions(std::string_view beforePrevious, std::string_view previous,
                         std::string_view word, uint32_t bits) {
    // A word is searched only for the keywords whose letters it has: most words of a pasted
    // log have none of them.
    if (word.size() >= kShortestKeyword && (bits & kKeywordMarks) != 0)
        for (const Keyword& keyword : kKeywords)
            if ((bits & keyword.letters) == keyword.letters && contains(word, keyword.text))
                this->*keyword.mentioned = true;
    // Every phrase's last word starts with one of these letters.
    const char first = word.front();
    if ((first != 'u' && first != 's' && first != 't' && first != 'i') ||
        !followsAfterSpace(previous, word))
        return;
    if (word.starts_with("up") && previous.ends_with("set")) setUp = true;
    if (word.starts_with("started") && (previous.ends_with("get") || previous.ends_with("getting")))
        mentionsSetupIntent = true;
    if (word.starts_with("to") && previous.ends_with("how")) mentionsSetupIntent = true;
    if (first == 'i' && previous == "do" && followsAfterSpace(beforePrevious, previous) &&
        beforePrevious.ends_with("how"))
        mentionsSetupIntent = true;
}

int setupBonus(const Query& q, std::string_view title) {
    int bonus = contains(title, "setup guide") ? 12 : 0;
    if (!title.starts_with("set up ")) return bonus;
    if (q.speech && contains(title, "speech")) bonus += 15;
    if (q.teach && contains(title, "teach")) bonus += 15;
    if (q.coach && contains(title, "coach")) bonus += 15;
    return bonus;
}

int topicBonus(const Query& q, std::string_view title) {
    int bonus = 0;
    bool asksSpeech = q.speech || q.voice;
    if (asksSpeech && (contains(title, "speech") || contains(title, "voice control"))) bonus += 6;
    if (q.shortcut && contains(title, "shortcut")) bonus += 5;
    if (q.permission && contains(title, "permission")) bonus += 5;
    return bonus;
}

struct Ranked {
    std::size_t section;
    int score;
};

// Every section scored (4 per term in the title, 1 per term in the body, and the title's
// bonuses) and sorted, higher scores first and equal scores in guide order.
std::vector<Ranked> ranked(const Query& q, const PreparedGuide& guide) {
    PreparedGuide::TermCounts counts = guide.termCounts(q.terms);
    std::vector<Ranked> result;
    result.reserve(guide.sections().size());
    for (std::size_t k = 0; k < guide.sections().size(); ++k) {
        std::string_view title = guide.sections()[k].loweredTitle;
        int score = 4 * counts.inTitle[k] + counts.inBody[k] + topicBonus(q, title) +
                    (q.setupIntent ? setupBonus(q, title) : 0);
        result.push_back({k, score});
    }
    std::stable_sort(result.begin(), result.end(),
                     [](const Ranked& a, const Ranked& b) { return a.score > b.score; });
    return result;
}

// --- Excerpt -------------------------------------------------------------------------------

std::string startOfGuide(const PreparedGuide& guide, std::size_t maxChars) {
    return guide.leadingCharacters(maxChars > 0 ? maxChars - 1 : 0) + std::string(kEllipsis);
}

struct Excerpt {
    std::string text;
    std::size_t characters = 0;
};

// The ranked sections joined while they fit. The result never ends in a carriage return and
// each join starts with a line feed, so the character count of a join is the sum of its parts.
Excerpt joinedSections(const std::vector<Ranked>& ranking, const PreparedGuide& guide,
                       std::size_t maxChars) {
    Excerpt result;
    const std::size_t twoThirds = 2 * maxChars / 3;
    for (const Ranked& entry : ranking) {
        // The ranking is sorted, so once one unscored section is skipped all the rest would be.
        if (entry.score < 1 && !result.text.empty()) break;
        const detail::SectionView& section = guide.sections()[entry.section].view;
        std::size_t separator = result.text.empty() ? 0 : 2;
        std::size_t used = result.characters + separator;
        std::size_t block = guide.blockCharacters(entry.section);
        if (used > maxChars || block > maxChars - used) break;
        result.characters = used + block;
        if (separator) result.text.append("\n\n");
        result.text.append("### ").append(section.title).append("\n\n").append(section.body);
        if (result.characters >= twoThirds && entry.score >= 1) break;
    }
    return result;
}

CoachPromptBudget::ManualSection owned(const detail::SectionView& view) {
    return {std::string(view.title), std::string(view.body), view.order};
}

}  // namespace

std::size_t CoachPromptBudget::manualExcerptLimit(CoachConfig::Provider provider) {
    return provider == CoachConfig::Provider::apple ? kAppleManualExcerptCharLimit
                                                    : cloudManualExcerptCharLimit;
}

std::vector<LLMMessage> CoachPromptBudget::budgetMessages(std::vector<LLMMessage> messages,
                                                          CoachConfig::Provider provider) {
    if (provider != CoachConfig::Provider::apple) return messages;
    capSystemMessage(messages);
    std::vector<LLMMessage> result = systemThenRecentHistory(std::move(messages));
    dropOldestExchanges(result);
    return result;
}

std::vector<CoachPromptBudget::ManualSection> CoachPromptBudget::splitSections(
    std::string_view manual) {
    std::vector<ManualSection> sections;
    for (const detail::SectionView& view : detail::sectionViews(manual))
        sections.push_back(owned(view));
    return sections;
}

std::set<std::string> CoachPromptBudget::queryTerms(std::string_view query) {
    Query q(query);
    return {q.terms.begin(), q.terms.end()};
}

bool CoachPromptBudget::hasSetupIntent(std::string_view query) {
    return Query(query).setupIntent;
}

std::vector<CoachPromptBudget::RankedSection> CoachPromptBudget::rankSections(
    std::string_view manual, std::string_view query) {
    auto guide = PreparedGuide::of(detail::trimmedView(manual));
    std::vector<RankedSection> result;
    for (const Ranked& entry : ranked(Query(query, guide.get()), *guide))
        result.push_back({owned(guide->sections()[entry.section].view), entry.score});
    return result;
}

std::string CoachPromptBudget::relevantManualExcerpt(std::string_view manual,
                                                     std::string_view query, std::size_t maxChars) {
    std::string_view trimmed = detail::trimmedView(manual);
    if (trimmed.empty()) return {};
    auto guide = PreparedGuide::of(trimmed);
    if (!guide->hasMoreCharacters(maxChars)) return std::string(trimmed);
    Query q(query, guide.get());
    if (guide->sections().empty()) return startOfGuide(*guide, maxChars);
    Excerpt excerpt = joinedSections(ranked(q, *guide), *guide, maxChars);
    std::string result = excerpt.characters < maxChars / 4 ? startOfGuide(*guide, maxChars)
                                                           : std::move(excerpt.text);
    bool prefersSetup =
        (q.setupIntent && contains(result, "Setup Guides")) || contains(result, "Set Up Speech");
    return prefersSetup ? std::string(kSetupPreface) + result : result;
}

}  // namespace sagely
