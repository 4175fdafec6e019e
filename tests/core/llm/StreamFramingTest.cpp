// The two framings of streamed replies, fed in every way the network may cut them.
#include "llm/StreamFraming.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using sagely::detail::NdjsonSplitter;
using sagely::detail::SseEvent;
using sagely::detail::SseParser;

namespace {

struct Collected {
    std::vector<std::string> types;
    std::vector<std::string> data;
};

Collected parseSse(const std::vector<std::string>& reads) {
    Collected got;
    SseParser parser([&](const SseEvent& event) {
        got.types.push_back(event.type);
        got.data.push_back(event.data);
    });
    for (const auto& read : reads) parser.feed(read);
    return got;
}

// Every way of cutting `stream` into two reads gives the same events as one read.
void expectSameAtEveryCut(const std::string& stream) {
    const Collected whole = parseSse({stream});
    for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
        const Collected split = parseSse({stream.substr(0, cut), stream.substr(cut)});
        EXPECT_EQ(split.data, whole.data) << "cut at " << cut;
        EXPECT_EQ(split.types, whole.types) << "cut at " << cut;
    }
}

std::vector<std::string> splitLines(const std::vector<std::string>& reads, bool finish = true) {
    std::vector<std::string> lines;
    NdjsonSplitter splitter([&](std::string_view line) { lines.emplace_back(line); });
    for (const auto& read : reads) splitter.feed(read);
    if (finish) splitter.finish();
    return lines;
}

}  // namespace

TEST(SseParser, DispatchesEachEventAtItsBlankLine) {
    const Collected got = parseSse({"event: a\ndata: 1\n\nevent: b\ndata: 2\n\n"});
    EXPECT_EQ(got.types, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(got.data, (std::vector<std::string>{"1", "2"}));
}

TEST(SseParser, AcceptsCrlfLfAndALoneCrAsLineEnds) {
    EXPECT_EQ(parseSse({"data: x\r\n\r\ndata: y\n\ndata: z\r\r"}).data,
              (std::vector<std::string>{"x", "y", "z"}));
}

TEST(SseParser, ACrlfSplitBetweenReadsIsOneLineEnd) {
    // Read as two line ends, the LF would be an empty line that dispatches "a" early.
    const Collected got = parseSse({"data: a\r", "\ndata: b\r\n\r\n"});
    EXPECT_EQ(got.data, (std::vector<std::string>{"a\nb"}));
}

TEST(SseParser, IgnoresCommentsAndKeepAlives) {
    EXPECT_EQ(parseSse({": PROCESSING\n\n:\ndata: x\n: ping\n\n"}).data,
              (std::vector<std::string>{"x"}));
}

TEST(SseParser, JoinsMultiLineDataWithNewlines) {
    EXPECT_EQ(parseSse({"data: {\"a\":\ndata:1}\n\n"}).data,
              (std::vector<std::string>{"{\"a\":\n1}"}));
}

TEST(SseParser, TakesOneSpaceAfterTheColonAndKeepsTheRest) {
    EXPECT_EQ(parseSse({"data:  two\ndata:none\n\n"}).data,
              (std::vector<std::string>{" two\nnone"}));
}

TEST(SseParser, DropsAnEventWithoutItsClosingBlankLine) {
    EXPECT_EQ(parseSse({"data: kept\n\ndata: cut"}).data, (std::vector<std::string>{"kept"}));
}

TEST(SseParser, ABlankLineWithNothingCollectedDispatchesNothing) {
    EXPECT_TRUE(parseSse({"\n\n\r\n", "event: lonely\n\n"}).data.empty());
}

TEST(SseParser, RemovesALeadingByteOrderMark) {
    EXPECT_EQ(parseSse({"\xEF\xBB\xBF"
                        "data: x\n\n"})
                  .data,
              (std::vector<std::string>{"x"}));
}

TEST(SseParser, SeveralEventsInOneReadAndOneEventOverManyReads) {
    const std::string stream = "data: one\n\ndata: two\n\ndata: three\n\n";
    EXPECT_EQ(parseSse({stream}).data.size(), 3u);
    std::vector<std::string> bytes;
    for (char c : stream) bytes.emplace_back(1, c);
    EXPECT_EQ(parseSse(bytes).data, (std::vector<std::string>{"one", "two", "three"}));
}

TEST(SseParser, AUtf8CharacterSplitAcrossReadsArrivesWhole) {
    expectSameAtEveryCut(
        "data: {\"t\":\"Gr\xC3\xBC\xC3\x9F\xE2\x80\x94\xF0\x9F\x91\x8B\"}\r\n\r\n");
    EXPECT_EQ(parseSse({"data: \xF0\x9F", "\x91\x8B\n\n"}).data,
              (std::vector<std::string>{"\xF0\x9F\x91\x8B"}));
}

TEST(SseParser, EveryCutOfAMixedStreamGivesTheSameEvents) {
    expectSameAtEveryCut(
        ": hi\r\nevent: message_start\r\ndata: {\"a\":1}\r\n\r\nevent: ping\ndata: {}\n\n"
        "data: x\rdata: y\r\rdata: [DONE]\n\n");
}

TEST(SseParser, AnEventWithEmptyDataIsStillAnEvent) {
    EXPECT_EQ(parseSse({"data:\n\n"}).data, (std::vector<std::string>{""}));
}

TEST(NdjsonSplitter, SplitsLinesAcrossReadsAndSkipsBlankOnes) {
    EXPECT_EQ(splitLines({"{\"a\":1}\n{\"b\"", ":2}\r\n\n  \n{\"c\":3}\n"}),
              (std::vector<std::string>{"{\"a\":1}", "{\"b\":2}", "{\"c\":3}"}));
}

TEST(NdjsonSplitter, HandsOnALastLineWithoutItsNewlineOnlyAtTheEnd) {
    EXPECT_EQ(splitLines({"{\"a\":1}\n{\"done\":true}"}, /*finish=*/false),
              (std::vector<std::string>{"{\"a\":1}"}));
    EXPECT_EQ(splitLines({"{\"a\":1}\n{\"done\":true}"}),
              (std::vector<std::string>{"{\"a\":1}", "{\"done\":true}"}));
}

TEST(NdjsonSplitter, EveryCutGivesTheSameLines) {
    const std::string stream =
        "{\"t\":\"\xC3\xBC\"}\n{\"t\":\"\xF0\x9F\x91\x8B\"}\r\n{\"done\":true}\n";
    const auto whole = splitLines({stream});
    ASSERT_EQ(whole.size(), 3u);
    for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
        EXPECT_EQ(splitLines({stream.substr(0, cut), stream.substr(cut)}), whole) << cut;
    }
}
