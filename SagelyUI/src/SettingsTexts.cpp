#include "SettingsTexts.h"

#include "Style.h"

#include <sagely/AppleIntelligenceInfo.h>

namespace sagely::ui::detail {
namespace {

using Provider = CoachConfig::Provider;

QString qs(std::string_view text) {
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

}  // namespace

QString providerEntryText(Provider provider, bool keySaved) {
    QString entry = localized(std::string(menuLabel(provider)).c_str());
    if (keySaved && !CoachConfig::isKeylessProvider(provider))
        entry += localized("  \u00B7  key saved");
    return entry;
}

QString providerSectionTitle(Provider provider) {
    return localized(std::string(shortName(provider)).c_str());
}

QString keyHelpText(Provider provider) {
    switch (provider) {
        case Provider::openai:
            return localized(
                "Stored in Keychain for OpenAI only. Switching to Anthropic or Gemini will not "
                "overwrite this key.");
        case Provider::anthropic:
            return localized(
                "Stored in Keychain for Anthropic only. Your OpenAI and Gemini keys stay saved.");
        case Provider::gemini:
            return localized(
                "Stored in Keychain for Google Gemini only. Get a key from Google AI Studio.");
        case Provider::local:
            return localized("No API key needed when using a local Ollama server.");
        case Provider::custom:
            return localized(
                "Required for most cloud APIs. Leave blank only if your endpoint does not use "
                "authentication.");
        case Provider::apple:
            break;
    }
    return localized("Stored in Keychain. Each provider keeps its own key so you can experiment.");
}

QString endpointHelpText(Provider provider) {
    switch (provider) {
        case Provider::apple:
            return localized(
                "Leave blank to answer on this Mac. An address here sends the question to that "
                "OpenAI-compatible endpoint instead.");
        case Provider::openai:
            return localized(
                "Leave blank for OpenAI. For an OpenAI-compatible proxy, paste that URL.");
        case Provider::anthropic:
            return localized(
                "Leave blank for Anthropic. Advanced users can point at a compatible proxy.");
        case Provider::gemini:
            return localized("Leave blank for Google Gemini. Override only if you use a proxy.");
        case Provider::local:
            return localized(
                "Leave blank to use the Ollama server on localhost. Change only if Ollama runs "
                "elsewhere.");
        case Provider::custom:
            return localized(
                "Custom API uses the OpenAI chat-completions format. Paste any compatible "
                "endpoint \u2014 Gemini OpenAI-compat, Together, Groq, a self-hosted server, "
                "etc.");
    }
    return {};
}

QString onDeviceReadyNote() {
    return localized("Works on macOS 26 (Tahoe) and later. Apple ships the model with the OS (") +
           qs(AppleIntelligenceInfo::estimatedDownloadSize()) + QStringLiteral(").");
}

QString onDeviceSetupNote() {
    return localized(
               "One-time setup: enable Apple Intelligence and wait for the on-device download (") +
           qs(AppleIntelligenceInfo::estimatedDownloadSize()) + QStringLiteral(").");
}

QString customEndpointPlaceholder() {
    return QStringLiteral("https://api.example.com/v1/chat/completions");
}

QString ollamaEndpointPlaceholder() {
    return QStringLiteral("http://localhost:11434/api/chat");
}

}  // namespace sagely::ui::detail
