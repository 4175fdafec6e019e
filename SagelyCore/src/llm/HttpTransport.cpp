#include "llm/HttpTransport.h"

#include "support/GrowingText.h"

#include <sagely/CoachLLMError.h>
#include <sagely/Version.h>

#include <curl/curl.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace sagely::detail {
namespace {

constexpr std::size_t kMaxIdleContexts = 8;
constexpr int kPollIntervalMs = 1000;

void initialiseCurlOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

// An easy handle and the multi handle that drives it. The multi handle keeps the connection
// cache, so a context reused for the same host reuses its connection.
struct TransferContext {
    CURL* easy = curl_easy_init();
    CURLM* multi = curl_multi_init();

    TransferContext() {
        if (easy == nullptr || multi == nullptr) {
            release();
            throw TransportError(std::string(kConnectionLostText));
        }
    }
    ~TransferContext() { release(); }
    TransferContext(const TransferContext&) = delete;
    TransferContext& operator=(const TransferContext&) = delete;

    void release() {
        if (multi != nullptr) curl_multi_cleanup(multi);
        if (easy != nullptr) curl_easy_cleanup(easy);
    }
};

class TransferPool {
public:
    std::unique_ptr<TransferContext> checkOut() {
        {
            std::lock_guard lock(m_mutex);
            if (!m_idle.empty()) {
                auto context = std::move(m_idle.back());
                m_idle.pop_back();
                return context;
            }
        }
        return std::make_unique<TransferContext>();
    }

