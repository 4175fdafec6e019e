// The fixed texts of the settings form that depend on the provider.
#pragma once

#include <sagely/CoachConfig.h>

#include <QString>

namespace sagely::ui::detail {

/// "Apple Intelligence (on-device, no key)", "OpenAI", … plus "  ·  key saved" when saved.
QString providerEntryText(CoachConfig::Provider provider, bool keySaved);
/// The per-provider section's title: "Apple", "OpenAI", "Anthropic", "Gemini", "Local", "Custom".
QString providerSectionTitle(CoachConfig::Provider provider);
/// The help under the key field (the general text where no provider-specific one applies).
QString keyHelpText(CoachConfig::Provider provider);
/// The help under the endpoint field.
QString endpointHelpText(CoachConfig::Provider provider);
/// The note shown when the on-device model is ready, and the one-time setup note.
QString onDeviceReadyNote();
QString onDeviceSetupNote();

/// Placeholders of the endpoint field.
QString customEndpointPlaceholder();
QString ollamaEndpointPlaceholder();

}  // namespace sagely::ui::detail
