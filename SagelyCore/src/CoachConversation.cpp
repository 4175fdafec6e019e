#include <sagely/CoachConversation.h>

namespace sagely {

CoachMessage::CoachMessage(Role role, std::string content, std::optional<CoachCard> card,
                           std::optional<CoachLesson> lesson)
    : m_id(Uuid::random()),
      m_role(role),
      m_content(std::move(content)),
      m_card(std::move(card)),
      m_lesson(std::move(lesson)),
      m_timestamp(Timestamp::now()) {}

CoachConversation::CoachConversation(std::string title)
    : m_id(Uuid::random()), m_title(std::move(title)) {
    // Two readings of the clock, in this order, so updatedAt is never before createdAt.
    m_createdAt = Timestamp::now();
    m_updatedAt = Timestamp::now();
}

void CoachConversation::append(CoachMessage message) {
    m_messages.push_back(std::move(message));
    m_updatedAt = Timestamp::now();
}

}  // namespace sagely
