// The terminal line editor of `chat`: libedit's readline interface, with history for the session.
#include "cli/LineReader.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <editline/readline.h>

namespace sagely::cli {
namespace {

// Ctrl-C at the prompt ends the session the ordinary way (the conversation is already saved);
// the editor restores the terminal before the signal takes effect.
class DefaultInterruptWhileReading {
public:
    DefaultInterruptWhileReading() { m_previous = std::signal(SIGINT, SIG_DFL); }
    ~DefaultInterruptWhileReading() { std::signal(SIGINT, m_previous); }

private:
    void (*m_previous)(int) = SIG_DFL;
};

class EditLineReader final : public LineReader {
public:
    EditLineReader() { using_history(); }

    std::optional<std::string> readLine(const std::string& prompt) override {
        char* raw = nullptr;
        {
            DefaultInterruptWhileReading guard;
            raw = readline(prompt.c_str());
        }
        if (!raw) return std::nullopt;
        std::string line(raw);
        std::free(raw);
        if (!line.empty()) add_history(line.c_str());
        return line;
    }
};

}  // namespace

std::unique_ptr<LineReader> makeTerminalLineReader() {
    return std::make_unique<EditLineReader>();
}

}  // namespace sagely::cli
