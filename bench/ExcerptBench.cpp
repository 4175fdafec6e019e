// Guide excerpts and system prompts over a 1 MB guide of 2,000 sections. Goals: the excerpt in
// 2 ms and the whole system prompt (24,000-character excerpt) in 3 ms, median.
#include <sagely/CoachPromptBudget.h>
#include <sagely/CoachSystemPrompt.h>
#include <sagely/StaticCoachContextProvider.h>

#include <benchmark/benchmark.h>

#include <array>
#include <string>

namespace {

std::string sectionBody(int index) {
    static const std::array<const char*, 8> sentences = {
        "Open the Library panel and choose the collection you want to work with. ",
        "Shortcuts can be changed in Settings under Keyboard, one command at a time. ",
        "Exports keep the page size of the document unless you pick another one. ",
        "Speech input needs microphone permission the first time you use it. ",
        "Sync runs in the background and resumes after the network comes back. ",
        "Templates copy the styles, the layout and the sample text of a page. ",
        "The inspector shows the properties of the selection and lets you edit them. ",
        "Undo history is kept per document until the document is closed. "};
    std::string body;
    for (int i = 0; body.size() < 460; ++i) body += sentences[(index + i) % sentences.size()];
    return body;
}

// About 1 MB: 2,000 sections of about 500 bytes under level-two and level-three headings.
const std::string& oneMegabyteGuide() {
    static const std::string guide = [] {
        std::string text = "# Product Manual\nWelcome to the manual.\n";
        for (int i = 0; i < 2000; ++i) {
            text += (i % 5 ? "### Topic " : "## Chapter ") + std::to_string(i) +
                    (i == 1200 ? " Set Up Speech" : "") + "\n" + sectionBody(i) + "\n\n";
        }
        return text;
    }();
    return guide;
}

constexpr const char* kQuery = "How do I set up speech input with my microphone?";

void relevantManualExcerptOfOneMegabyteGuide(benchmark::State& state) {
    const std::string& guide = oneMegabyteGuide();
    const auto limit = static_cast<std::size_t>(state.range(0));
    std::size_t length = 0;
    for (auto _ : state) {
        std::string excerpt =
            sagely::CoachPromptBudget::relevantManualExcerpt(guide, kQuery, limit);
        length = excerpt.size();
        benchmark::DoNotOptimize(excerpt);
    }
    state.counters["guide_bytes"] = static_cast<double>(guide.size());
    state.counters["excerpt_bytes"] = static_cast<double>(length);
}
BENCHMARK(relevantManualExcerptOfOneMegabyteGuide)
    ->Arg(1500)
    ->Arg(24000)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

void systemPromptWithOneMegabyteGuide(benchmark::State& state) {
    sagely::StaticCoachContextProvider context("Tessel Pro", "Theme: dark", oneMegabyteGuide());
    std::size_t length = 0;
    for (auto _ : state) {
        std::string prompt =
            sagely::buildCoachSystemPrompt(sagely::CoachConfig::Provider::openai, kQuery,
                                           std::string("Finder is frontmost"), &context);
        length = prompt.size();
        benchmark::DoNotOptimize(prompt);
    }
    state.counters["prompt_bytes"] = static_cast<double>(length);
}
BENCHMARK(systemPromptWithOneMegabyteGuide)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

}  // namespace

BENCHMARK_MAIN();
