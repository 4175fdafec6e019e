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
    const AskOutcome outcome = session.ask(question);
    if (!outcome.reply)
        return reportUnanswered(host, outcome, session.config(), session.options().offline);
    std::vector<std::string> suggestions;
    printReply(host, *outcome.reply, session.options().json, suggestions);
    return exitOk;
}

}  // namespace sagely::cli
