// LineReader — where `chat` gets the user's next line: an editing line reader (history, cursor
// keys) on a terminal, plain lines from a stream otherwise.
#pragma once

#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

namespace sagely::cli {

class LineReader {
public:
    virtual ~LineReader() = default;
    /// The next line without its line break, or none at the end of input.
    virtual std::optional<std::string> readLine(const std::string& prompt) = 0;
};

/// Lines from a stream; the prompt is written to `promptOut` when given (a terminal).
class StreamLineReader final : public LineReader {
public:
    StreamLineReader(std::istream& in, std::ostream* promptOut)
        : m_in(in), m_promptOut(promptOut) {}
    std::optional<std::string> readLine(const std::string& prompt) override;

private:
    std::istream& m_in;
    std::ostream* m_promptOut;
};

/// A terminal line editor with history when the system has one; none otherwise.
std::unique_ptr<LineReader> makeTerminalLineReader();

}  // namespace sagely::cli
