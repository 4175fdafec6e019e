// Failures — what the user reads, and the exit code, when the coach appends no reply.
//
// The coach reports a missing key as "NO_API_KEY" and a local-only question without an answer
// as "LOCAL_ONLY"; here they become sentences that say what to do. Every other failure is shown
// as the kit's own text.
#pragma once

#include <sagely/CoachConfig.h>

#include <string>

namespace sagely::cli {

struct FailureReport {
    std::string sentence;
    int exitCode = 0;
};

FailureReport describeFailure(const std::string& error, const CoachConfig& config, bool offline);

}  // namespace sagely::cli
