// A wire format of a model provider: how a chat becomes a request body and headers, and where
// the reply text stands in the answer. Everything common to the formats (endpoint, key checks,
// transport, status and JSON errors) is LLMClient's; a dialect only builds and reads.
#pragma once

#include <sagely/CoachConfig.h>
#include <sagely/LLMMessage.h>
#include <sagely/TokenUsage.h>

#include "llm/HttpTransport.h"
#include "llm/StreamFraming.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sagely::detail {

/// What a streamed reply has given so far.
struct StreamState {
    std::string text;
    /// The format's terminator arrived: "[DONE]", message_stop, a finishReason, done: true.
    bool finished = false;
    /// Anthropic: the content block whose text is the reply (the first text block).
    std::optional<std::int64_t> textBlock;
    /// The token counts the stream reported last.
    std::optional<TokenUsage> usage;
    /// Calls as they are pieced together, by the format's index (OpenAI's tool-call index,
    /// Anthropic's block index, an arrival count for the formats that send calls whole).
    std::map<std::int64_t, LLMToolCall> calls;
    /// The turn as received, for formats that send it back verbatim (Gemini: every part;
    /// Anthropic: the content blocks by index); null when the format rebuilds it.
    nlohmann::json turn;
};

/// The action calls of a reply, and the turn to send back with their results.
struct ToolTurn {
    std::vector<LLMToolCall> calls;
    std::string providerTurn;
};

class Dialect {
public:
    virtual ~Dialect() = default;

    virtual nlohmann::json body(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                                const std::string& model) const = 0;
    /// Headers after "Content-Type"; `apiKey` is trimmed and safe to send (maybe empty).
    virtual HeaderList headers(const std::string& apiKey) const = 0;
    /// The reply text, or none when the answer does not hold one.
    virtual std::optional<std::string> replyText(const nlohmann::json& answer) const = 0;

    /// The body of a streamed request: body() with the format's stream switch.
    virtual nlohmann::json streamingBody(const std::vector<LLMMessage>& messages,
                                         const CoachConfig& config,
                                         const std::string& model) const {
        nlohmann::json streamed = body(messages, config, model);
        streamed["stream"] = true;
        return streamed;
    }
    virtual std::string streamingURL(std::string url) const { return url; }
    /// Newline-delimited JSON instead of server-sent events.
    virtual bool streamsLines() const { return false; }
    /// The visible text one streamed event adds (a line of JSON comes as an event's data, `data`
    /// is that parsed, or discarded), and whether it ends the reply. Errors reported in the
    /// stream are found before this is asked.
    virtual std::string streamedText(const SseEvent& event, const nlohmann::json& data,
                                     StreamState& state) const = 0;

    /// Takes the token counts a whole answer or a streamed event's data carries into `usage`
    /// (each format says whether a later count replaces or completes an earlier one).
    virtual void readUsage(const nlohmann::json& object,
                           std::optional<TokenUsage>& usage) const = 0;

    /// Adds the offered actions to a request body (called only when there are some).
    virtual void addTools(nlohmann::json& body, const std::vector<LLMTool>& tools) const = 0;
    /// The calls of a whole answer, and its turn as this format sends it back.
    virtual ToolTurn toolTurn(const nlohmann::json& answer) const = 0;
    /// Takes what one streamed event adds to the calls (and the turn) into `state`.
    virtual void readStreamedCalls(const SseEvent& event, const nlohmann::json& data,
                                   StreamState& state) const = 0;
    /// The calls of a stream once it ended.
    virtual ToolTurn streamedToolTurn(const StreamState& state) const;

    virtual std::chrono::seconds timeout() const { return std::chrono::seconds(90); }
    virtual bool sendsAPIKey() const { return true; }
};

/// The opaque turn text for `format` ({"format": …, "content": …}).
std::string providerTurnText(std::string_view format, const nlohmann::json& content);
/// The content of a turn made for `format`; none for another format's turn or none at all.
std::optional<nlohmann::json> providerTurnContent(std::string_view format, const std::string& turn);
/// Parsed call arguments: an object, or {} for text that is not a JSON object (the model then
/// sees what the kit made of its call).
nlohmann::json argumentsObject(const std::string& arguments);
/// Compact JSON text of a value, with ill-formed UTF-8 replaced.
std::string compactJson(const nlohmann::json& value);
/// The "tools" of OpenAI's envelope, which Ollama shares: {"type": "function", "function": …}.
nlohmann::json functionTools(const std::vector<LLMTool>& tools);
/// Gives a call that came without an id one made up by the kit, "call_<n>", marked as such
/// (a real id may begin with "call_" too).
void giveMadeUpId(LLMToolCall& call, std::size_t index);

/// "role" and "content" of one message, as every format that copies roles writes it.
inline nlohmann::json apiMessage(const LLMMessage& message) {
    return {{"role", message.role}, {"content", message.content}};
}

/// The member `key` of an object, or null when `value` is no object or lacks the key.
inline const nlohmann::json* member(const nlohmann::json* value, const char* key) {
    if (value == nullptr || !value->is_object()) return nullptr;
    auto found = value->find(key);
    return found == value->end() ? nullptr : &*found;
}

/// The first element of an array, or null when `value` is no array or is empty.
inline const nlohmann::json* firstElement(const nlohmann::json* value) {
    if (value == nullptr || !value->is_array() || value->empty()) return nullptr;
    return &value->front();
}

/// A whole, non-negative count; none for anything else.
inline std::optional<std::int64_t> countValue(const nlohmann::json* value) {
    if (value == nullptr || !value->is_number_integer()) return std::nullopt;
    if (value->is_number_unsigned()) {
        const auto count = value->get<std::uint64_t>();
        if (count > std::uint64_t(INT64_MAX)) return std::nullopt;
        return static_cast<std::int64_t>(count);
    }
    const auto count = value->get<std::int64_t>();
    return count < 0 ? std::nullopt : std::optional(count);
}

inline std::optional<std::string> stringValue(const nlohmann::json* value) {
    if (value == nullptr || !value->is_string()) return std::nullopt;
    return value->get<std::string>();
}

}  // namespace sagely::detail
