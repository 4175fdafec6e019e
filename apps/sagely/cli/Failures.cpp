#include "cli/Failures.h"

#include "cli/Host.h"
#include "cli/ProviderNames.h"

#include <sagely/AICoach.h>

namespace sagely::cli {
namespace {

std::string missingKey(Provider provider) {
    const std::string id(storageID(provider));
    if (provider == Provider::custom)
        return "Custom API needs an endpoint URL or an API key. Set the endpoint with "
               "`sagely use custom --endpoint URL` (or --endpoint for one run), or save a key "
               "with `sagely key set custom`.";
    std::string sentence = std::string(rawValue(provider)) +
                           " needs an API key. Save one with `sagely key set " + id +
                           "` (it reads the key from standard input)";
    if (auto variable = apiKeyVariable(provider))
        sentence += ", or set " + *variable + " for one run";
    return sentence + ". `sagely ask --offline` answers from the guide without a key.";
}

std::string noLocalAnswer(Provider provider, bool offline) {
    std::string sentence = "The guide has no section that answers this question. ";
    if (offline)
        return sentence + "Try other words, or ask without --offline to ask " +
               std::string(rawValue(provider)) + ".";
    return sentence + "This coach answers only from the guide.";
}

}  // namespace

FailureReport describeFailure(const std::string& error, const CoachConfig& config, bool offline) {
    if (error == AICoach::kNoAPIKeyCode) return {missingKey(config.provider), exitNeedsSetup};
    if (error == AICoach::kLocalOnlyCode)
        return {noLocalAnswer(config.provider, offline), exitNeedsSetup};
    if (error == AICoach::kCustomEndpointMissingMessage)
        return {error + " Set one with `sagely use custom --endpoint URL`.", exitNeedsSetup};
    if (error.empty()) return {"The coach gave no reply.", exitFailure};
    return {error, exitFailure};
}

}  // namespace sagely::cli
