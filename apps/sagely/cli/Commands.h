// Commands — the table of sagely commands: name, usage, help text, options and handler.
//
// A handler gets its parsed arguments and the host; it returns the exit code, writes results to
// host.out and messages to host.err, and throws UsageError for a command line it refuses (the
// dispatcher prints the reason and the usage and exits with code 2).
#pragma once

#include "cli/Arguments.h"
#include "cli/Host.h"

#include <string_view>
#include <vector>

namespace sagely::cli {

using CommandHandler = int (*)(const ParsedArguments& arguments, Host& host);

struct Command {
    std::string_view name;
    std::string_view usage;    // "usage: sagely ask [options] QUESTION" (one or more lines)
    std::string_view summary;  // one line for the command overview
    std::string_view details;  // what it does and its options, shown by --help
    std::vector<DeclaredOption> options;
    CommandHandler handler;
};

const std::vector<Command>& commands();
const Command* findCommand(std::string_view name);
/// The overview of every command, shown by `sagely --help` and after an unknown command.
std::string overallUsage();

int askCommand(const ParsedArguments& arguments, Host& host);
int chatCommand(const ParsedArguments& arguments, Host& host);
int promptCommand(const ParsedArguments& arguments, Host& host);
int useCommand(const ParsedArguments& arguments, Host& host);
int setCommand(const ParsedArguments& arguments, Host& host);
int keyCommand(const ParsedArguments& arguments, Host& host);
int settingsCommand(const ParsedArguments& arguments, Host& host);
int statusCommand(const ParsedArguments& arguments, Host& host);
int providersCommand(const ParsedArguments& arguments, Host& host);
int modelsCommand(const ParsedArguments& arguments, Host& host);
int checkCommand(const ParsedArguments& arguments, Host& host);
int historyCommand(const ParsedArguments& arguments, Host& host);
int formatCommand(const ParsedArguments& arguments, Host& host);

}  // namespace sagely::cli
