#include "cli/CoachSession.h"

#include "cli/Spinner.h"

#include <sagely/CoachGuideAnswers.h>

#include <algorithm>
#include <chrono>

namespace sagely::cli {
namespace {

// How often the wait loop looks at Ctrl-C and redraws the spinner.
constexpr std::chrono::milliseconds kWaitSlice{100};

}  // namespace

CoachSession::CoachSession(Host& host, RunOptions options)
    : m_host(host), m_options(std::move(options)) {
    m_saved = openSavedSettings(host);
    m_run = std::make_unique<RunSettings>(*m_saved, m_options, host);
    m_conversationFile = m_saved->conversationURL(m_options.conversationNamespace);
    openCoach();
}

CoachSession::~CoachSession() {
    close();
}

void CoachSession::openCoach() {
    auto context = makeContextProvider(m_options);
    CoachLocalActionResolver resolver;
    if (m_options.offline) resolver = makeGuideAnswerResolver(m_options.guide);
    m_coach =
        std::make_unique<AICoach>(m_executor, context, &m_run->store(),
                                  m_options.conversationNamespace, resolver, !m_options.offline);
    if (m_options.startNew)
        m_coach->newConversation();
    else
        continueLatestConversation();
}

// A run without --new goes on with the conversation that changed last.
void CoachSession::continueLatestConversation() {
    const auto& list = m_coach->conversations().get();
    auto latest = std::max_element(list.begin(), list.end(), [](const auto& a, const auto& b) {
        return a.updatedAt() < b.updatedAt();
    });
    if (latest != list.end()) m_coach->selectConversation(*latest);
}

// The coach saves a question still waiting for its reply as it goes.
void CoachSession::close() {
    m_coach.reset();
}

AskOutcome CoachSession::ask(const std::string& question,
                             const std::function<void(const std::string&)>& onPartial) {
    AskOutcome outcome;
    bool finished = false;
    m_coach->setError(std::nullopt);
    Spinner spinner(m_host.err, m_host.errIsTerminal);
    Subscription partial;
    if (onPartial) {
        partial = m_coach->partialReply().onDidChange([&](const std::string& text) {
            if (text.empty()) return;
            spinner.stop();
            onPartial(text);
        });
    }
    const Subscription retrying = m_coach->retryStatus().onDidChange(
        [&](const std::string& status) { spinner.setNote(status); });
    m_coach->sendAndReturnReply(question, [&](std::optional<CoachMessage> reply) {
        outcome.reply = std::move(reply);
        finished = true;
    });
    if (!finished) spinner.start("Thinking");
    while (!finished) {
        if (m_host.wasInterrupted()) {
            spinner.stop();
            outcome.interrupted = true;
            partial.reset();
            m_coach->stop();  // keeps the text so far as the reply
            close();
            return outcome;
        }
        m_executor->runUntil([&] { return finished || m_host.wasInterrupted(); }, kWaitSlice);
        if (!finished && m_coach->partialReply().get().empty()) spinner.tick();
    }
    spinner.stop();
    if (!outcome.reply) outcome.error = m_coach->error().get();
    return outcome;
}

}  // namespace sagely::cli
