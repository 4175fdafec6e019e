// SecretServiceStore — API keys in the freedesktop Secret Service (GNOME Keyring, KWallet)
// through libsecret.
//
// An item carries the attributes "service" and "account", with the same values as the
// Keychain item on macOS, and a readable label ("Sagely API key (openai)"). Every call is
// bounded: with no session bus configured nothing is attempted, and a call that has not finished
// within the timeout is cancelled; a lookup then reports a failed read, never "no item". After
// such a timeout the store stays quiet for a while (its lookups fail at once) instead of
// stalling its caller again. Thread-safe (calls are
// serialised).
#pragma once

#include <sagely/SecretStore.h>

#include <chrono>
#include <mutex>
#include <optional>
#include <string>

namespace sagely::detail {

class SecretServiceStore final : public SecretStore {
public:
    struct Options {
        /// The longest a single call may take; it leaves time to answer an unlock prompt.
        std::chrono::milliseconds timeout{10000};
        /// How long the store gives up after a call ran out of time.
        std::chrono::milliseconds quietPeriodAfterTimeout{60000};
    };

    SecretServiceStore();
    explicit SecretServiceStore(Options options);

    SecretLookup lookup(const std::string& service, const std::string& account) override;
    std::optional<std::string> read(const std::string& service,
                                    const std::string& account) override;
    void write(const std::string& service, const std::string& account,
               const std::string& secret) override;
    void remove(const std::string& service, const std::string& account) override;
    bool isAvailable() override;

    /// The label an item gets: "Sagely API key (<last part of the account>)".
    static std::string labelFor(const std::string& account);

private:
    bool mayCall();
    void noteOutcome(bool timedOut);

    Options m_options;
    std::mutex m_mutex;
    std::chrono::steady_clock::time_point m_quietUntil{};
};

}  // namespace sagely::detail
