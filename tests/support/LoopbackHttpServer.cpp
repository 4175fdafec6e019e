#include "support/LoopbackHttpServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <stdexcept>

namespace sagely::testing {
namespace {

using Clock = std::chrono::steady_clock;

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) ==
               std::tolower(static_cast<unsigned char>(y));
    });
}

std::string_view trimmedSpaces(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    return s;
}

std::string reasonPhrase(int status) {
    switch (status) {
        case 200:
            return "OK";
        case 201:
            return "Created";
        case 204:
            return "No Content";
        case 301:
            return "Moved Permanently";
        case 302:
            return "Found";
        case 303:
            return "See Other";
        case 307:
            return "Temporary Redirect";
        case 308:
            return "Permanent Redirect";
        case 400:
            return "Bad Request";
        case 401:
            return "Unauthorized";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 429:
            return "Too Many Requests";
        case 500:
            return "Internal Server Error";
        case 502:
            return "Bad Gateway";
        case 503:
            return "Service Unavailable";
        default:
            return "Status";
    }
}

void resetAndClose(int socket) {
    linger hard{1, 0};
    setsockopt(socket, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    close(socket);
}

}  // namespace

std::optional<std::string> RecordedRequest::header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (equalsIgnoringCase(key, name)) return value;
    }
    return std::nullopt;
}

std::size_t RecordedRequest::headerCount(std::string_view name) const {
    return static_cast<std::size_t>(
        std::count_if(headers.begin(), headers.end(),
                      [&](const auto& h) { return equalsIgnoringCase(h.first, name); }));
}

ScriptedResponse ScriptedResponse::json(int status, std::string body) {
    ScriptedResponse response;
    response.status = status;
    response.headers = {{"Content-Type", "application/json"}};
    response.bodyChunks = {std::move(body)};
    return response;
}

ScriptedResponse ScriptedResponse::text(int status, std::string body) {
    ScriptedResponse response;
    response.status = status;
    response.headers = {{"Content-Type", "text/plain; charset=utf-8"}};
    response.bodyChunks = {std::move(body)};
    return response;
}

ScriptedResponse ScriptedResponse::slowBody(std::string firstChunk, std::string rest,
                                            std::chrono::milliseconds delay) {
    ScriptedResponse response = json(200, "");
    response.bodyChunks = {std::move(firstChunk), std::move(rest)};
    response.delayBetweenChunks = delay;
    return response;
}

ScriptedResponse ScriptedResponse::slowHeaders(std::chrono::milliseconds delay, std::string body) {
    ScriptedResponse response = json(200, std::move(body));
    response.delayBeforeHeaders = delay;
    return response;
}

ScriptedResponse ScriptedResponse::noAnswer() {
    ScriptedResponse response;
    response.ending = Ending::neverAnswer;
    return response;
}

ScriptedResponse ScriptedResponse::redirect(int status, std::string location) {
    ScriptedResponse response = text(status, "moved");
    response.headers.emplace_back("Location", std::move(location));
    return response;
}

ScriptedResponse ScriptedResponse::gzipJson(const std::string& body) {
    z_stream stream{};
    // 15 + 16: a gzip wrapper rather than zlib's own.
    if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, 15 + 16, 9, Z_DEFAULT_STRATEGY) !=
        Z_OK) {
        throw std::runtime_error("deflateInit2 failed");
    }
    std::string compressed(deflateBound(&stream, body.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(body.data()));
    stream.avail_in = static_cast<uInt>(body.size());
    stream.next_out = reinterpret_cast<Bytef*>(compressed.data());
    stream.avail_out = static_cast<uInt>(compressed.size());
    const int result = deflate(&stream, Z_FINISH);
    compressed.resize(stream.total_out);
    deflateEnd(&stream);
    if (result != Z_STREAM_END) throw std::runtime_error("deflate failed");
    ScriptedResponse response = json(200, std::move(compressed));
    response.headers.emplace_back("Content-Encoding", "gzip");
    return response;
}

ScriptedResponse ScriptedResponse::dripFed(const std::string& body,
                                           std::chrono::milliseconds interval) {
    ScriptedResponse response = json(200, "");
    response.bodyChunks.clear();
    for (char c : body) response.bodyChunks.emplace_back(1, c);
    response.delayBetweenChunks = interval;
    return response;
}

