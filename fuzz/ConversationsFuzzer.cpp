// The data-model decoder on any bytes: it either throws one of the kit's errors or yields
// conversations whose encoding decodes to the same conversations and encodes to the same text.
#include "FuzzInput.h"

#include <sagely/CoachConversation.h>
#include <sagely/Error.h>

using namespace sagely;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view json = fuzz::textOf(data, size);
    std::vector<CoachConversation> decoded;
    try {
        decoded = decodeConversations(json);
    } catch (const Error&) {
        return 0;
    }
    const std::string encoded = encodeConversations(decoded);
    const std::vector<CoachConversation> again = decodeConversations(encoded);
    fuzz::require(encodeConversations(again) == encoded, "conversations round trip");
    for (const CoachConversation& conversation : decoded) {
        const std::string one = encodeJson(conversation);
        fuzz::require(encodeJson(decodeConversation(one)) == one, "conversation round trip");
        for (const CoachMessage& message : conversation.messages()) {
            const std::string text = encodeJson(message);
            fuzz::require(encodeJson(decodeMessage(text)) == text, "message round trip");
        }
    }
    return 0;
}
