// sagely key set|clear PROVIDER — a provider's API key in the system's secret store.
//
// The key is read from standard input, never from the command line (where other users and the
// shell history could see it), and is not echoed when standard input is a terminal.
#include "cli/Commands.h"
#include "cli/ProviderNames.h"
#include "cli/RunSettings.h"

#include <sagely/Text.h>

#include <termios.h>
#include <unistd.h>

#include <istream>
#include <ostream>

namespace sagely::cli {
namespace {

// Turns the terminal's echo off for its lifetime.
class HiddenInput {
public:
    explicit HiddenInput(bool active) {
        if (!active || tcgetattr(STDIN_FILENO, &m_saved) != 0) return;
        termios quiet = m_saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        m_active = tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet) == 0;
    }
    ~HiddenInput() {
        if (m_active) tcsetattr(STDIN_FILENO, TCSAFLUSH, &m_saved);
    }
    HiddenInput(const HiddenInput&) = delete;
    HiddenInput& operator=(const HiddenInput&) = delete;

private:
    termios m_saved{};
    bool m_active = false;
};

std::shared_ptr<SecretStore> secretStoreOf(const Host& host) {
    return host.secretStore ? host.secretStore : SecretStore::system();
}

std::string account(Provider provider) {
    return std::string(kKeychainAccount) + "." + std::string(storageID(provider));
}

std::optional<std::string> readKey(Host& host, Provider provider) {
    if (host.inIsTerminal) host.err << "API key for " << rawValue(provider) << ": " << std::flush;
    std::string line;
    {
        HiddenInput hidden(host.inIsTerminal);
        if (!std::getline(host.in, line)) line.clear();
    }
    if (host.inIsTerminal) host.err << "\n";
    if (host.wasInterrupted()) return std::nullopt;
    return text::trimmed(line);
}

// The current provider's key goes through the store's own property; another provider's item is
// written where the store reads it, so the current provider stays as it is.
void storeKey(CoachSettingsStore& store, SecretStore& secrets, Provider provider,
              const std::string& key) {
    if (provider == store.provider.get())
        store.apiKey.set(key);
    else if (key.empty())
        secrets.remove(kKeychainService, account(provider));
    else
        secrets.write(kKeychainService, account(provider), key);
}

int noSecretStore(Host& host) {
    host.err << "There is no secret store on this system (the Secret Service is not running), so "
                "keys cannot be saved. Set "
             << apiKeyVariableList() << " to supply a key for one run.\n";
    return exitNeedsSetup;
}

// What the secret store itself holds now, read back past the settings store's own field.
std::string readBackFailure(SecretStore& secrets, Provider provider, const std::string& key) {
    const SecretLookup stored = secrets.lookup(kKeychainService, account(provider));
    if (stored.failed()) return "the secret store could not be read back";
    if (key.empty()) return stored.found() ? "the secret store still holds the key" : std::string();
    if (!stored.found()) return "the secret store did not keep the key";
    return stored.secret == key ? std::string() : "the secret store holds a different key";
}

int setKey(Host& host, Provider provider, SecretStore& secrets) {
    const auto key = readKey(host, provider);
    if (!key) return exitInterrupted;
    if (key->empty()) throw UsageError("no key was given on standard input; nothing was saved");
    auto store = openSavedSettings(host);
    storeKey(*store, secrets, provider, *key);
    if (auto failure = readBackFailure(secrets, provider, *key); !failure.empty()) {
        host.err << "The " << rawValue(provider) << " key was not saved: " << failure << ".\n";
        return exitNotSaved;
    }
    host.out << "Saved the " << rawValue(provider) << " key.\n";
    return exitOk;
}

int clearKey(Host& host, Provider provider, SecretStore& secrets) {
    auto store = openSavedSettings(host);
    storeKey(*store, secrets, provider, "");
    if (auto failure = readBackFailure(secrets, provider, ""); !failure.empty()) {
        host.err << "The " << rawValue(provider) << " key was not cleared: " << failure << ".\n";
        return exitNotSaved;
    }
    host.out << "Cleared the " << rawValue(provider) << " key.\n";
    return exitOk;
}

}  // namespace

int keyCommand(const ParsedArguments& arguments, Host& host) {
    const auto& words = arguments.positionals();
    if (words.empty() || (words[0] != "set" && words[0] != "clear"))
        throw UsageError(words.empty() ? "set or clear is needed"
                                       : "unknown key action '" + words[0] + "' (set or clear)");
    if (words.size() < 2) throw UsageError("a provider is needed (" + providerChoices() + ")");
    if (words.size() > 2)
        throw UsageError(
            "unexpected argument (the key is read from standard input, not from "
            "the command line)");
    const auto provider = parseProvider(words[1]);
    if (!provider)
        throw UsageError("unknown provider '" + words[1] + "' (choose one of " + providerChoices() +
                         ")");
    if (CoachConfig::isKeylessProvider(*provider))
        throw UsageError(std::string(rawValue(*provider)) + " needs no API key");
    auto secrets = secretStoreOf(host);
    if (!secrets->isAvailable()) return noSecretStore(host);
    return words[0] == "set" ? setKey(host, *provider, *secrets)
                             : clearKey(host, *provider, *secrets);
}

}  // namespace sagely::cli
