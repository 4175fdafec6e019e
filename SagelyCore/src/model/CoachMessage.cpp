#include <sagely/CoachMessage.h>

#include "model/json/RawValueTable.h"

namespace sagely {
namespace {

constexpr detail::RawValueTable<CoachMessage::Role, 3> kRoles{{"user", "assistant", "system"}};

}  // namespace

struct CoachMessage::Payload {
    // The card, the lesson, the usage and the action calls, apart: most messages have none, so
    // a long history pays for them only where there are some.
    struct Attachments {
        std::optional<CoachCard> card;
        std::optional<CoachLesson> lesson;
        std::optional<TokenUsage> usage;
        std::vector<CoachActionCall> actionCalls;
        std::string providerTurn;
    };

    Uuid id;
    Role role;
    std::string content;
    Timestamp timestamp;
    std::unique_ptr<const Attachments> attachments;  // null when there is none
};

CoachMessage::CoachMessage(Role role, std::string content, std::optional<CoachCard> card,
                           std::optional<CoachLesson> lesson, std::optional<TokenUsage> usage)
    : CoachMessage(Uuid::random(), role, std::move(content), std::move(card), std::move(lesson),
                   usage, Timestamp::now()) {}

CoachMessage::CoachMessage(Uuid id, Role role, std::string content, std::optional<CoachCard> card,
                           std::optional<CoachLesson> lesson, std::optional<TokenUsage> usage,
                           Timestamp timestamp, std::vector<CoachActionCall> actionCalls,
                           std::string providerTurn) {
    std::unique_ptr<const Payload::Attachments> attachments;
    if (card || lesson || usage || !actionCalls.empty() || !providerTurn.empty())
        attachments = std::make_unique<const Payload::Attachments>(
            Payload::Attachments{std::move(card), std::move(lesson), usage, std::move(actionCalls),
                                 std::move(providerTurn)});
    m_payload = std::make_shared<const Payload>(
        Payload{id, role, std::move(content), timestamp, std::move(attachments)});
}

CoachMessage CoachMessage::actionRound(std::string content, std::vector<CoachActionCall> calls,
                                       std::string providerTurn, std::optional<TokenUsage> usage) {
    return CoachMessage(Uuid::random(), Role::assistant, std::move(content), std::nullopt,
                        std::nullopt, usage, Timestamp::now(), std::move(calls),
                        std::move(providerTurn));
}

const Uuid& CoachMessage::id() const {
    return m_payload->id;
}

CoachMessage::Role CoachMessage::role() const {
    return m_payload->role;
}

const std::string& CoachMessage::content() const {
    return m_payload->content;
}

Timestamp CoachMessage::timestamp() const {
    return m_payload->timestamp;
}

const std::optional<CoachCard>& CoachMessage::card() const {
    static const std::optional<CoachCard> none;
    return m_payload->attachments ? m_payload->attachments->card : none;
}

const std::optional<CoachLesson>& CoachMessage::lesson() const {
    static const std::optional<CoachLesson> none;
    return m_payload->attachments ? m_payload->attachments->lesson : none;
}

const std::optional<TokenUsage>& CoachMessage::usage() const {
    static const std::optional<TokenUsage> none;
    return m_payload->attachments ? m_payload->attachments->usage : none;
}

const std::vector<CoachActionCall>& CoachMessage::actionCalls() const {
    static const std::vector<CoachActionCall> none;
    return m_payload->attachments ? m_payload->attachments->actionCalls : none;
}

const std::string& CoachMessage::providerTurn() const {
    static const std::string none;
    return m_payload->attachments ? m_payload->attachments->providerTurn : none;
}

std::string_view rawValue(CoachMessage::Role role) {
    return kRoles.rawValue(role);
}

std::optional<CoachMessage::Role> roleFromRawValue(std::string_view raw) {
    return kRoles.fromRawValue(raw);
}

}  // namespace sagely
