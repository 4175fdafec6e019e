// Guide excerpts and system prompts over a 1 MB guide of 2,000 sections, in ASCII and with some
// non-ASCII text (as the shipped guide has), for questions of 10, 500 and 4,000 terms (a pasted
// error log). Goals: the excerpt in 2 ms and the whole system prompt (24,000-character excerpt)
// in 3 ms, median; a 4,000-term question at most 3× a 10-term one; the non-ASCII guide at most
// 1.5× the ASCII one.
#include <sagely/CoachPromptBudget.h>
#include <sagely/CoachSystemPrompt.h>
#include <sagely/StaticCoachContextProvider.h>

#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <random>
#include <string>

namespace {

std::string sectionBody(int index, bool ascii) {
    static const std::array<const char*, 8> sentences = {
        "Open the Library panel and choose the collection you want to work with. ",
        "Shortcuts can be changed in Settings under Keyboard, one command at a time. ",
        "Exports keep the page size of the document unless you pick another one. ",
        "Speech input needs microphone permission the first time you use it. ",
        "Sync runs in the background and resumes after the network comes back. ",
        "Templates copy the styles, the layout and the sample text of a page. ",
        "The inspector shows the properties of the selection and lets you edit them. ",
        "Undo history is kept per document until the document is closed. "};
    static const std::array<const char*, 4> accented = {
        "Choose Édition… then Préférences, or press ⌘, to change them. ",
        "Résumé exports keep “smart quotes” and emoji such as 👍🏽 intact. ",
        "Straße, naïve café and Ångström are spelled as you type them. ",
        "Übersicht lists every open document — even the ones on iCloud. "};
    std::string body;
    for (int i = 0; body.size() < 460; ++i) {
        body += sentences[(index + i) % sentences.size()];
        if (!ascii && i % 3 == 0) body += accented[(index + i) % accented.size()];
    }
    return body;
}

// About 1 MB: 2,000 sections of about 500 bytes under level-two and level-three headings.
std::string oneMegabyteGuide(bool ascii) {
    std::string text = "# Product Manual\nWelcome to the manual.\n";
    for (int i = 0; i < 2000; ++i) {
        text += (i % 5 ? "### Topic " : "## Chapter ") + std::to_string(i) +
                (i == 1200 ? " Set Up Speech" : "") + "\n" + sectionBody(i, ascii) + "\n\n";
    }
    return text;
}

const std::string& guide(bool ascii) {
    static const std::string asciiGuide = oneMegabyteGuide(true);
    static const std::string unicodeGuide = oneMegabyteGuide(false);
    return ascii ? asciiGuide : unicodeGuide;
}

constexpr const char* kQuery = "How do I set up speech input with my microphone?";

// A question of about `terms` distinct terms: a short question followed by a pasted log, about
// 11 bytes a term as in a real one: addresses, with words of the guide here and there.
std::string questionOfTerms(std::size_t terms) {
    if (terms <= 10) return "Why does speech input stop after the network comes back online?";
    static const std::array<const char*, 12> words = {
        "network", "document", "template",  "keyboard", "export",    "library",
        "sync",    "speech",   "inspector", "history",  "selection", "microphone"};
    std::mt19937 random(15);
    std::string text = "Why does this fail? Here is the log:\n";
    char address[16];
    for (std::size_t i = 0; i < terms; ++i) {
        std::snprintf(address, sizeof address, "0x%07x", static_cast<unsigned>(random() >> 4));
        text += address;
        text += i % 8 == 7 ? std::string(" ") + words[random() % words.size()] + "\n" : " ";
    }
    return text;
}

void relevantManualExcerptOfOneMegabyteGuide(benchmark::State& state) {
    const std::string& manual = guide(state.range(1) == 0);
    const auto limit = static_cast<std::size_t>(state.range(0));
    std::size_t length = 0;
    for (auto _ : state) {
        std::string excerpt =
            sagely::CoachPromptBudget::relevantManualExcerpt(manual, kQuery, limit);
        length = excerpt.size();
        benchmark::DoNotOptimize(excerpt);
    }
    state.counters["guide_bytes"] = static_cast<double>(manual.size());
    state.counters["excerpt_bytes"] = static_cast<double>(length);
}
// Arguments: the limit, then 0 for the ASCII guide and 1 for the guide with non-ASCII text.
BENCHMARK(relevantManualExcerptOfOneMegabyteGuide)
    ->ArgNames({"limit", "nonascii"})
    ->Args({1500, 0})
    ->Args({1500, 1})
    ->Args({24000, 0})
    ->Args({24000, 1})
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

void excerptForQuestionOfTerms(benchmark::State& state) {
    const std::string& manual = guide(state.range(1) == 0);
    const std::string question = questionOfTerms(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(sagely::CoachPromptBudget::relevantManualExcerpt(
            manual, question, sagely::CoachPromptBudget::cloudManualExcerptCharLimit));
    state.counters["terms"] =
        static_cast<double>(sagely::CoachPromptBudget::queryTerms(question).size());
}
// Arguments: the number of terms, then 0 for the ASCII guide and 1 for the non-ASCII one.
BENCHMARK(excerptForQuestionOfTerms)
    ->ArgNames({"terms", "nonascii"})
    ->Args({10, 0})
    ->Args({10, 1})
    ->Args({500, 0})
    ->Args({500, 1})
    ->Args({4000, 0})
    ->Args({4000, 1})
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

void systemPromptWithOneMegabyteGuide(benchmark::State& state) {
    sagely::StaticCoachContextProvider context("Tessel Pro", "Theme: dark", guide(true));
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
