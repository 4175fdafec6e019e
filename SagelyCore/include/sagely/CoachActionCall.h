// CoachActionCall — one call the model made to a host action, as the conversation keeps it: what
// was asked (the action's name and the arguments as the model wrote them), what became of it, the
// text that went back to the model, and the card the action showed the user.
//
// An assistant message holds the calls of one round (CoachMessage::actionCalls()); the next
// request sends them, with their results, to the model again.
//
// Thread rules: a plain value.
#pragma once

#include <sagely/CoachCard.h>
#include <sagely/Export.h>

#include <optional>
#include <string>
#include <string_view>

namespace sagely {

struct CoachActionCall {
    enum class Status {
        pending,    // not decided yet (only while a round runs)
        done,       // the handler ran; `result` is its text
        failed,     // the handler threw or reported a failure
        invalid,    // the arguments did not fit the schema, or no such action was offered
        declined,   // the user said no
        cancelled,  // the question was stopped or replaced before the call ran
    };

    /// The provider's call id; one made up by the kit when the format gives none.
    std::string id;
    /// The action's name, as the model called it.
    std::string name;
    /// What the user reads for the action ("Create canvas"); the name when the host gave none.
    std::string title;
    /// The arguments as compact JSON text (an object; "{}" for none). Kept as the model wrote
    /// them, even when they are not valid.
    std::string arguments = "{}";
    Status status = Status::pending;
    /// The text that went back to the model.
    std::string result;
    /// What the action showed the user, if anything.
    std::optional<CoachCard> card;
    /// The format gave no id and the kit made `id` up (saved only when true).
    bool idMadeUp = false;

    /// "Done: Create canvas", "Declined: Create canvas", … — the compact line a view shows.
    SAGELY_EXPORT std::string summaryLine() const;
};

/// "pending", "done", "failed", "invalid", "declined", "cancelled".
SAGELY_EXPORT std::string_view rawValue(CoachActionCall::Status status);
SAGELY_EXPORT std::optional<CoachActionCall::Status> actionStatusFromRawValue(std::string_view raw);

}  // namespace sagely
