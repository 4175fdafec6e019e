// sagely — a command-line host of SagelyKit: ask, chat, settings, keys, history, prompt
// inspection and reply formatting in a terminal.
#include "cli/Cli.h"
#include "cli/Host.h"
#include "cli/LineReader.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

volatile std::sig_atomic_t g_interrupted = 0;  // the signal that ended the run, if any

// Only records the signal: the command's wait loop notices it within a tenth of a second and
// cancels cleanly on the main thread. A terminal closing (SIGHUP) or a polite kill (SIGTERM)
// ends a run as Ctrl-C does: the conversation saved, the terminal's echo restored.
extern "C" void onInterrupt(int signalNumber) {
    g_interrupted = signalNumber;
}

void catchInterrupts() {
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no restart: a blocking read returns, so reading a key can stop too
    for (int signalNumber : {SIGINT, SIGTERM, SIGHUP}) sigaction(signalNumber, &action, nullptr);
}

// After a clean end, a run stopped by SIGTERM or SIGHUP still dies of it, so its parent sees why.
void endAsSignalled() {
    const int signalNumber = g_interrupted;
    if (signalNumber != SIGTERM && signalNumber != SIGHUP) return;
    std::cout.flush();
    std::cerr.flush();
    std::signal(signalNumber, SIG_DFL);
    std::raise(signalNumber);
}

std::optional<std::string> environmentVariable(const std::string& name) {
    const char* value = std::getenv(name.c_str());
    if (!value) return std::nullopt;
    return std::string(value);
}

}  // namespace

int main(int argc, char** argv) {
    catchInterrupts();
    sagely::cli::Host host(std::cin, std::cout, std::cerr);
    host.inIsTerminal = isatty(STDIN_FILENO) == 1;
    host.outIsTerminal = isatty(STDOUT_FILENO) == 1;
    host.errIsTerminal = isatty(STDERR_FILENO) == 1;
    host.environment = environmentVariable;
    host.interrupted = [] { return g_interrupted != 0; };
    host.makeLineReader = [](sagely::cli::Host& h) -> std::unique_ptr<sagely::cli::LineReader> {
        return h.inIsTerminal ? sagely::cli::makeTerminalLineReader() : nullptr;
    };
    const int status = sagely::cli::run(std::vector<std::string>(argv + 1, argv + argc), host);
    endAsSignalled();
    return status;
}
