// How LLMClient fails: HTTP statuses, unreadable replies, keys that cannot be sent, transport
// failures, and cancellation whatever the server does.
#include <sagely/CoachLLMError.h>
#include <sagely/LLMClient.h>
#include <sagely/Text.h>

#include "llm/HttpTransport.h"
#include "support/LoopbackHttpServer.h"
#include "support/RetryWaits.h"

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <thread>

using namespace sagely;
using namespace std::chrono_literals;
using sagely::testing::LoopbackHttpServer;
using sagely::testing::RetryWaits;
using sagely::testing::ScriptedResponse;

namespace {

const std::vector<LLMMessage> kChat = {{"system", "You are the coach."},
                                       {"user", "How do I export?"}};
const std::string kNotJSON =
    "The data couldn\u2019t be read because it isn\u2019t in the correct format.";
const std::string kConnectionLost = "The network connection was lost.";

class LLMClientFailureTest : public ::testing::Test {
protected:
    LoopbackHttpServer m_server;
    std::shared_ptr<RetryWaits> m_retryWaits = std::make_shared<RetryWaits>();
    LLMClient m_client{nullptr, m_retryWaits->sleeper()};

    /// A request and its retries.
    static constexpr std::size_t kTries = 4;
    /// The answer to a request and to each of its retries.
    void enqueueOnEveryTry(const ScriptedResponse& response) {
        for (std::size_t i = 0; i < kTries; ++i) m_server.enqueue(response);
    }

    CoachConfig configFor(Provider provider, std::string key = "sk-test") {
        CoachConfig config;
        config.provider = provider;
        config.apiKey = std::move(key);
        config.model = "test-model";
        config.customEndpoint = m_server.url("/v1/chat");
        return config;
    }

    std::string ask(const CoachConfig& config, const CancellationToken& token = {}) {
        return m_client.complete(kChat, config, std::nullopt, token);
    }

    // The description of the error `ask` throws, which must be of type E.
    template <typename E>
    std::string failureOf(const CoachConfig& config) {
        try {
            ask(config);
        } catch (const E& error) {
            return error.what();
        } catch (const std::exception& other) {
            ADD_FAILURE() << "unexpected error: " << other.what();
            return {};
        }
        ADD_FAILURE() << "complete() did not fail";
        return {};
    }

    CoachLLMError::Kind kindOf(const CoachConfig& config) {
        try {
            ask(config);
        } catch (const CoachLLMError& error) {
            return error.kind();
        }
        ADD_FAILURE() << "complete() did not fail with a CoachLLMError";
        return CoachLLMError::Kind::serverError;
    }

