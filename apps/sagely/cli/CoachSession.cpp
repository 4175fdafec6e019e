#include "cli/CoachSession.h"

#include "cli/Spinner.h"

#include <sagely/CoachGuideAnswers.h>
#include <sagely/ConversationFile.h>

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
    m_mirror = m_coach->conversations().onDidChange(
        [this](const std::vector<CoachConversation>&) { saveConversations(); });
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

void CoachSession::saveConversations() {
    if (m_coach) ConversationFile::save(m_conversationFile, m_coach->conversations().get());
}

void CoachSession::close() {
    if (!m_coach) return;
    saveConversations();
    m_mirror.reset();
    m_coach.reset();
}

AskOutcome CoachSession::ask(const std::string& question) {
    AskOutcome outcome;
    bool finished = false;
    m_coach->setError(std::nullopt);
    m_coach->sendAndReturnReply(question, [&](std::optional<CoachMessage> reply) {
        outcome.reply = std::move(reply);
        finished = true;
    });
    Spinner spinner(m_host.err, m_host.errIsTerminal);
    if (!finished) spinner.start("Thinking");
    while (!finished) {
        if (m_host.wasInterrupted()) {
            spinner.stop();
            outcome.interrupted = true;
            close();  // cancels the request; its completion is dropped uncalled
            return outcome;
        }
        m_executor->runUntil([&] { return finished || m_host.wasInterrupted(); }, kWaitSlice);
        spinner.tick();
    }
    spinner.stop();
    if (!outcome.reply) outcome.error = m_coach->error().get();
    return outcome;
}

}  // namespace sagely::cli
