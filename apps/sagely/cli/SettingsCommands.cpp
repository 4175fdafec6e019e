// sagely use, set and settings — the saved settings, through the kit's settings store.
#include "cli/Commands.h"
#include "cli/ProviderNames.h"
#include "cli/RunSettings.h"

#include <sagely/LLMClient.h>
#include <sagely/Text.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <ostream>
#include <sstream>

#include <nlohmann/json.hpp>

namespace sagely::cli {
namespace {

constexpr double kTemperatureMin = 0.0, kTemperatureMax = 1.2;
constexpr std::int64_t kMaxTokensMin = 256, kMaxTokensMax = 8192, kMaxTokensStep = 256;

std::string formatTemperature(double value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.1f", value);
    return buffer;
}

std::optional<double> parseNumber(const std::string& word) {
    double value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (word.empty() || error != std::errc() || end != word.data() + word.size() ||
        !std::isfinite(value))
        return std::nullopt;
    return value;
}

// A temperature the settings view's slider can hold: 0.0 to 1.2 in tenths.
double temperatureArgument(const std::string& word) {
    const auto value = parseNumber(word);
    const double tenths = value ? std::round(*value * 10) : 0;
    if (!value || *value < kTemperatureMin - 1e-9 || *value > kTemperatureMax + 1e-9 ||
        std::abs(*value * 10 - tenths) > 1e-6)
        throw UsageError("temperature must be 0.0 to 1.2 in steps of 0.1 (got '" + word + "')");
    return tenths / 10;
}

// A reply length the settings view's stepper can hold: 256 to 8192 in steps of 256.
std::int64_t maxTokensArgument(const std::string& word) {
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (word.empty() || error != std::errc() || end != word.data() + word.size() ||
        value < kMaxTokensMin || value > kMaxTokensMax || value % kMaxTokensStep != 0)
        throw UsageError("max-tokens must be 256 to 8192 in steps of 256 (got '" + word + "')");
    return value;
}

std::string endpointLine(const CoachSettingsStore& store) {
    const CoachConfig config = store.config();
    if (!config.customEndpoint.empty()) return config.customEndpoint;
    if (auto url = LLMClient::endpointURL(config)) return *url + " (default)";
    if (config.provider == Provider::apple) return "on this device (no endpoint)";
    return "none — set one with `sagely use custom --endpoint URL`";
}

std::string modelLine(const CoachSettingsStore& store) {
    const CoachConfig config = store.config();
    return config.resolvedModel() + (config.model.empty() ? " (default)" : "");
}

std::string savedKeysLine(const CoachSettingsStore& store) {
    std::string line;
    for (Provider provider : CoachConfig::allProviders()) {
        if (CoachConfig::isKeylessProvider(provider)) continue;
        const bool unreadable = store.keyUnreadable(provider);
        if (!unreadable && !store.hasSavedKey(provider)) continue;
        if (!line.empty()) line += ", ";
        line += std::string(storageID(provider)) + (unreadable ? " (could not be read)" : "");
    }
    return line.empty() ? "none" : line;
}

std::string keyHint(const CoachSettingsStore& store, Provider provider) {
    if (store.keyUnreadable(provider))
        return "The " + std::string(rawValue(provider)) +
               " key could not be read from the secret store; it is left as it is.\n";
    if (CoachConfig::isKeylessProvider(provider) || store.hasSavedKey(provider)) return {};
    return "No key is saved for " + std::string(rawValue(provider)) + ": run `sagely key set " +
           std::string(storageID(provider)) + "`.\n";
}

void printSettings(const CoachSettingsStore& store, std::ostream& out) {
    const Provider provider = store.provider.get();
    out << "Provider:     " << rawValue(provider) << " (" << storageID(provider) << ")\n"
        << "Model:        " << modelLine(store) << "\n"
        << "Endpoint:     " << endpointLine(store) << "\n"
        << "Temperature:  " << formatTemperature(store.temperature.get()) << "\n"
        << "Max tokens:   " << store.maxTokens.get() << "\n"
        << "Saved keys:   " << savedKeysLine(store) << "\n";
}

// The store never throws on a failed save; the command must not claim a change it did not make.
int notSaved(Host& host, const std::string& failure) {
    host.err << "The settings were not saved: " << failure << "\n";
    return exitNotSaved;
}

void expectNoArguments(const ParsedArguments& arguments) {
    if (!arguments.positionals().empty())
        throw UsageError("unexpected argument '" + arguments.positionals().front() + "'");
}

}  // namespace

int useCommand(const ParsedArguments& arguments, Host& host) {
    const auto& words = arguments.positionals();
    if (words.empty()) throw UsageError("a provider is needed (" + providerChoices() + ")");
    if (words.size() > 1) throw UsageError("unexpected argument '" + words[1] + "'");
    const auto provider = parseProvider(words[0]);
    if (!provider)
        throw UsageError("unknown provider '" + words[0] + "' (choose one of " + providerChoices() +
                         ")");
    auto store = openSavedSettings(host);
    store->selectProvider(*provider);
    if (auto model = arguments.value("model")) store->model.set(*model);
    if (auto endpoint = arguments.value("endpoint")) store->customEndpoint.set(*endpoint);
    // Changes not saved are retried by each later save, so the last outcome covers them all.
    if (auto failure = store->lastSaveFailure.get()) return notSaved(host, *failure);
    printSettings(*store, host.out);
    host.out << keyHint(*store, *provider);
    return exitOk;
}

int setCommand(const ParsedArguments& arguments, Host& host) {
    const auto& words = arguments.positionals();
    if (words.size() != 2) throw UsageError("a setting and a value are needed");
    auto store = openSavedSettings(host);
    if (words[0] == "temperature") {
        const double value = temperatureArgument(words[1]);
        store->temperature.set(value);
        if (auto failure = store->lastSaveFailure.get()) return notSaved(host, *failure);
        host.out << "Temperature: " << formatTemperature(value) << "\n";
    } else if (words[0] == "max-tokens") {
        const std::int64_t value = maxTokensArgument(words[1]);
        store->maxTokens.set(value);
        if (auto failure = store->lastSaveFailure.get()) return notSaved(host, *failure);
        host.out << "Max tokens: " << value << "\n";
    } else {
        throw UsageError("unknown setting '" + words[0] + "' (temperature or max-tokens)");
    }
    return exitOk;
}

int settingsCommand(const ParsedArguments& arguments, Host& host) {
    expectNoArguments(arguments);
    printSettings(*openSavedSettings(host), host.out);
    return exitOk;
}

std::vector<CoachHostAction> settingsActions(Host& host) {
    using nlohmann::json;
    std::vector<CoachHostAction> actions;
    actions.push_back(
        CoachHostAction("read_settings",
                        "The kit's saved settings: provider, model, endpoint, temperature, max "
                        "tokens, and which providers have a key.",
                        json{{"type", "object"}, {"properties", json::object()}},
                        [&host](const json&) {
                            std::ostringstream out;
                            printSettings(*openSavedSettings(host), out);
                            return CoachHostActionResult{out.str(), std::nullopt, false};
                        })
            .setReadOnly()
            .setTitle("Read the settings"));
    json providers = json::array();
    for (Provider provider : CoachConfig::allProviders())
        providers.push_back(std::string(storageID(provider)));
    actions.push_back(
        CoachHostAction(
            "use_provider", "Saves the provider (and optionally its model) the coach uses.",
            json{{"type", "object"},
                 {"properties",
                  {{"provider", {{"type", "string"}, {"enum", providers}}},
                   {"model", {{"type", "string"}}}}},
                 {"required", {"provider"}}},
            [&host](const json& arguments) {
                auto store = openSavedSettings(host);
                store->selectProvider(*parseProvider(arguments["provider"].get<std::string>()));
                if (arguments.contains("model")) store->model.set(arguments["model"]);
                if (auto failure = store->lastSaveFailure.get())
                    return CoachHostActionResult{"Not saved: " + *failure, std::nullopt, true};
                std::ostringstream out;
                printSettings(*store, out);
                return CoachHostActionResult{out.str(), std::nullopt, false};
            })
            .setTitle("Use a provider"));
    actions.push_back(
        CoachHostAction(
            "set_setting",
            "Saves the temperature (0.0 to 1.2 in steps of 0.1) or max tokens (256 to 8192 in "
            "steps of 256).",
            json{{"type", "object"},
                 {"properties",
                  {{"setting", {{"type", "string"}, {"enum", {"temperature", "max-tokens"}}}},
                   {"value", {{"type", "number"}}}}},
                 {"required", {"setting", "value"}}},
            [&host](const json& arguments) {
                const std::string word = arguments["value"].dump();
                auto store = openSavedSettings(host);
                std::string done;
                try {
                    if (arguments["setting"] == "temperature") {
                        const double value = temperatureArgument(word);
                        store->temperature.set(value);
                        done = "Temperature: " + formatTemperature(value);
                    } else {
                        const std::int64_t value = maxTokensArgument(word);
                        store->maxTokens.set(value);
                        done = "Max tokens: " + std::to_string(value);
                    }
                } catch (const UsageError& refused) {
                    return CoachHostActionResult{refused.what(), std::nullopt, true};
                }
                if (auto failure = store->lastSaveFailure.get())
                    return CoachHostActionResult{"Not saved: " + *failure, std::nullopt, true};
                return CoachHostActionResult{done, std::nullopt, false};
            })
            .setTitle("Change a setting"));
    return actions;
}

}  // namespace sagely::cli