ScriptedResponse ScriptedResponse::eventStream(std::vector<std::string> chunks,
                                               std::chrono::milliseconds pause) {
    ScriptedResponse response;
    response.headers = {{"Content-Type", "text/event-stream"}};
    response.bodyChunks = std::move(chunks);
    response.delayBetweenChunks = pause;
    return response;
}

std::string openAIStreamEvent(const std::string& piece) {
    return "data: " + nlohmann::json{{"choices", {{{"delta", {{"content", piece}}}}}}}.dump() +
           "\n\n";
}

ScriptedResponse ScriptedResponse::resetWithoutAnswer() {
    ScriptedResponse response;
    response.sendsHeaders = false;
    response.ending = Ending::resetConnection;
    return response;
}

// The bytes of one connection, read on demand; every wait also wakes when the server stops.
struct LoopbackHttpServer::Connection {
    int socket;
    int wake;
    std::size_t number;
    std::string buffer;
    Clock::time_point firstByte;

    // Waits for more bytes; false when the peer closed or the server stops.
    bool fill() {
        pollfd fds[2] = {{socket, POLLIN, 0}, {wake, POLLIN, 0}};
        while (poll(fds, 2, -1) < 0) {
            if (errno != EINTR) return false;
        }
        if (fds[1].revents != 0) return false;
        if (buffer.empty()) firstByte = Clock::now();
        char chunk[16384];
        ssize_t got = recv(socket, chunk, sizeof chunk, 0);
        if (got <= 0) return false;
        buffer.append(chunk, static_cast<std::size_t>(got));
        return true;
    }

    std::optional<std::string> readLine() {
        std::size_t end;
        while ((end = buffer.find("\r\n")) == std::string::npos) {
            if (!fill()) return std::nullopt;
        }
        std::string line = buffer.substr(0, end);
        buffer.erase(0, end + 2);
        return line;
    }

    std::optional<std::string> readBytes(std::size_t count) {
        while (buffer.size() < count) {
            if (!fill()) return std::nullopt;
        }
        std::string bytes = buffer.substr(0, count);
        buffer.erase(0, count);
        return bytes;
    }

    bool send(std::string_view bytes) {
        while (!bytes.empty()) {
            ssize_t sent = ::send(socket, bytes.data(), bytes.size(), 0);
            if (sent < 0 && errno == EINTR) continue;
            if (sent <= 0) return false;
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
        return true;
    }

    std::optional<RecordedRequest> readRequest() {
        RecordedRequest request;
        std::optional<std::string> requestLine = readLine();
        if (!requestLine || !parseRequestLine(*requestLine, request)) return std::nullopt;
        if (!readHeaders(request)) return std::nullopt;
        auto expect = request.header("Expect");
        if (expect && equalsIgnoringCase(*expect, "100-continue") &&
            !send("HTTP/1.1 100 Continue\r\n\r\n")) {
            return std::nullopt;
        }
        if (!readBody(request)) return std::nullopt;
        request.connection = number;
        return request;
    }

    static bool parseRequestLine(const std::string& line, RecordedRequest& request) {
        std::size_t firstSpace = line.find(' ');
        std::size_t secondSpace = line.find(' ', firstSpace + 1);
        if (firstSpace == std::string::npos || secondSpace == std::string::npos) return false;
        request.method = line.substr(0, firstSpace);
        request.target = line.substr(firstSpace + 1, secondSpace - firstSpace - 1);
        std::size_t question = request.target.find('?');
        request.path = request.target.substr(0, question);
        if (question != std::string::npos) request.query = request.target.substr(question + 1);
        return true;
    }

    bool readHeaders(RecordedRequest& request) {
        while (true) {
            std::optional<std::string> line = readLine();
            if (!line) return false;
            if (line->empty()) return true;
            std::size_t colon = line->find(':');
            if (colon == std::string::npos) return false;
            request.headers.emplace_back(
                line->substr(0, colon),
                std::string(trimmedSpaces(std::string_view(*line).substr(colon + 1))));
        }
    }

    bool readBody(RecordedRequest& request) {
        if (auto length = request.header("Content-Length")) {
            auto body = readBytes(std::stoul(*length));
            if (body) request.body = std::move(*body);
            return body.has_value();
        }
        auto encoding = request.header("Transfer-Encoding");
        if (!encoding || !equalsIgnoringCase(*encoding, "chunked")) return true;
        while (true) {
            auto sizeLine = readLine();
            if (!sizeLine) return false;
            std::size_t size = std::stoul(*sizeLine, nullptr, 16);
            auto chunk = readBytes(size + 2);
            if (!chunk) return false;
            if (size == 0) return true;
            request.body += chunk->substr(0, size);
        }
    }

    // Holds the connection until the peer goes away or the server stops.
    void waitForPeerToLeave() {
        buffer.clear();
        while (fill()) buffer.clear();
    }
};

namespace {

// Child processes started by a test (the CLI end to end) must not hold the server's sockets.
int closeOnExec(int descriptor) {
    if (descriptor >= 0) fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    return descriptor;
}

}  // namespace

LoopbackHttpServer::LoopbackHttpServer() {
    m_fallback = ScriptedResponse::text(500, "no scripted response");
    // A client that hangs up mid-reply must fail the write, not end the test process (the
    // portable spelling of MSG_NOSIGNAL, which macOS lacks).
    std::signal(SIGPIPE, SIG_IGN);
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) throw std::runtime_error("pipe failed");
    m_wakeRead = closeOnExec(pipeEnds[0]);
    m_wakeWrite = closeOnExec(pipeEnds[1]);

