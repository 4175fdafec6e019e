#include "cli/Cli.h"

#include "cli/Commands.h"

#include <exception>
#include <ostream>
#include <span>

namespace sagely::cli {
namespace {

void printHelp(const Command& command, std::ostream& out) {
    out << command.usage << "\n\n" << command.details;
}

int refuse(std::ostream& err, std::string_view prefix, const std::string& reason,
           std::string_view usage) {
    err << prefix << ": " << reason << "\n" << usage;
    if (!usage.ends_with('\n')) err << "\n";
    return exitUsage;
}

int runCommand(const Command& command, std::span<const std::string> words, Host& host) {
    const std::string prefix = "sagely " + std::string(command.name);
    try {
        const ParsedArguments arguments = parseArguments(words, command.options);
        if (arguments.has("help")) {
            printHelp(command, host.out);
            return exitOk;
        }
        return command.handler(arguments, host);
    } catch (const UsageError& error) {
        return refuse(host.err, prefix, error.what(), command.usage);
    }
}

int runHelp(std::span<const std::string> words, Host& host) {
    if (words.empty()) {
        host.out << overallUsage();
        return exitOk;
    }
    if (const Command* command = findCommand(words[0])) {
        printHelp(*command, host.out);
        return exitOk;
    }
    return refuse(host.err, "sagely", "unknown command '" + words[0] + "'", overallUsage());
}

int dispatch(const std::vector<std::string>& arguments, Host& host) {
    if (arguments.empty()) return refuse(host.err, "sagely", "no command given", overallUsage());
    const std::string& name = arguments[0];
    const std::span<const std::string> rest(arguments.begin() + 1, arguments.end());
    if (name == "--help" || name == "-h" || name == "help") return runHelp(rest, host);
    if (const Command* command = findCommand(name)) return runCommand(*command, rest, host);
    const std::string reason =
        name.starts_with("-") ? "unknown option '" + name + "'" : "unknown command '" + name + "'";
    return refuse(host.err, "sagely", reason, overallUsage());
}

}  // namespace

int run(const std::vector<std::string>& arguments, Host& host) {
    try {
        const int code = dispatch(arguments, host);
        host.out.flush();
        return code;
    } catch (const std::exception& error) {
        host.err << "sagely: " << error.what() << "\n";
        return 1;
    }
}

}  // namespace sagely::cli
