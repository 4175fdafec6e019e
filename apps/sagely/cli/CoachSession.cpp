#include "cli/CoachSession.h"

#include "cli/Spinner.h"

#include <sagely/CoachGuideAnswers.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <set>

namespace sagely::cli {
namespace {

// How often the wait loop looks at Ctrl-C and redraws the spinner.
constexpr std::chrono::milliseconds kWaitSlice{100};

// The run's context with the actions the CLI offers the model.
class ContextWithActions final : public StaticCoachContextProvider {
public:
    ContextWithActions(const StaticCoachContextProvider& context,
                       std::function<std::vector<CoachHostAction>()> actions)
        : StaticCoachContextProvider(context.title(), context.summary(), context.guideText()),
          m_actions(std::move(actions)) {}
    std::vector<CoachHostAction> hostActions() override { return m_actions(); }

private:
    std::function<std::vector<CoachHostAction>()> m_actions;
};

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
    std::shared_ptr<StaticCoachContextProvider> context = makeContextProvider(m_options);
    if (!m_options.offline) {
        context = std::make_shared<ContextWithActions>(*context, [this] { return actions(); });
    }
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

std::vector<CoachHostAction> CoachSession::actions() {
    using nlohmann::json;
    std::vector<CoachHostAction> list = settingsActions(m_host);
    list.push_back(
        CoachHostAction("list_conversations",
                        "The saved conversations of this namespace, newest first: title, number "
                        "of messages, and which one is current.",
                        json{{"type", "object"}, {"properties", json::object()}},
                        [this](const json&) {
                            json out = json::array();
                            const auto& current = m_coach->currentConversation().get();
                            for (const auto& conversation : m_coach->conversations().get()) {
                                out.push_back(
                                    {{"title", conversation.title()},
                                     {"messages", conversation.messages().size()},
                                     {"current", current && current->id() == conversation.id()}});
                            }
                            return CoachHostActionResult{out.dump(), std::nullopt, false};
                        })
            .setReadOnly()
            .setTitle("List the conversations"));
    return list;
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
    // Each call prints its line once it is decided.
    std::set<std::string> reported;
    Subscription calls =
        m_coach->actionsInProgress().onDidChange([&](const std::vector<CoachActionCall>& list) {
            if (list.empty()) reported.clear();  // the round ended; ids may come again
            for (const auto& call : list) {
                if (call.status == CoachActionCall::Status::pending) continue;
                if (!reported.insert(call.id).second) continue;
                spinner.stop();
                m_host.out << call.summaryLine() << "\n";
                m_host.out.flush();
            }
        });
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
        m_executor->runUntil(
            [&] {
                return finished || m_host.wasInterrupted() ||
                       m_coach->pendingAction().get().has_value();
            },
            kWaitSlice);
        if (auto pending = m_coach->pendingAction().get()) {
            spinner.stop();
            if (m_approver && m_approver(*pending))
                m_coach->approvePendingAction();
            else
                m_coach->denyPendingAction();
            continue;
        }
        if (!finished && m_coach->partialReply().get().empty()) spinner.tick();
    }
    spinner.stop();
    if (!outcome.reply) outcome.error = m_coach->error().get();
    return outcome;
}

}  // namespace sagely::cli
