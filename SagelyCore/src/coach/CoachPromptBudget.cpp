#include <sagely/CoachPromptBudget.h>

#include <sagely/Text.h>

#include "coach/GuideIndex.h"
#include "support/TextViews.h"

#include <algorithm>
#include <array>
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

// More than two characters; an ASCII word (letters and digits) has one per byte.
bool isLongEnough(std::string_view word) {
    if (word.size() <= 2) return false;
    bool ascii = std::all_of(word.begin(), word.end(),
                             [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    return ascii || text::hasMoreCharactersThan(word, 2);
}

// What the scoring asks of the query, worked out once: a pasted log makes a long query, and
// every section is scored against it. Not copyable: the terms view the lower-cased text.
struct Query {
    explicit Query(std::string_view query)
        : lowered(text::lowercased(query)),
          speech(contains(lowered, "speech")),
          voice(contains(lowered, "voice")),
          teach(contains(lowered, "teach")),
          coach(contains(lowered, "coach")),
          shortcut(contains(lowered, "shortcut")),
          permission(contains(lowered, "permission")),
          setUp(contains(lowered, "set up") || contains(lowered, "setup")),
          configure(contains(lowered, "configure")),
          setupIntent(setUp || configure || contains(lowered, "get started") ||
                      contains(lowered, "getting started") || contains(lowered, "how do i") ||
                      contains(lowered, "how to")) {
        // A term may be listed more than once: the few terms that can be in the guide are told
        // apart later, so a long pasted log is not sorted or hashed as a whole.
        detail::forEachWord(lowered, [&](std::string_view word) {
            if (isLongEnough(word) && !isStopWord(word)) terms.push_back(word);
        });
        if (setUp) terms.insert(terms.end(), {"setup", "speech"});
        if (configure) terms.push_back("configure");
        if (speech) terms.push_back("speech");
        if (voice) terms.push_back("voice");
    }
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;

    const std::string lowered;
    // Whether the lower-cased query holds each of these words.
    const bool speech, voice, teach, coach, shortcut, permission, setUp, configure;
    const bool setupIntent;
    std::vector<std::string_view> terms;
};

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
    for (const Ranked& entry : ranked(Query(query), *guide))
        result.push_back({owned(guide->sections()[entry.section].view), entry.score});
    return result;
}

std::string CoachPromptBudget::relevantManualExcerpt(std::string_view manual,
                                                     std::string_view query, std::size_t maxChars) {
    std::string_view trimmed = detail::trimmedView(manual);
    if (trimmed.empty()) return {};
    auto guide = PreparedGuide::of(trimmed);
    if (!guide->hasMoreCharacters(maxChars)) return std::string(trimmed);
    Query q(query);
    if (guide->sections().empty()) return startOfGuide(*guide, maxChars);
    Excerpt excerpt = joinedSections(ranked(q, *guide), *guide, maxChars);
    std::string result = excerpt.characters < maxChars / 4 ? startOfGuide(*guide, maxChars)
                                                           : std::move(excerpt.text);
    bool prefersSetup =
        (q.setupIntent && contains(result, "Setup Guides")) || contains(result, "Set Up Speech");
    return prefersSetup ? std::string(kSetupPreface) + result : result;
}

}  // namespace sagely
