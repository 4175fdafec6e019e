// What a host action call costs the kit: a question the model answers at once, against the same
// question where the model first calls a read-only action, both through the coach with the real
// client and a loopback server that answers instantly (OpenAI format, whole replies). The
// difference between the two is the round trip one call adds: the reply's calls read, the
// arguments checked against the schema, the handler run on the main thread, the round stored,
// and the second request built, sent and read.
//
// The same two questions on the on-device model (a fake framework that answers at once): there
// the call's round trip is the waiting response handing the call out, the coach deciding it,
// and the result handed back into the same response.
#include "support/CoachHarness.h"
#include "support/FakeOnDeviceModel.h"
#include "support/LoopbackHttpServer.h"

#include <sagely/AICoach.h>
#include <sagely/CoachHostAction.h>
#include <sagely/LLMClient.h>
#include <sagely/OperatingSystem.h>

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

using namespace sagely;
using nlohmann::json;
using sagely::testing::CoachHarness;
using sagely::testing::FakeOnDeviceModel;
using sagely::testing::LoopbackHttpServer;
using sagely::testing::ScriptedResponse;

namespace {

class Context : public CoachContextProvider {
public:
    std::string configurationSummary() override { return "Palette: light."; }
    std::string manualText() override { return "## Palette\nSwitch it in Settings."; }
    std::optional<std::string> shortcutInfo(const std::string&) override { return std::nullopt; }
    std::string recentActivity(int) override { return {}; }
    std::vector<CoachHostAction> hostActions() override {
        return {CoachHostAction(
                    "read_settings", "The app's settings.",
                    json{{"type", "object"}, {"properties", {{"section", {{"type", "string"}}}}}},
                    [](const json&) {
                        return CoachHostActionResult{"palette=light", std::nullopt, false};
                    })
                    .setReadOnly()};
    }
};

const std::string kCall =
    json{{"choices",
          {{{"message",
             {{"role", "assistant"},
              {"content", nullptr},
              {"tool_calls",
               {{{"id", "call_1"},
                 {"type", "function"},
                 {"function",
                  {{"name", "read_settings"}, {"arguments", "{\"section\":\"look\"}"}}}}}}}}}}}}
        .dump();
const std::string kAnswer =
    json{{"choices", {{{"message", {{"role", "assistant"}, {"content", "It is light."}}}}}}}.dump();

void question(benchmark::State& state) {
    const bool withCall = state.range(0) == 1;
    LoopbackHttpServer server;
    CoachHarness harness;
    harness.useProvider(CoachConfig::Provider::openai, "sk-bench",
                        server.url("/v1/chat/completions"));
    auto coach = harness.makeCoach(
        {.contextProvider = std::make_shared<Context>(), .llm = std::make_shared<LLMClient>()});
    for (auto _ : state) {
        state.PauseTiming();
        // One conversation at a time, so the list (and its saves) stays the same size.
        if (auto current = coach->currentConversation().get()) coach->deleteConversation(*current);
        coach->newConversation();
        if (withCall) server.enqueue(ScriptedResponse::json(200, kCall));
        server.enqueue(ScriptedResponse::json(200, kAnswer));
        state.ResumeTiming();
        auto recorder = harness.ask(*coach, "Which palette do I use?");
        if (!harness.runUntilAnswered(*recorder) || !recorder->reply) {
            state.SkipWithError("no answer");
            break;
        }
    }
    state.SetLabel(withCall ? "one read-only call, then the answer" : "the answer at once");
}

void onDeviceQuestion(benchmark::State& state) {
    const bool withCall = state.range(0) == 1;
    ScopedOperatingSystemOverride macOS26(OperatingSystemVersion{true, 26, 0, 0});
    auto model = std::make_shared<FakeOnDeviceModel>();
    CoachHarness harness;
    harness.useProvider(CoachConfig::Provider::apple);
    auto coach = harness.makeCoach({.contextProvider = std::make_shared<Context>(),
                                    .llm = std::make_shared<LLMClient>(model)});
    for (auto _ : state) {
        state.PauseTiming();
        if (auto current = coach->currentConversation().get()) coach->deleteConversation(*current);
        coach->newConversation();
        FakeOnDeviceModel::Answer answer = FakeOnDeviceModel::reply("It is light.");
        if (withCall) answer.toolRounds = {{{"read_settings", "{\"section\":\"look\"}"}}};
        model->enqueue(answer);
        state.ResumeTiming();
        auto recorder = harness.ask(*coach, "Which palette do I use?");
        if (!harness.runUntilAnswered(*recorder) || !recorder->reply) {
            state.SkipWithError("no answer");
            break;
        }
    }
    state.SetLabel(withCall ? "on-device: one read-only call, then the answer"
                            : "on-device: the answer at once");
}

}  // namespace

BENCHMARK(question)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(onDeviceQuestion)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond)->UseRealTime();

BENCHMARK_MAIN();
