// API keys as Keychain generic-password items: class, service and account identify an item; its
// data is the key's UTF-8 bytes; it is readable after the first unlock.
//
// Status table (Security/SecBase.h):
//   errSecSuccess       0       done
//   errSecItemNotFound  -25300  no item: a lookup is "no item"; an update becomes an add
//   anything else               (locked keychain, denied access, …) a lookup has failed (read
//                               gives "no key"), a write or delete is ignored
#include <sagely/SecretStore.h>
#include <sagely/Text.h>

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>

namespace sagely::detail {
namespace {

// Owns one Core Foundation reference (the Create/Copy rule) and releases it.
class CFOwned {
public:
    explicit CFOwned(CFTypeRef ref = nullptr) : m_ref(ref) {}
    ~CFOwned() {
        if (m_ref) CFRelease(m_ref);
    }
    CFOwned(const CFOwned&) = delete;
    CFOwned& operator=(const CFOwned&) = delete;

    CFTypeRef get() const { return m_ref; }
    CFTypeRef* out() { return &m_ref; }
    explicit operator bool() const { return m_ref != nullptr; }

private:
    CFTypeRef m_ref;
};

CFStringRef makeString(const std::string& s) {
    return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(s.data()),
                                   static_cast<CFIndex>(s.size()), kCFStringEncodingUTF8, false);
}

CFDataRef makeData(const std::string& s) {
    return CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(s.data()),
                        static_cast<CFIndex>(s.size()));
}

CFMutableDictionaryRef makeDictionary() {
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

// class, service and account: the identity of an item. Null when a name is not UTF-8.
CFMutableDictionaryRef makeItemQuery(const std::string& service, const std::string& account) {
    CFOwned serviceRef(makeString(service));
    CFOwned accountRef(makeString(account));
    if (!serviceRef || !accountRef) return nullptr;
    CFMutableDictionaryRef query = makeDictionary();
    if (!query) return nullptr;
    CFDictionarySetValue(query, kSecClass, kSecClassGenericPassword);
    CFDictionarySetValue(query, kSecAttrService, serviceRef.get());
    CFDictionarySetValue(query, kSecAttrAccount, accountRef.get());
    return query;
}

// The attributes a write sets: the data and when the item may be read.
CFMutableDictionaryRef makeWriteAttributes(const std::string& secret) {
    CFOwned data(makeData(secret));
    CFMutableDictionaryRef attributes = data ? makeDictionary() : nullptr;
    if (!attributes) return nullptr;
    CFDictionarySetValue(attributes, kSecValueData, data.get());
    CFDictionarySetValue(attributes, kSecAttrAccessible, kSecAttrAccessibleAfterFirstUnlock);
    return attributes;
}

class KeychainSecretStore final : public SecretStore {
public:
    SecretLookup lookup(const std::string& service, const std::string& account) override {
        constexpr auto failed = SecretLookup::Outcome::failed;
        CFOwned query(makeItemQuery(service, account));
        if (!query) return {failed, {}};
        auto mutableQuery = (CFMutableDictionaryRef)query.get();
        CFDictionarySetValue(mutableQuery, kSecReturnData, kCFBooleanTrue);
        CFDictionarySetValue(mutableQuery, kSecMatchLimit, kSecMatchLimitOne);
        CFOwned result;
        OSStatus status = SecItemCopyMatching(mutableQuery, result.out());
        if (status == errSecItemNotFound) return {SecretLookup::Outcome::noItem, {}};
        if (status != errSecSuccess) return {failed, {}};
        if (!result || CFGetTypeID(result.get()) != CFDataGetTypeID()) return {failed, {}};
        auto data = (CFDataRef)result.get();
        std::string value(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                          static_cast<std::size_t>(CFDataGetLength(data)));
        if (!text::isValidUtf8(value)) return {failed, {}};
        return {SecretLookup::Outcome::found, std::move(value)};
    }

    std::optional<std::string> read(const std::string& service,
                                    const std::string& account) override {
        SecretLookup found = lookup(service, account);
        if (!found.found()) return std::nullopt;
        return std::move(found.secret);
    }

    void write(const std::string& service, const std::string& account,
               const std::string& secret) override {
        CFOwned query(makeItemQuery(service, account));
        CFOwned attributes(makeWriteAttributes(secret));
        if (!query || !attributes) return;
        auto queryRef = (CFDictionaryRef)query.get();
        auto attributesRef = (CFDictionaryRef)attributes.get();
        if (SecItemUpdate(queryRef, attributesRef) != errSecItemNotFound) return;
        CFOwned item(CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, queryRef));
        if (!item) return;
        auto itemRef = (CFMutableDictionaryRef)item.get();
        CFDictionarySetValue(itemRef, kSecValueData,
                             CFDictionaryGetValue(attributesRef, kSecValueData));
        CFDictionarySetValue(itemRef, kSecAttrAccessible, kSecAttrAccessibleAfterFirstUnlock);
        SecItemAdd(itemRef, nullptr);
    }

    void remove(const std::string& service, const std::string& account) override {
        CFOwned query(makeItemQuery(service, account));
        if (query) SecItemDelete((CFDictionaryRef)query.get());
    }

    bool isAvailable() override { return true; }
};

}  // namespace
}  // namespace sagely::detail

namespace sagely {

std::shared_ptr<SecretStore> SecretStore::system() {
    static const std::shared_ptr<SecretStore> store =
        std::make_shared<detail::KeychainSecretStore>();
    return store;
}

}  // namespace sagely
