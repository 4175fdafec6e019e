// CoachPromptBudget — the character budgets of a model request, the choice of the guide
// sections relevant to a question, and the cut of a message list to the on-device budget.
//
// All budgets count user-perceived characters (grapheme clusters), never tokens. Pure functions,
// thread-safe. A guide is prepared (split, lower-cased and indexed) once per text and kept for
// the next questions, so an excerpt costs about the same whatever the question's length.
#pragma once

#include <sagely/CoachConfig.h>
#include <sagely/Export.h>
#include <sagely/LLMMessage.h>

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace sagely {

struct SAGELY_EXPORT CoachPromptBudget {
    static constexpr std::size_t appleSystemCharLimit = 3000;
    static constexpr std::size_t appleTotalCharLimit = 4500;
    static constexpr std::size_t appleHistoryMessageLimit = 4;
    static constexpr std::size_t cloudManualExcerptCharLimit = 24000;

    /// One section of a guide: the text under a level-two to level-four heading.
    struct ManualSection {
        std::string title;
        std::string body;
        int order = 0;  // position in the guide, from 0
    };

    /// A section with the score it earned for a question.
    struct RankedSection {
        ManualSection section;
        int score = 0;
    };

    /// 1500 for `apple`, 24000 for every other provider.
    static std::size_t manualExcerptLimit(CoachConfig::Provider provider);

    /// The list cut to the on-device budget for `apple`; unchanged for every other provider.
    static std::vector<LLMMessage> budgetMessages(std::vector<LLMMessage> messages,
                                                  CoachConfig::Provider provider);

    /// The parts of the guide most relevant to the query, within about maxChars characters.
    static std::string relevantManualExcerpt(std::string_view manual, std::string_view query,
                                             std::size_t maxChars);

    /// The guide's sections in guide order.
    static std::vector<ManualSection> splitSections(std::string_view manual);
    /// The query's search terms: lower-cased words of 3+ characters that are not stop words,
    /// plus the related terms the query implies.
    static std::set<std::string> queryTerms(std::string_view query);
    /// Whether the query asks how to set something up.
    static bool hasSetupIntent(std::string_view query);
    /// The sections of the (trimmed) guide ranked for the query: higher score first, equal
    /// scores in guide order.
    static std::vector<RankedSection> rankSections(std::string_view manual, std::string_view query);
};

}  // namespace sagely
