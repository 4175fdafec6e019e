// CoachGuideAnswers — answers from the product guide alone, without any model: the guide
// section that best matches the question (ranked as the coach ranks guide excerpts), shown as
// a message with a card that names the section and suggests the next-best ones.
//
// Useful offline, or for a coach that answers only locally. Pure functions, thread-safe; the
// resolver owns its copy of the guide.
#pragma once

#include <sagely/CoachLocalAction.h>
#include <sagely/Export.h>

#include <optional>
#include <string>
#include <string_view>

namespace sagely {

/// The subtitle of every guide answer's card.
inline constexpr std::string_view guideAnswerSubtitle = "From the guide";

/// The answer to the question from the best-matching section of the guide: its body as the
/// message, an info card titled with the section's title, and "Tell me about <title>"
/// suggestions for up to three next-best matching sections that have a body. None when no section
/// with a body scores 1 or more.
SAGELY_EXPORT std::optional<CoachLocalActionResult> answerFromGuide(std::string_view guide,
                                                                    std::string_view question);

/// A local-action resolver that answers from the guide.
SAGELY_EXPORT CoachLocalActionResolver makeGuideAnswerResolver(std::string guide);

}  // namespace sagely