    m_listener = closeOnExec(socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof address;
    if (m_listener < 0 || bind(m_listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        listen(m_listener, 64) != 0 ||
        getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw std::runtime_error(std::string("cannot listen on 127.0.0.1: ") + strerror(errno));
    }
    m_port = ntohs(address.sin_port);
    m_acceptThread = std::thread([this] { acceptLoop(); });
}

LoopbackHttpServer::~LoopbackHttpServer() {
    stop();
}

void LoopbackHttpServer::stop() {
    m_stopping = true;
    char byte = 1;
    (void)!write(m_wakeWrite, &byte, 1);  // stays readable: wakes every waiter at once
    if (m_acceptThread.joinable()) m_acceptThread.join();
    std::vector<std::thread> threads;
    {
        std::lock_guard lock(m_threadsMutex);
        threads.swap(m_connectionThreads);
    }
    for (std::thread& thread : threads) thread.join();
    close(m_listener);
    close(m_wakeRead);
    close(m_wakeWrite);
}

std::string LoopbackHttpServer::url(std::string_view pathAndQuery) const {
    return "http://127.0.0.1:" + std::to_string(m_port) + std::string(pathAndQuery);
}

void LoopbackHttpServer::acceptLoop() {
    while (!m_stopping) {
        pollfd fds[2] = {{m_listener, POLLIN, 0}, {m_wakeRead, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0 || fds[1].revents != 0) continue;
        int client = closeOnExec(accept(m_listener, nullptr, nullptr));
        if (client < 0) continue;
        int one = 1;
        setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        std::size_t number = ++m_acceptedConnections;
        std::lock_guard lock(m_threadsMutex);
        m_connectionThreads.emplace_back([this, client, number] { serve(client, number); });
    }
}

void LoopbackHttpServer::serve(int socket, std::size_t connectionNumber) {
    Connection connection{socket, m_wakeRead, connectionNumber, {}, {}};
    std::string greeting;
    {
        std::lock_guard lock(m_mutex);
        greeting = m_greeting;
    }
    if (!greeting.empty()) connection.send(greeting);
    try {
        bool open = true;
        while (open && !m_stopping) open = serveOne(connection);
    } catch (const std::exception&) {
        // A malformed request ends its connection; the test sees the client's failure.
    }
    if (connection.socket >= 0) close(connection.socket);
}

// Reads one request, answers it as scripted; false when the connection is over.
bool LoopbackHttpServer::serveOne(Connection& connection) {
    std::optional<RecordedRequest> request = connection.readRequest();
    if (!request) return false;
    const Clock::time_point started = connection.firstByte;
    const RecordSlot slot = record(std::move(*request));
    const ScriptedResponse response = nextResponse();
    if (response.ending == ScriptedResponse::Ending::neverAnswer) {
        connection.waitForPeerToLeave();
        return false;
    }
    if (!sleepUnlessStopped(response.delayBeforeHeaders)) return false;
    if (response.sendsHeaders && !writeResponse(connection, response, [&] {
            setServerTime(slot, Clock::now() - started);
        })) {
        return false;
    }
    switch (response.ending) {
        case ScriptedResponse::Ending::closeConnection:
            shutdown(connection.socket, SHUT_RDWR);
            return false;
        case ScriptedResponse::Ending::resetConnection:
            resetAndClose(connection.socket);
            connection.socket = -1;
            return false;
        default:
            return response.keepAlive;
    }
}

// Writes the status line, headers and body chunks; `beforeLastWrite` runs just before the last
// piece leaves, so the server time is known before the client can see the end of the reply.
bool LoopbackHttpServer::writeResponse(Connection& connection, const ScriptedResponse& response,
                                       const std::function<void()>& beforeLastWrite) const {
    if (response.raw) {
        beforeLastWrite();
        return connection.send(*response.raw);
    }
    std::size_t declared = 0;
    for (const std::string& chunk : response.bodyChunks) declared += chunk.size();
    std::string head = "HTTP/1.1 " + std::to_string(response.status) + " " +
                       reasonPhrase(response.status) + "\r\n";
    for (const auto& [name, value] : response.headers) head += name + ": " + value + "\r\n";
    head += "Content-Length: " + std::to_string(response.contentLength.value_or(declared)) + "\r\n";
    if (!response.keepAlive) head += "Connection: close\r\n";
    head += "\r\n";
    std::vector<std::string> pieces = response.bodyChunks;
    if (pieces.empty()) {
        pieces.push_back(std::move(head));
    } else {
        pieces.front().insert(0, head);  // headers and the first chunk in one write
    }
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        if (i > 0 && !sleepUnlessStopped(response.delayBetweenChunks)) return false;
        if (i + 1 == pieces.size()) beforeLastWrite();
        if (!connection.send(pieces[i])) return false;
        if (response.chunkSent) response.chunkSent(i);
    }
    return true;
}

ScriptedResponse LoopbackHttpServer::nextResponse() {
    std::lock_guard lock(m_mutex);
    if (m_script.empty()) return m_fallback;
    ScriptedResponse response = std::move(m_script.front());
    m_script.pop_front();
    return response;
}

LoopbackHttpServer::RecordSlot LoopbackHttpServer::record(RecordedRequest request) {
    std::lock_guard lock(m_mutex);
    m_requests.push_back(std::move(request));
    m_requestArrived.notify_all();
    return {m_generation, m_requests.size() - 1};
}

void LoopbackHttpServer::setServerTime(RecordSlot slot, std::chrono::nanoseconds time) {
    std::lock_guard lock(m_mutex);
    m_lastServerTime = time;
    if (slot.generation == m_generation && slot.index < m_requests.size()) {
        m_requests[slot.index].serverTime = time;
    }
}

bool LoopbackHttpServer::sleepUnlessStopped(std::chrono::milliseconds delay) const {
    if (delay.count() <= 0) return !m_stopping;
    pollfd wake{m_wakeRead, POLLIN, 0};
    const Clock::time_point until = Clock::now() + delay;
    while (!m_stopping) {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
        if (left.count() <= 0) return true;
        poll(&wake, 1, static_cast<int>(left.count()));
    }
    return false;
}

void LoopbackHttpServer::enqueue(ScriptedResponse response) {
    std::lock_guard lock(m_mutex);
    m_script.push_back(std::move(response));
}

void LoopbackHttpServer::setGreeting(std::string bytes) {
    std::lock_guard lock(m_mutex);
    m_greeting = std::move(bytes);
}

void LoopbackHttpServer::setFallbackResponse(ScriptedResponse response) {
    std::lock_guard lock(m_mutex);
    m_fallback = std::move(response);
}

std::vector<RecordedRequest> LoopbackHttpServer::requests() const {
    std::lock_guard lock(m_mutex);
    return m_requests;
}

std::size_t LoopbackHttpServer::requestCount() const {
    std::lock_guard lock(m_mutex);
    return m_requests.size();
}

void LoopbackHttpServer::clearRequests() {
    std::lock_guard lock(m_mutex);
    m_requests.clear();
    ++m_generation;
}

bool LoopbackHttpServer::waitForRequests(std::size_t count,
                                         std::chrono::milliseconds timeout) const {
    std::unique_lock lock(m_mutex);
    return m_requestArrived.wait_for(lock, timeout, [&] { return m_requests.size() >= count; });
}

std::chrono::nanoseconds LoopbackHttpServer::lastServerTime() const {
    std::lock_guard lock(m_mutex);
    return m_lastServerTime;
}

}  // namespace sagely::testing
