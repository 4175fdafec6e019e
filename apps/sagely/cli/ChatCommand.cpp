// sagely chat — an interactive session in one conversation, with a few slash commands.
#include "cli/CoachSession.h"
#include "cli/Commands.h"
#include "cli/ConversationList.h"
#include "cli/LineReader.h"
#include "cli/Rendering.h"
#include "cli/Replies.h"

#include <sagely/Text.h>

#include <ostream>

namespace sagely::cli {
namespace {

constexpr std::string_view kPrompt = "you> ";
constexpr std::string_view kCommandList = "/new, /list, /switch N, /delete N, /quit";

class ChatLoop {
public:
    ChatLoop(Host& host, CoachSession& session) : m_host(host), m_session(session) {}

    int run(LineReader& reader) {
        if (m_host.inIsTerminal) greet();
        m_session.setApprover([this, &reader](const AICoach::PendingAction& pending) {
            if (m_session.options().allowActions) return true;
            // The arguments are the model's text: shown plain, never as terminal codes.
            std::string question = "Run " + pending.title;
            if (!pending.argumentSummary.empty())
                question += " with " + Renderer::plain(pending.argumentSummary);
            auto answer = reader.readLine(question + "? [y/N] ");
            const std::string word = answer ? text::lowercased(text::trimmed(*answer)) : "";
            return word == "y" || word == "yes";
        });
        while (auto line = reader.readLine(std::string(kPrompt))) {
            const std::string input = text::trimmed(*line);
            if (input.empty()) continue;
            if (input == "/quit" || input == "/exit") break;
            if (input.starts_with('/')) {
                command(input);
                continue;
            }
            if (!ask(chosenSuggestion(input).value_or(input))) return exitInterrupted;
        }
        // Ctrl-C while waiting for a line ends the input too.
        return m_host.wasInterrupted() ? exitInterrupted : exitOk;
    }

private:
    void greet() {
        const CoachConfig config = m_session.config();
        m_host.out << "Sagely chat — ";
        if (m_session.options().offline)
            m_host.out << "answers from the guide (offline)";
        else
            m_host.out << rawValue(config.provider) << " (" << config.resolvedModel() << ")";
        m_host.out << ". Commands: " << kCommandList << ".\n";
    }

    // A bare number picks a suggestion of the last reply.
    std::optional<std::string> chosenSuggestion(const std::string& input) {
        auto number = parseListNumber(input);
        if (!number || *number > m_suggestions.size()) return std::nullopt;
        std::string suggestion = m_suggestions[*number - 1];
        m_host.out << "> " << Renderer::plain(suggestion) << "\n";
        return suggestion;
    }

    // Returns false when Ctrl-C ended the session.
    bool ask(const std::string& question) {
        StreamedReplyWriter streamed(m_host);
        const bool json = m_session.options().json;  // the final message only
        const AskOutcome outcome = m_session.ask(question, [&](const std::string& text) {
            if (!json) streamed.update(text);
        });
        if (outcome.reply) {
            m_suggestions.clear();
            printReply(m_host, *outcome.reply, json, m_suggestions, &streamed);
            return !outcome.interrupted;
        }
        reportUnanswered(m_host, outcome, m_session.config(), m_session.options().offline);
        return !outcome.interrupted;
    }

    void command(const std::string& input) {
        const auto space = input.find(' ');
        const std::string name = input.substr(0, space);
        const std::string argument =
            space == std::string::npos ? "" : text::trimmed(input.substr(space + 1));
        AICoach& coach = m_session.coach();
        if (name == "/new") {
            coach.newConversation();
            m_host.out << "Started " << Renderer::plain(coach.currentConversation().get()->title())
                       << ".\n";
        } else if (name == "/list") {
            m_host.out << listConversations(coach.conversations().get(),
                                            coach.currentConversation().get());
        } else if (name == "/switch" || name == "/delete") {
            pickConversation(name, argument);
        } else {
            m_host.err << "Unknown command " << name << ". Commands: " << kCommandList << ".\n";
        }
    }

    void pickConversation(const std::string& name, const std::string& argument) {
        AICoach& coach = m_session.coach();
        const auto& list = coach.conversations().get();
        const auto number = parseListNumber(argument);
        if (!number || *number > list.size()) {
            m_host.err << name << " needs the number of a conversation (see /list).\n";
            return;
        }
        const CoachConversation chosen = list[*number - 1];
        if (name == "/switch") {
            coach.selectConversation(chosen);
            m_host.out << "Switched to " << quotedTitle(chosen) << ".\n";
        } else {
            coach.deleteConversation(chosen);
            m_host.out << "Deleted " << quotedTitle(chosen) << ".\n";
        }
        m_suggestions.clear();
    }

    Host& m_host;
    CoachSession& m_session;
    std::vector<std::string> m_suggestions;
};

std::unique_ptr<LineReader> makeReader(Host& host) {
    if (host.makeLineReader) {
        if (auto reader = host.makeLineReader(host)) return reader;
    }
    return std::make_unique<StreamLineReader>(host.in, host.inIsTerminal ? &host.out : nullptr);
}

}  // namespace

int chatCommand(const ParsedArguments& arguments, Host& host) {
    if (!arguments.positionals().empty())
        throw UsageError("unexpected argument '" + arguments.positionals().front() + "'");
    CoachSession session(host, RunOptions::fromArguments(arguments));
    auto reader = makeReader(host);
    return ChatLoop(host, session).run(*reader);
}

}  // namespace sagely::cli
