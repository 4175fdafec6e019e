// Reply formatting on a 4 KB model reply: the repair and the step parsing each run once per
// reply and render, so each should stay well under a frame (goal: 200 µs each). And on inputs
// made to be slow: 32k digits before a full stop (goal: under 10 ms), 32k spaces between "*",
// and 1 MB of adversarial or random text, which should cost at most 2× 1 MB of plain prose, for
// normalising alone and followed by cleaning.
#include <sagely/CoachMessageFormatting.h>

#include <benchmark/benchmark.h>

#include <random>
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

std::string repeatedTo(std::size_t bytes, const std::string& piece) {
    std::string text;
    while (text.size() < bytes) text += piece;
    return text;
}

constexpr std::size_t kMegabyte = 1 << 20;

// The inputs of the normalising and cleaning benchmarks, by argument.
enum Input { prose, digitsThenStop, spacesBetweenStars, adversarial, random };

std::string input(Input kind, std::size_t bytes) {
    switch (kind) {
        case prose:
            return repeatedTo(bytes,
                              "Open the Library panel and choose the collection you want to work "
                              "with. Shortcuts can be changed in Settings under Keyboard.\n");
        case digitsThenStop:
            return std::string(bytes, '7') + ".";
        case spacesBetweenStars:
            return "*" + std::string(bytes, ' ') + "x*";
        case adversarial:  // long runs of each thing the patterns repeat over, one after another
            return repeatedTo(bytes, std::string(4096, '9') + "." + "*" + std::string(4096, ' ') +
                                         "*" + std::string(512, '#') + "Step " +
                                         std::string(2048, ' ') + "12" + std::string(1024, '\n'));
        case random: {
            static constexpr std::string_view kAlphabet = "Step 1:.*#\n -x9!)ClickOpen\t";
            std::mt19937 generator(15);
            std::string text(bytes, ' ');
            for (char& c : text) c = kAlphabet[generator() % kAlphabet.size()];
            return text;
        }
    }
    return {};
}

// 1 MB of each input, prose first.
void megabyteOfEachInput(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgNames({"input", "bytes"});
    for (Input kind : {prose, digitsThenStop, spacesBetweenStars, adversarial, random})
        benchmark->Args({kind, kMegabyte});
}

// Arguments: the input (see Input) and its size in bytes.
void normalizeInput(benchmark::State& state) {
    const std::string text =
        input(static_cast<Input>(state.range(0)), static_cast<std::size_t>(state.range(1)));
    for (auto _ : state) benchmark::DoNotOptimize(sagely::CoachMessageFormatting::normalize(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(normalizeInput)
    ->Apply(megabyteOfEachInput)
    ->Args({digitsThenStop, 32 * 1024})
    ->Unit(benchmark::kMillisecond);

void cleanDisplayMarkdownOfInput(benchmark::State& state) {
    const std::string text =
        input(static_cast<Input>(state.range(0)), static_cast<std::size_t>(state.range(1)));
    for (auto _ : state)
        benchmark::DoNotOptimize(sagely::CoachMessageFormatting::cleanDisplayMarkdown(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(cleanDisplayMarkdownOfInput)
    ->Apply(megabyteOfEachInput)
    ->Args({spacesBetweenStars, 32 * 1024})
    ->Unit(benchmark::kMillisecond);

// What a view does with a reply: cleaning the normalised text.
void normalizeAndCleanInput(benchmark::State& state) {
    const std::string text =
        input(static_cast<Input>(state.range(0)), static_cast<std::size_t>(state.range(1)));
    for (auto _ : state)
        benchmark::DoNotOptimize(sagely::CoachMessageFormatting::cleanDisplayMarkdown(
            sagely::CoachMessageFormatting::normalize(text)));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(normalizeAndCleanInput)->Apply(megabyteOfEachInput)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
