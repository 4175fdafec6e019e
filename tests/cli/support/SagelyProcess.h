// SagelyProcess — the built `sagely` executable run as a child process: chosen arguments and
// environment, bytes on standard input, standard output and error collected, Ctrl-C on demand.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

namespace sagely::testing {

/// Where the build put the executable.
const char* sagelyExecutable();

struct ProcessOutcome {
    bool exited = false;  // false: it did not end in time (it was killed)
    int exitCode = -1;    // the exit status when it exited normally
    int signal = 0;       // the signal that ended it, if one did
    std::string out;
    std::string err;
};

class SagelyProcess {
public:
    /// Starts the executable; `input` is written to its standard input, which is then closed.
    SagelyProcess(const std::vector<std::string>& arguments,
                  const std::map<std::string, std::string>& environment,
                  const std::string& input = "");
    ~SagelyProcess();
    SagelyProcess(const SagelyProcess&) = delete;
    SagelyProcess& operator=(const SagelyProcess&) = delete;

    /// Sends SIGINT, as Ctrl-C in a terminal would.
    void interrupt();
    /// Sends any signal.
    void sendSignal(int signalNumber);
    /// Collects the output until the process ends or the time-out passes (then kills it).
    ProcessOutcome wait(std::chrono::milliseconds timeout);
    /// Collects the output until standard output holds `text`, the output ends or the time-out
    /// passes; returns standard output so far. wait() still returns all of it.
    std::string waitForOutput(const std::string& text, std::chrono::milliseconds timeout);

private:
    template <typename Done>
    void collect(std::chrono::steady_clock::time_point deadline, const Done& done);

    pid_t m_pid = -1;
    int m_out = -1;
    int m_err = -1;
    bool m_outOpen = true;
    bool m_errOpen = true;
    ProcessOutcome m_collected;
    bool m_reaped = false;
};

/// Runs the executable to its end (at most 60 s).
ProcessOutcome runSagely(const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment,
                         const std::string& input = "");

}  // namespace sagely::testing
