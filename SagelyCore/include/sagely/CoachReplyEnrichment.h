// CoachReplyEnrichment — what a host adds to one model request just before it is sent: a live
// observation for the prompt and a card for the reply.
#pragma once

#include <sagely/CoachCard.h>

#include <optional>
#include <string>

namespace sagely {

struct CoachReplyEnrichment {
    /// Placed in the LIVE MAC OBSERVATION section of the system prompt when non-empty.
    std::string systemPromptSection;
    /// Attached to the assistant reply of this request.
    std::optional<CoachCard> observationCard;
};

}  // namespace sagely
