// sagely ask — one question, one reply.
#include "cli/CoachSession.h"
#include "cli/Commands.h"
#include "cli/Replies.h"

#include <sagely/Text.h>

namespace sagely::cli {

int askCommand(const ParsedArguments& arguments, Host& host) {
    const std::string question = text::trimmed(arguments.joinedPositionals());
    if (question.empty()) throw UsageError("a question is needed");
    RunOptions options = RunOptions::fromArguments(arguments);
    CoachSession session(host, std::move(options));
    // No one to ask: calls that change something run only when the command line allows them.
    const bool allow = session.options().allowActions;
    session.setApprover([allow](const AICoach::PendingAction&) { return allow; });
    StreamedReplyWriter streamed(host);
    const bool json = session.options().json;  // the final message only
    const AskOutcome outcome = session.ask(question, [&](const std::string& text) {
        if (!json) streamed.update(text);
    });
    if (!outcome.reply)
        return reportUnanswered(host, outcome, session.config(), session.options().offline);
    std::vector<std::string> suggestions;
    printReply(host, *outcome.reply, json, suggestions, &streamed);
    return outcome.interrupted ? exitInterrupted : exitOk;
}

}  // namespace sagely::cli
