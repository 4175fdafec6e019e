#include <sagely/SecretStore.h>

namespace sagely {

SecretLookup SecretStore::lookup(const std::string& service, const std::string& account) {
    std::optional<std::string> secret = read(service, account);
    if (!secret) return {};
    return {SecretLookup::Outcome::found, std::move(*secret)};
}

std::optional<std::string> InMemorySecretStore::read(const std::string& service,
                                                     const std::string& account) {
    std::lock_guard lock(m_mutex);
    auto it = m_items.find({service, account});
    if (it == m_items.end()) return std::nullopt;
    return it->second;
}

void InMemorySecretStore::write(const std::string& service, const std::string& account,
                                const std::string& secret) {
    std::lock_guard lock(m_mutex);
    m_items[{service, account}] = secret;
}

void InMemorySecretStore::remove(const std::string& service, const std::string& account) {
    std::lock_guard lock(m_mutex);
    m_items.erase({service, account});
}

}  // namespace sagely
