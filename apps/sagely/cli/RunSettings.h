// RunSettings — the configuration of one `ask`, `chat` or `prompt` run.
//
// The user's saved settings (the kit's settings store on the real storage folder and secret
// store) are never changed by a run: options such as --provider and keys from OPENAI_API_KEY
// and friends apply to this run only. So the run gets a settings store of its own that lives in
// memory (with an in-memory secret store), seeded from the saved settings and then given the
// run's options; it names the real conversation files. No copy of the settings or the history
// is ever written elsewhere, so a killed run leaves nothing behind.
//
// Thread rules: main thread only, like the stores it holds.
#pragma once

#include "cli/Arguments.h"
#include "cli/Host.h"

#include <sagely/CoachConfig.h>
#include <sagely/CoachHostAction.h>
#include <sagely/CoachSettingsStore.h>
#include <sagely/StaticCoachContextProvider.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace sagely::cli {

/// The keychain service and account of the kit's shared store; the CLI uses the same items.
inline constexpr const char* kKeychainService = "com.brindlewood.sagely";
inline constexpr const char* kKeychainAccount = "coach-api-key";
inline constexpr const char* kDefaultNamespace = "cli";
/// A --guide file larger than this is refused; an empty one means no guide.
inline constexpr std::size_t kMaxGuideBytes = std::size_t{64} << 20;

/// The options shared by ask, chat and prompt.
struct RunOptions {
    std::optional<Provider> provider;
    std::optional<std::string> model;
    std::optional<std::string> endpoint;
    std::optional<std::string> summary;
    std::string guide;  // the guide text the context provider offers
    std::string conversationNamespace = kDefaultNamespace;
    bool offline = false;
    bool json = false;
    bool startNew = false;
    bool noStream = false;      // the reply comes in one piece, by a request without streaming
    bool allowActions = false;  // calls that need approval run without asking

    /// Reads the options; an unknown provider or an unreadable or oversized guide file is a
    /// UsageError.
    static RunOptions fromArguments(const ParsedArguments& arguments);
};

/// A provider named on the command line; a UsageError that lists the choices otherwise.
Provider providerArgument(const std::string& word);

/// The --namespace option (default "cli"); a UsageError unless it is a plain file-name part.
std::string namespaceArgument(const ParsedArguments& arguments);

/// What the run tells the coach about its host: the guide, the --summary text, and a title that
/// reads "No live app activity is connected for sagely." as recent activity.
std::shared_ptr<StaticCoachContextProvider> makeContextProvider(const RunOptions& options);

/// The actions over the saved settings offered to the model: read_settings (read-only),
/// use_provider and set_setting (the user approves each). Their handlers use `host`.
std::vector<CoachHostAction> settingsActions(Host& host);

/// The user's saved settings: the kit's store on the host's storage folder and secret store.
std::unique_ptr<CoachSettingsStore> openSavedSettings(const Host& host);

class RunSettings {
public:
    RunSettings(const CoachSettingsStore& saved, const RunOptions& options, const Host& host);
    ~RunSettings();

    CoachSettingsStore& store() { return *m_store; }
    CoachConfig config() const { return m_store->config(); }

private:
    std::unique_ptr<CoachSettingsStore> m_store;
};

}  // namespace sagely::cli
