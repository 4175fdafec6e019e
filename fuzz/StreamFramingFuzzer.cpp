// The stream framings on any bytes, cut into reads at places the input picks: the events and
// lines must be those of the same bytes in one read, and a streamed reply's text is UTF-8.
#include "FuzzInput.h"

#include "llm/OpenAIChatDialect.h"
#include "llm/StreamFraming.h"
#include "llm/StreamedReply.h"

#include <sagely/Error.h>
#include <sagely/Text.h>

#include <string>
#include <vector>

using namespace sagely;

namespace {

// The first byte seeds the read sizes (1 to 16 bytes); the rest is the stream.
std::vector<std::string_view> reads(std::string_view stream, std::uint8_t seed) {
    std::vector<std::string_view> pieces;
    while (!stream.empty()) {
        const std::size_t size = std::min<std::size_t>(stream.size(), 1 + (seed & 15));
        pieces.push_back(stream.substr(0, size));
        stream.remove_prefix(size);
        seed = static_cast<std::uint8_t>(seed * 29 + 7);
    }
    return pieces;
}

std::vector<std::string> sseEvents(const std::vector<std::string_view>& pieces) {
    std::vector<std::string> events;
    detail::SseParser parser(
        [&](const detail::SseEvent& event) { events.push_back(event.type + '\0' + event.data); });
    for (auto piece : pieces) parser.feed(piece);
    return events;
}

std::vector<std::string> lines(const std::vector<std::string_view>& pieces) {
    std::vector<std::string> found;
    detail::NdjsonSplitter splitter([&](std::string_view line) { found.emplace_back(line); });
    for (auto piece : pieces) splitter.feed(piece);
    splitter.finish();
    return found;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > 64 * 1024) return 0;
    const std::string_view stream = fuzz::textOf(data + 1, size - 1);
    const auto pieces = reads(stream, data[0]);
    fuzz::require(sseEvents(pieces) == sseEvents({stream}), "events do not depend on reads");
    fuzz::require(lines(pieces) == lines({stream}), "lines do not depend on reads");

    static const detail::OpenAIChatDialect openAI;
    detail::StreamedReplyReader reader(openAI, nullptr);
    try {
        for (auto piece : pieces) reader.feed("text/event-stream", piece);
        const std::string text = reader.finish();
        fuzz::require(text::isValidUtf8(text), "a streamed reply is UTF-8");
    } catch (const Error&) {
        // A stream may fail, never crash.
    }
    return 0;
}
