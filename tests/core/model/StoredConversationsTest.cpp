// A conversation file in the writer's form is taken in without decoding its conversations, and
// written back from their text. Against the full decoder: the same conversations, the same
// bytes written, the same errors, on the writer's own output and on thousands of altered copies.
#include <sagely/CoachConversation.h>
#include <sagely/CoachLesson.h>

#include "model/json/ConversationsInPlace.h"
#include "model/json/DataModelAccess.h"
#include "model/json/StoredConversations.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace sagely {
namespace {

using detail::DataModelAccess;
using Role = CoachMessage::Role;

CoachMessage message(int n, std::string content, double seconds,
                     std::optional<TokenUsage> usage = std::nullopt,
                     std::optional<CoachCard> card = std::nullopt,
                     std::optional<CoachLesson> lesson = std::nullopt) {
    return DataModelAccess::message(Uuid::random(),
                                    n % 3 == 2 ? Role::system
                                    : n % 2    ? Role::assistant
                                               : Role::user,
                                    std::move(content), std::move(card), std::move(lesson), usage,
                                    Timestamp(seconds));
}

TokenUsage namedUsage(std::int64_t input, std::int64_t output, std::string provider,
                      std::string model) {
    TokenUsage usage(input, output);
    usage.provider = std::move(provider);
    usage.model = std::move(model);
    return usage;
}

// Everything the writer escapes or spells in a way of its own: quotes, backslashes, every
// control character, a slash, DEL, non-ASCII text, ill-formed UTF-8 (written as U+FFFD), times
// in plain and exponent notation, -0, token counts at both ends.
std::vector<CoachConversation> sampleList() {
    std::string controls;
    for (char c = 1; c < 0x20; ++c) controls += c;
    std::vector<CoachMessage> plain = {
        message(0, "plain words", 700000000),
        message(1, "\"quoted\" back\\slash a/b \x7f" + controls, 785086251.75),
        message(2, std::string("nul \0 inside", 12), -0.0),
        message(3, "caf\xC3\xA9 \xF0\x9F\x98\x80 \xE2\x80\x94", 1e-7,
                TokenUsage{0, std::numeric_limits<std::int64_t>::max()}),
        message(4, "bad \xC3\x28 \xED\xA0\x80 \xFF", 1e22, TokenUsage{-5, 12}),
        message(5, "", 0.1),
        message(7, "named model", 700000000.5, namedUsage(12, 3, "openai", "gpt-4o-mini")),
        message(9, "escaped model", 700000000.75, namedUsage(1, 2, "local", "my \"model\"\n")),
    };
    std::vector<CoachMessage> withAttachments = {
        message(0, "a card", 700000001.5, std::nullopt,
                CoachCard{CoachCard::Style::info, "Card", "sub", {{"S", {"a", "b"}}}, {"More?"}}),
        message(1, "a lesson", 700000002.25, std::nullopt, std::nullopt,
                CoachLessonLibrary::speechSetup()),
    };
    return {
        DataModelAccess::conversation(Uuid::random(), "T\u00EDtulo \"1\"\n\t", plain, Timestamp(1),
                                      Timestamp(2.5)),
        DataModelAccess::conversation(Uuid::random(), "", {}, Timestamp(-0.0), Timestamp(3e-9)),
        DataModelAccess::conversation(Uuid::random(), "attachments", withAttachments,
                                      Timestamp(700000000), Timestamp(700000003)),
        DataModelAccess::conversation(Uuid::random(), "last", {plain[0], plain[3]}, Timestamp(4),
                                      Timestamp(1e21)),
    };
}

// The file code's path: the text stays alive with the conversations that keep parts of it.
std::vector<CoachConversation> decodeInPlace(std::string text) {
    auto buffer = std::make_shared<const std::string>(std::move(text));
    return detail::decodeConversationsInPlace(*buffer, buffer);
}

// What the full decoder makes of `text`: the list written back, or the error.
std::string fullOutcome(const std::string& text) {
    try {
        return "ok " + encodeConversations(decodeConversations(text));
    } catch (const std::exception& error) {
        return std::string("error ") + error.what();
    }
}

// The same through the file reader's path; the written list is checked conversation by
// conversation with its messages decoded, so stored texts are compared with their values too.
std::string inPlaceOutcome(const std::string& text) {
    std::vector<CoachConversation> list;
    try {
        list = decodeInPlace(text);
    } catch (const std::exception& error) {
        return std::string("error ") + error.what();
    }
    const std::string written = encodeConversations(list);
    std::vector<CoachConversation> decoded;
    for (const auto& conversation : list) {
        CoachConversation copy = conversation;
        if (const auto* stored = DataModelAccess::stored(copy)) {
            std::vector<Uuid> ids;
            for (const auto& m : copy.messages()) ids.push_back(m.id());
            if (ids != stored->messageIds) return "stored ids differ from the messages";
        }
        copy.setTitle(copy.title());  // no longer stored: written from its values
        EXPECT_EQ(DataModelAccess::stored(copy), nullptr);
        decoded.push_back(std::move(copy));
    }
    if (encodeConversations(decoded) != written) return "stored text differs from its values";
    return "ok " + written;
}

TEST(StoredConversations, TheWritersOwnTextIsKeptAndWrittenBackAsItIs) {
    const std::string text = encodeConversations(sampleList());
    const auto list = decodeInPlace(text);
    ASSERT_EQ(list.size(), 4u);
    EXPECT_NE(DataModelAccess::stored(list[0]), nullptr);
    EXPECT_NE(DataModelAccess::stored(list[1]), nullptr);
    EXPECT_NE(DataModelAccess::stored(list[2]), nullptr);
    EXPECT_NE(DataModelAccess::stored(list[3]), nullptr);
    EXPECT_EQ(encodeConversations(list), text);
    EXPECT_EQ(inPlaceOutcome(text), fullOutcome(text));
    EXPECT_EQ(list[0].title(), "T\u00EDtulo \"1\"\n\t");
    EXPECT_EQ(list[0].messages()[2].content(), std::string("nul \0 inside", 12));
    EXPECT_EQ(list[0].messages()[4].content(),
              "bad \xEF\xBF\xBD( \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD \xEF\xBF\xBD");
}

TEST(StoredConversations, AChangeWritesTheConversationFromItsValues) {
    const std::string text = encodeConversations(sampleList());
    auto list = decodeInPlace(text);
    auto expected = decodeConversations(text);
    list[0].append(CoachMessage(Role::user, "one more"));
    expected[0].messages() = list[0].messages();
    expected[0].setUpdatedAt(list[0].updatedAt());
    list[3].setTitle("renamed");
    expected[3].setTitle("renamed");
    EXPECT_EQ(DataModelAccess::stored(list[0]), nullptr);
    EXPECT_EQ(DataModelAccess::stored(list[3]), nullptr);
    EXPECT_NE(DataModelAccess::stored(list[1]), nullptr);
    EXPECT_EQ(encodeConversations(list), encodeConversations(expected));
}

TEST(StoredConversations, TextNotInTheWritersFormIsDecodedAsBefore) {
    const std::string text = encodeConversations(sampleList());
    const std::string variants[] = {
        " " + text,
        text + "\n",
        "[]",
        "[ ]",
        "",
        "{}",
        text.substr(0, text.size() / 2),
        R"([{"id":"11111111-2222-4333-8444-555555555555","title":"t","messages":[],"createdAt":1.50,"updatedAt":2}])",
        R"([{"id":"11111111-2222-4333-8444-555555555555","title":"t\u0041\/","messages":[],"createdAt":1,"updatedAt":2}])",
        R"([{"id":"11111111-2222-4333-8444-55555555555a","title":"t","messages":[],"createdAt":1,"updatedAt":2}])",
        R"([{"title":"t","id":"11111111-2222-4333-8444-555555555555","messages":[],"createdAt":1,"updatedAt":2}])",
        R"([{"id":"11111111-2222-4333-8444-555555555555","title":"t","messages":[],"createdAt":1,"updatedAt":2,"x":[1,{"y":"]"}]}])",
        R"([{"id":"11111111-2222-4333-8444-555555555555","title":"t","messages":[{"id":"11111111-2222-4333-8444-555555555555","role":"robot","content":"","timestamp":1}],"createdAt":1,"updatedAt":2}])",
        R"([{"id":"11111111-2222-4333-8444-555555555555","title":"t","messages":[{"id":"11111111-2222-4333-8444-555555555555","role":"user","content":"","usage":{"inputTokens":-0,"outputTokens":1},"timestamp":1}],"createdAt":1,"updatedAt":2}])",
        R"([{"id":"11111111-2222-4333-8444-555555555555","title":"t","messages":[{"id":"11111111-2222-4333-8444-555555555555","role":"user","content":"","card":null,"timestamp":1}],"createdAt":1,"updatedAt":2}])",
        R"([{"id":"11111111-2222-4333-8444-555555555555","title":"t","messages":[{"id":"11111111-2222-4333-8444-555555555555","role":"user","content":"","card":{"title":"c","style":"info","sections":[],"suggestions":[]},"timestamp":1}],"createdAt":1,"updatedAt":2}])",
    };
    for (const auto& variant : variants)
        EXPECT_EQ(inPlaceOutcome(variant), fullOutcome(variant)) << variant;
}

