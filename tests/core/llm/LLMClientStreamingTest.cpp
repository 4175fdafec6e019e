// Streamed replies of the four wire formats from a real HTTP server on the loopback interface:
// request switches, framing cut at every byte, errors in the stream, streams cut short, stalls
// and large replies. The text kept is compared with what complete() keeps for the same answer.
#include <sagely/CoachLLMError.h>
#include <sagely/Error.h>
#include <sagely/LLMClient.h>

#include "support/LoopbackHttpServer.h"
#include "support/RetryWaits.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

using namespace sagely;
using namespace std::chrono_literals;
using nlohmann::json;
using sagely::testing::LoopbackHttpServer;
using sagely::testing::RetryWaits;
using sagely::testing::ScriptedResponse;

namespace {

// Multi-byte characters of two, three and four bytes, and a JSON escape.
const std::string kReply =
    "Gr\u00fc\u00dfe \u2014 open **File** \xF0\x9F\x93\x81, then \"Export\".";

const std::vector<LLMMessage> kChat = {{"system", "You are the coach."},
                                       {"user", "How do I export?"}};

std::string openAIChunk(const std::string& piece) {
    return "data: " +
           json{{"id", "c1"},
                {"object", "chat.completion.chunk"},
                {"choices",
                 {{{"index", 0}, {"delta", {{"content", piece}}}, {"finish_reason", nullptr}}}}}
               .dump() +
           "\n\n";
}

std::string openAIStream(const std::vector<std::string>& pieces, bool done = true) {
    std::string stream =
        "data: {\"id\":\"c1\",\"choices\":[{\"index\":0,\"delta\":{\"role\":\"assistant\","
        "\"content\":\"\"},\"finish_reason\":null}]}\n\n: keep-alive\n\n";
    for (const auto& piece : pieces) stream += openAIChunk(piece);
    if (!done) return stream;
    stream +=
        "data: {\"id\":\"c1\",\"choices\":[{\"index\":0,\"delta\":{},\"finish_reason\":\"stop\"}]}"
        "\n\ndata: {\"id\":\"c1\",\"choices\":[],\"usage\":{\"prompt_tokens\":9}}\n\ndata: "
        "[DONE]\n\n";
    return stream;
}

std::string anthropicEvent(const std::string& type, const json& data) {
    json event = data;
    event["type"] = type;
    return "event: " + type + "\r\ndata: " + event.dump() + "\r\n\r\n";
}

std::string anthropicStream(const std::vector<std::string>& pieces) {
    std::string stream = anthropicEvent("message_start", {{"message", {{"role", "assistant"}}}});
    stream +=
        anthropicEvent("content_block_start",
                       {{"index", 0}, {"content_block", {{"type", "thinking"}, {"thinking", ""}}}});
    stream += anthropicEvent(
        "content_block_delta",
        {{"index", 0}, {"delta", {{"type", "thinking_delta"}, {"thinking", "hmm"}}}});
    stream += anthropicEvent(
        "content_block_delta",
        {{"index", 0}, {"delta", {{"type", "signature_delta"}, {"signature", "s"}}}});
    stream += anthropicEvent("content_block_stop", {{"index", 0}});
    stream += anthropicEvent("ping", json::object());
    stream += anthropicEvent("content_block_start",
                             {{"index", 1}, {"content_block", {{"type", "text"}, {"text", ""}}}});
    for (const auto& piece : pieces) {
        stream +=
            anthropicEvent("content_block_delta",
                           {{"index", 1}, {"delta", {{"type", "text_delta"}, {"text", piece}}}});
    }
    stream += anthropicEvent("content_block_stop", {{"index", 1}});
    stream +=
        anthropicEvent("content_block_start",
                       {{"index", 2}, {"content_block", {{"type", "tool_use"}, {"id", "t"}}}});
    stream += anthropicEvent(
        "content_block_delta",
        {{"index", 2}, {"delta", {{"type", "input_json_delta"}, {"partial_json", "{}"}}}});
    stream += anthropicEvent("message_delta", {{"delta", {{"stop_reason", "end_turn"}}}});
    stream += anthropicEvent("message_stop", json::object());
    return stream;
}

std::string geminiStream(const std::vector<std::string>& pieces) {
    std::string stream;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        json candidate = {{"content", {{"role", "model"}, {"parts", {{{"text", pieces[i]}}}}}}};
        if (i == 0)
            candidate["content"]["parts"].insert(candidate["content"]["parts"].begin(),
                                                 json{{"text", "thinking"}, {"thought", true}});
        if (i + 1 == pieces.size()) candidate["finishReason"] = "STOP";
        stream += "data: " + json{{"candidates", {candidate}}}.dump() + "\r\n\r\n";
    }
    return stream;
}

