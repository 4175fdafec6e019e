// Reply formatting on a 4 KB model reply: the repair and the step parsing each run once per
// reply and render, so each should stay well under a frame (goal: 200 µs each).
#include <sagely/CoachMessageFormatting.h>

#include <benchmark/benchmark.h>

#include <string>

namespace {

// A loosely formatted reply of about 4 KB: glued steps, inline numbered items, glued actions.
std::string fourKilobyteReply() {
    std::string reply = "Here is how to export your project with page numbers.";
    for (int step = 1; reply.size() < 4000; ++step) {
        reply += "Step " + std::to_string(step) + ":";
        reply += step % 2 ? "Open the File menu" : " **Choose Export**";
        reply += "\nSelect PDF as the format.Click Options to see more.";
        reply += " Make sure you:1. enable page numbers 2. keep the margins.";
        reply += "Toggle Include Comments if needed!Press Export to finish.\n";
        reply += "## \n- Verify the file opened in Preview.\n";
    }
    return reply;
}

void normalizeFourKilobyteReply(benchmark::State& state) {
    const std::string reply = fourKilobyteReply();
    for (auto _ : state) benchmark::DoNotOptimize(sagely::CoachMessageFormatting::normalize(reply));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * reply.size()));
    state.counters["reply_bytes"] = static_cast<double>(reply.size());
}
BENCHMARK(normalizeFourKilobyteReply)->Unit(benchmark::kMicrosecond);

void parseProceduralContentOfFourKilobyteReply(benchmark::State& state) {
    const std::string reply = fourKilobyteReply();
    std::size_t steps = 0;
    for (auto _ : state) {
        auto content = sagely::CoachMessageFormatting::parseProceduralContent(reply);
        steps = content ? content->steps.size() : 0;
        benchmark::DoNotOptimize(content);
    }
    state.counters["steps"] = static_cast<double>(steps);
}
BENCHMARK(parseProceduralContentOfFourKilobyteReply)->Unit(benchmark::kMicrosecond);

void cleanDisplayMarkdownOfATitle(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(
            sagely::CoachMessageFormatting::cleanDisplayMarkdown("## **Open the File menu**"));
}
BENCHMARK(cleanDisplayMarkdownOfATitle)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