    // Starts a request on a worker, waits until the server has it, lets `settle` pass, stops the
    // token and checks that the request ends with CancelledError well within two seconds.
    void expectPromptCancellation(std::chrono::milliseconds settle) {
        CancellationToken token;
        auto pending =
            std::async(std::launch::async, [&] { return ask(configFor(Provider::openai), token); });
        ASSERT_TRUE(m_server.waitForRequests(1, 5s));
        std::this_thread::sleep_for(settle);
        const auto stopped = std::chrono::steady_clock::now();
        token.requestStop();
        ASSERT_EQ(pending.wait_for(2s), std::future_status::ready)
            << "the request ignored the stop";
        EXPECT_THROW(pending.get(), CancelledError);
        EXPECT_LT(std::chrono::steady_clock::now() - stopped, 2s);
    }
};

std::string repeated(std::string_view unit, std::size_t times) {
    std::string s;
    for (std::size_t i = 0; i < times; ++i) s += unit;
    return s;
}

// A port on the loopback interface that nothing listens on.
std::uint16_t closedPort() {
    int probe = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(probe, reinterpret_cast<sockaddr*>(&address), length);
    getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
    close(probe);  // bound but never listening: connections are refused
    return ntohs(address.sin_port);
}

// --- HTTP statuses -----------------------------------------------------------------------------

TEST_F(LLMClientFailureTest, Status429IsRateLimitedAfterTheLastRetry) {
    enqueueOnEveryTry(ScriptedResponse::json(429, R"({"error":{"message":"Slow down"}})"));
    EXPECT_EQ(failureOf<CoachLLMError>(configFor(Provider::openai)),
              "The AI provider rate-limited the request. Please wait and try again.");
    EXPECT_EQ(m_server.requestCount(), kTries);
    enqueueOnEveryTry(ScriptedResponse::json(429, "{}"));
    EXPECT_EQ(kindOf(configFor(Provider::anthropic)), CoachLLMError::Kind::rateLimited);
    EXPECT_EQ(m_server.requestCount(), 2 * kTries);
}

TEST_F(LLMClientFailureTest, Status500CarriesExactlyTheFirst300CharactersOfItsBody) {
    std::string body;
    for (int i = 0; i < 1000; ++i) body += static_cast<char>('a' + i % 26);
    m_server.enqueue(ScriptedResponse::text(500, body));
    EXPECT_EQ(failureOf<CoachLLMError>(configFor(Provider::openai)),
              "HTTP 500: " + body.substr(0, 300));
}

TEST_F(LLMClientFailureTest, AnEmojiAsThe300thCharacterIsKeptWhole) {
    const std::string emoji = "\U0001F469\u200D\U0001F4BB";  // woman technologist, one character
    std::string body = repeated("e", 299) + emoji + repeated("z", 700);
    enqueueOnEveryTry(ScriptedResponse::text(503, body));
    EXPECT_EQ(failureOf<CoachLLMError>(configFor(Provider::gemini)),
              "HTTP 503: " + repeated("e", 299) + emoji);
    EXPECT_EQ(m_server.requestCount(), kTries);
}

TEST_F(LLMClientFailureTest, AnErrorBodyShorterThan300CharactersIsKeptWhole) {
    m_server.enqueue(ScriptedResponse::json(401, R"({"error":"invalid key"})"));
    EXPECT_EQ(failureOf<CoachLLMError>(configFor(Provider::openai)),
              R"(HTTP 401: {"error":"invalid key"})");
}

TEST_F(LLMClientFailureTest, AnErrorBodyThatIsNotUTF8CountsAsEmpty) {
    m_server.enqueue(ScriptedResponse::text(502, "\xff\xfe bad gateway"));
    EXPECT_EQ(failureOf<CoachLLMError>(configFor(Provider::local)), "HTTP 502: ");
}

// --- unreadable replies ------------------------------------------------------------------------

TEST_F(LLMClientFailureTest, AnEmptyChoicesArrayIsAnInvalidResponse) {
    m_server.enqueue(ScriptedResponse::json(200, R"({"id":"x","choices":[]})"));
    EXPECT_EQ(failureOf<CoachLLMError>(configFor(Provider::openai)),
              "The AI response could not be parsed.");
}

TEST_F(LLMClientFailureTest, ABodyThatIsNotJSONFailsWithTheParsersSentence) {
    m_server.enqueue(ScriptedResponse::text(200, "<html>Gateway</html>"));
    EXPECT_EQ(failureOf<DecodingError>(configFor(Provider::openai)), kNotJSON);
    m_server.enqueue(ScriptedResponse::json(200, ""));
    EXPECT_EQ(failureOf<DecodingError>(configFor(Provider::anthropic)), kNotJSON);
    m_server.enqueue(ScriptedResponse::json(200, R"("just a string")"));
    EXPECT_EQ(failureOf<DecodingError>(configFor(Provider::gemini)), kNotJSON);
    m_server.enqueue(ScriptedResponse::json(200, "{\"message\":{\"content\":\"\xff\"}}"));
    EXPECT_EQ(failureOf<DecodingError>(configFor(Provider::local)), kNotJSON);
}

TEST_F(LLMClientFailureTest, AJSONArrayAtTopLevelIsAnInvalidResponse) {
    m_server.enqueue(ScriptedResponse::json(200, R"([{"choices":[]}])"));
    EXPECT_EQ(kindOf(configFor(Provider::openai)), CoachLLMError::Kind::invalidResponse);
}

TEST_F(LLMClientFailureTest, AMissingOrMistypedStepOfEachReplyPathIsAnInvalidResponse) {
    struct Case {
        Provider provider;
        const char* body;
    };
    for (const Case& c : {Case{Provider::openai, R"({})"},
                          Case{Provider::openai, R"({"choices":[{"message":{"content":42}}]})"},
                          Case{Provider::openai, R"({"choices":{"message":{"content":"x"}}})"},
                          Case{Provider::custom, R"({"choices":[{"text":"legacy"}]})"},
                          Case{Provider::anthropic, R"({"content":"plain"})"},
                          Case{Provider::anthropic, R"({"content":[{"type":"text","text":null}]})"},
                          Case{Provider::gemini, R"({"candidates":[]})"},
                          Case{Provider::gemini, R"({"candidates":[{"content":{"parts":[]}}]})"},
                          Case{Provider::local, R"({"message":{"role":"assistant"}})"},
                          Case{Provider::local, R"({"done":true})"}}) {
        m_server.enqueue(ScriptedResponse::json(200, c.body));
        EXPECT_EQ(kindOf(configFor(c.provider)), CoachLLMError::Kind::invalidResponse) << c.body;
    }
}

// --- requests that are never sent --------------------------------------------------------------

TEST_F(LLMClientFailureTest, AKeyWithAControlCharacterAfterTrimmingSendsNothing) {
    for (Provider provider : {Provider::openai, Provider::anthropic, Provider::gemini,
                              Provider::custom, Provider::apple}) {
        for (const char* key : {"sk-abc\r\nX-Injected: yes",
                                "sk\x01"
                                "abc",
                                "sk-\x7f", "sk-\u0085x"}) {
            EXPECT_EQ(failureOf<CoachLLMError>(configFor(provider, key)),
                      "The API key contains characters that cannot be sent in a request header.")
                << rawValue(provider);
        }
    }
    EXPECT_EQ(m_server.requestCount(), 0u);
    EXPECT_EQ(m_server.acceptedConnections(), 0u);
}

TEST_F(LLMClientFailureTest, AnUnparsableCustomEndpointIsAnInvalidURLAndSendsNothing) {
    CoachConfig config = configFor(Provider::custom);
    config.customEndpoint = "not a url";
    EXPECT_EQ(failureOf<CoachLLMError>(config), "Invalid AI endpoint URL.");
    config.customEndpoint = "";
    EXPECT_EQ(kindOf(config), CoachLLMError::Kind::invalidURL);
    EXPECT_EQ(m_server.acceptedConnections(), 0u);
}

TEST_F(LLMClientFailureTest, AStoppedTokenSendsNothing) {
    CancellationToken token;
    token.requestStop();
    EXPECT_THROW(ask(configFor(Provider::openai), token), CancelledError);
    EXPECT_EQ(m_server.acceptedConnections(), 0u);
}

// --- transport failures ------------------------------------------------------------------------

TEST_F(LLMClientFailureTest, AConnectionResetBeforeAnAnswerIsALostConnectionAfterTheLastRetry) {
    enqueueOnEveryTry(ScriptedResponse::resetWithoutAnswer());
    EXPECT_EQ(failureOf<TransportError>(configFor(Provider::openai)), kConnectionLost);
    EXPECT_EQ(m_server.requestCount(), kTries);
}

TEST_F(LLMClientFailureTest, AConnectionResetMidBodyIsALostConnection) {
    ScriptedResponse response = ScriptedResponse::json(200, R"({"choices":[{"mess)");
    response.contentLength = 400;
    response.ending = ScriptedResponse::Ending::resetConnection;
    m_server.enqueue(response);
    EXPECT_EQ(failureOf<TransportError>(configFor(Provider::openai)), kConnectionLost);
    EXPECT_EQ(m_server.requestCount(), 1u);  // part of the reply came: never sent again
}

TEST_F(LLMClientFailureTest, AConnectionClosedMidBodyIsALostConnection) {
    ScriptedResponse response = ScriptedResponse::json(200, R"({"message":{"con)");
    response.contentLength = 400;
    response.ending = ScriptedResponse::Ending::closeConnection;
    m_server.enqueue(response);
    EXPECT_EQ(failureOf<TransportError>(configFor(Provider::local)), kConnectionLost);
    EXPECT_EQ(m_server.requestCount(), 1u);
}

TEST_F(LLMClientFailureTest, ARefusedPortCannotBeConnectedTo) {
    CoachConfig config = configFor(Provider::openai);
    config.customEndpoint = "http://127.0.0.1:" + std::to_string(closedPort()) + "/v1/chat";
    EXPECT_EQ(failureOf<TransportError>(config), "Could not connect to the server.");
}

TEST_F(LLMClientFailureTest, AServerThatDoesNotSpeakTLSIsAnSSLError) {
    m_server.setGreeting("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n");
    CoachConfig config = configFor(Provider::anthropic);
    config.customEndpoint = "https://127.0.0.1:" + std::to_string(m_server.port()) + "/v1/messages";
    EXPECT_EQ(failureOf<TransportError>(config),
              "An SSL error has occurred and a secure connection to the server cannot be made.");
}

TEST_F(LLMClientFailureTest, AnEndpointOfAnotherProtocolIsNotFetched) {
    CoachConfig config = configFor(Provider::custom);
    config.customEndpoint = "ftp://127.0.0.1/v1/chat";
    EXPECT_EQ(failureOf<TransportError>(config), "unsupported URL");
}

TEST(HttpTransport, ASilentServerTimesOut) {  // timing-dependent: about one second
    LoopbackHttpServer server;
    server.enqueue(ScriptedResponse::noAnswer());
    detail::HttpRequest request;
    request.url = server.url("/slow");
    request.body = "{}";
    request.timeout = 1s;
    try {
        detail::post(request, {});
        ADD_FAILURE() << "post() did not fail";
    } catch (const TransportError& error) {
        EXPECT_STREQ(error.what(), "The request timed out.");
    }
}

TEST(HttpTransport, LibcurlResultsMapToTheFixedSentences) {
    EXPECT_EQ(detail::transportFailureDescription(CURLE_OPERATION_TIMEDOUT),
              "The request timed out.");
    EXPECT_EQ(detail::transportFailureDescription(CURLE_COULDNT_CONNECT),
              "Could not connect to the server.");
    EXPECT_EQ(detail::transportFailureDescription(CURLE_COULDNT_RESOLVE_HOST),
              "A server with the specified hostname could not be found.");
    for (CURLcode lost :
         {CURLE_RECV_ERROR, CURLE_SEND_ERROR, CURLE_GOT_NOTHING, CURLE_PARTIAL_FILE}) {
        EXPECT_EQ(detail::transportFailureDescription(lost), kConnectionLost);
    }
    for (CURLcode tls : {CURLE_SSL_CONNECT_ERROR, CURLE_PEER_FAILED_VERIFICATION,
                         CURLE_SSL_CACERT_BADFILE, CURLE_SSL_CERTPROBLEM}) {
        EXPECT_EQ(detail::transportFailureDescription(tls),
                  "An SSL error has occurred and a secure connection to the server cannot be "
                  "made.");
    }
}

TEST(HttpTransport, SendsTheBodyAndHeadersAsGiven) {
    LoopbackHttpServer server;
    server.enqueue(ScriptedResponse::json(201, R"({"ok":true})"));
    detail::HttpRequest request;
    request.url = server.url("/echo?x=1");
    request.headers = {{"Content-Type", "application/json"}, {"X-Trace", "abc"}};
    request.body = std::string(5000, 'b');  // larger than a "100 Continue" threshold
    detail::HttpResponse response = detail::post(request, {});
    EXPECT_EQ(response.status, 201);
    EXPECT_EQ(response.body, R"({"ok":true})");
    auto recorded = server.requests();
    ASSERT_EQ(recorded.size(), 1u);
    EXPECT_EQ(recorded[0].path, "/echo");
    EXPECT_EQ(recorded[0].query, "x=1");
    EXPECT_EQ(recorded[0].body, request.body);
    EXPECT_EQ(recorded[0].header("X-Trace"), "abc");
    EXPECT_EQ(recorded[0].headerCount("Expect"), 0u);
}

// --- cancellation ------------------------------------------------------------------------------

TEST_F(LLMClientFailureTest, StoppingDuringSlowHeadersCancelsPromptly) {
    m_server.enqueue(ScriptedResponse::slowHeaders(60s, R"({"choices":[]})"));
    expectPromptCancellation(50ms);
}

TEST_F(LLMClientFailureTest, StoppingDuringASlowBodyCancelsPromptly) {
    m_server.enqueue(
        ScriptedResponse::slowBody(R"({"choices":[{"message":)", R"({"content":"late"}}]})", 60s));
    expectPromptCancellation(200ms);
}

TEST_F(LLMClientFailureTest, StoppingWhileTheServerNeverAnswersCancelsPromptly) {
    m_server.enqueue(ScriptedResponse::noAnswer());
    expectPromptCancellation(50ms);
}

TEST_F(LLMClientFailureTest, TheConnectionPoolRecoversAfterACancelledRequest) {
    m_server.enqueue(ScriptedResponse::noAnswer());
    expectPromptCancellation(10ms);
    m_server.enqueue(ScriptedResponse::json(200, R"({"choices":[{"message":{"content":"ok"}}]})"));
    EXPECT_EQ(ask(configFor(Provider::openai)), "ok");
}

}  // namespace
