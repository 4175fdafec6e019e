// CoachSession — one coach for the length of an `ask` or `chat` run, and the loop that waits for
// its replies.
//
// The coach reads this run's configuration (RunSettings) and keeps the conversations of its
// namespace in the real conversation file, merging each save with what other hosts of the kit
// on this machine saved there and taking in their additions before each question. A question
// reaches the file with its reply or failure, or when the session closes while it waits. With
// --offline the coach is local-only and answers from the guide.
//
// The model may call the CLI's actions over the kit's own state: the settings and the saved
// conversations (read-only), and use_provider / set_setting, which run only when the approver
// says yes (none: every such call is declined). Each decided call prints a "Done: …" /
// "Declined: …" line.
//
// Waiting runs the main-thread queue in short slices, drawing the spinner until text arrives
// and watching for Ctrl-C; an interrupted request is stopped (the text received so far becomes
// the reply) and the session closed.
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
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace sagely::cli {

/// What became of one question.
struct AskOutcome {
    std::optional<CoachMessage> reply;  // after Ctrl-C, the text that had arrived (if any)
    std::optional<std::string> error;   // the coach's error text or code when nothing was appended
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

    /// Asks the question and waits for the outcome, handing `onPartial` the reply's text so far
    /// as it grows; Ctrl-C stops the request (keeping the text so far) and closes the session.
    AskOutcome ask(const std::string& question,
                   const std::function<void(const std::string&)>& onPartial = {});

    /// Decides a call that needs the user's approval (true: run it).
    using Approver = std::function<bool(const AICoach::PendingAction&)>;
    void setApprover(Approver approver) { m_approver = std::move(approver); }

private:
    void openCoach();
    std::vector<CoachHostAction> actions();
    void continueLatestConversation();
    void close();

    Host& m_host;
    RunOptions m_options;
    std::unique_ptr<CoachSettingsStore> m_saved;
    std::unique_ptr<RunSettings> m_run;
    std::filesystem::path m_conversationFile;
    std::shared_ptr<ManualExecutor> m_executor = std::make_shared<ManualExecutor>();
    std::unique_ptr<AICoach> m_coach;
    Approver m_approver;
};

}  // namespace sagely::cli
