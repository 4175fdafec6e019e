#include "support/Url.h"

#include <curl/curl.h>

#include <memory>
#include <string>

namespace sagely::detail {
namespace {

std::string_view withoutFragment(std::string_view url) {
    return url.substr(0, url.find('#'));
}

}  // namespace

bool isParsableURL(std::string_view url) {
    std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> handle(curl_url(), &curl_url_cleanup);
    if (!handle) return false;
    const std::string text(url);
    char* host = nullptr;
    if (curl_url_set(handle.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) return false;
    const bool hasHost = curl_url_get(handle.get(), CURLUPART_HOST, &host, 0) == CURLUE_OK;
    curl_free(host);
    return hasHost;
}

std::string_view withoutQuery(std::string_view url) {
    return url.substr(0, url.find_first_of("?#"));
}

std::string withQueryParameter(std::string_view url, std::string_view name,
                               std::string_view value) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out(withoutFragment(url));
    out += out.find('?') == std::string::npos ? '?' : '&';
    out += name;
    out += '=';
    for (unsigned char c : value) {
        const bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                                (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' ||
                                c == '~';
        if (unreserved) {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back('%');
            out.push_back(kHex[c >> 4]);
            out.push_back(kHex[c & 0xF]);
        }
    }
    return out;
}

}  // namespace sagely::detail
