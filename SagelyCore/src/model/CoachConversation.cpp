#include <sagely/CoachConversation.h>

#include "model/json/StoredConversations.h"

namespace sagely {

CoachConversation::CoachConversation(std::string title)
    : m_id(Uuid::random()), m_title(std::move(title)) {
    // Two readings of the clock, in this order, so updatedAt is never before createdAt.
    m_createdAt = Timestamp::now();
    m_updatedAt = Timestamp::now();
}

CoachConversation::CoachConversation(Uuid id, std::string title, std::vector<CoachMessage> messages,
                                     Timestamp createdAt, Timestamp updatedAt)
    : m_id(id),
      m_title(std::move(title)),
      m_messages(std::move(messages)),
      m_createdAt(createdAt),
      m_updatedAt(updatedAt) {}

CoachConversation::CoachConversation(Uuid id, std::string title, Timestamp createdAt,
                                     Timestamp updatedAt,
                                     std::shared_ptr<const detail::StoredConversation> stored)
    : m_id(id),
      m_title(std::move(title)),
      m_createdAt(createdAt),
      m_updatedAt(updatedAt),
      m_stored(std::move(stored)),
      m_undecoded(true) {}

// The stored text is in the writer's form, which always decodes.
void CoachConversation::decodeMessages() const {
    if (m_stored) m_messages = std::move(decodeConversation(m_stored->text).m_messages);
    m_undecoded = false;
}

void CoachConversation::forgetStored() {
    if (m_undecoded) decodeMessages();
    m_stored.reset();
}

void CoachConversation::setTitle(std::string title) {
    forgetStored();
    m_title = std::move(title);
}

std::vector<CoachMessage>& CoachConversation::messages() {
    forgetStored();
    return m_messages;
}

void CoachConversation::setUpdatedAt(Timestamp updatedAt) {
    forgetStored();
    m_updatedAt = updatedAt;
}

void CoachConversation::append(CoachMessage message) {
    forgetStored();
    m_messages.push_back(std::move(message));
    m_updatedAt = Timestamp::now();
}

}  // namespace sagely
