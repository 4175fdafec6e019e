// The kit's HTTP transport: one process-wide pool of libcurl transfer contexts, shared by every
// model request, so consecutive requests to one host reuse the connection and its TLS session.
//
// post() blocks the calling thread until the reply is complete (a streaming post hands the body
// on as it arrives); it is thread-safe (each call
// checks out its own context). Stopping the token aborts the transfer at once, whatever the
// server or the host-name lookup does. TLS certificates are always verified. Redirects are
// followed as the platform's default session follows them, but only within the origin of the
// request, so a key header never travels to another host. Every request is bounded in size and
// time by the limits below.
#pragma once

#include <sagely/CancellationToken.h>
#include <sagely/CoachLLMError.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sagely::detail {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

/// The largest success reply the kit reads; texts that grow toward it reserve room up to it.
inline constexpr std::size_t kMaxReplyBytes = std::size_t{32} << 20;

/// The bounds of one request. The defaults are the kit's; tests shorten them.
struct HttpLimits {
    /// A success reply whose body, decompressed, would exceed this fails without reading more.
    std::size_t maxReplyBytes = kMaxReplyBytes;
    /// An error reply's body is read up to this many bytes and cut there.
    std::size_t maxErrorBodyBytes = std::size_t{64} << 10;
    /// From the first byte sent to the last byte received, redirects included.
    std::chrono::milliseconds deadline{std::chrono::minutes(10)};
    /// Redirects followed before the request fails.
    int maxRedirects = 5;
};

struct HttpRequest {
    std::string url;
    /// Name and value of each header, in order; values never hold line breaks.
    HeaderList headers;
    std::string body;
    /// How long the connection may stay without a byte in either direction (connecting
    /// included) before the request times out.
    std::chrono::milliseconds timeout{std::chrono::seconds(90)};
    HttpLimits limits;
};

struct HttpResponse {
    long status = 0;
    /// The final reply's headers, names as the server wrote them (at most kMaxKeptHeaders).
    HeaderList headers;
    std::string body;
    /// The body was cut at HttpLimits::maxErrorBodyBytes (error replies only).
    bool truncated = false;
};

/// The most headers of a reply kept in HttpResponse::headers.
inline constexpr std::size_t kMaxKeptHeaders = 100;

/// Sent when a success reply exceeds HttpLimits::maxReplyBytes.
inline constexpr std::string_view kReplyTooLarge = "The AI response was too large.";
/// Sent when a redirect leads to another scheme, host or port.
inline constexpr std::string_view kRedirectToAnotherOrigin =
    "The server redirected the request to another address; it was not sent there.";
/// Sent after HttpLimits::maxRedirects redirects.
inline constexpr std::string_view kTooManyRedirects = "too many HTTP redirects";
/// Sent when the server's reply is not HTTP the kit can read (a final 1xx status, say).
inline constexpr std::string_view kBadServerResponse = "The server returned a bad response.";

/// The sentence of a connection that broke, and of network failures without a sentence of their
/// own.
inline constexpr std::string_view kConnectionLostText = "The network connection was lost.";

/// The connection was reset or closed before the reply was complete. Whether any byte of the
/// reply's body had arrived decides whether the request may be sent again: once the body has
/// started, its reader may already have shown some of it.
class ConnectionLost : public TransportError {
public:
    explicit ConnectionLost(bool bodyArrived)
        : TransportError(std::string(kConnectionLostText)), m_bodyArrived(bodyArrived) {}
    bool bodyArrived() const { return m_bodyArrived; }

private:
    bool m_bodyArrived;
};

/// A success reply grew past HttpLimits::maxReplyBytes. Never a stream's natural end: what
/// arrived before it is not a reply to keep.
class ReplyTooLarge : public TransportError {
public:
    ReplyTooLarge() : TransportError(std::string(kReplyTooLarge)) {}
};

/// Sends `request` as a POST. Throws TransportError with a fixed sentence on a network failure
/// or a broken limit (ConnectionLost for a broken connection, ReplyTooLarge for a reply over the
/// size limit), and CancelledError when the token is stopped first.
HttpResponse post(const HttpRequest& request, const CancellationToken& cancellation);

/// Sends `request` as a GET (its body is not sent), by the same rules as post().
HttpResponse get(const HttpRequest& request, const CancellationToken& cancellation);

/// Receives a success reply's body piece by piece as it arrives, with the reply's Content-Type
/// (empty when none). An exception it throws aborts the transfer and leaves post() unchanged.
using BodySink = std::function<void(std::string_view contentType, std::string_view bytes)>;

/// post() for a streamed reply: a 2xx body goes to `sink` instead of the response (still
/// bounded by maxReplyBytes in total); error and redirect replies are read as post() reads them.
HttpResponse post(const HttpRequest& request, const CancellationToken& cancellation,
                  const BodySink& sink);

/// The fixed sentence for a libcurl result code (CURLcode).
std::string transportFailureDescription(int curlCode);

}  // namespace sagely::detail
