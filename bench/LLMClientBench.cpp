// The client-side cost of one model request: sequential LLMClient::complete calls against the
// loopback server with a 4 KB conversation. Each iteration's time is the whole call minus the
// server's own time for that exchange, so what remains is request building, the transport, the
// loopback hop and reply parsing. Reported per provider: the median of those times and the number
// of connections the server accepted (one means every request reused the first connection).
#include <sagely/LLMClient.h>

#include "support/LoopbackHttpServer.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

using namespace sagely;
using sagely::testing::LoopbackHttpServer;
using sagely::testing::ScriptedResponse;

namespace {

// About 4 KB of text in a system prompt and six turns.
std::vector<LLMMessage> conversation() {
    std::string guide;
    while (guide.size() < 2000) guide += "Open the File menu and choose Export to save a copy. ";
    std::vector<LLMMessage> messages = {{"system", "You are the in-app coach.\n\n" + guide}};
    for (int turn = 0; turn < 3; ++turn) {
        messages.push_back({"user", std::string(300, 'q') + " How do I export to PDF?"});
        messages.push_back(
            {"assistant", "Step 1: Open File.\nStep 2: Choose Export.\n" + std::string(300, 'a')});
    }
    return messages;
}

ScriptedResponse replyFor(Provider provider) {
    switch (provider) {
        case Provider::anthropic:
            return ScriptedResponse::json(
                200,
                R"({"type":"message","content":[{"type":"text","text":"Step 1: Open File."}]})");
        case Provider::gemini:
            return ScriptedResponse::json(
                200, R"({"candidates":[{"content":{"parts":[{"text":"Step 1: Open File."}]}}]})");
        case Provider::local:
            return ScriptedResponse::json(200, R"({"message":{"content":"Step 1: Open File."}})");
        default:
            return ScriptedResponse::json(
                200, R"({"choices":[{"message":{"content":"Step 1: Open File."}}]})");
    }
}

void completeSequentially(benchmark::State& state) {
    const auto provider = static_cast<Provider>(state.range(0));
    LoopbackHttpServer server;
    server.setFallbackResponse(replyFor(provider));
    CoachConfig config;
    config.provider = provider;
    config.apiKey = "sk-benchmark";
    config.customEndpoint = server.url("/v1/chat");
    const std::vector<LLMMessage> messages = conversation();
    LLMClient client;
    client.complete(messages, config, std::nullopt, {});  // connect once before measuring
    const double requestBytes = static_cast<double>(server.requests().front().body.size());

    std::vector<double> clientMicros;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        std::string reply = client.complete(messages, config, std::nullopt, {});
        const auto total = std::chrono::steady_clock::now() - start;
        benchmark::DoNotOptimize(reply);
        const auto clientSide = total - server.lastServerTime();
        const double seconds = std::chrono::duration<double>(clientSide).count();
        state.SetIterationTime(seconds);
        clientMicros.push_back(seconds * 1e6);
        if (clientMicros.size() % 256 == 0) server.clearRequests();
    }
    std::sort(clientMicros.begin(), clientMicros.end());
    state.counters["median_client_us"] =
        clientMicros.empty() ? 0 : clientMicros[clientMicros.size() / 2];
    state.counters["connections"] = static_cast<double>(server.acceptedConnections());
    state.counters["request_bytes"] = requestBytes;
    state.SetLabel(std::string(rawValue(provider)));
}

}  // namespace

BENCHMARK(completeSequentially)
    ->Arg(static_cast<int>(Provider::openai))
    ->Arg(static_cast<int>(Provider::anthropic))
    ->Arg(static_cast<int>(Provider::gemini))
    ->Arg(static_cast<int>(Provider::local))
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
