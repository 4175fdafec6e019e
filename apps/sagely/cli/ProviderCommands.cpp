// sagely models and sagely check — what a provider offers now, and whether a configuration
// works, each by one small request made with the saved settings (never changed here).
#include "cli/Commands.h"
#include "cli/RunSettings.h"
#include "cli/Spinner.h"

#include <sagely/CancellationToken.h>
#include <sagely/CoachLLMError.h>
#include <sagely/LLMClient.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <future>
#include <ostream>

namespace sagely::cli {
namespace {

constexpr auto kWaitSlice = std::chrono::milliseconds(100);

// The configuration to ask with: the saved settings, the named provider's profile, the run's
// --model and --endpoint, and a key from the environment when one is set.
CoachConfig configFor(const ParsedArguments& arguments, const Host& host) {
    if (arguments.positionals().size() > 1)
        throw UsageError("unexpected argument '" + arguments.positionals()[1] + "'");
    RunOptions options;
    if (!arguments.positionals().empty())
        options.provider = providerArgument(arguments.positionals().front());
    options.model = arguments.value("model");
    options.endpoint = arguments.value("endpoint");
    const auto saved = openSavedSettings(host);
    return RunSettings(*saved, options, host).config();
}

// Runs `work` on a worker thread while a spinner turns; Ctrl-C stops it. False when
// interrupted.
bool runWhileWaiting(Host& host, const std::string& label,
                     const std::function<void(const CancellationToken&)>& work) {
    CancellationToken token;
    auto pending = std::async(std::launch::async, [&] { work(token); });
    Spinner spinner(host.err, host.errIsTerminal);
    spinner.start(label);
    while (pending.wait_for(kWaitSlice) != std::future_status::ready) {
        if (host.wasInterrupted()) {
            token.requestStop();
            break;
        }
        spinner.tick();
    }
    spinner.stop();
    try {
        pending.get();
    } catch (const CancelledError&) {
        return false;
    }
    return !host.wasInterrupted();
}

std::string padded(std::string text, std::size_t width) {
    if (text.size() < width) text.resize(width, ' ');
    return text + "  ";
}

std::string sizeText(std::uint64_t bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f GB", static_cast<double>(bytes) / 1e9);
    return text;
}

void printModel(std::ostream& out, const ProviderModel& model, const std::string& current) {
    std::string line = "  " + padded(model.id, 32);
    if (model.displayName != model.id) line += padded(model.displayName, 28);
    if (model.sizeBytes) line += padded(sizeText(*model.sizeBytes), 8);
    if (model.modifiedAt) line += model.modifiedAt->substr(0, 10);
    while (!line.empty() && line.back() == ' ') line.pop_back();
    out << line << (model.id == current ? "  [current]" : "") << "\n";
}

}  // namespace

int modelsCommand(const ParsedArguments& arguments, Host& host) {
    const CoachConfig config = configFor(arguments, host);
    LLMClient client;
    std::vector<ProviderModel> models;
    try {
        if (!runWhileWaiting(host, "Asking for the models…", [&](const CancellationToken& token) {
                models = client.listModels(config, token);
            })) {
            return exitInterrupted;
        }
    } catch (const std::exception& failure) {
        host.err << "sagely: " << failure.what() << "\n";
        return exitFailure;
    }
    const std::string provider(rawValue(config.provider));
    if (models.empty()) {
        host.out << provider << " offers no models"
                 << (config.provider == Provider::local ? " (none is installed)" : "") << ".\n";
        return exitOk;
    }
    host.out << "Models of " << provider << " (" << *LLMClient::modelListURL(config) << "):\n";
    for (const ProviderModel& model : models) printModel(host.out, model, config.resolvedModel());
    return exitOk;
}

int checkCommand(const ParsedArguments& arguments, Host& host) {
    const CoachConfig config = configFor(arguments, host);
    LLMClient client;
    ConnectionCheck check;
    if (!runWhileWaiting(host, "Checking…", [&](const CancellationToken& token) {
            check = client.checkConnection(config, token);
        })) {
        return exitInterrupted;
    }
    host.out << check.summary << "\n";
    return check.works ? exitOk : exitFailure;
}

}  // namespace sagely::cli
