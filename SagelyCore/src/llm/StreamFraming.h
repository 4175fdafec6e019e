// The two framings streamed model replies use: server-sent events and newline-delimited JSON.
// Both take bytes as the network hands them over, in pieces of any size: a line (and so a UTF-8
// character) may straddle two reads, and one read may hold several lines.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace sagely::detail {

/// One dispatched server-sent event.
struct SseEvent {
    std::string type;  ///< the "event" field; empty when none was sent
    std::string data;  ///< the "data" lines, joined with "\n"
};

/// Splits a server-sent event stream into events. Lines end with CRLF, LF or a lone CR; ":"
/// lines are comments; an event is dispatched at its blank line, and one left without a blank
/// line at the end of the stream is dropped.
class SseParser {
public:
    using Handler = std::function<void(const SseEvent&)>;
    explicit SseParser(Handler handler) : m_handler(std::move(handler)) {}

    void feed(std::string_view bytes);

private:
    void line(std::string_view line);

    Handler m_handler;
    std::string m_line;
    SseEvent m_event;
    bool m_hasData = false;
    bool m_afterCR = false;  // a CR ended the last line; an LF right after it belongs to it
    bool m_firstLine = true;
};

/// Splits newline-delimited JSON into lines (LF or CRLF), skipping blank ones. The last line
/// may lack its newline: finish() hands it on.
class NdjsonSplitter {
public:
    using Handler = std::function<void(std::string_view line)>;
    explicit NdjsonSplitter(Handler handler) : m_handler(std::move(handler)) {}

    void feed(std::string_view bytes);
    void finish();

private:
    void line(std::string_view line);

    Handler m_handler;
    std::string m_line;
};

}  // namespace sagely::detail
