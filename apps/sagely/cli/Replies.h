// Replies — how ask and chat print what became of a question.
#pragma once

#include "cli/CoachSession.h"
#include "cli/Host.h"
#include "cli/Rendering.h"

#include <sagely/CoachMessage.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sagely::cli {

/// Writes a reply to standard output while it streams in, on a terminal or through a pipe: each
/// line as soon as it is complete, rendered as a line of a reply (headings, bullets, inline
/// Markdown); the last line, the card and the lesson when the reply is complete. A reply none of
/// whose lines was complete before its end is rendered whole, as when it did not stream.
class StreamedReplyWriter {
public:
    explicit StreamedReplyWriter(Host& host);
    /// `text` is the whole reply so far; each call's text begins with the previous one's.
    void update(std::string_view text);
    bool started() const { return m_writtenSize > 0; }
    /// The text not written yet, then the card and lesson, numbered after `suggestions`. A reply
    /// that does not begin with what was written is written again, whole, on a new line.
    void finish(const CoachMessage& reply, std::vector<std::string>& suggestions);

private:
    void write(std::string_view text, bool complete);

    Host& m_host;
    Renderer m_renderer;
    // The beginning of the reply already written, as its length and hash: a reply may be tens
    // of megabytes, and the coach holds its text already.
    std::size_t m_writtenSize = 0;
    std::uint64_t m_writtenHash;
};

/// Prints the reply on standard output: rendered for the terminal, or as the kit's JSON of the
/// message (one line). The rendered reply's suggestions are numbered after those already in
/// `suggestions`. A reply `streamed` has begun to write is finished by it instead.
void printReply(Host& host, const CoachMessage& reply, bool json,
                std::vector<std::string>& suggestions, StreamedReplyWriter* streamed = nullptr);

/// Reports a question that got no reply on standard error; returns the exit code.
int reportUnanswered(Host& host, const AskOutcome& outcome, const CoachConfig& config,
                     bool offline);

}  // namespace sagely::cli
