#include "support/Url.h"

#include <curl/curl.h>

#include <memory>
#include <string>

namespace sagely::detail {

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

}  // namespace sagely::detail
