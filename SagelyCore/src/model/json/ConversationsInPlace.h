// A conversation file as the file code reads and writes it: conversations read in the writer's
// form go on using the buffer they were read from, and are written back from it.
#pragma once

#include <sagely/CoachConversation.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace sagely::detail {

/// As decodeConversations(text), with the same result and the same errors; conversations in the
/// writer's form are not decoded but keep their text, and `buffer`, which holds it
/// (StoredConversations.h).
std::vector<CoachConversation> decodeConversationsInPlace(
    std::string_view text, const std::shared_ptr<const void>& buffer);

/// The text encodeConversations makes, as pieces to be written one after the other. They point
/// into `encoded` and into the buffers of conversations still as they were read.
struct EncodedConversations {
    std::vector<std::string> encoded;
    std::vector<std::string_view> pieces;
};
EncodedConversations encodeConversationsInPieces(
    const std::vector<CoachConversation>& conversations);

}  // namespace sagely::detail