    void giveBack(std::unique_ptr<TransferContext> context) {
        std::lock_guard lock(m_mutex);
        if (m_idle.size() < kMaxIdleContexts) m_idle.push_back(std::move(context));
    }

private:
    std::mutex m_mutex;
    std::vector<std::unique_ptr<TransferContext>> m_idle;
};

// Never destroyed: a request still running on some thread at exit must not find it gone.
TransferPool& sharedPool() {
    static auto* pool = new TransferPool;
    return *pool;
}

class PooledContext {
public:
    PooledContext() : m_context(sharedPool().checkOut()) {}
    ~PooledContext() { sharedPool().giveBack(std::move(m_context)); }
    PooledContext(const PooledContext&) = delete;
    PooledContext& operator=(const PooledContext&) = delete;
    TransferContext& get() const { return *m_context; }

private:
    std::unique_ptr<TransferContext> m_context;
};

struct HeaderSList {
    curl_slist* list = nullptr;
    ~HeaderSList() { curl_slist_free_all(list); }
    void append(const std::string& line) {
        curl_slist* next = curl_slist_append(list, line.c_str());
        if (next == nullptr) throw std::bad_alloc();
        list = next;
    }
};

using Clock = std::chrono::steady_clock;

// What one exchange received, and when the connection last carried a byte.
struct Reception {
    CURL* easy = nullptr;
    std::size_t maxReplyBytes = 0;
    std::size_t maxErrorBodyBytes = 0;
    std::string bytes;
    const BodySink* sink = nullptr;  // a streaming post's receiver of success bodies
    std::size_t streamed = 0;
    std::optional<std::size_t> limit;  // chosen from the status when the body starts
    bool tooLarge = false;
    bool errorBodyCut = false;
    bool bodyArrived = false;
    std::exception_ptr failure;
    Clock::time_point lastActivity = Clock::now();
    curl_off_t downloaded = 0;
    curl_off_t uploaded = 0;
};

// The headers of the last reply the handle received (not those of earlier redirects).
HeaderList replyHeaders(CURL* easy) {
    HeaderList headers;
    curl_header* previous = nullptr;
    while (headers.size() < kMaxKeptHeaders) {
        curl_header* header = curl_easy_nextheader(easy, CURLH_HEADER, -1, previous);
        if (header == nullptr) break;
        headers.emplace_back(header->name, header->value);
        previous = header;
    }
    return headers;
}

bool isSuccess(long status) {
    return status >= 200 && status <= 299;
}

// No exception may cross libcurl's frames: a failure is kept and the transfer aborted.
size_t appendBody(char* data, size_t size, size_t count, void* userData) {
    auto* received = static_cast<Reception*>(userData);
    const size_t length = size * count;
    received->lastActivity = Clock::now();
    received->bodyArrived = received->bodyArrived || length > 0;
    try {
        if (!received->limit) {
            long status = 0;
            curl_easy_getinfo(received->easy, CURLINFO_RESPONSE_CODE, &status);
            received->limit =
                isSuccess(status) ? received->maxReplyBytes : received->maxErrorBodyBytes;
            if (!isSuccess(status)) received->sink = nullptr;
        }
        const bool streams = received->sink != nullptr;
        const std::size_t kept = streams ? received->streamed : received->bytes.size();
        const std::size_t room = *received->limit - kept;
        if (length > room) {
            // Data arrives decompressed here, so a small compressed body cannot grow past it.
            if (*received->limit == received->maxReplyBytes) {
                received->tooLarge = true;
            } else {
                received->bytes.append(data, room);
                received->errorBodyCut = true;
            }
            return 0;
        }
        if (streams) {
            char* contentType = nullptr;
            curl_easy_getinfo(received->easy, CURLINFO_CONTENT_TYPE, &contentType);
            received->streamed += length;
            (*received->sink)(contentType ? std::string_view(contentType) : std::string_view(),
                              std::string_view(data, length));
        } else {
            appendGrowingTo(received->bytes, std::string_view(data, length), *received->limit);
        }
        return length;
    } catch (...) {
        received->failure = std::current_exception();
        return 0;
    }
}

size_t noteHeader(char*, size_t size, size_t count, void* userData) {
    static_cast<Reception*>(userData)->lastActivity = Clock::now();
    return size * count;
}

// Any byte sent or received restarts the idle clock, as on the platform.
int noteProgress(void* userData, curl_off_t, curl_off_t downloaded, curl_off_t,
                 curl_off_t uploaded) {
    auto* received = static_cast<Reception*>(userData);
    if (downloaded != received->downloaded || uploaded != received->uploaded) {
        received->downloaded = downloaded;
        received->uploaded = uploaded;
        received->lastActivity = Clock::now();
    }
    return 0;
}

template <typename T>
void setOption(CURL* easy, CURLoption option, T value) {
    if (curl_easy_setopt(easy, option, value) != CURLE_OK) {
        throw TransportError(transportFailureDescription(CURLE_UNKNOWN_OPTION));
    }
}

// One hop of a request: a POST of the body, or a GET after a redirect that asks for one.
void configure(CURL* easy, const HttpRequest& request, const std::string& url, bool asGet,
               const HeaderSList& headers, Reception& received) {
    curl_easy_reset(easy);  // keeps the live connections and caches
    setOption(easy, CURLOPT_URL, url.c_str());
    if (asGet) {
        setOption(easy, CURLOPT_HTTPGET, 1L);
    } else {
        setOption(easy, CURLOPT_POSTFIELDS, request.body.data());
        setOption(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    }
    setOption(easy, CURLOPT_HTTPHEADER, headers.list);
    setOption(easy, CURLOPT_WRITEFUNCTION, &appendBody);
    setOption(easy, CURLOPT_WRITEDATA, &received);
    setOption(easy, CURLOPT_HEADERFUNCTION, &noteHeader);
    setOption(easy, CURLOPT_HEADERDATA, &received);
    setOption(easy, CURLOPT_XFERINFOFUNCTION, &noteProgress);
    setOption(easy, CURLOPT_XFERINFODATA, &received);
    setOption(easy, CURLOPT_NOPROGRESS, 0L);
    setOption(easy, CURLOPT_NOSIGNAL, 1L);
#if LIBCURL_VERSION_NUM >= 0x075700
    // A cancelled transfer leaves a pending host-name lookup to finish on its own thread
    // instead of waiting for it.
    setOption(easy, CURLOPT_QUICK_EXIT, 1L);
#endif
#if LIBCURL_VERSION_NUM >= 0x075500
    setOption(easy, CURLOPT_PROTOCOLS_STR, "http,https");
#else
    setOption(easy, CURLOPT_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS));
#endif
    setOption(easy, CURLOPT_FOLLOWLOCATION, 0L);  // post() follows them within the origin
    setOption(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    setOption(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    setOption(easy, CURLOPT_ACCEPT_ENCODING, "");
    setOption(easy, CURLOPT_USERAGENT, "SagelyKit/" SAGELY_VERSION_STRING);
    setOption(easy, CURLOPT_TCP_KEEPALIVE, 1L);
}

std::optional<CURLcode> finishedResult(CURLM* multi) {
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
        if (message->msg == CURLMSG_DONE) return message->data.result;
    }
    return std::nullopt;
}

struct Outcome {
    enum class Kind { finished, cancelled, timedOut } kind = Kind::finished;
    CURLcode result = CURLE_OK;
};

// Drives the transfer until it finishes, the token is stopped, the connection stays silent for
// `idle` or the deadline passes. The idle clock is the time since the last byte, not an average.
Outcome drive(TransferContext& context, const CancellationToken& cancellation,
              const Reception& received, std::chrono::milliseconds idle,
              Clock::time_point deadline) {
    std::atomic<bool> stopped{false};
    CURLM* multi = context.multi;
    auto registration = cancellation.onStop([&stopped, multi] {
        stopped = true;
        curl_multi_wakeup(multi);
    });
    while (true) {
        int running = 0;
        if (curl_multi_perform(multi, &running) != CURLM_OK) {
            throw TransportError(std::string(kConnectionLostText));
        }
        if (std::optional<CURLcode> result = finishedResult(multi)) {
            return {Outcome::Kind::finished, *result};
        }
        if (stopped) return {Outcome::Kind::cancelled};
        const Clock::time_point now = Clock::now();
        const Clock::time_point idleEnd = received.lastActivity + idle;
        const Clock::time_point wakeAt = std::min(idleEnd, deadline);
        if (now >= wakeAt) return {Outcome::Kind::timedOut};
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(wakeAt - now);
        curl_multi_poll(multi, nullptr, 0,
                        static_cast<int>(std::min<long long>(wait.count(), kPollIntervalMs)),
                        nullptr);
    }
}

struct AttachedTransfer {
    TransferContext& context;
    explicit AttachedTransfer(TransferContext& c) : context(c) {
        if (curl_multi_add_handle(context.multi, context.easy) != CURLM_OK) {
            throw TransportError(std::string(kConnectionLostText));
        }
    }
    ~AttachedTransfer() { curl_multi_remove_handle(context.multi, context.easy); }
};

// Scheme, host and port of a URL, lower-cased, the port made explicit; empty when unparsable.
std::string originOf(const std::string& url) {
    std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> handle(curl_url(), &curl_url_cleanup);
    if (!handle || curl_url_set(handle.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) {
        return {};
    }
    std::string origin;
    for (CURLUPart part : {CURLUPART_SCHEME, CURLUPART_HOST, CURLUPART_PORT}) {
        char* value = nullptr;
        if (curl_url_get(handle.get(), part, &value, CURLU_DEFAULT_PORT) != CURLUE_OK) {
            curl_free(value);
            return {};
        }
        for (const char* c = value; *c != '\0'; ++c) {
            origin += static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
        }
        origin += '|';
        curl_free(value);
    }
    return origin;
}

// The server reset or closed the connection (or sent nothing at all); over HTTP/2, reset the
// stream or ended the session.
bool isBrokenConnection(CURLcode result) {
    return result == CURLE_RECV_ERROR || result == CURLE_SEND_ERROR ||
           result == CURLE_GOT_NOTHING || result == CURLE_PARTIAL_FILE ||
           result == CURLE_HTTP2_STREAM || result == CURLE_HTTP2;
}

bool isFollowedRedirect(long status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

// The platform's default session turns a POST into a GET on these; 307 and 308 keep it.
bool redirectAsksForGet(long status) {
    return status == 301 || status == 302 || status == 303;
}

}  // namespace

std::string transportFailureDescription(int curlCode) {
    switch (static_cast<CURLcode>(curlCode)) {
        case CURLE_OPERATION_TIMEDOUT:
            return "The request timed out.";
        case CURLE_COULDNT_CONNECT:
            return "Could not connect to the server.";
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return "A server with the specified hostname could not be found.";
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_ENGINE_NOTFOUND:
        case CURLE_SSL_ENGINE_SETFAILED:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_SSL_SHUTDOWN_FAILED:
        case CURLE_SSL_CRL_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        case CURLE_SSL_INVALIDCERTSTATUS:
        case CURLE_USE_SSL_FAILED:
            return "An SSL error has occurred and a secure connection to the server cannot be "
                   "made.";
        case CURLE_UNSUPPORTED_PROTOCOL:
        case CURLE_URL_MALFORMAT:
            return "unsupported URL";
        default:
            return std::string(kConnectionLostText);
    }
}

namespace {

HttpResponse perform(const HttpRequest& request, bool startAsGet,
                     const CancellationToken& cancellation, const BodySink& sink) {
    initialiseCurlOnce();
    if (cancellation.stopRequested()) throw CancelledError();
    HeaderSList headers;
    for (const auto& [name, value] : request.headers) headers.append(name + ": " + value);
    headers.append("Expect:");  // never wait for a "100 Continue" round trip

    const Clock::time_point deadline = Clock::now() + request.limits.deadline;
    const std::string origin = originOf(request.url);
    std::string url = request.url;
    bool asGet = startAsGet;
    PooledContext pooled;
    TransferContext& context = pooled.get();
    for (int redirects = 0;; ++redirects) {
        Reception received;
        received.easy = context.easy;
        received.maxReplyBytes = request.limits.maxReplyBytes;
        received.maxErrorBodyBytes = request.limits.maxErrorBodyBytes;
        if (sink) received.sink = &sink;
        configure(context.easy, request, url, asGet, headers, received);
        Outcome outcome;
        {
            AttachedTransfer transfer(context);
            outcome = drive(context, cancellation, received, request.timeout, deadline);
        }
        if (outcome.kind == Outcome::Kind::cancelled) throw CancelledError();
        if (outcome.kind == Outcome::Kind::timedOut) {
            throw TransportError(transportFailureDescription(CURLE_OPERATION_TIMEDOUT));
        }
        if (received.failure) std::rethrow_exception(received.failure);
        if (received.tooLarge) throw ReplyTooLarge();
        HttpResponse response;
        curl_easy_getinfo(context.easy, CURLINFO_RESPONSE_CODE, &response.status);
        if (response.status >= 100 && response.status < 200) {
            throw TransportError(std::string(kBadServerResponse));  // a final 1xx status
        }
        if (outcome.result != CURLE_OK && !received.errorBodyCut) {
            if (isBrokenConnection(outcome.result)) throw ConnectionLost(received.bodyArrived);
            throw TransportError(transportFailureDescription(outcome.result));
        }
        char* location = nullptr;
        if (isFollowedRedirect(response.status) &&
            curl_easy_getinfo(context.easy, CURLINFO_REDIRECT_URL, &location) == CURLE_OK &&
            location != nullptr) {
            if (redirects == request.limits.maxRedirects) {
                throw TransportError(std::string(kTooManyRedirects));
            }
            std::string target = location;  // owned by the handle until its next transfer
            if (origin.empty() || originOf(target) != origin) {
                throw TransportError(std::string(kRedirectToAnotherOrigin));
            }
            asGet = asGet || redirectAsksForGet(response.status);
            url = std::move(target);
            continue;
        }
        response.headers = replyHeaders(context.easy);
        response.body = std::move(received.bytes);
        response.truncated = received.errorBodyCut;
        return response;
    }
}

}  // namespace

HttpResponse post(const HttpRequest& request, const CancellationToken& cancellation) {
    return perform(request, false, cancellation, BodySink());
}

HttpResponse post(const HttpRequest& request, const CancellationToken& cancellation,
                  const BodySink& sink) {
    return perform(request, false, cancellation, sink);
}

HttpResponse get(const HttpRequest& request, const CancellationToken& cancellation) {
    return perform(request, true, cancellation, BodySink());
}

}  // namespace sagely::detail
