#include "cli/Replies.h"

#include "cli/Failures.h"
#include "cli/Rendering.h"
#include "cli/TerminalText.h"

#include <sagely/CoachConversation.h>

#include <ostream>

namespace sagely::cli {

void printReply(Host& host, const CoachMessage& reply, bool json,
                std::vector<std::string>& suggestions) {
    if (json) {
        host.out << terminalSafeJson(encodeJson(reply)) << "\n";
        return;
    }
    host.out << Renderer(host.usesColor()).assistantMessage(reply, suggestions);
}

int reportUnanswered(Host& host, const AskOutcome& outcome, const CoachConfig& config,
                     bool offline) {
    if (outcome.interrupted) {
        host.err << "Cancelled.\n";
        return exitInterrupted;
    }
    const FailureReport report = describeFailure(outcome.error.value_or(""), config, offline);
    host.err << terminalSafe(report.sentence) << "\n";
    return report.exitCode;
}

}  // namespace sagely::cli
