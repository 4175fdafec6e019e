#include "llm/StreamedReply.h"

#include "support/GrowingText.h"

#include <sagely/CoachLLMError.h>
#include <sagely/Error.h>
#include <sagely/Text.h>

#include <utility>

namespace sagely::detail {
namespace {

// The provider's message when a streamed object reports an error: {"error": "…"} (Ollama) or
// {"error": {"message": "…"}} (the others, Anthropic's "error" events included).
std::optional<std::string> reportedError(const nlohmann::json& object) {
    const nlohmann::json* error = member(&object, "error");
    if (error == nullptr || error->is_null()) return std::nullopt;
    if (error->is_boolean() && !error->get<bool>()) return std::nullopt;
    if (auto text = stringValue(error)) return text;
    return stringValue(member(error, "message")).value_or("An error occurred during streaming");
}

std::string mimeType(std::string_view contentType) {
    return text::lowercased(text::trimmed(
        std::string(contentType.substr(0, std::min(contentType.find(';'), contentType.size())))));
}

}  // namespace

// Top-level fragments are refused, as a strict JSON reader of objects and arrays does.
nlohmann::json parseAnswer(const std::string& body) {
    nlohmann::json answer = nlohmann::json::parse(body, nullptr, false);
    if (answer.is_discarded() || !(answer.is_object() || answer.is_array())) {
        throw DecodingError(
            "The data couldn\u2019t be read because it isn\u2019t in the correct format.");
    }
    return answer;
}

std::string wholeReplyText(const Dialect& dialect, const std::string& body) {
    return wholeReply(dialect, body, /*withCalls=*/false).text;
}

LLMReply wholeReply(const Dialect& dialect, const std::string& body, bool withCalls) {
    const nlohmann::json answer = parseAnswer(body);
    if (!answer.is_object()) throw CoachLLMError::invalidResponse();
    LLMReply reply;
    if (withCalls) {
        ToolTurn turn = dialect.toolTurn(answer);
        reply.toolCalls = std::move(turn.calls);
        reply.providerTurn = std::move(turn.providerTurn);
    }
    std::optional<std::string> text = dialect.replyText(answer);
    if (!text && reply.toolCalls.empty()) throw CoachLLMError::invalidResponse();
    reply.text = std::move(text).value_or("");
    dialect.readUsage(answer, reply.usage);
    return reply;
}

StreamedReplyReader::StreamedReplyReader(const Dialect& dialect, DeltaHandler onDelta,
                                         bool withCalls, std::size_t maxBodyBytes)
    : m_dialect(dialect),
      m_onDelta(std::move(onDelta)),
      m_withCalls(withCalls),
      m_maxBodyBytes(maxBodyBytes),
      m_framing(std::in_place_type<SseParser>, [this](const SseEvent& e) { event(e); }) {
    if (dialect.streamsLines()) {
        m_framing.emplace<NdjsonSplitter>([this](std::string_view line) {
            event({std::string(), std::string(line)});
        });
    }
}

void StreamedReplyReader::feed(std::string_view contentType, std::string_view bytes) {
    if (!m_whole) {
        const std::string mime = mimeType(contentType);
        m_whole = mime == "application/json";
        m_declaredStream = mime == "text/event-stream" || mime == "application/x-ndjson";
    }
    if (*m_whole || !m_sawEvent) appendGrowingTo(m_body, bytes, m_maxBodyBytes);
    if (*m_whole) return;
    std::visit([bytes](auto& framing) { framing.feed(bytes); }, m_framing);
}

void StreamedReplyReader::event(const SseEvent& event) {
    if (!m_sawEvent) {
        m_sawEvent = true;
        m_body = {};
    }
    const nlohmann::json data = nlohmann::json::parse(event.data, nullptr, false);
    if (auto message = reportedError(data)) throw CoachLLMError::serverError(*message);
    if (event.type == "error") {
        throw CoachLLMError::serverError("An error occurred during streaming");
    }
    m_dialect.readUsage(data, m_state.usage);
    if (m_withCalls) m_dialect.readStreamedCalls(event, data, m_state);
    std::string delta = m_dialect.streamedText(event, data, m_state);
    if (delta.empty()) return;
    // Decoded text is never longer than the body it came in.
    appendGrowingTo(m_state.text, delta, m_maxBodyBytes);
    if (m_onDelta) m_onDelta(delta);
}

std::string StreamedReplyReader::finish() {
    if (auto* lines = std::get_if<NdjsonSplitter>(&m_framing); lines && !m_whole.value_or(true)) {
        lines->finish();
    }
    if (!m_sawEvent && !m_body.empty()) {
        // No stream came: a whole reply, perhaps a whole error object.
        const nlohmann::json answer = nlohmann::json::parse(m_body, nullptr, false);
        if (auto message = reportedError(answer)) throw CoachLLMError::serverError(*message);
        // A declared stream cut before its first event had no text; anything else is read as
        // the whole reply it claims to be (and fails as one when it is not JSON).
        if (m_declaredStream && answer.is_discarded()) throw CoachLLMError::invalidResponse();
        LLMReply reply = wholeReply(m_dialect, m_body, m_withCalls);
        m_state.usage = reply.usage;
        m_state.finished = true;
        m_turn = {std::move(reply.toolCalls), std::move(reply.providerTurn)};
        return std::move(reply.text);
    }
    if (m_withCalls) m_turn = m_dialect.streamedToolTurn(m_state);
    if (m_state.text.empty() && !m_state.finished && m_turn.calls.empty())
        throw CoachLLMError::invalidResponse();
    return std::exchange(m_state.text, {});
}

}  // namespace sagely::detail
