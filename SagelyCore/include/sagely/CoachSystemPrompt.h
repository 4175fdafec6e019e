// CoachSystemPrompt — the system prompt of one model request: the fixed base prompt followed by
// the guide excerpt, the live context, the recent activity and the live observation, each in its
// delimited section and only when it has content.
//
// Called on the main thread (it asks the host's context provider).
#pragma once

#include <sagely/CoachConfig.h>
#include <sagely/CoachContextProvider.h>
#include <sagely/Export.h>

#include <optional>
#include <string>
#include <string_view>

namespace sagely {

/// The 28-line base prompt every request starts with.
SAGELY_EXPORT std::string_view coachBasePrompt();

/// Builds the prompt for the provider and the query. Asks `contextProvider` (when given) for
/// manualText(), configurationSummary() and — except for `apple` — recentActivity(10).
SAGELY_EXPORT std::string buildCoachSystemPrompt(CoachConfig::Provider provider,
                                                 std::string_view query,
                                                 const std::optional<std::string>& observation,
                                                 CoachContextProvider* contextProvider);

}  // namespace sagely
