// Where a provider's requests go. It lives with the settings because the settings store shows
// the endpoint a configuration would use, and the model clients send to the same address.
#pragma once

#include <sagely/CoachConfig.h>

#include <optional>
#include <string>

namespace sagely::detail {

/// The endpoint for the model actually sent; a custom endpoint replaces the whole URL. None for
/// a custom endpoint that is not a URL and for a provider without an endpoint of its own.
std::optional<std::string> providerEndpoint(const CoachConfig& config, const std::string& model);

/// Gemini's default endpoint for a model: its percent-encoded name in the path.
std::string geminiGenerateContentURL(const std::string& model);

}  // namespace sagely::detail
