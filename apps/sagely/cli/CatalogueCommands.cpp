// sagely providers and sagely status — the provider catalogue and the on-device model's status.
#include "cli/Commands.h"
#include "cli/ProviderNames.h"

#include <sagely/AppleIntelligenceInfo.h>
#include <sagely/CoachConfig.h>

#include <ostream>

namespace sagely::cli {
namespace {

std::string padded(std::string text, std::size_t width) {
    if (text.size() < width) text.resize(width, ' ');
    return text + " ";
}

std::string keyNote(Provider provider) {
    if (CoachConfig::isKeylessProvider(provider)) return "no key needed";
    if (provider == Provider::custom) return "API key (optional for an endpoint without one)";
    return "API key (or " + apiKeyVariable(provider).value_or("") + " for one run)";
}

std::string statusLabel(AppleIntelligenceInfo::Status status) {
    switch (status) {
        case AppleIntelligenceInfo::Status::ready:
            return "ready";
        case AppleIntelligenceInfo::Status::needsSetup:
            return "needs setup";
        case AppleIntelligenceInfo::Status::unsupportedOS:
            break;
    }
    return "not supported on this system";
}

void expectNoArguments(const ParsedArguments& arguments) {
    if (!arguments.positionals().empty())
        throw UsageError("unexpected argument '" + arguments.positionals().front() + "'");
}

}  // namespace

int providersCommand(const ParsedArguments& arguments, Host& host) {
    expectNoArguments(arguments);
    const auto& catalogue = CoachConfig::knownModels();
    for (Provider provider : CoachConfig::selectableProviders()) {
        host.out << padded(std::string(storageID(provider)), 10) << rawValue(provider) << " — "
                 << keyNote(provider) << "\n";
        auto models = catalogue.find(provider);
        if (models == catalogue.end()) continue;
        bool first = true;
        for (const auto& model : models->second) {
            host.out << "    " << padded(model.id, 26) << model.label
                     << (first ? "  [default]" : "") << "\n";
            first = false;
        }
    }
    return exitOk;
}

int statusCommand(const ParsedArguments& arguments, Host& host) {
    expectNoArguments(arguments);
    const auto status = AppleIntelligenceInfo::status();
    host.out << "Apple Intelligence (on-device): " << statusLabel(status) << "\n"
             << AppleIntelligenceInfo::statusDetail() << "\n"
             << "Model: " << AppleIntelligenceInfo::installedModelGeneration() << "\n";
    if (status == AppleIntelligenceInfo::Status::ready) return exitOk;
    host.out << "\nSetup:\n";
    int number = 0;
    for (const auto& step : AppleIntelligenceInfo::setupSteps())
        host.out << "  " << ++number << ". " << step << "\n";
    host.out << "Download: " << AppleIntelligenceInfo::estimatedDownloadSize() << "\n";
    return exitOk;
}

}  // namespace sagely::cli
