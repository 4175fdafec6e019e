#include <sagely/CoachGuideAnswers.h>

#include <sagely/CoachPromptBudget.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>

namespace sagely {
namespace {

constexpr std::size_t kMaxSuggestions = 3;

using Ranking = std::vector<CoachPromptBudget::RankedSection>;

bool isAnswer(const CoachPromptBudget::RankedSection& entry) {
    return entry.score >= 1 && !entry.section.body.empty();
}

// The title of the section that would answer the question, if any.
std::optional<std::string> answeringTitle(std::string_view guide, std::string_view question) {
    const Ranking ranking = CoachPromptBudget::rankSections(guide, question);
    const auto best = std::find_if(ranking.begin(), ranking.end(), isAnswer);
    if (best == ranking.end()) return std::nullopt;
    return best->section.title;
}

std::vector<std::string> suggestionsAfter(std::string_view guide, const Ranking& ranking,
                                          Ranking::const_iterator best) {
    std::vector<std::string> suggestions;
    for (auto it = ranking.begin(); it != ranking.end() && it->score >= 1; ++it) {
        // A suggestion must lead somewhere: to another section that has an answer to give,
        // other than the guide's untitled opening.
        if (it == best || !isAnswer(*it) || it->section.title == best->section.title ||
            it->section.title.empty() || it->section.title == "Introduction")
            continue;
        std::string suggestion = "Tell me about " + it->section.title;
        if (std::find(suggestions.begin(), suggestions.end(), suggestion) != suggestions.end())
            continue;
        // Asked, it must bring that very section, not another one (or this answer again).
        if (answeringTitle(guide, suggestion) != it->section.title) continue;
        suggestions.push_back(std::move(suggestion));
        if (suggestions.size() == kMaxSuggestions) break;
    }
    return suggestions;
}

}  // namespace

std::optional<CoachLocalActionResult> answerFromGuide(std::string_view guide,
                                                      std::string_view question) {
    Ranking ranking = CoachPromptBudget::rankSections(guide, question);
    auto best = std::find_if(ranking.begin(), ranking.end(), isAnswer);
    if (best == ranking.end()) return std::nullopt;
    CoachCard card;
    card.style = CoachCard::Style::info;
    card.title = best->section.title;
    card.subtitle = std::string(guideAnswerSubtitle);
    card.suggestions = suggestionsAfter(guide, ranking, best);
    return CoachLocalActionResult{best->section.body, std::move(card), std::nullopt};
}

CoachLocalActionResolver makeGuideAnswerResolver(std::string guide) {
    auto shared = std::make_shared<const std::string>(std::move(guide));
    return [shared](const std::string& question) { return answerFromGuide(*shared, question); };
}

}  // namespace sagely