// Random edits of the writer's text, biased towards the bytes its form is made of.
TEST(StoredConversations, AlteredTextsGiveWhatTheFullDecoderGives) {
    const std::string original = encodeConversations(sampleList());
    const std::string alphabet = "\"\\/{}[],:0123456789-+.eEuUabfnrtAF \x01\x1f\x7f\xC3\xA9\xFF";
    std::mt19937 random(20261123);
    int decoded = 0;
    for (int round = 0; round < 2000; ++round) {
        std::string text = original;
        const int edits = 1 + static_cast<int>(random() % 3);
        for (int e = 0; e < edits && !text.empty(); ++e) {
            const std::size_t at = random() % text.size();
            const char c = alphabet[random() % alphabet.size()];
            switch (random() % 4) {
                case 0:
                    text[at] = c;
                    break;
                case 1:
                    text.insert(text.begin() + static_cast<std::ptrdiff_t>(at), c);
                    break;
                case 2:
                    text.erase(at, 1 + random() % 3);
                    break;
                default:
                    text.insert(at, text.substr(random() % text.size(), 1 + random() % 40));
            }
        }
        const std::string expected = fullOutcome(text);
        ASSERT_EQ(inPlaceOutcome(text), expected) << text;
        decoded += expected.starts_with("ok ");
    }
    EXPECT_GT(decoded, 100);  // the edits also leave many readable texts
}

}  // namespace
}  // namespace sagely
