// `sagely ask --offline` end to end, as a user runs it: the built executable started as a process
// with its own home folder, answering one question from the shipped guide with an empty, a 1 MB
// and a 25 MB conversation history (conversations of 500 messages), and 25 MB where every reply
// carries its token usage and every fourth message is a round of action calls with the
// provider's turn. The four are run in turn in one run; each run starts from the same history
// file. Reported: the median wall time of each, and the ratios to the empty history (the goal:
// 25 MB within 3x).
//
// BM_DeltaToCliWrite: `sagely ask` streaming a reply from a loopback server into a pipe; for
// each delta (a line of its own, so the host writes it at once), the time from the server
// handing its chunk to the socket to the line arriving on the host's standard output; median
// and p99 over three runs of 200 deltas 5 ms apart (the engine's ~30 ms coalescing included).
#include "support/LoopbackHttpServer.h"
#include "support/TemporaryDirectory.h"

#include <sagely/CoachActionCall.h>
#include <sagely/CoachConversation.h>
#include <sagely/ConversationFile.h>
#include <sagely/TokenUsage.h>

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

extern char** environ;

namespace {

using namespace sagely;
using Clock = std::chrono::steady_clock;

const char* const kWords[] = {"notebook", "share",    "export", "sync",   "shortcut", "palette",
                              "template", "folder",   "search", "backup", "settings", "provider",
                              "speech",   "teaching", "window", "toolbar"};

// A round of two calls as a host action leaves it: usage, results, the provider's turn.
CoachMessage actionRound(std::size_t i) {
    CoachActionCall open{"call_" + std::to_string(i),
                         "open_chapter",
                         "Open chapter",
                         R"({"chapter":"export","line":12})",
                         CoachActionCall::Status::done,
                         "Opened the chapter \"Export\"."};
    CoachActionCall palette{
        "call_" + std::to_string(i + 1),   "set_palette",       "", R"({"palette":"dark"})",
        CoachActionCall::Status::declined, "The user declined."};
    palette.idMadeUp = true;
    TokenUsage usage(1200 + static_cast<std::int64_t>(i), 85);
    usage.provider = "gemini";
    usage.model = "gemini-2.5-flash";
    const std::string turn =
        R"({"role":"model","parts":[{"functionCall":{"name":"open_chapter","args":{"chapter":"export","line":12}},"thoughtSignature":"c2lnbmF0dXJl"},{"functionCall":{"name":"set_palette","args":{"palette":"dark","strength":0.75}}}]})";
    return CoachMessage::actionRound("Let me open that for you.", {open, palette}, turn, usage);
}

// Conversations of 500 messages until the file would reach about `bytes`; with `actions`,
// replies carry their usage and every fourth message is a round of action calls.
std::vector<CoachConversation> makeHistory(std::size_t bytes, bool actions = false) {
    std::vector<CoachConversation> history;
    std::size_t size = 0;
    while (size < bytes) {
        CoachConversation conversation("Conversation " + std::to_string(history.size() + 1));
        for (std::size_t i = 0; i < 500 && size < bytes; ++i) {
            std::string content;
            for (std::size_t w = 0; w < 10 + (i * 13) % 60; ++w)
                content += std::string(kWords[(i * 7 + w) % 16]) + " ";
            if (actions && i % 4 == 3) {
                size += 900;  // about what a round of two calls takes
                conversation.append(actionRound(i));
                continue;
            }
            size += content.size() + 130;  // the message's keys, id, role and time
            std::optional<TokenUsage> usage;
            if (actions && i % 2) usage = TokenUsage(900, 40);
            if (usage) size += 50;
            conversation.append(
                CoachMessage(i % 2 ? CoachMessage::Role::assistant : CoachMessage::Role::user,
                             content, std::nullopt, std::nullopt, usage));
        }
        history.push_back(std::move(conversation));
    }
    return history;
}

/// One home folder with a saved history, restored before every run.
struct Home {
    explicit Home(std::size_t historyBytes, bool actions = false) {
        std::filesystem::create_directories(storage());
        if (historyBytes == 0) return;
        ConversationFile::save(pristine(), makeHistory(historyBytes, actions));
        bytes = std::filesystem::file_size(pristine());
    }

    std::filesystem::path data() const { return folder.path() / "data"; }
    std::filesystem::path storage() const { return data() / "Brindlewood" / "Sagely"; }
    std::filesystem::path pristine() const { return folder.path() / "history.json"; }

    void restore() const {
        const auto file = storage() / "cli-conversations.json";
        std::filesystem::remove(file);
        if (bytes)
            std::filesystem::copy_file(pristine(), file,
                                       std::filesystem::copy_options::overwrite_existing);
    }

