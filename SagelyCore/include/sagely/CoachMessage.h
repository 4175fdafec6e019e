// CoachMessage — one turn of a chat: who speaks, the text, an optional card or lesson, what a
// reply cost in tokens (when the provider said), and when it was made. An assistant message may
// also hold the host actions the model called in one round, with their outcomes.
//
// A message is never edited after it is made. It gets a fresh identity and the current time when
// constructed; an id or a timestamp of its own comes only from decoding. Messages are told apart
// by id() alone, so the type has no equality operator.
//
// Thread rules: a plain value; threads may use their own copies freely (copies share only
// parts that are never written).
#pragma once

#include <sagely/CoachActionCall.h>
#include <sagely/CoachCard.h>
#include <sagely/CoachLesson.h>
#include <sagely/Export.h>
#include <sagely/Timestamp.h>
#include <sagely/TokenUsage.h>
#include <sagely/Uuid.h>

#include <nlohmann/json_fwd.hpp>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sagely {

namespace detail {
struct DataModelAccess;
}

class SAGELY_EXPORT CoachMessage {
public:
    enum class Role { user, assistant, system };

    CoachMessage(Role role, std::string content, std::optional<CoachCard> card = std::nullopt,
                 std::optional<CoachLesson> lesson = std::nullopt,
                 std::optional<TokenUsage> usage = std::nullopt);

    /// An assistant message for one round of action calls: the text the model wrote before the
    /// calls (often empty), the calls with their outcomes, and the turn as the provider's format
    /// sent it (opaque JSON text; empty when none), which a request to the same format sends
    /// back unchanged.
    static CoachMessage actionRound(std::string content, std::vector<CoachActionCall> calls,
                                    std::string providerTurn = {},
                                    std::optional<TokenUsage> usage = std::nullopt);

    const Uuid& id() const { return m_id; }
    Role role() const { return m_role; }
    const std::string& content() const { return m_content; }
    const std::optional<CoachCard>& card() const;
    const std::optional<CoachLesson>& lesson() const;
    /// The tokens a model reply cost; none for other messages and providers that do not say.
    const std::optional<TokenUsage>& usage() const;
    /// The action calls of this round; empty for every other message.
    const std::vector<CoachActionCall>& actionCalls() const;
    /// The round's turn as the provider's format sent it; empty when none.
    const std::string& providerTurn() const;
    Timestamp timestamp() const { return m_timestamp; }

private:
    friend struct detail::DataModelAccess;
    // The card, the lesson, the usage and the action calls. A message never changes, so copies
    // share them: copying a message stays cheap, and a long history costs little memory for the
    // few that have one.
    struct Attachments;

    CoachMessage() = default;
    CoachMessage(Uuid id, Role role, std::string content, std::optional<CoachCard> card,
                 std::optional<CoachLesson> lesson, std::optional<TokenUsage> usage,
                 Timestamp timestamp, std::vector<CoachActionCall> actionCalls = {},
                 std::string providerTurn = {});

    Uuid m_id = Uuid::random();
    Role m_role = Role::user;
    std::string m_content;
    std::shared_ptr<const Attachments> m_attachments;  // null when there is none
    Timestamp m_timestamp;
};

/// "user", "assistant", "system".
SAGELY_EXPORT std::string_view rawValue(CoachMessage::Role role);
SAGELY_EXPORT std::optional<CoachMessage::Role> roleFromRawValue(std::string_view raw);

}  // namespace sagely

namespace nlohmann {
// JSON: "id", "role", "content", "card" (left out when none), "lesson" (left out when none),
// "usage" ({"inputTokens", "outputTokens"}, left out when none), "actionCalls" (array of
// {"id", "name", "title", "arguments", "status", "result", "card"}, left out when none),
// "providerTurn" (a JSON object, left out when none), "timestamp" (seconds since
// 2001-01-01 UTC). Failures throw DecodingError naming the key path. CoachMessage has no public
// default constructor, so nlohmann builds it through this adapter.
template <>
struct SAGELY_EXPORT adl_serializer<sagely::CoachMessage> {
    static sagely::CoachMessage from_json(const json& j);
    static void to_json(json& j, const sagely::CoachMessage& message);
};
}  // namespace nlohmann
