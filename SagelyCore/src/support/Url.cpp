#include "support/Url.h"

#include <curl/curl.h>

#include <memory>
#include <new>
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
    std::string out(withoutFragment(url));
    out += out.find('?') == std::string::npos ? '?' : '&';
    out += name;
    out += '=';
    // libcurl ignores the handle argument since 7.82 and escapes all but the unreserved characters.
    std::unique_ptr<char, decltype(&curl_free)> escaped(
        curl_easy_escape(nullptr, value.data(), static_cast<int>(value.size())), &curl_free);
    if (!escaped) throw std::bad_alloc();
    out += escaped.get();
    return out;
}

}  // namespace sagely::detail
