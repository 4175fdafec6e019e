#include "cli/ConversationList.h"

#include "cli/TerminalText.h"

#include <charconv>

namespace sagely::cli {

std::optional<std::size_t> parseListNumber(std::string_view word) {
    std::size_t number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (word.empty() || error != std::errc() || end != word.data() + word.size() || number == 0)
        return std::nullopt;
    return number;
}

std::string listConversations(const std::vector<CoachConversation>& conversations,
                              const std::optional<CoachConversation>& current) {
    if (conversations.empty()) return "No conversations yet.\n";
    std::string out;
    for (std::size_t i = 0; i < conversations.size(); ++i) {
        const auto& conversation = conversations[i];
        const bool isCurrent = current && current->id() == conversation.id();
        const std::size_t count = conversation.messages().size();
        out += std::string(isCurrent ? "* " : "  ") + std::to_string(i + 1) + ". " +
               terminalSafe(conversation.title()) + " (" + std::to_string(count) +
               (count == 1 ? " message)\n" : " messages)\n");
    }
    return out;
}

std::string quotedTitle(const CoachConversation& conversation) {
    return "“" + terminalSafe(conversation.title()) + "”";
}

}  // namespace sagely::cli
