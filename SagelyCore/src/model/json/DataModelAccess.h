// DataModelAccess — how decoders make messages and conversations with a stored identity and
// stored times, which the public constructors never take, and how the file code reaches a
// conversation's stored text.
#pragma once

#include <sagely/CoachConversation.h>
#include <sagely/CoachMessage.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sagely::detail {

struct DataModelAccess {
    static CoachMessage message(Uuid id, CoachMessage::Role role, std::string content,
                                std::optional<CoachCard> card, std::optional<CoachLesson> lesson,
                                std::optional<TokenUsage> usage, Timestamp timestamp,
                                std::vector<CoachActionCall> actionCalls = {},
                                std::string providerTurn = {}) {
        return CoachMessage(id, role, std::move(content), std::move(card), std::move(lesson), usage,
                            timestamp, std::move(actionCalls), std::move(providerTurn));
    }

    static CoachConversation conversation(Uuid id, std::string title,
                                          std::vector<CoachMessage> messages, Timestamp createdAt,
                                          Timestamp updatedAt) {
        return CoachConversation(id, std::move(title), std::move(messages), createdAt, updatedAt);
    }

    /// A conversation whose messages stay in `stored` until asked for.
    static CoachConversation storedConversation(Uuid id, std::string title, Timestamp createdAt,
                                                Timestamp updatedAt,
                                                std::shared_ptr<const StoredConversation> stored) {
        return CoachConversation(id, std::move(title), createdAt, updatedAt, std::move(stored));
    }

    /// The text the conversation was read from, while it is unchanged; null otherwise.
    static const StoredConversation* stored(const CoachConversation& conversation) {
        return conversation.m_stored.get();
    }
    static const std::shared_ptr<const StoredConversation>& sharedStored(
        const CoachConversation& conversation) {
        return conversation.m_stored;
    }
};

}  // namespace sagely::detail
