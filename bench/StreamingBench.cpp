// Streamed replies, client side. Two figures:
// - BM_DeltaToPartialReply: for each delta, the time from the server handing its chunk to the
//   loopback socket to the engine publishing partial text that holds it (the engine coalesces
//   to one update per ~30 ms, which this includes); median and p99 over 200 deltas 5 ms apart.
// - BM_ClientCpuPer1000Deltas: CPU time of the requesting thread (transport, framing, JSON,
//   delta hand-off) for a reply of 1,000 deltas.
#include <sagely/AICoach.h>
#include <sagely/CoachSettingsStore.h>
#include <sagely/LLMClient.h>
#include <sagely/MainExecutor.h>
#include <sagely/SecretStore.h>
#include <sagely/StaticCoachContextProvider.h>

#include "support/LoopbackHttpServer.h"
#include "support/TemporaryDirectory.h"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <vector>

using namespace sagely;
using sagely::testing::LoopbackHttpServer;
using sagely::testing::ScriptedResponse;
using Clock = std::chrono::steady_clock;

namespace {

// Each delta is "<i> " so the published text tells which deltas it holds.
std::string deltaText(std::size_t i) {
    return std::to_string(i) + " ";
}

void BM_DeltaToPartialReply(benchmark::State& state) {
    constexpr std::size_t kDeltas = 200;
    for (auto _ : state) {
        LoopbackHttpServer server;
        std::mutex mutex;
        std::vector<Clock::time_point> sent(kDeltas);
        ScriptedResponse response;
        response.headers = {{"Content-Type", "text/event-stream"}};
        for (std::size_t i = 0; i < kDeltas; ++i)
            response.bodyChunks.push_back(sagely::testing::openAIStreamEvent(deltaText(i)));
        response.bodyChunks.push_back("data: [DONE]\n\n");
        response.delayBetweenChunks = std::chrono::milliseconds(5);
        response.chunkSent = [&](std::size_t i) {
            std::lock_guard lock(mutex);
            if (i < kDeltas) sent[i] = Clock::now();
        };
        server.enqueue(response);

        sagely::testing::TemporaryDirectory storage;
        CoachSettingsStore::Options options;
        options.secretStore = std::make_shared<InMemorySecretStore>();
        options.storageRoot = storage.path();
        options.settingsInMemory = true;
        CoachSettingsStore settings("bench", "bench", options);
        settings.selectProvider(Provider::custom);
        settings.customEndpoint.set(server.url("/v1/chat/completions"));
        auto executor = std::make_shared<ManualExecutor>();
        AICoach coach(executor, std::make_shared<StaticCoachContextProvider>("b", "", ""),
                      &settings, "bench");
        std::vector<double> latencies;
        std::size_t seen = 0;
        auto watch = coach.partialReply().onDidChange([&](const std::string& text) {
            const auto now = Clock::now();
            std::size_t count = static_cast<std::size_t>(std::count(text.begin(), text.end(), ' '));
            std::lock_guard lock(mutex);
            for (; seen < count && seen < kDeltas; ++seen)
                latencies.push_back(
                    std::chrono::duration<double, std::milli>(now - sent[seen]).count());
        });
        bool done = false;
        coach.sendAndReturnReply("Go", [&](std::optional<CoachMessage>) { done = true; });
        executor->runUntil([&] { return done; }, std::chrono::seconds(60));
        std::sort(latencies.begin(), latencies.end());
        if (latencies.empty()) {
            state.SkipWithError("no partial text was published");
            return;
        }
        state.counters["median_ms"] = latencies[latencies.size() / 2];
        state.counters["p99_ms"] = latencies[latencies.size() * 99 / 100];
        state.counters["deltas_seen"] = double(latencies.size());
    }
}
BENCHMARK(BM_DeltaToPartialReply)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_ClientCpuPer1000Deltas(benchmark::State& state) {
    LoopbackHttpServer server;
    ScriptedResponse response;
    response.headers = {{"Content-Type", "text/event-stream"}};
    std::string body;
    for (std::size_t i = 0; i < 1000; ++i)
        body += sagely::testing::openAIStreamEvent("word" + std::to_string(i) + " ");
    body += "data: [DONE]\n\n";
    for (std::size_t at = 0; at < body.size(); at += 4096)
        response.bodyChunks.push_back(body.substr(at, 4096));
    server.setFallbackResponse(response);
    CoachConfig config;
    config.provider = Provider::custom;
    config.customEndpoint = server.url("/v1/chat/completions");
    LLMClient client;
    const std::vector<LLMMessage> messages = {{"user", "Go"}};
    std::size_t deltas = 0;
    for (auto _ : state) {
        deltas = 0;
        auto reply =
            client.stream(messages, config, std::nullopt, {}, [&](std::string_view) { ++deltas; });
        benchmark::DoNotOptimize(reply);
    }
    state.counters["deltas"] = double(deltas);
}
BENCHMARK(BM_ClientCpuPer1000Deltas)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