    /// Runs one question; returns the wall seconds, or a negative number when it failed.
    double ask() const {
        restore();
        const auto start = Clock::now();
        const pid_t pid = run({"ask", "--offline", "How do I export a notebook?"});
        if (!exitedWell(pid)) return -1;
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

    /// Starts `sagely ARGUMENTS` in this home, its standard output on `out` (none: /dev/null);
    /// returns its process id, or -1.
    pid_t run(const std::vector<std::string>& arguments, int out = -1) const {
        std::vector<std::string> words = {SAGELY_BINARY};
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<std::string> environment = {
            "HOME=" + folder.path().string(), "XDG_DATA_HOME=" + data().string(),
            "XDG_RUNTIME_DIR=" + folder.path().string(), "PATH=/usr/bin:/bin", "LANG=C.UTF-8"};
        std::vector<char*> argv, envp;
        for (auto& word : words) argv.push_back(word.data());
        for (auto& entry : environment) envp.push_back(entry.data());
        argv.push_back(nullptr);
        envp.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        if (out < 0)
            posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        else
            posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        pid_t pid = -1;
        const int failed = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
        posix_spawn_file_actions_destroy(&actions);
        return failed ? -1 : pid;
    }

    /// Waits for the process; whether it exited with 0.
    static bool exitedWell(pid_t pid) {
        if (pid < 0) return false;
        int status = 0;
        while (waitpid(pid, &status, 0) < 0) {
        }
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

    sagely::testing::TemporaryDirectory folder;
    std::uintmax_t bytes = 0;
};

double median(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return samples.empty() ? 0 : samples[samples.size() / 2];
}

void BM_AskOfflineEndToEnd(benchmark::State& state) {
    const Home empty(0), oneMB(1'000'000), large(25'000'000), actions(25'000'000, true);
    std::vector<double> emptyRuns, oneMBRuns, largeRuns, actionsRuns;
    for (auto _ : state) {
        const double seconds[] = {empty.ask(), oneMB.ask(), large.ask(), actions.ask()};
        if (*std::min_element(std::begin(seconds), std::end(seconds)) < 0) {
            state.SkipWithError("sagely ask --offline failed");
            return;
        }
        emptyRuns.push_back(seconds[0]);
        oneMBRuns.push_back(seconds[1]);
        largeRuns.push_back(seconds[2]);
        actionsRuns.push_back(seconds[3]);
        state.SetIterationTime(seconds[2]);
    }
    state.counters["empty_ms"] = median(emptyRuns) * 1e3;
    state.counters["1MB_ms"] = median(oneMBRuns) * 1e3;
    state.counters["25MB_ms"] = median(largeRuns) * 1e3;
    state.counters["1MB_ratio"] = median(oneMBRuns) / median(emptyRuns);
    state.counters["25MB_ratio"] = median(largeRuns) / median(emptyRuns);
    state.counters["25MB_file_MB"] = static_cast<double>(large.bytes) / 1e6;
    state.counters["25MB_actions_ms"] = median(actionsRuns) * 1e3;
    state.counters["25MB_actions_ratio"] = median(actionsRuns) / median(emptyRuns);
    state.counters["25MB_actions_file_MB"] = static_cast<double>(actions.bytes) / 1e6;
}
BENCHMARK(BM_AskOfflineEndToEnd)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(7);

void BM_DeltaToCliWrite(benchmark::State& state) {
    using sagely::testing::LoopbackHttpServer;
    constexpr std::size_t kDeltas = 200;
    const Home home(0);
    std::vector<double> latencies;  // of every run
    for (auto _ : state) {
        LoopbackHttpServer server;
        std::mutex mutex;
        std::vector<Clock::time_point> sent(kDeltas);
        sagely::testing::ScriptedResponse response;
        response.headers = {{"Content-Type", "text/event-stream"}};
        for (std::size_t i = 0; i < kDeltas; ++i)
            response.bodyChunks.push_back(
                sagely::testing::openAIStreamEvent("line " + std::to_string(i) + "\n"));
        response.bodyChunks.push_back("data: [DONE]\n\n");
        response.delayBetweenChunks = std::chrono::milliseconds(5);
        response.chunkSent = [&](std::size_t i) {
            std::lock_guard lock(mutex);
            if (i < kDeltas) sent[i] = Clock::now();
        };
        server.enqueue(response);

        home.restore();
        int out[2];
        // Close-on-exec (not pipe2(), which macOS lacks): sagely gets only its dup2'd copy.
        if (pipe(out) != 0 || fcntl(out[0], F_SETFD, FD_CLOEXEC) != 0 ||
            fcntl(out[1], F_SETFD, FD_CLOEXEC) != 0) {
            state.SkipWithError("no pipe");
            return;
        }
        const pid_t pid = home.run(
            {"ask", "--provider", "custom", "--endpoint", server.url("/v1/chat/completions"), "Go"},
            out[1]);
        close(out[1]);
        const std::size_t before = latencies.size();
        std::string pending;
        char buffer[4096];
        for (ssize_t got; (got = read(out[0], buffer, sizeof buffer)) > 0;) {
            const auto now = Clock::now();
            pending.append(buffer, std::size_t(got));
            for (std::size_t end; (end = pending.find('\n')) != std::string::npos;
                 pending.erase(0, end + 1)) {
                std::lock_guard lock(mutex);
                const std::size_t delta = latencies.size() - before;
                if (delta < kDeltas && pending.starts_with("line "))
                    latencies.push_back(
                        std::chrono::duration<double, std::milli>(now - sent[delta]).count());
            }
        }
        close(out[0]);
        if (!Home::exitedWell(pid) || latencies.size() - before != kDeltas) {
            state.SkipWithError("sagely ask did not stream the reply");
            return;
        }
    }
    std::sort(latencies.begin(), latencies.end());
    state.counters["median_ms"] = latencies[latencies.size() / 2];
    state.counters["p99_ms"] = latencies[latencies.size() * 99 / 100];
}
BENCHMARK(BM_DeltaToCliWrite)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
