// CoachMessage — one turn of a chat: who speaks, the text, an optional card or lesson, what a
// reply cost in tokens (when the provider said), and when it was made. An assistant message may
// also hold the host actions the model called in one round, with their outcomes.
//
// A message is never edited after it is made. It gets a fresh identity and the current time when
// constructed; an id or a timestamp of its own comes only from decoding. Messages are told apart
// by id() alone, so the type has no equality operator.
//
// Thread rules: a plain value; threads may use their own copies freely (copies share only
// what is never written).
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

    // A copy shares the original's payload. Moving copies too (a message has no moved-from
    // state), so that every message, even one moved from, stays readable.
    CoachMessage(const CoachMessage&) = default;
    CoachMessage& operator=(const CoachMessage&) = default;

    /// An assistant message for one round of action calls: the text the model wrote before the
    /// calls (often empty), the calls with their outcomes, and the turn as the provider's format
    /// sent it (opaque JSON text; empty when none), which a request to the same format sends
    /// back unchanged.
    static CoachMessage actionRound(std::string content, std::vector<CoachActionCall> calls,
                                    std::string providerTurn = {},
                                    std::optional<TokenUsage> usage = std::nullopt);

    const Uuid& id() const;
    Role role() const;
    const std::string& content() const;
    const std::optional<CoachCard>& card() const;
    const std::optional<CoachLesson>& lesson() const;
    /// The tokens a model reply cost; none for other messages and providers that do not say.
    const std::optional<TokenUsage>& usage() const;
    /// The action calls of this round; empty for every other message.
    const std::vector<CoachActionCall>& actionCalls() const;
    /// The round's turn as the provider's format sent it; empty when none.
    const std::string& providerTurn() const;
    Timestamp timestamp() const;

private:
    friend struct detail::DataModelAccess;
    // Everything a message holds. A message never changes, so copies share it: copying a
    // conversation of many messages costs a reference count per message, not their text, and a
    // copy handed to another thread shares only what no one writes.
    struct Payload;

    CoachMessage(Uuid id, Role role, std::string content, std::optional<CoachCard> card,
                 std::optional<CoachLesson> lesson, std::optional<TokenUsage> usage,
                 Timestamp timestamp, std::vector<CoachActionCall> actionCalls = {},
                 std::string providerTurn = {});

    std::shared_ptr<const Payload> m_payload;  // never null
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
