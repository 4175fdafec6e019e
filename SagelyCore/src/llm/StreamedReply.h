// Reads a streamed reply of one wire format as its bytes arrive: frames them, hands each piece
// of visible text on, and at the end gives the whole text the non-streaming reader would have
// kept. A server that answers with a whole JSON reply instead (it ignored the stream switch) is
// read as one, and hands no piece on.
#pragma once

#include "llm/Dialect.h"
#include "llm/HttpTransport.h"
#include "llm/StreamFraming.h"

#include <sagely/LLMClient.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace sagely::detail {

/// The reply text of a whole (non-streamed) success body; throws DecodingError for a body that
/// is not JSON and CoachLLMError::invalidResponse for one without a reply.
std::string wholeReplyText(const Dialect& dialect, const std::string& body);

/// A whole success body as a reply: its text and, when actions were offered (`withCalls`), its
/// calls; a reply with calls may have no text. Throws as wholeReplyText().
LLMReply wholeReply(const Dialect& dialect, const std::string& body, bool withCalls);

/// A whole JSON answer; a DecodingError when it is not an object or an array.
nlohmann::json parseAnswer(const std::string& body);

class StreamedReplyReader {
public:
    using DeltaHandler = std::function<void(std::string_view delta)>;
    /// `withCalls`: actions were offered, so the model's calls are read (and a reply may be
    /// calls alone). `maxBodyBytes` bounds the body, and so the text read from it.
    StreamedReplyReader(const Dialect& dialect, DeltaHandler onDelta, bool withCalls = false,
                        std::size_t maxBodyBytes = kMaxReplyBytes);

    /// Bytes of a success body as they arrive. Throws CoachLLMError::serverError for an error
    /// the provider reports in the stream.
    void feed(std::string_view contentType, std::string_view bytes);
    /// The reply once the body ended: the text so far when the stream was cut short after some
    /// text; CoachLLMError::invalidResponse when it ended with none and without its terminator.
    /// The text is moved out (a reply may be tens of megabytes): state().text is empty after.
    std::string finish();

    const StreamState& state() const { return m_state; }
    /// The calls once the body ended (none unless `withCalls`).
    const ToolTurn& toolTurn() const { return m_turn; }
    /// Some of the body arrived.
    bool started() const { return m_whole.has_value(); }

private:
    void event(const SseEvent& event);

    const Dialect& m_dialect;
    DeltaHandler m_onDelta;
    StreamState m_state;
    std::optional<bool> m_whole;    // decided by the first bytes' Content-Type
    bool m_declaredStream = false;  // text/event-stream or application/x-ndjson
    std::string m_body;             // kept until the first event: it may be a whole reply
    bool m_sawEvent = false;
    bool m_withCalls = false;
    std::size_t m_maxBodyBytes;
    ToolTurn m_turn;
    std::variant<SseParser, NdjsonSplitter> m_framing;
};

}  // namespace sagely::detail
