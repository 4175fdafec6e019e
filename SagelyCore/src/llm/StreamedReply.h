// Reads a streamed reply of one wire format as its bytes arrive: frames them, hands each piece
// of visible text on, and at the end gives the whole text the non-streaming reader would have
// kept. A server that answers with a whole JSON reply instead (it ignored the stream switch) is
// read as one, and hands no piece on.
#pragma once

#include "llm/Dialect.h"
#include "llm/StreamFraming.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace sagely::detail {

/// The reply text of a whole (non-streamed) success body; throws DecodingError for a body that
/// is not JSON and CoachLLMError::invalidResponse for one without a reply.
std::string wholeReplyText(const Dialect& dialect, const std::string& body);

/// A whole JSON answer; a DecodingError when it is not an object or an array.
nlohmann::json parseAnswer(const std::string& body);

class StreamedReplyReader {
public:
    using DeltaHandler = std::function<void(std::string_view delta)>;
    StreamedReplyReader(const Dialect& dialect, DeltaHandler onDelta);

    /// Bytes of a success body as they arrive. Throws CoachLLMError::serverError for an error
    /// the provider reports in the stream.
    void feed(std::string_view contentType, std::string_view bytes);
    /// The reply once the body ended: the text so far when the stream was cut short after some
    /// text; CoachLLMError::invalidResponse when it ended with none and without its terminator.
    std::string finish();

    const StreamState& state() const { return m_state; }
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
    std::variant<SseParser, NdjsonSplitter> m_framing;
};

}  // namespace sagely::detail
