// Cli — the sagely command line: picks the command, parses its options, runs it.
//
// `sagely --help` (or `sagely help [COMMAND]`) prints the usage. An unknown command or option is
// refused with a one-line reason and the usage on standard error, exit code 2. No exception
// escapes: an unexpected failure is reported as one line with exit code 1.
#pragma once

#include "cli/Host.h"

#include <string>
#include <vector>

namespace sagely::cli {

/// Runs the command line `arguments` (without the program name) and returns the exit code.
int run(const std::vector<std::string>& arguments, Host& host);

}  // namespace sagely::cli
