// StoredConversations — a conversation file taken in without decoding the conversations whose
// text is exactly what the writer makes of them.
//
// Such a text decodes without fail and encodes back to itself byte for byte, so the
// conversation may keep its text and decode its messages only when they are asked for (see
// CoachConversation). The form is the writer's: no white space, the keys in field order and no
// others, the shortest number for each time, strings escaped as the writer escapes them and
// well-formed UTF-8. Other conversations are decoded one by one. A file that is not a compact array
// of conversations that all decode is left to the full decoder, which tells why as it always has.
#pragma once

#include <sagely/CoachConversation.h>
#include <sagely/Uuid.h>

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace sagely::detail {

/// One conversation's text within the file read, and the ids of its messages.
struct StoredConversation {
    std::shared_ptr<const void> file;  // keeps `text` alive
    std::string_view text;
    std::vector<Uuid> messageIds;
};

/// The conversations in `text`, those in the writer's form keeping their text (and `file`, which
/// holds it), when it is a compact array of conversations that all decode; none otherwise.
std::optional<std::vector<CoachConversation>> storedConversations(
    std::string_view text, const std::shared_ptr<const void>& file);

}  // namespace sagely::detail
