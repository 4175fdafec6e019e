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
    std::vector<CoachActionCall> actionCalls;
    std::string providerTurn;
};

CoachMessage::CoachMessage(Role role, std::string content, std::optional<CoachCard> card,
                           std::optional<CoachLesson> lesson, std::optional<TokenUsage> usage)
    : CoachMessage(Uuid::random(), role, std::move(content), std::move(card), std::move(lesson),
                   usage, Timestamp::now()) {}

CoachMessage::CoachMessage(Uuid id, Role role, std::string content, std::optional<CoachCard> card,
                           std::optional<CoachLesson> lesson, std::optional<TokenUsage> usage,
                           Timestamp timestamp, std::vector<CoachActionCall> actionCalls,
                           std::string providerTurn)
    : m_id(id), m_role(role), m_content(std::move(content)), m_timestamp(timestamp) {
    if (card || lesson || usage || !actionCalls.empty() || !providerTurn.empty())
        m_attachments = std::make_shared<const Attachments>(
            Attachments{std::move(card), std::move(lesson), usage, std::move(actionCalls),
                        std::move(providerTurn)});
}

CoachMessage CoachMessage::actionRound(std::string content, std::vector<CoachActionCall> calls,
                                       std::string providerTurn, std::optional<TokenUsage> usage) {
    return CoachMessage(Uuid::random(), Role::assistant, std::move(content), std::nullopt,
                        std::nullopt, usage, Timestamp::now(), std::move(calls),
                        std::move(providerTurn));
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

const std::vector<CoachActionCall>& CoachMessage::actionCalls() const {
    static const std::vector<CoachActionCall> none;
    return m_attachments ? m_attachments->actionCalls : none;
}

const std::string& CoachMessage::providerTurn() const {
    static const std::string none;
    return m_attachments ? m_attachments->providerTurn : none;
}

std::string_view rawValue(CoachMessage::Role role) {
    return kRoles.rawValue(role);
}

std::optional<CoachMessage::Role> roleFromRawValue(std::string_view raw) {
    return kRoles.fromRawValue(raw);
}

}  // namespace sagely
