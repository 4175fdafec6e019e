#include "llm/HttpTransport.h"

#include <sagely/CoachLLMError.h>
#include <sagely/Version.h>

#include <curl/curl.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>

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
            throw TransportError("The network connection was lost.");
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

struct ReceivedBody {
    std::string bytes;
    std::exception_ptr failure;
};

// No exception may cross libcurl's frames: a failure is kept and the transfer aborted.
size_t appendBody(char* data, size_t size, size_t count, void* userData) {
    auto* received = static_cast<ReceivedBody*>(userData);
    try {
        received->bytes.append(data, size * count);
        return size * count;
    } catch (...) {
        received->failure = std::current_exception();
        return 0;
    }
}

template <typename T>
void setOption(CURL* easy, CURLoption option, T value) {
    if (curl_easy_setopt(easy, option, value) != CURLE_OK) {
        throw TransportError(transportFailureDescription(CURLE_UNKNOWN_OPTION));
    }
}

void configure(CURL* easy, const HttpRequest& request, const HeaderSList& headers,
               ReceivedBody& received) {
    curl_easy_reset(easy);  // keeps the live connections and caches
    const long timeoutSeconds =
        std::max<long>(1, std::chrono::ceil<std::chrono::seconds>(request.timeout).count());
    setOption(easy, CURLOPT_URL, request.url.c_str());
    setOption(easy, CURLOPT_POSTFIELDS, request.body.data());
    setOption(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    setOption(easy, CURLOPT_HTTPHEADER, headers.list);
    setOption(easy, CURLOPT_WRITEFUNCTION, &appendBody);
    setOption(easy, CURLOPT_WRITEDATA, &received);
    setOption(easy, CURLOPT_NOSIGNAL, 1L);
#if LIBCURL_VERSION_NUM >= 0x075500
    setOption(easy, CURLOPT_PROTOCOLS_STR, "http,https");
#else
    setOption(easy, CURLOPT_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS));
#endif
    setOption(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    setOption(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    setOption(easy, CURLOPT_ACCEPT_ENCODING, "");
    setOption(easy, CURLOPT_USERAGENT, "SagelyKit/" SAGELY_VERSION_STRING);
    setOption(easy, CURLOPT_TCP_KEEPALIVE, 1L);
    setOption(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request.timeout.count()));
    // A silent connection times out; a slow but steady reply does not.
    setOption(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
    setOption(easy, CURLOPT_LOW_SPEED_TIME, timeoutSeconds);
}

std::optional<CURLcode> finishedResult(CURLM* multi) {
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
        if (message->msg == CURLMSG_DONE) return message->data.result;
    }
    return std::nullopt;
}

// Drives the transfer until it finishes or the token is stopped (none then).
std::optional<CURLcode> drive(TransferContext& context, const CancellationToken& cancellation) {
    std::atomic<bool> stopped{false};
    CURLM* multi = context.multi;
    auto registration = cancellation.onStop([&stopped, multi] {
        stopped = true;
        curl_multi_wakeup(multi);
    });
    std::optional<CURLcode> result;
    while (!stopped) {
        int running = 0;
        if (curl_multi_perform(multi, &running) != CURLM_OK) {
            throw TransportError("The network connection was lost.");
        }
        result = finishedResult(multi);
        if (result || stopped) break;
        curl_multi_poll(multi, nullptr, 0, kPollIntervalMs, nullptr);
    }
    return result;
}

struct AttachedTransfer {
    TransferContext& context;
    explicit AttachedTransfer(TransferContext& c) : context(c) {
        if (curl_multi_add_handle(context.multi, context.easy) != CURLM_OK) {
            throw TransportError("The network connection was lost.");
        }
    }
    ~AttachedTransfer() { curl_multi_remove_handle(context.multi, context.easy); }
};

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
            return "The network connection was lost.";
    }
}

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

HttpResponse post(const HttpRequest& request, const CancellationToken& cancellation) {
    initialiseCurlOnce();
    if (cancellation.stopRequested()) throw CancelledError();
    HeaderSList headers;
    for (const auto& [name, value] : request.headers) headers.append(name + ": " + value);
    headers.append("Expect:");  // never wait for a "100 Continue" round trip

    PooledContext pooled;
    TransferContext& context = pooled.get();
    ReceivedBody received;
    configure(context.easy, request, headers, received);
    std::optional<CURLcode> result;
    {
        AttachedTransfer transfer(context);
        result = drive(context, cancellation);
    }
    if (!result) throw CancelledError();
    if (received.failure) std::rethrow_exception(received.failure);
    if (*result != CURLE_OK) throw TransportError(transportFailureDescription(*result));

    HttpResponse response;
    curl_easy_getinfo(context.easy, CURLINFO_RESPONSE_CODE, &response.status);
    response.body = std::move(received.bytes);
    return response;
}

}  // namespace sagely::detail