std::string ollamaStream(const std::vector<std::string>& pieces, bool done = true) {
    std::string stream =
        "{\"message\":{\"role\":\"assistant\",\"thinking\":\"hm\",\"content\":\"\"},\"done\":false}"
        "\n";
    for (const auto& piece : pieces) {
        stream +=
            json{{"message", {{"role", "assistant"}, {"content", piece}}}, {"done", false}}.dump() +
            "\n";
    }
    if (done) stream += "{\"message\":{\"role\":\"assistant\",\"content\":\"\"},\"done\":true}\n";
    return stream;
}

// The reply cut into pieces at character boundaries, as a model streams it.
std::vector<std::string> pieces() {
    return {"Gr\u00fc", "\u00dfe \u2014 ", "open **File** \xF0\x9F\x93\x81", ", then ",
            "\"Export\"."};
}

ScriptedResponse streamed(std::vector<std::string> chunks,
                          std::string contentType = "text/event-stream") {
    ScriptedResponse response;
    response.headers = {{"Content-Type", std::move(contentType)}};
    response.bodyChunks = std::move(chunks);
    return response;
}

struct Format {
    Provider provider;
    std::string path;
    std::string stream;
    std::string contentType;
};

class LLMClientStreamingTest : public ::testing::Test {
protected:
    LoopbackHttpServer m_server;
    std::shared_ptr<RetryWaits> m_retryWaits = std::make_shared<RetryWaits>();
    LLMClient m_client{nullptr, m_retryWaits->sleeper()};

    CoachConfig configFor(Provider provider, std::string path) {
        CoachConfig config;
        config.provider = provider;
        config.apiKey = "sk-test";
        config.model = "test-model";
        config.customEndpoint = m_server.url(path);
        return config;
    }

    std::vector<Format> formats() {
        return {
            {Provider::openai, "/v1/chat/completions", openAIStream(pieces()), "text/event-stream"},
            {Provider::anthropic, "/v1/messages", anthropicStream(pieces()), "text/event-stream"},
            {Provider::gemini, "/v1beta/models/m:generateContent", geminiStream(pieces()),
             "text/event-stream"},
            {Provider::local, "/api/chat", ollamaStream(pieces()), "application/x-ndjson"}};
    }

    LLMReply stream(const CoachConfig& config, std::vector<std::string>* deltas = nullptr,
                    const CancellationToken& cancellation = {}) {
        return m_client.stream(kChat, config, std::nullopt, cancellation,
                               [deltas](std::string_view delta) {
                                   if (deltas) deltas->emplace_back(delta);
                               });
    }

    CoachLLMError::Kind failureKind(const CoachConfig& config, std::string* message = nullptr) {
        try {
            stream(config);
        } catch (const CoachLLMError& error) {
            if (message) *message = error.what();
            return error.kind();
        }
        ADD_FAILURE() << "stream() did not fail with a CoachLLMError";
        return CoachLLMError::Kind::invalidURL;
    }
};

}  // namespace

TEST_F(LLMClientStreamingTest, EachFormatAsksForAStreamTheWayItsProviderWantsIt) {
    for (const auto& format : formats())
        m_server.enqueue(streamed({format.stream}, format.contentType));
    for (const auto& format : formats()) stream(configFor(format.provider, format.path));
    auto requests = m_server.requests();
    ASSERT_EQ(requests.size(), 4u);
    const json openAI = json::parse(requests[0].body);
    EXPECT_EQ(openAI["stream"], true);
    EXPECT_EQ(openAI["stream_options"], (json{{"include_usage", true}}));
    EXPECT_EQ(json::parse(requests[1].body)["stream"], true);
    EXPECT_EQ(requests[2].path, "/v1beta/models/m:streamGenerateContent");
    EXPECT_EQ(requests[2].query, "alt=sse");
    EXPECT_FALSE(json::parse(requests[2].body).contains("stream"));
    EXPECT_EQ(json::parse(requests[3].body)["stream"], true);
}

TEST_F(LLMClientStreamingTest, ACustomEndpointStreamsWithoutTheUsageOption) {
    m_server.enqueue(streamed({openAIStream(pieces())}));
    EXPECT_EQ(stream(configFor(Provider::custom, "/v1/chat/completions")).text, kReply);
    const json body = json::parse(m_server.requests().at(0).body);
    EXPECT_EQ(body["stream"], true);
    EXPECT_FALSE(body.contains("stream_options"));
}

