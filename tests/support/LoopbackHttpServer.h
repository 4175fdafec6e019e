// LoopbackHttpServer — a real HTTP/1.1 server inside the test process, on 127.0.0.1 and an
// ephemeral port, for testing code that talks to HTTP services.
//
// It records every request it receives (method, path, query, headers, raw body) and answers each
// one with the next response of a per-test script: status, headers, a body written in chunks,
// delays before the headers or between chunks, a connection closed or reset part-way, or no
// answer at all. Connections are kept alive unless a response says otherwise, and the number of
// accepted connections can be read, so tests can see whether a client reuses its connection.
//
// Thread rules: every member may be called from any thread. The destructor stops the server,
// wakes every connection that waits or sleeps, and joins all its threads.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace sagely::testing {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

struct RecordedRequest {
    std::string method;
    /// The request target as sent: path, then "?" and the query when there is one.
    std::string target;
    std::string path;
    /// The query without its "?"; empty when there is none.
    std::string query;
    /// Every header as received, in order, names in their original case.
    HttpHeaders headers;
    /// The body bytes (de-chunked when the client sent them chunked).
    std::string body;
    /// Which accepted connection carried the request, counting from 1.
    std::size_t connection = 0;
    /// The server's own time for this exchange: from the request's first byte to the moment the
    /// last piece of the reply was handed to the socket.
    std::chrono::nanoseconds serverTime{0};

    /// The value of the first header with that name (case-insensitive).
    std::optional<std::string> header(std::string_view name) const;
    /// How many headers carry that name (case-insensitive).
    std::size_t headerCount(std::string_view name) const;
};

struct ScriptedResponse {
    enum class Ending {
        complete,         ///< the whole response, as declared
        closeConnection,  ///< close the connection after what was written
        resetConnection,  ///< reset (RST) the connection after what was written
        neverAnswer,      ///< write nothing; hold the connection until the client goes away
    };

    int status = 200;
    HttpHeaders headers;
    std::vector<std::string> bodyChunks;
    /// The Content-Length to declare; by default the size of all chunks together.
    std::optional<std::size_t> contentLength;
    std::chrono::milliseconds delayBeforeHeaders{0};
    std::chrono::milliseconds delayBetweenChunks{0};
    /// False: close (or reset) before the status line is written.
    bool sendsHeaders = true;
    Ending ending = Ending::complete;
    /// False: "Connection: close" and the connection ends after this response.
    bool keepAlive = true;
    /// Called on the server's thread right after each body chunk was handed to the socket, with
    /// its index (for measuring how long the client takes to see it).
    std::function<void(std::size_t)> chunkSent;
    /// When set, these bytes are the whole response as written (status line included) and the
    /// fields above other than the delays and the ending are ignored.
    std::optional<std::string> raw;

    /// A response with a JSON body and "Content-Type: application/json".
    static ScriptedResponse json(int status, std::string body);
    /// A response with a plain-text body.
    static ScriptedResponse text(int status, std::string body);
    /// Headers and the first chunk, then a pause of `delay` before the rest of the body.
    static ScriptedResponse slowBody(std::string firstChunk, std::string rest,
                                     std::chrono::milliseconds delay);
    /// No answer until the headers are written after `delay`.
    static ScriptedResponse slowHeaders(std::chrono::milliseconds delay, std::string body);
    static ScriptedResponse noAnswer();
    /// A redirect with that status to `location`, with a short text body.
    static ScriptedResponse redirect(int status, std::string location);
    /// A 200 JSON response whose body, `body` compressed with gzip, declares
    /// "Content-Encoding: gzip".
    static ScriptedResponse gzipJson(const std::string& body);
    /// A 200 response whose body is `body` written one byte at a time, `interval` apart.
    static ScriptedResponse dripFed(const std::string& body, std::chrono::milliseconds interval);
    /// The connection is reset as soon as the request has been read.
    static ScriptedResponse resetWithoutAnswer();
    /// A 200 text/event-stream answer sent as the given chunks with a pause between them.
    static ScriptedResponse eventStream(std::vector<std::string> chunks,
                                        std::chrono::milliseconds pause);
};

/// One OpenAI chat-completion stream event whose delta carries the piece of text.
std::string openAIStreamEvent(const std::string& piece);

class LoopbackHttpServer {
public:
    LoopbackHttpServer();
    ~LoopbackHttpServer();
    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

    std::uint16_t port() const { return m_port; }
    /// "http://127.0.0.1:<port>" followed by `pathAndQuery`.
    std::string url(std::string_view pathAndQuery = "/") const;

    /// Appends a response to the script; requests take them in order.
    void enqueue(ScriptedResponse response);
    /// The answer once the script is used up (by default a 500 "no scripted response").
    void setFallbackResponse(ScriptedResponse response);

    /// Bytes written to every new connection as soon as it is accepted, before any request (for
    /// example to answer a TLS handshake with plain text).
    void setGreeting(std::string bytes);

    std::vector<RecordedRequest> requests() const;
    std::size_t requestCount() const;
    void clearRequests();
    /// Waits until at least `count` requests were received in full; false on time-out.
    bool waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const;
    /// The server time of the latest request (zero when there is none).
    std::chrono::nanoseconds lastServerTime() const;

    std::size_t acceptedConnections() const { return m_acceptedConnections.load(); }

private:
    struct Connection;

    void acceptLoop();
    void serve(int socket, std::size_t connectionNumber);
    bool serveOne(Connection& connection);
    bool writeResponse(Connection& connection, const ScriptedResponse& response,
                       const std::function<void()>& beforeLastWrite) const;
    ScriptedResponse nextResponse();
    struct RecordSlot {
        std::size_t generation;
        std::size_t index;
    };
    RecordSlot record(RecordedRequest request);
    void setServerTime(RecordSlot slot, std::chrono::nanoseconds time);
    bool sleepUnlessStopped(std::chrono::milliseconds delay) const;
    void stop();

    int m_listener = -1;
    int m_wakeRead = -1;
    int m_wakeWrite = -1;
    std::uint16_t m_port = 0;
    std::atomic<bool> m_stopping{false};
    std::atomic<std::size_t> m_acceptedConnections{0};

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_requestArrived;
    std::deque<ScriptedResponse> m_script;
    ScriptedResponse m_fallback;
    std::string m_greeting;
    std::vector<RecordedRequest> m_requests;
    std::size_t m_generation = 0;  // bumped by clearRequests()
    std::chrono::nanoseconds m_lastServerTime{0};

    std::thread m_acceptThread;
    std::mutex m_threadsMutex;
    std::vector<std::thread> m_connectionThreads;
};

}  // namespace sagely::testing
