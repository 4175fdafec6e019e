// ConversationList — conversations as `history` and `chat` list them: numbered from 1 in the
// coach's order (newest first).
#pragma once

#include <sagely/CoachConversation.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sagely::cli {

/// A list number ("3"): a whole number of 1 or more, nothing else.
std::optional<std::size_t> parseListNumber(std::string_view word);

/// One line per conversation: "* 1. Title (3 messages)", the current one marked with "*".
std::string listConversations(const std::vector<CoachConversation>& conversations,
                              const std::optional<CoachConversation>& current);

/// The title in quotation marks: “Title”.
std::string quotedTitle(const CoachConversation& conversation);

}  // namespace sagely::cli
