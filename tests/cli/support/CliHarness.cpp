#include "support/CliHarness.h"

#include "cli/Cli.h"
#include "cli/Host.h"

#include <sstream>

namespace sagely::testing {

CliHarness::CliHarness() = default;

CliResult CliHarness::run(const std::vector<std::string>& arguments, const std::string& input) {
    std::istringstream in(input);
    std::ostringstream out, err;
    cli::Host host(in, out, err);
    host.inIsTerminal = inIsTerminal;
    host.outIsTerminal = outIsTerminal;
    host.environment = [this](const std::string& name) -> std::optional<std::string> {
        auto it = environment.find(name);
        if (it == environment.end()) return std::nullopt;
        return it->second;
    };
    host.storageRoot = folder.path();
    host.secretStore = secrets;
    host.interrupted = interrupted;
    const int code = cli::run(arguments, host);
    return {code, out.str(), err.str()};
}

std::filesystem::path CliHarness::storageDirectory() const {
    return folder.path() / "Brindlewood" / "Sagely";
}

std::filesystem::path CliHarness::conversationFile(const std::string& conversationNamespace) const {
    return storageDirectory() / (conversationNamespace + "-conversations.json");
}

std::vector<CoachConversation> CliHarness::conversations(
    const std::string& conversationNamespace) const {
    const std::string bytes = readFile(conversationFile(conversationNamespace));
    if (bytes.empty()) return {};
    return decodeConversations(bytes);
}

std::optional<std::string> savedKey(SecretStore& secrets, const std::string& storageID) {
    return secrets.read("com.brindlewood.sagely", "coach-api-key." + storageID);
}

}  // namespace sagely::testing
