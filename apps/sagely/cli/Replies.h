// Replies — how ask and chat print what became of a question.
#pragma once

#include "cli/CoachSession.h"
#include "cli/Host.h"

#include <sagely/CoachMessage.h>

#include <string>
#include <vector>

namespace sagely::cli {

/// Prints the reply on standard output: rendered for the terminal, or as the kit's JSON of the
/// message (one line). The rendered reply's suggestions are numbered after those already in
/// `suggestions`.
void printReply(Host& host, const CoachMessage& reply, bool json,
                std::vector<std::string>& suggestions);

/// Reports a question that got no reply on standard error; returns the exit code.
int reportUnanswered(Host& host, const AskOutcome& outcome, const CoachConfig& config,
                     bool offline);

}  // namespace sagely::cli
