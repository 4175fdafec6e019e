// Decoding of a conversation file without copying it: the file reader leaves the spare bytes
// after the text that the parser reads ahead into, so a 25 MB history is not held twice.
#pragma once

#include <sagely/CoachConversation.h>

#include <string>
#include <vector>

namespace sagely::detail {

/// As decodeConversations(buffer); parses in place when the string's capacity leaves the
/// parser's padding after its size, else copies it.
std::vector<CoachConversation> decodeConversationsInPlace(const std::string& buffer);

}  // namespace sagely::detail
