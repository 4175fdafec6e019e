// Decoding of a conversation file as the file reader hands it over, a string it owns.
#pragma once

#include <sagely/CoachConversation.h>

#include <string>
#include <vector>

namespace sagely::detail {

/// As decodeConversations(buffer).
std::vector<CoachConversation> decodeConversationsInPlace(const std::string& buffer);

}  // namespace sagely::detail
