// Encoding and decoding a whole history of conversations of 500 messages (with some cards and
// lessons), the list the coach writes after every message: 4 conversations (about 1 MB) and 100
// (about 25 MB), the argument of Encode and Decode. Goals on this
// machine: encode in 60 ms, decode in 150 ms, and a decode that needs at most three times the
// file size in memory on top of what was in use before (resident peak, reported as
// decodePeakExtraRatio by the DecodeMemory benchmark, which runs first so earlier runs leave no
// freed memory behind to hide its growth).
#include <sagely/CoachConversation.h>
#include <sagely/CoachLesson.h>

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace sagely;

const std::vector<std::string> kWords = {
    "open",    "the",  "**Library**", "panel",  "and",     "choose", "a",          "collection",
    "—",       "café", "settings",    "export", "`Cmd+E`", "then",   "\"quoted\"", "speech",
    "⌃⌥Space", "sync", "keeps",       "page",   "size\n",  "Step",   "1:",         "résumé"};

std::string content(std::mt19937& random) {
    std::uniform_int_distribution<std::size_t> length(20, 800);
    std::uniform_int_distribution<std::size_t> word(0, kWords.size() - 1);
    std::size_t target = length(random);
    std::string text;
    while (text.size() < target) {
        text += kWords[word(random)];
        text += ' ';
    }
    return text;
}

CoachCard card(int index) {
    return CoachCard{CoachCard::Style::success,
                     "Exported " + std::to_string(index),
                     "PDF, 4 pages",
                     {{"Where", {"~/Documents/Export.pdf"}}, {"Next", {"Share", "Print"}}},
                     {"Open the file", "Export again"}};
}

std::vector<CoachConversation> history(int count) {
    std::mt19937 random(2024);
    std::vector<CoachConversation> conversations;
    for (int c = 0; c < count; ++c) {
        CoachConversation conversation("Conversation " + std::to_string(c + 1));
        for (int m = 0; m < 500; ++m) {
            bool assistant = m % 2 == 1;
            std::optional<CoachCard> attachedCard;
            std::optional<CoachLesson> attachedLesson;
            if (assistant && m % 25 == 1) attachedCard = card(m);
            if (assistant && m % 100 == 51) attachedLesson = CoachLessonLibrary::speechSetup();
            conversation.append(
                CoachMessage(assistant ? CoachMessage::Role::assistant : CoachMessage::Role::user,
                             content(random), std::move(attachedCard), std::move(attachedLesson)));
        }
        conversations.push_back(std::move(conversation));
    }
    return conversations;
}

constexpr int kSmall = 4;
constexpr int kLarge = 100;

const std::vector<CoachConversation>& sampleHistory(int count = kLarge) {
    static const std::vector<CoachConversation> small = history(kSmall);
    static const std::vector<CoachConversation> large = history(kLarge);
    return count == kSmall ? small : large;
}

const std::string& sampleText(int count = kLarge) {
    static const std::string small = encodeConversations(sampleHistory(kSmall));
    static const std::string large = encodeConversations(sampleHistory(kLarge));
    return count == kSmall ? small : large;
}

// A field of /proc/self/status in kB ("VmRSS", "VmHWM").
long statusKb(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(field + ":", 0) == 0) return std::stol(line.substr(field.size() + 1));
    return -1;
}

// Starts a new resident-memory peak from the current size (Linux: clear_refs 5).
bool resetPeak() {
    std::ofstream clearRefs("/proc/self/clear_refs");
    clearRefs << "5";
    return static_cast<bool>(clearRefs.flush());
}

void DecodeMemory(benchmark::State& state) {
    const std::string& text = sampleText();
    double extraMB = 0;
    for (auto _ : state) {
        malloc_trim(0);
        bool canMeasure = resetPeak();
        long before = statusKb("VmRSS");
        std::vector<CoachConversation> decoded = decodeConversations(text);
        long peak = statusKb("VmHWM");
        benchmark::DoNotOptimize(decoded.data());
        if (!canMeasure || before < 0 || peak < 0) state.SkipWithError("no /proc/self memory");
        extraMB = (peak - before) / 1024.0;
    }
    double fileMB = text.size() / (1024.0 * 1024.0);
    state.counters["fileMB"] = fileMB;
    state.counters["decodePeakExtraMB"] = extraMB;
    state.counters["decodePeakExtraRatio"] = extraMB / fileMB;
}
BENCHMARK(DecodeMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

void Encode(benchmark::State& state) {
    const std::vector<CoachConversation>& conversations =
        sampleHistory(static_cast<int>(state.range(0)));
    std::size_t size = 0;
    for (auto _ : state) {
        std::string text = encodeConversations(conversations);
        size = text.size();
        benchmark::DoNotOptimize(text.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
    state.counters["fileMB"] = size / (1024.0 * 1024.0);
}
BENCHMARK(Encode)->Arg(kSmall)->Arg(kLarge)->Unit(benchmark::kMillisecond);

void Decode(benchmark::State& state) {
    const std::string& text = sampleText(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::vector<CoachConversation> decoded = decodeConversations(text);
        benchmark::DoNotOptimize(decoded.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
    state.counters["fileMB"] = text.size() / (1024.0 * 1024.0);
}
BENCHMARK(Decode)->Arg(kSmall)->Arg(kLarge)->Unit(benchmark::kMillisecond);

void EncodeOneMessage(benchmark::State& state) {
    const CoachMessage& message = sampleHistory()[0].messages()[1];
    std::size_t size = 0;
    for (auto _ : state) {
        std::string text = encodeJson(message);
        size = text.size();
        benchmark::DoNotOptimize(text.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
}
BENCHMARK(EncodeOneMessage);

}  // namespace

BENCHMARK_MAIN();
