#include <sagely/CoachConversation.h>

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

void CoachConversation::append(CoachMessage message) {
    m_messages.push_back(std::move(message));
    m_updatedAt = Timestamp::now();
}

}  // namespace sagely