TEST_F(LLMClientStreamingTest, AGeminiEndpointKeepsItsQueryAfterTheStreamSwitch) {
    m_server.enqueue(streamed({geminiStream(pieces())}));
    stream(configFor(Provider::gemini, "/v1beta/models/m:generateContent?x=1"));
    EXPECT_EQ(m_server.requests().at(0).target,
              "/v1beta/models/m:streamGenerateContent?alt=sse&x=1");
}

TEST_F(LLMClientStreamingTest, WithStreamingOffTheRequestIsByteForByteTheWholeReplyOne) {
    for (const auto& format : formats()) {
        m_server.clearRequests();
        CoachConfig config = configFor(format.provider, format.path);
        m_server.enqueue(ScriptedResponse::json(200, "{}"));
        try {
            m_client.complete(kChat, config, std::nullopt, {});
        } catch (const CoachLLMError&) {
        }
        config.streamsReplies = false;
        m_server.enqueue(ScriptedResponse::json(200, "{}"));
        try {
            stream(config);
        } catch (const CoachLLMError&) {
        }
        auto requests = m_server.requests();
        ASSERT_EQ(requests.size(), 2u);
        EXPECT_EQ(requests[1].target, requests[0].target);
        EXPECT_EQ(requests[1].body, requests[0].body);
        EXPECT_EQ(requests[1].headers.size(), requests[0].headers.size());
    }
}

TEST_F(LLMClientStreamingTest, EveryFormatKeepsTheTextTheWholeReplyReaderKeeps) {
    const std::vector<std::pair<Provider, std::string>> whole = {
        {Provider::openai,
         json{{"choices", {{{"message", {{"role", "assistant"}, {"content", kReply}}}}}}}.dump()},
        {Provider::anthropic,
         json{{"content",
               {{{"type", "thinking"}, {"thinking", "hmm"}}, {{"type", "text"}, {"text", kReply}}}}}
             .dump()},
        {Provider::gemini,
         json{{"candidates",
               {{{"content",
                  {{"parts", {{{"text", "thinking"}, {"thought", true}}, {{"text", kReply}}}}}}}}}}
             .dump()},
        {Provider::local, json{{"message", {{"content", kReply}}}, {"done", true}}.dump()}};
    const auto all = formats();
    for (std::size_t i = 0; i < all.size(); ++i) {
        const CoachConfig config = configFor(all[i].provider, all[i].path);
        m_server.enqueue(ScriptedResponse::json(200, whole[i].second));
        const std::string kept = m_client.complete(kChat, config, std::nullopt, {});
        m_server.enqueue(streamed({all[i].stream}, all[i].contentType));
        std::vector<std::string> deltas;
        EXPECT_EQ(stream(config, &deltas).text, kept) << rawValue(all[i].provider);
        EXPECT_EQ(deltas, pieces()) << rawValue(all[i].provider);
    }
}

TEST_F(LLMClientStreamingTest, AReadBoundaryAtEveryBytePositionGivesTheSameText) {
    for (const auto& format : formats()) {
        const CoachConfig config = configFor(format.provider, format.path);
        for (std::size_t cut = 1; cut < format.stream.size(); ++cut) {
            // The pause makes the two halves two reads on the client's side.
            ScriptedResponse response = streamed(
                {format.stream.substr(0, cut), format.stream.substr(cut)}, format.contentType);
            response.delayBetweenChunks = 1ms;
            m_server.enqueue(std::move(response));
            std::vector<std::string> deltas;
            ASSERT_EQ(stream(config, &deltas).text, kReply)
                << rawValue(format.provider) << " " << cut;
            std::string joined;
            for (const auto& delta : deltas) joined += delta;
            ASSERT_EQ(joined, kReply);
        }
    }
}

