// The coach's own cost per question: from sendAndReturnReply to the completion, minus the time
// the loopback server spent on the exchange, with a 1 MB guide, a 500-message conversation and a
// server that answers at once (saving off), and the cost of a whole-list save beside it.
//
// BM_MainThreadCostOfAQuestion is what a GUI host feels, with saving on: the main thread's own
// CPU time for a question, from sendAndReturnReply to the completion (the save it asks for
// included, the writer's thread not), with a 20 MB history (500 messages in the current
// conversation and 99 other conversations) against a 10-message history, asked in turn in one
// run. `ratio` should stay near 1: the main thread pays for the conversation, not the history.
#include "support/FakeLLMService.h"
#include "support/LoopbackHttpServer.h"
#include "support/TemporaryDirectory.h"

#include <sagely/AICoach.h>
#include <sagely/CoachConversation.h>
#include <sagely/ConversationFile.h>
#include <sagely/LLMClient.h>
#include <sagely/MainExecutor.h>
#include <sagely/SecretStore.h>
#include <sagely/StaticCoachContextProvider.h>

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <time.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace sagely;
using Clock = std::chrono::steady_clock;

const std::vector<std::string> kWords = {
    "notebook", "share",  "export",   "sync",     "shortcut", "palette",  "template", "folder",
    "search",   "backup", "settings", "provider", "speech",   "teaching", "window",   "toolbar"};

std::string word(std::size_t i) {
    return kWords[(i * 7 + i / 3) % kWords.size()];
}

// About 1 MB of Markdown: 2,000 level-two sections of some 500 characters each.
std::string makeGuide() {
    std::string guide;
    for (std::size_t section = 0; section < 2000; ++section) {
        guide += "## " + word(section) + " topic " + std::to_string(section) + "\n";
        for (std::size_t i = 0; guide.size() < (section + 1) * 520; ++i) {
            guide += word(section + i) + (i % 12 == 11 ? ".\n" : " ");
        }
        guide += "\n\n";
    }
    return guide;
}

// One conversation of mixed-length messages (500: some 200 kB).
CoachConversation makeConversation(std::size_t messages = 500) {
    CoachConversation conversation("A long conversation");
    for (std::size_t i = 0; i < messages; ++i) {
        std::string content;
        for (std::size_t w = 0; w < 10 + (i * 13) % 60; ++w) content += word(i + w) + " ";
        const auto role = i % 2 ? CoachMessage::Role::assistant : CoachMessage::Role::user;
        conversation.append(CoachMessage(role, content));
    }
    return conversation;
}

std::string openAIReply(const std::string& text) {
    return nlohmann::json{{"choices", {{{"message", {{"role", "assistant"}, {"content", text}}}}}}}
        .dump();
}

