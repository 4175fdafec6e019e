#include "support/SagelyProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace sagely::testing {
namespace {

struct Pipe {
    int read = -1;
    int write = -1;
};

Pipe makePipe() {
    int fds[2];
    if (::pipe(fds) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    // Only the child's copies (made by dup2 in the spawn) stay open across exec.
    for (int fd : fds) ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    return {fds[0], fds[1]};
}

std::vector<char*> cStrings(std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    for (auto& s : strings) pointers.push_back(s.data());
    pointers.push_back(nullptr);
    return pointers;
}

void writeAll(int fd, const std::string& bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;  // the child stopped reading; what it got is what it gets
        written += static_cast<std::size_t>(n);
    }
}

// Reads what is there; returns false at the end of the stream.
bool drain(int fd, std::string& into) {
    char buffer[4096];
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n > 0) into.append(buffer, static_cast<std::size_t>(n));
    return n > 0 || (n < 0 && errno == EINTR);
}

}  // namespace

const char* sagelyExecutable() {
    return SAGELY_CLI_BINARY;
}

SagelyProcess::SagelyProcess(const std::vector<std::string>& arguments,
                             const std::map<std::string, std::string>& environment,
                             const std::string& input) {
    // A child that exits before reading all its input must not kill the test with SIGPIPE.
    ::signal(SIGPIPE, SIG_IGN);
    Pipe in = makePipe(), out = makePipe(), err = makePipe();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.read, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out.write, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.write, STDERR_FILENO);
    std::vector<std::string> argv{sagelyExecutable()}, envp;
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    for (const auto& [name, value] : environment) envp.push_back(name + "=" + value);
    auto argvPointers = cStrings(argv), envPointers = cStrings(envp);
    const int spawned = posix_spawn(&m_pid, argv[0].c_str(), &actions, nullptr, argvPointers.data(),
                                    envPointers.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(in.read);
    ::close(out.write);
    ::close(err.write);
    if (spawned != 0) throw std::system_error(spawned, std::generic_category(), "posix_spawn");
    writeAll(in.write, input);
    ::close(in.write);
    m_out = out.read;
    m_err = err.read;
}

SagelyProcess::~SagelyProcess() {
    if (!m_reaped && m_pid > 0) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    if (m_out >= 0) ::close(m_out);
    if (m_err >= 0) ::close(m_err);
}

void SagelyProcess::interrupt() {
    ::kill(m_pid, SIGINT);
}

void SagelyProcess::sendSignal(int signalNumber) {
    ::kill(m_pid, signalNumber);
}

template <typename Done>
void SagelyProcess::collect(std::chrono::steady_clock::time_point deadline, const Done& done) {
    while ((m_outOpen || m_errOpen) && !done() && std::chrono::steady_clock::now() < deadline) {
        pollfd fds[2] = {{m_outOpen ? m_out : -1, POLLIN, 0}, {m_errOpen ? m_err : -1, POLLIN, 0}};
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (::poll(fds, 2, static_cast<int>(std::max<long long>(left.count(), 1))) <= 0) continue;
        if (fds[0].revents) m_outOpen = drain(m_out, m_collected.out);
        if (fds[1].revents) m_errOpen = drain(m_err, m_collected.err);
    }
}

std::string SagelyProcess::waitForOutput(const std::string& text,
                                         std::chrono::milliseconds timeout) {
    collect(std::chrono::steady_clock::now() + timeout,
            [&] { return m_collected.out.find(text) != std::string::npos; });
    return m_collected.out;
}

ProcessOutcome SagelyProcess::wait(std::chrono::milliseconds timeout) {
    ProcessOutcome outcome;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    collect(deadline, [] { return false; });
    outcome.out = std::move(m_collected.out);
    outcome.err = std::move(m_collected.err);
    int status = 0;
    pid_t done = 0;
    while ((done = ::waitpid(m_pid, &status, WNOHANG)) == 0 &&
           std::chrono::steady_clock::now() < deadline)
        ::usleep(10'000);
    if (done != m_pid) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, &status, 0);
        m_reaped = true;
        return outcome;
    }
    m_reaped = true;
    outcome.exited = WIFEXITED(status);
    outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    outcome.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return outcome;
}

ProcessOutcome runSagely(const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment,
                         const std::string& input) {
    SagelyProcess process(arguments, environment, input);
    return process.wait(std::chrono::seconds(60));
}

}  // namespace sagely::testing
