// CoachSession — one coach for the length of an `ask` or `chat` run, and the loop that waits for
// its replies.
//
// The coach reads this run's configuration (RunSettings) and the real conversation file of its
// namespace; every change of its conversation list is written to that file at once, so the
// history is shared with any other host of the kit on this machine and a question is on disk
// while its reply is awaited. With --offline the coach is local-only and answers from the guide.
//
// Waiting runs the main-thread queue in short slices, drawing the spinner and watching for
// Ctrl-C; an interrupted request is abandoned by destroying the coach, which cancels it (nothing
// is appended) after the conversation is saved.
//
// Thread rules: main thread only.
#pragma once

#include "cli/Host.h"
#include "cli/RunSettings.h"

#include <sagely/AICoach.h>
#include <sagely/MainExecutor.h>
#include <sagely/Observable.h>
#include <sagely/StaticCoachContextProvider.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace sagely::cli {

/// What became of one question.
struct AskOutcome {
    std::optional<CoachMessage> reply;
    std::optional<std::string> error;  // the coach's error text or code when nothing was appended
    bool interrupted = false;
};

class CoachSession {
public:
    CoachSession(Host& host, RunOptions options);
    ~CoachSession();
    CoachSession(const CoachSession&) = delete;
    CoachSession& operator=(const CoachSession&) = delete;

    /// The coach; only valid while isOpen().
    AICoach& coach() { return *m_coach; }
    bool isOpen() const { return m_coach != nullptr; }
    const RunOptions& options() const { return m_options; }
    CoachConfig config() const { return m_run->config(); }
    /// The real conversation file of the namespace.
    const std::filesystem::path& conversationFile() const { return m_conversationFile; }

    /// Asks the question and waits for the outcome; Ctrl-C abandons the request and closes the
    /// session.
    AskOutcome ask(const std::string& question);
    /// Writes the coach's conversations to the real file.
    void saveConversations();

private:
    void openCoach();
    void continueLatestConversation();
    void close();

    Host& m_host;
    RunOptions m_options;
    std::unique_ptr<CoachSettingsStore> m_saved;
    std::unique_ptr<RunSettings> m_run;
    std::filesystem::path m_conversationFile;
    std::shared_ptr<ManualExecutor> m_executor = std::make_shared<ManualExecutor>();
    std::unique_ptr<AICoach> m_coach;
    Subscription m_mirror;
};

}  // namespace sagely::cli