TEST_F(LLMClientStreamingTest, AnErrorAfterSomeTextIsAServerErrorWithTheProvidersMessage) {
    m_server.enqueue(streamed({openAIStream({"Hel"}, false) +
                               "data: {\"error\":{\"message\":\"The server had an error\","
                               "\"type\":\"server_error\"}}\n\n"}));
    m_server.enqueue(streamed({anthropicStream({"Hel"}).substr(0, 400),
                               "\n\nevent: error\ndata: {\"type\":\"error\",\"error\":{\"type\":"
                               "\"overloaded_error\",\"message\":\"Overloaded\"}}\n\n"}));
    m_server.enqueue(streamed({geminiStream({"Hel", "lo"}).substr(0, 60),
                               "\n\ndata: {\"error\":{\"code\":503,\"message\":\"The model is "
                               "overloaded.\",\"status\":\"UNAVAILABLE\"}}\n\n"}));
    m_server.enqueue(
        streamed({ollamaStream({"Hel"}, false) +
                  "{\"error\":\"an error was encountered while running the model\"}\n"},
                 "application/x-ndjson"));
    const std::vector<std::string> expected = {"The server had an error", "Overloaded",
                                               "The model is overloaded.",
                                               "an error was encountered while running the model"};
    const auto all = formats();
    for (std::size_t i = 0; i < all.size(); ++i) {
        std::string message;
        EXPECT_EQ(failureKind(configFor(all[i].provider, all[i].path), &message),
                  CoachLLMError::Kind::serverError);
        EXPECT_EQ(message, expected[i]);
    }
}

TEST_F(LLMClientStreamingTest, AStatusBeforeTheStreamFailsWithTodaysTexts) {
    const CoachConfig config = configFor(Provider::openai, "/v1/chat/completions");
    for (int round = 0; round < 2; ++round) {
        m_server.enqueue(ScriptedResponse::json(500, R"({"error":{"message":"boom"}})"));
        // A rate limit is tried again: the same reply to the request and its 3 retries.
        for (int i = 0; i < 4; ++i) {
            m_server.enqueue(ScriptedResponse::json(429, R"({"error":{"message":"slow down"}})"));
        }
    }
    std::vector<std::string> whole, streamedTexts;
    for (int i = 0; i < 2; ++i) {
        try {
            m_client.complete(kChat, config, std::nullopt, {});
        } catch (const CoachLLMError& error) {
            whole.emplace_back(error.what());
        }
    }
    for (int i = 0; i < 2; ++i) {
        try {
            stream(config);
        } catch (const CoachLLMError& error) {
            streamedTexts.emplace_back(error.what());
        }
    }
    ASSERT_EQ(whole.size(), 2u);
    EXPECT_EQ(streamedTexts, whole);
    EXPECT_EQ(whole[0], R"(HTTP 500: {"error":{"message":"boom"}})");
    EXPECT_EQ(whole[1], CoachLLMError::rateLimited().what());
    EXPECT_EQ(m_server.requestCount(), 10u);
}

TEST_F(LLMClientStreamingTest, AStreamCutOffMidLineKeepsTheTextSoFar) {
    const std::string full = openAIStream(pieces());
    const std::size_t cut = full.find("\"Export") + 3;
    ScriptedResponse response = streamed({full.substr(0, cut)});
    response.contentLength = full.size();
    response.ending = ScriptedResponse::Ending::closeConnection;
    response.keepAlive = false;
    m_server.enqueue(response);
    EXPECT_EQ(stream(configFor(Provider::openai, "/v1/chat/completions")).text,
              "Gr\u00fc\u00dfe \u2014 open **File** \xF0\x9F\x93\x81, then ");
}

TEST_F(LLMClientStreamingTest, AStreamEndingWithoutItsTerminatorKeepsItsTextSilently) {
    m_server.enqueue(streamed({ollamaStream({"Hal", "f"}, false)}, "application/x-ndjson"));
    EXPECT_EQ(stream(configFor(Provider::local, "/api/chat")).text, "Half");
}

TEST_F(LLMClientStreamingTest, AStreamWithNoTextAndNoTerminatorIsAnInvalidResponse) {
    m_server.enqueue(streamed({openAIStream({}, false)}));
    EXPECT_EQ(failureKind(configFor(Provider::openai, "/v1/chat/completions")),
              CoachLLMError::Kind::invalidResponse);
    ScriptedResponse cut = streamed({"data: {\"choices\":[{\"delta\":{\"content\":\"x"});
    cut.contentLength = 200;
    cut.ending = ScriptedResponse::Ending::closeConnection;
    cut.keepAlive = false;
    m_server.enqueue(cut);
    EXPECT_EQ(failureKind(configFor(Provider::openai, "/v1/chat/completions")),
              CoachLLMError::Kind::invalidResponse);
}

TEST_F(LLMClientStreamingTest, ACustomEndpointThatAnswersWithAWholeReplyIsReadAsOne) {
    m_server.enqueue(ScriptedResponse::json(
        200, json{{"choices", {{{"message", {{"content", kReply}}}}}}}.dump()));
    std::vector<std::string> deltas;
    EXPECT_EQ(stream(configFor(Provider::custom, "/v1/chat/completions"), &deltas).text, kReply);
    EXPECT_TRUE(deltas.empty());
}

