#include "platform/linux/SecretServiceStore.h"

#include <sagely/Text.h>

#include <libsecret/secret.h>
#include <sys/stat.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <thread>

namespace sagely::detail {
namespace {

// The generic schema that `secret-tool` also uses; lookups match on the attributes alone, so an
// item made by hand with the same service and account is found too.
const SecretSchema* apiKeySchema() {
    static const SecretSchema schema = {"org.freedesktop.Secret.Generic",
                                        SECRET_SCHEMA_DONT_MATCH_NAME,
                                        {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                         {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                         {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
                                        0,
                                        nullptr,
                                        nullptr,
                                        nullptr,
                                        nullptr,
                                        nullptr,
                                        nullptr,
                                        nullptr};
    return &schema;
}

// Without a configured session bus, GLib would try to autolaunch one (spawning dbus-launch);
// a process with no bus simply has no Secret Service.
bool sessionBusConfigured() {
    if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address && *address)
        return true;
    const char* runtimeDir = std::getenv("XDG_RUNTIME_DIR");
    if (!runtimeDir || !*runtimeDir) return false;
    struct stat info {};
    std::string socket = std::string(runtimeDir) + "/bus";
    return ::stat(socket.c_str(), &info) == 0 && S_ISSOCK(info.st_mode);
}

// Cancels the call's GCancellable when the time is up. libsecret's synchronous calls block on
// D-Bus (bus connection, service activation, a wedged daemon) for as long as D-Bus lets them;
// the cancellable is the one thing they all honour.
class Deadline {
public:
    explicit Deadline(std::chrono::milliseconds limit)
        : m_cancellable(g_cancellable_new()), m_watchdog([this, limit] { watch(limit); }) {}
    ~Deadline() {
        {
            std::lock_guard lock(m_mutex);
            m_finished = true;
        }
        m_condition.notify_one();
        m_watchdog.join();
        g_object_unref(m_cancellable);
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    GCancellable* cancellable() const { return m_cancellable; }
    bool expired() const { return g_cancellable_is_cancelled(m_cancellable); }

private:
    void watch(std::chrono::milliseconds limit) {
        std::unique_lock lock(m_mutex);
        if (!m_condition.wait_for(lock, limit, [this] { return m_finished; }))
            g_cancellable_cancel(m_cancellable);
    }

    GCancellable* m_cancellable;
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_finished = false;
    std::thread m_watchdog;  // last: starts once everything it uses exists
};

bool isUtf8(const std::string& a, const std::string& b) {
    return text::isValidUtf8(a) && text::isValidUtf8(b);
}

}  // namespace

SecretServiceStore::SecretServiceStore() : SecretServiceStore(Options{}) {}

SecretServiceStore::SecretServiceStore(Options options) : m_options(options) {}

std::string SecretServiceStore::labelFor(const std::string& account) {
    auto dot = account.rfind('.');
    std::string name = dot == std::string::npos ? account : account.substr(dot + 1);
    return "Sagely API key (" + name + ")";
}

bool SecretServiceStore::mayCall() {
    return sessionBusConfigured() && std::chrono::steady_clock::now() >= m_quietUntil;
}

void SecretServiceStore::noteOutcome(bool timedOut) {
    if (timedOut)
        m_quietUntil = std::chrono::steady_clock::now() + m_options.quietPeriodAfterTimeout;
}

// libsecret answers "no item" with a null secret and no error; an error, a cancelled call or a
// store still quiet after a time-out is a failed read.
SecretLookup SecretServiceStore::lookup(const std::string& service, const std::string& account) {
    constexpr auto failed = SecretLookup::Outcome::failed;
    std::lock_guard lock(m_mutex);
    // With no session bus at all there is no store, so no item: nothing there can be lost.
    if (!sessionBusConfigured()) return {};
    if (!isUtf8(service, account) || !mayCall()) return {failed, {}};
    Deadline deadline(m_options.timeout);
    GError* error = nullptr;
    gchar* secret =
        secret_password_lookup_sync(apiKeySchema(), deadline.cancellable(), &error, "service",
                                    service.c_str(), "account", account.c_str(), nullptr);
    noteOutcome(deadline.expired());
    bool readFailed = error != nullptr || deadline.expired();
    g_clear_error(&error);
    if (!secret) return {readFailed ? failed : SecretLookup::Outcome::noItem, {}};
    std::string value(secret);
    secret_password_free(secret);
    if (!text::isValidUtf8(value)) return {failed, {}};
    return {SecretLookup::Outcome::found, std::move(value)};
}

std::optional<std::string> SecretServiceStore::read(const std::string& service,
                                                    const std::string& account) {
    SecretLookup found = lookup(service, account);
    if (!found.found()) return std::nullopt;
    return std::move(found.secret);
}

// Storing replaces an item with the same attributes, so this is the update-or-add in one call.
void SecretServiceStore::write(const std::string& service, const std::string& account,
                               const std::string& secret) {
    std::lock_guard lock(m_mutex);
    if (!isUtf8(service, account) || !text::isValidUtf8(secret) || !mayCall()) return;
    Deadline deadline(m_options.timeout);
    GError* error = nullptr;
    secret_password_store_sync(apiKeySchema(), SECRET_COLLECTION_DEFAULT, labelFor(account).c_str(),
                               secret.c_str(), deadline.cancellable(), &error, "service",
                               service.c_str(), "account", account.c_str(), nullptr);
    noteOutcome(deadline.expired());
    g_clear_error(&error);
}

void SecretServiceStore::remove(const std::string& service, const std::string& account) {
    std::lock_guard lock(m_mutex);
    if (!isUtf8(service, account) || !mayCall()) return;
    Deadline deadline(m_options.timeout);
    GError* error = nullptr;
    secret_password_clear_sync(apiKeySchema(), deadline.cancellable(), &error, "service",
                               service.c_str(), "account", account.c_str(), nullptr);
    noteOutcome(deadline.expired());
    g_clear_error(&error);
}

// Opening a session is a real round trip to the service (and starts it if it is activatable),
// so success means reads and writes can work.
bool SecretServiceStore::isAvailable() {
    std::lock_guard lock(m_mutex);
    if (!mayCall()) return false;
    Deadline deadline(
        std::min<std::chrono::milliseconds>(m_options.timeout, std::chrono::seconds(3)));
    GError* error = nullptr;
    SecretService* service =
        secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, deadline.cancellable(), &error);
    noteOutcome(deadline.expired());
    g_clear_error(&error);
    if (!service) return false;
    g_object_unref(service);
    return true;
}

}  // namespace sagely::detail

namespace sagely {

std::shared_ptr<SecretStore> SecretStore::system() {
    static const std::shared_ptr<SecretStore> store =
        std::make_shared<detail::SecretServiceStore>();
    return store;
}

}  // namespace sagely
