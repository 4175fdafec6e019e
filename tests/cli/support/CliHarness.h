// CliHarness — runs sagely commands in-process, as the executable would, with string streams, a
// temporary storage folder, in-memory keys and an environment of the test's choosing.
#pragma once

#include "support/TemporaryDirectory.h"

#include <sagely/CoachConversation.h>
#include <sagely/SecretStore.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace sagely::testing {

struct CliResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

class CliHarness {
public:
    CliHarness();

    /// Runs `sagely <arguments>` with `input` as standard input.
    CliResult run(const std::vector<std::string>& arguments, const std::string& input = "");

    /// The folder that holds settings.json and the conversation files.
    std::filesystem::path storageDirectory() const;
    std::filesystem::path settingsFile() const { return storageDirectory() / "settings.json"; }
    std::filesystem::path conversationFile(const std::string& conversationNamespace = "cli") const;
    /// The saved conversations of a namespace (none when there is no file).
    std::vector<CoachConversation> conversations(
        const std::string& conversationNamespace = "cli") const;

    TemporaryDirectory folder;
    std::shared_ptr<SecretStore> secrets = std::make_shared<InMemorySecretStore>();
    std::map<std::string, std::string> environment;
    bool inIsTerminal = false;
    bool outIsTerminal = false;
    /// Polled by the wait loops as "Ctrl-C was pressed".
    std::function<bool()> interrupted;
};

/// The key the CLI and the kit's shared store keep for a provider ("coach-api-key.<id>").
std::optional<std::string> savedKey(SecretStore& secrets, const std::string& storageID);

}  // namespace sagely::testing