double median(std::vector<double> samples) {
    if (samples.empty()) return 0;
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

/// Settings on the storage folder with OpenAI chosen and a key.
std::unique_ptr<CoachSettingsStore> openAISettings(const std::filesystem::path& storage) {
    CoachSettingsStore::Options options;
    options.secretStore = std::make_shared<InMemorySecretStore>();
    options.storageRoot = storage;
    auto settings = std::make_unique<CoachSettingsStore>("com.brindlewood.sagely.bench",
                                                         "coach-api-key", options);
    settings->selectProvider(CoachConfig::Provider::openai);
    settings->apiKey.set("sk-bench");
    return settings;
}

/// A coach on a temporary storage folder, talking to a loopback server that answers at once.
struct CoachSetup {
    CoachSetup() {
        settings = openAISettings(storage.path());
        settings->customEndpoint.set(server.url("/v1/chat/completions"));
        server.setFallbackResponse(
            sagely::testing::ScriptedResponse::json(200, openAIReply("A short answer.")));
        ConversationFile::save(settings->conversationURL("bench"), {makeConversation()});
        reloadCoach();
    }

    /// A fresh coach on the saved 500-message conversation, so every question meets the same
    /// history (the replies would otherwise wear the long messages away).
    void reloadCoach() {
        coach.reset();
        AICoach::setConversationPersistenceAllowed({});
        coach = std::make_unique<AICoach>(executor, guide, settings.get(), "bench",
                                          CoachLocalActionResolver{}, true, service);
        AICoach::setConversationPersistenceAllowed([] { return false; });
    }

    /// Asks once; returns the coach's own time (total minus the server's).
    double ask(const std::string& question) {
        bool answered = false;
        const auto start = Clock::now();
        coach->sendAndReturnReply(question, [&](std::optional<CoachMessage>) { answered = true; });
        executor->runUntil([&] { return answered; }, std::chrono::seconds(30));
        const auto total = Clock::now() - start;
        return std::chrono::duration<double>(total - server.lastServerTime()).count();
    }

    sagely::testing::TemporaryDirectory storage;
    sagely::testing::LoopbackHttpServer server;
    std::shared_ptr<ManualExecutor> executor = std::make_shared<ManualExecutor>();
    std::unique_ptr<CoachSettingsStore> settings;
    std::shared_ptr<StaticCoachContextProvider> guide =
        std::make_shared<StaticCoachContextProvider>("Bench", "Three notebooks are open.",
                                                     makeGuide());
    std::shared_ptr<LLMService> service = std::make_shared<LLMClient>();
    std::unique_ptr<AICoach> coach;
};

const std::vector<std::string> kQuestions = {
    "How do I export a notebook?", "How do I set up speech?", "Where are the sync settings?",
    "Can I change the toolbar shortcut?"};

void BM_CoachCostPerQuestion(benchmark::State& state) {
    CoachSetup setup;
    setup.ask("Warm up the connection.");
    std::vector<double> samples;
    std::size_t i = 0;
    for (auto _ : state) {
        setup.reloadCoach();  // not timed: manual time counts only the question
        const double seconds = setup.ask(kQuestions[i++ % kQuestions.size()]);
        samples.push_back(seconds);
        state.SetIterationTime(seconds);
    }
    AICoach::setConversationPersistenceAllowed({});
    const auto& messages = setup.coach->currentConversation().get()->messages();
    state.counters["median_ms"] = median(samples) * 1e3;
    state.counters["messages"] = static_cast<double>(messages.size());
    state.counters["connections"] = static_cast<double>(setup.server.acceptedConnections());
    state.counters["request_kB"] =
        static_cast<double>(setup.server.requests().back().body.size()) / 1e3;
}
BENCHMARK(BM_CoachCostPerQuestion)->UseManualTime()->Unit(benchmark::kMillisecond);

// The same question with a model service that answers at once in process: the engine, the prompt
// and the hand-offs between threads, without HTTP.
void BM_CoachCostWithoutHttp(benchmark::State& state) {
    CoachSetup setup;
    auto fake = std::make_shared<sagely::testing::FakeLLMService>();
    setup.service = fake;
    std::vector<double> samples;
    std::size_t i = 0;
    for (auto _ : state) {
        setup.reloadCoach();
        fake->enqueueReply("A short answer.");
        const auto start = Clock::now();
        bool answered = false;
        setup.coach->sendAndReturnReply(kQuestions[i++ % kQuestions.size()],
                                        [&](std::optional<CoachMessage>) { answered = true; });
        setup.executor->runUntil([&] { return answered; }, std::chrono::seconds(30));
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        samples.push_back(seconds);
        state.SetIterationTime(seconds);
    }
    AICoach::setConversationPersistenceAllowed({});
    state.counters["median_ms"] = median(samples) * 1e3;
}
BENCHMARK(BM_CoachCostWithoutHttp)->UseManualTime()->Unit(benchmark::kMillisecond);

// What each question adds after the reply: the whole conversation list written to disk.
void BM_SaveAfterReply(benchmark::State& state) {
    CoachSetup setup;
    AICoach::setConversationPersistenceAllowed({});
    const auto conversations = setup.coach->conversations().get();
    const auto file = setup.settings->conversationURL("bench");
    std::vector<double> samples;
    for (auto _ : state) {
        const auto start = Clock::now();
        ConversationFile::save(file, conversations);
        samples.push_back(std::chrono::duration<double>(Clock::now() - start).count());
    }
    state.counters["median_ms"] = median(samples) * 1e3;
    state.counters["file_kB"] = static_cast<double>(std::filesystem::file_size(file)) / 1e3;
}
BENCHMARK(BM_SaveAfterReply)->Unit(benchmark::kMillisecond);

double threadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// A coach with saving on over a saved history, answered at once by an in-process model.
struct SavingCoach {
    SavingCoach(std::vector<CoachConversation> history,
                std::shared_ptr<StaticCoachContextProvider> guide) {
        settings = openAISettings(storage.path());
        restart(history, std::move(guide));
    }

    /// A new coach on the history saved afresh.
    void restart(const std::vector<CoachConversation>& history,
                 std::shared_ptr<StaticCoachContextProvider> guide) {
        coach.reset();
        ConversationFile::save(settings->conversationURL("bench"), history);
        fileBytes = std::filesystem::file_size(settings->conversationURL("bench"));
        coach = std::make_unique<AICoach>(executor, std::move(guide), settings.get(), "bench",
                                          CoachLocalActionResolver{}, true, model);
    }

    /// Asks once; returns the main thread's CPU seconds for it. The save is waited for after.
    double ask(const std::string& question) {
        model->enqueueReply("A short answer.");
        bool answered = false;
        const double start = threadSeconds();
        coach->sendAndReturnReply(question, [&](std::optional<CoachMessage>) { answered = true; });
        executor->runUntil([&] { return answered; }, std::chrono::seconds(30));
        const double spent = threadSeconds() - start;
        coach->waitForPendingSaves();  // not counted: the writer's work, waited for so that the
        executor->runFor(std::chrono::milliseconds(0));  // next question meets an idle disk
        return spent;
    }

    sagely::testing::TemporaryDirectory storage;
    std::shared_ptr<ManualExecutor> executor = std::make_shared<ManualExecutor>();
    std::unique_ptr<CoachSettingsStore> settings;
    std::shared_ptr<sagely::testing::FakeLLMService> model =
        std::make_shared<sagely::testing::FakeLLMService>();
    std::unique_ptr<AICoach> coach;
    std::uintmax_t fileBytes = 0;
};

void BM_MainThreadCostOfAQuestion(benchmark::State& state) {
    AICoach::setConversationPersistenceAllowed({});
    auto guide = std::make_shared<StaticCoachContextProvider>("Bench", "Three notebooks are open.",
                                                              makeGuide());
    std::vector<CoachConversation> large;
    large.push_back(makeConversation());
    for (int i = 0; i < 99; ++i) large.push_back(makeConversation());
    const std::vector<CoachConversation> tenMessages = {makeConversation(10)};
    SavingCoach small(tenMessages, guide);
    SavingCoach big(std::move(large), guide);
    small.ask("Warm up.");
    big.ask("Warm up.");
    std::vector<double> smallSamples, bigSamples;
    std::size_t i = 0;
    for (auto _ : state) {
        const std::string& question = kQuestions[i++ % kQuestions.size()];
        small.restart(tenMessages, guide);  // each question meets ten messages
        smallSamples.push_back(small.ask(question));
        const double seconds = big.ask(question);
        bigSamples.push_back(seconds);
        state.SetIterationTime(seconds);
    }
    state.counters["history_MB"] = static_cast<double>(big.fileBytes) / 1e6;
    state.counters["small_ms"] = median(smallSamples) * 1e3;
    state.counters["large_ms"] = median(bigSamples) * 1e3;
    state.counters["ratio"] = median(bigSamples) / median(smallSamples);
}
BENCHMARK(BM_MainThreadCostOfAQuestion)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(40);

}  // namespace

BENCHMARK_MAIN();
