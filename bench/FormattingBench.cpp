// Reply formatting on a 4 KB model reply: the repair and the step parsing each run once per
// reply and render, so each should stay well under a frame (goal: 200 µs each). And on inputs
// made to be slow: 32k digits before a full stop (goal: under 10 ms), 32k spaces between "*",
// and 1 MB of adversarial or random text, which should cost at most 2× 1 MB of plain prose, for
// normalising alone and followed by cleaning.
#include <sagely/CoachMessageFormatting.h>

#include <benchmark/benchmark.h>

#include <iterator>
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
enum Input {
    prose,
    digitsThenStop,
    spacesBetweenStars,
    adversarial,
    random,
    ideographicSpaces,  // U+3000
    noBreakSpaces,      // U+00A0
    otherUnicodeBlanks,
    malformedBytes,
    cjkProse,
    emojiProse,
    mixed,
    gluedStepMarkers,       // "Step 1:a" over and over: every marker is split off
    markersAfterSentences,  // ".Step 1"
    numberedItems,          // "1. "
    longS,                  // "ſ", which folds to the "s" of "Step"
};

// Runs of `blank` at both ends and between "*" and "x*", the places where trimming and
// cleaning read blanks.
std::string aroundStars(std::size_t bytes, const std::string& blank) {
    const std::string run = repeatedTo(bytes / 3, blank);
    return run + "*" + run + "x*" + run;
}

// The other White_Space characters beyond ASCII, U+0085 and the line separators among them.
const std::string kOtherBlanks =
    "\u2000\u2001\u2002\u2003\u2004\u2005\u2006\u2007\u2008\u2009\u200A\u2028\u2029\u0085"
    "\u1680\u202F\u205F";

// Lone continuation bytes, truncated sequences (cut short by ASCII), overlong forms, surrogates
// and code points past U+10FFFF encoded as UTF-8, and bytes that never start a sequence.
const std::string kMalformed =
    "\x80\xBF\xE3\x80x\xF0\x9F\x98y\xC3 \xC0\xAF\xE0\x80\xAF\xF0\x80\x80\xAF"
    "\xED\xA0\x80\xED\xBF\xBF\xF4\x90\x80\x80\xFF\xFE\xC1\xBF\xF8\x88\x80\x80\x80";

const std::string kCjkProse =
    "\u6253\u5F00\u8D44\u6599\u5E93\u9762\u677F\uFF0C\u9009\u62E9\u4F60\u8981\u4F7F"
    "\u7528\u7684\u6536\u85CF\u3002\u5FEB\u6377\u952E\u53EF\u4EE5\u5728\u8BBE\u7F6E"
    "\u7684\u952E\u76D8\u4E2D\u66F4\u6539\u3002\u30E9\u30A4\u30D6\u30E9\u30EA\u3092"
    "\u958B\u304D\u307E\u3059\u3002\n";

const std::string kEmojiProse =
    "Open the Library \U0001F4DA and choose \U0001F449\U0001F3FD the collection \U0001F389"
    "\U0001F600\u2728 you want. Shortcuts \u2328\uFE0F live in Settings \U0001F468\u200D"
    "\U0001F469\u200D\U0001F467 \U0001F44D\U0001F3FD\U0001F1EB\U0001F1F7\n";

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
        case ideographicSpaces:
            return aroundStars(bytes, "\u3000");
        case noBreakSpaces:
            return aroundStars(bytes, "\u00A0");
        case otherUnicodeBlanks:
            return aroundStars(bytes, kOtherBlanks);
        case malformedBytes:
            return aroundStars(bytes, kMalformed);
        case cjkProse:
            return repeatedTo(bytes, kCjkProse);
        case emojiProse:
            return repeatedTo(bytes, kEmojiProse);
        case gluedStepMarkers:
            return repeatedTo(bytes, "Step 1:a");
        case markersAfterSentences:
            return repeatedTo(bytes, ".Step 1");
        case numberedItems:
            return repeatedTo(bytes, "1. ");
        case longS:
            return repeatedTo(bytes, "\u017F");
        case mixed: {  // pieces of every other input, drawn at random
            const std::string pieces[] = {"Open the Library panel. ",
                                          "Step 12: ",
                                          "**bold** ",
                                          "\u3000\u3000\u3000",
                                          "\u00A0\u00A0",
                                          kOtherBlanks,
                                          kMalformed,
                                          kCjkProse,
                                          kEmojiProse,
                                          "  \n\n\n",
                                          "# ",
                                          "7777.",
                                          "\u0663\u0664. "};
            std::mt19937 generator(23);
            std::string text;
            while (text.size() < bytes) text += pieces[generator() % std::size(pieces)];
            return text;
        }
    }
    return {};
}

// 1 MB of each input, prose first.
void megabyteOfEachInput(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgNames({"input", "bytes"});
    for (Input kind :
         {prose, digitsThenStop, spacesBetweenStars, adversarial, random, ideographicSpaces,
          noBreakSpaces, otherUnicodeBlanks, malformedBytes, cjkProse, emojiProse, mixed,
          gluedStepMarkers, markersAfterSentences, numberedItems, longS})
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

// What a view does with a reply: cleaning the normalised text. Malformed bytes come out as
// U+FFFD, three bytes each, so such text is compared with prose by the bytes it makes too.
void normalizeAndCleanInput(benchmark::State& state) {
    const std::string text =
        input(static_cast<Input>(state.range(0)), static_cast<std::size_t>(state.range(1)));
    std::size_t outputBytes = 0;
    for (auto _ : state) {
        std::string cleaned = sagely::CoachMessageFormatting::cleanDisplayMarkdown(
            sagely::CoachMessageFormatting::normalize(text));
        outputBytes = cleaned.size();
        benchmark::DoNotOptimize(cleaned);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
    state.counters["output_bytes"] = static_cast<double>(outputBytes);
}
BENCHMARK(normalizeAndCleanInput)->Apply(megabyteOfEachInput)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
