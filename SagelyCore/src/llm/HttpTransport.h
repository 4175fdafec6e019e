// The kit's HTTP transport: one process-wide pool of libcurl transfer contexts, shared by every
// model request, so consecutive requests to one host reuse the connection and its TLS session.
//
// post() blocks the calling thread until the reply is complete; it is thread-safe (each call
// checks out its own context). Stopping the token aborts the transfer at once, whatever the
// server does. TLS certificates are always verified; redirects are not followed, so a key
// header never travels to another host.
#pragma once

#include <sagely/CancellationToken.h>

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sagely::detail {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

struct HttpRequest {
    std::string url;
    /// Name and value of each header, in order; values never hold line breaks.
    HeaderList headers;
    std::string body;
    /// How long the server may keep the connection silent (connecting included).
    std::chrono::milliseconds timeout{std::chrono::seconds(90)};
};

struct HttpResponse {
    long status = 0;
    std::string body;
};

/// Sends `request` as a POST. Throws TransportError with a fixed sentence on a network failure
/// and CancelledError when the token is stopped first.
HttpResponse post(const HttpRequest& request, const CancellationToken& cancellation);

/// Whether the text reads as an absolute URL (scheme and host).
bool isParsableURL(std::string_view url);

/// The fixed sentence for a libcurl result code (CURLcode).
std::string transportFailureDescription(int curlCode);

}  // namespace sagely::detail
