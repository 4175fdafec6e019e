// ProviderNames — how providers are named on the command line and in the environment.
#pragma once

#include <sagely/CoachConfig.h>

#include <optional>
#include <string>
#include <string_view>

namespace sagely::cli {

/// A provider named by its storage id ("openai") or its raw value ("OpenAI", "Google Gemini");
/// also, ignoring case, by either of those or its short name ("Gemini").
std::optional<Provider> parseProvider(std::string_view word);

/// "apple, openai, anthropic, gemini, local, custom".
std::string providerChoices();

/// The environment variable that supplies the provider's key for one run (OPENAI_API_KEY,
/// ANTHROPIC_API_KEY, GEMINI_API_KEY); none for the others.
std::optional<std::string> apiKeyVariable(Provider provider);

/// "OPENAI_API_KEY, ANTHROPIC_API_KEY or GEMINI_API_KEY".
std::string apiKeyVariableList();

}  // namespace sagely::cli