TEST_F(LLMClientStreamingTest, DeltasArriveBeforeTheStreamEnds) {
    ScriptedResponse response =
        streamed({openAIChunk("first "), openAIChunk("second"), "data: [DONE]\n\n"});
    response.delayBetweenChunks = 1500ms;
    m_server.enqueue(response);
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::chrono::steady_clock::duration> arrivals;
    m_client.stream(
        kChat, configFor(Provider::openai, "/v1/chat/completions"), std::nullopt, {},
        [&](std::string_view) { arrivals.push_back(std::chrono::steady_clock::now() - start); });
    ASSERT_EQ(arrivals.size(), 2u);
    // The first piece is handed on well before the second is even sent.
    EXPECT_LT(arrivals[0], arrivals[1] - 1s);
}

TEST_F(LLMClientStreamingTest, StoppingAStalledStreamEndsItPromptly) {
    ScriptedResponse stall = streamed({openAIChunk("Hel"), "data: [DONE]\n\n"});
    stall.delayBetweenChunks = 60s;
    m_server.enqueue(stall);
    CancellationToken cancellation;
    std::vector<std::string> deltas;
    // Stop once the first piece has arrived and the stream waits for the next, however slowly a
    // loaded machine delivers the first.
    std::atomic<bool> firstArrived = false;
    std::atomic<std::int64_t> stoppedAt = 0;
    std::thread stopper([&] {
        while (!firstArrived) std::this_thread::sleep_for(5ms);
        std::this_thread::sleep_for(100ms);
        stoppedAt = std::chrono::steady_clock::now().time_since_epoch().count();
        cancellation.requestStop();
    });
    EXPECT_THROW(m_client.stream(kChat, configFor(Provider::openai, "/v1/chat/completions"),
                                 std::nullopt, cancellation,
                                 [&](std::string_view delta) {
                                     deltas.emplace_back(delta);
                                     firstArrived = true;
                                 }),
                 CancelledError);
    const auto ended = std::chrono::steady_clock::now().time_since_epoch().count();
    firstArrived = true;  // lets the stopper end should the stream have failed before any piece
    stopper.join();
    const auto took = std::chrono::steady_clock::duration(ended - stoppedAt);
    EXPECT_EQ(deltas, std::vector<std::string>{"Hel"});
    // The next piece is a minute away: only the stop can end the stream this soon.
    EXPECT_LT(took, 3s);
}

TEST_F(LLMClientStreamingTest, AOneMegabyteReplyArrivesWhole) {
    std::vector<std::string> chunks;
    std::string expected;
    std::string piece;
    for (int i = 0; i < 10; ++i) piece += "\u00e9t\u00e9 \xF0\x9F\x8C\x9E stream ";  // 180 bytes
    std::string body;
    for (int i = 0; i < 6'000; ++i) {
        expected += piece;
        body += openAIChunk(piece);
        if (body.size() > 16'000) chunks.push_back(std::exchange(body, {}));
    }
    chunks.push_back(body + "data: [DONE]\n\n");
    m_server.enqueue(streamed(std::move(chunks)));
    ASSERT_GT(expected.size(), 1'000'000u);
    EXPECT_EQ(stream(configFor(Provider::openai, "/v1/chat/completions")).text, expected);
}

TEST_F(LLMClientStreamingTest, AStreamPastTheSizeLimitFailsInsteadOfKeepingWhatArrived) {
    // 34 MB of text in 64 KB pieces: over the kit's 32 MB however the stream is framed.
    const std::string piece(64 << 10, 'x');
    std::vector<std::string> chunks;
    for (int i = 0; i < 544; ++i) chunks.push_back(openAIChunk(piece));
    chunks.emplace_back("data: [DONE]\n\n");
    m_server.enqueue(streamed(std::move(chunks)));
    std::size_t handedOn = 0;
    try {
        m_client.stream(kChat, configFor(Provider::openai, "/v1/chat/completions"), std::nullopt,
                        {}, [&](std::string_view delta) { handedOn += delta.size(); });
        ADD_FAILURE() << "stream() kept a reply over the size limit";
    } catch (const TransportError& error) {
        EXPECT_STREQ(error.what(), "The AI response was too large.");
    }
    // The pieces before the limit were shown as they came; none past it.
    EXPECT_GT(handedOn, 0u);
    EXPECT_LE(handedOn, std::size_t{32} << 20);
}
