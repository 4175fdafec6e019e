#include <sagely/CoachMessage.h>

#include "model/json/RawValueTable.h"

namespace sagely {
namespace {

constexpr detail::RawValueTable<CoachMessage::Role, 3> kRoles{{"user", "assistant", "system"}};

}  // namespace

struct CoachMessage::Attachments {
    std::optional<CoachCard> card;
    std::optional<CoachLesson> lesson;
    std::optional<TokenUsage> usage;
};

CoachMessage::CoachMessage(Role role, std::string content, std::optional<CoachCard> card,
                           std::optional<CoachLesson> lesson, std::optional<TokenUsage> usage)
    : CoachMessage(Uuid::random(), role, std::move(content), std::move(card), std::move(lesson),
                   usage, Timestamp::now()) {}

CoachMessage::CoachMessage(Uuid id, Role role, std::string content, std::optional<CoachCard> card,
                           std::optional<CoachLesson> lesson, std::optional<TokenUsage> usage,
                           Timestamp timestamp)
    : m_id(id), m_role(role), m_content(std::move(content)), m_timestamp(timestamp) {
    if (card || lesson || usage)
        m_attachments = std::make_shared<const Attachments>(
            Attachments{std::move(card), std::move(lesson), usage});
}

const std::optional<CoachCard>& CoachMessage::card() const {
    static const std::optional<CoachCard> none;
    return m_attachments ? m_attachments->card : none;
}

const std::optional<CoachLesson>& CoachMessage::lesson() const {
    static const std::optional<CoachLesson> none;
    return m_attachments ? m_attachments->lesson : none;
}

const std::optional<TokenUsage>& CoachMessage::usage() const {
    static const std::optional<TokenUsage> none;
    return m_attachments ? m_attachments->usage : none;
}

std::string_view rawValue(CoachMessage::Role role) {
    return kRoles.rawValue(role);
}

std::optional<CoachMessage::Role> roleFromRawValue(std::string_view raw) {
    return kRoles.fromRawValue(raw);
}

}  // namespace sagely
