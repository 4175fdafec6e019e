// SecretStore — where API keys live: the macOS Keychain, the Linux Secret Service, or memory.
//
// An item is addressed by a service and an account (the settings store uses the service
// "com.brindlewood.sagely" and the account "coach-api-key.<storageID>"). lookup tells an item
// from no item from a read that failed (a locked, stalled or missing service), so that a key
// that could not be read is never taken for "no key" and written back or deleted; read folds the
// last two together. No call throws, none blocks for long, and a secret never appears in a log
// line or an error text. Implementations are thread-safe.
#pragma once

#include <sagely/Export.h>

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace sagely {

/// The outcome of looking an item up.
struct SecretLookup {
    enum class Outcome { found, noItem, failed };
    Outcome outcome = Outcome::noItem;
    std::string secret;  // the item's UTF-8 text when found

    bool found() const { return outcome == Outcome::found; }
    bool failed() const { return outcome == Outcome::failed; }
};

class SAGELY_EXPORT SecretStore {
public:
    virtual ~SecretStore() = default;

    /// The item, no item, or a failed read. The default asks read(), so a store that cannot
    /// tell a failure reports "no item"; the system stores tell.
    virtual SecretLookup lookup(const std::string& service, const std::string& account);

    /// The secret's UTF-8 text, or none when there is no item or it cannot be read.
    virtual std::optional<std::string> read(const std::string& service,
                                            const std::string& account) = 0;
    /// Creates or replaces the item (an update first; an add when there is none).
    virtual void write(const std::string& service, const std::string& account,
                       const std::string& secret) = 0;
    /// Deletes the item if there is one.
    virtual void remove(const std::string& service, const std::string& account) = 0;
    /// Whether a real secret store is reachable (false: every read is "none").
    virtual bool isAvailable() = 0;

    /// The system's store: the Keychain on macOS, the Secret Service elsewhere.
    static std::shared_ptr<SecretStore> system();
};

/// Secrets held in memory, for tests and for hosts that must not persist keys.
class SAGELY_EXPORT InMemorySecretStore final : public SecretStore {
public:
    std::optional<std::string> read(const std::string& service,
                                    const std::string& account) override;
    void write(const std::string& service, const std::string& account,
               const std::string& secret) override;
    void remove(const std::string& service, const std::string& account) override;
    bool isAvailable() override { return true; }

private:
    std::mutex m_mutex;
    std::map<std::pair<std::string, std::string>, std::string> m_items;
};

}  // namespace sagely
